#include "util/uri.h"

#include <gtest/gtest.h>

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <memory>
#include <random>
#include <string>

using namespace Quenvale::Interceptor::SDK::Util;

namespace {

void add(std::string& out, const char* name, const char* text) {
    if (text != nullptr) out += std::string(name) + "=" + text + " ";
}

// A parsed URI on one line: each part that is there, the segments in brackets.
std::string parsed(const char* uri) {
    const std::unique_ptr<URI::parsedURI, void (*)(URI::parsedURI*)> result(URI::parseURI(uri),
                                                                            URI::freeparsedURI);
    if (!result) return "rejected";
    std::string out;
    add(out, "scheme", result->scheme);
    add(out, "opaque", result->opaque);
    if (const auto* auth = result->auth) {
        add(out, "reg", auth->reg_name);
        add(out, "user", auth->userinfo);
        add(out, "host", auth->host);
        if (auth->port != 0) out += "port=" + std::to_string(auth->port) + " ";
    }
    if (result->abs_path != nullptr) {
        for (char** segment = result->abs_path; *segment != nullptr; ++segment)
            out += std::string("[") + *segment + "]";
        out += " ";
    }
    add(out, "query", result->query);
    if (!out.empty()) out.pop_back();
    return out;
}

struct UriRow {
    const char* why;
    const char* uri;
    const char* parts;
};

void expectParts(const UriRow& row) {
    EXPECT_EQ(parsed(row.uri), row.parts) << row.uri << ": " << row.why;
}

}  // namespace

TEST(Uri, TakesApart) {
    const UriRow rows[] = {
        {"plain", "http://h/a/b", "scheme=http host=h [a][b]"},
        {"only the scheme is lowered", "HTTP://Host/A", "scheme=http host=Host [A]"},
        {"all of a scheme's characters", "a1+-.B://h/a", "scheme=a1+-.b host=h [a]"},
        {"a trailing slash is no segment", "http://h/a/", "scheme=http host=h [a]"},
        {"no path", "http://h", "scheme=http host=h"},
        {"nothing behind the slash", "http://h/", "scheme=http host=h"},
        {"only a query behind the slash", "http://h/?x", "scheme=http host=h query=x"},
        {"a query right behind the authority", "http://h?x", "scheme=http host=h query=x"},
        {"an empty query", "http://h/a?", "scheme=http host=h [a]"},
        {"all of a query's characters", "http://h/a?x?y/;:&=+,$%2F",
         "scheme=http host=h [a] query=x?y/;:&=+,$%2F"},
        {"any number of slashes", "http:////h/a", "scheme=http host=h [a]"},
        {"an empty first segment", "http://h//a", "scheme=http host=h [][a]"},
        {"one empty segment", "http://h//", "scheme=http host=h []"},
        {"no authority", "file:/a/b", "scheme=file [a][b]"},
        {"no authority, with a query", "file:/a?q", "scheme=file [a] query=q"},
        {"opaque", "mailto:x@y", "scheme=mailto opaque=x@y"},
        {"an opaque part keeps its ?", "x:a?b/c;d", "scheme=x opaque=a?b/c;d"},
        {"an opaque part that is only a ?", "x:?b", "scheme=x opaque=?b"},
        {"nothing is unescaped", "http://h/a%20b", "scheme=http host=h [a%20b]"},
        {"all of a path's marks", "http://h/:@&=+$,_-!.*~'()",
         "scheme=http host=h [:@&=+$,_-!.*~'()]"},
    };
    for (const auto& row : rows) expectParts(row);
}

TEST(Uri, AuthorityIsAServerOrAName) {
    const UriRow rows[] = {
        {"all parts", "http://u:p@h:80/a", "scheme=http user=u:p host=h port=80 [a]"},
        {"nothing before the @", "http://@h/", "scheme=http host=h"},
        {"a colon before the @ is no port", "http://u:1@h/", "scheme=http user=u:1 host=h"},
        {"two @", "http://a@b@c/", "scheme=http reg=a@b@c"},
        {"two colons and no @", "http://a:1:2/", "scheme=http reg=a:1:2"},
        {"two colons behind the @", "http://u@a:1:2/", "scheme=http reg=u@a:1:2"},
        {"not a number", "http://h:x/", "scheme=http reg=h:x"},
        {"a number and more", "http://u@h:8x/", "scheme=http reg=u@h:8x"},
        {"no number", "http://h:/", "scheme=http host=h"},
        {"a port wraps", "http://h:70000/", "scheme=http host=h port=4464"},
        {"a long port wraps too", "http://h:184467440737095516169/", "scheme=http host=h port=9"},
        {"no host", "http://:80/", "scheme=http reg=:80"},
        {"no host behind the @", "http://u@/", "scheme=http reg=u@"},
        {"an underscore is for names", "http://my_host/a", "scheme=http reg=my_host [a]"},
        {"an escape is for names", "http://h%20x/a", "scheme=http reg=h%20x [a]"},
        {"a semicolon is for names", "http://h;x/a", "scheme=http reg=h;x [a]"},
        {"dots and hyphens", "http://a-b.c9.:1/", "scheme=http host=a-b.c9. port=1"},
        {"a leading dot", "http://.a/", "scheme=http reg=.a"},
        {"two dots", "http://a..b/", "scheme=http reg=a..b"},
        {"a leading hyphen", "http://-a/", "scheme=http reg=-a"},
        {"a hyphen before the port", "http://a-:1/", "scheme=http reg=a-:1"},
        {"a hyphen at the end", "http://a-/a", "scheme=http reg=a- [a]"},
        {"a hyphen behind the @", "http://u@-a/", "scheme=http reg=u@-a"},
        {"a hyphen beside a dot", "http://a.-b/", "scheme=http reg=a.-b"},
    };
    for (const auto& row : rows) expectParts(row);
}

TEST(Uri, Rejects) {
    const char* const uris[] = {
        nullptr,          "",
        "/a/b",           "abc",
        "1a://h/a",       "http:",
        "http:/",         "http:/?x",
        "http://",        "http://?x",
        "http:///",       "ht tp://h/a",
        "ht_tp://h/a",    ":a",
        "http://h///a",   "http://h/a//",
        "file:/a//b",     "http://h/a#f",
        "http://h#f",     "http://h/a;p",
        "http://h/a b",   "http://h/a%zz",
        "http://h/a%2",   "http://h/a%",
        "http://h/%/a",   "http://h%2/a",
        "http://[::1]/a", "http://h/a?b c",
        "http://h/a?%4",  "http://h/a?#",
        "x:a b",          "x:a#b",
        "x:%4g",          "http://h/\xe4",
        "http://\xe4/a",  "\xe4://h/a",
    };
    for (const char* uri : uris)
        EXPECT_EQ(parsed(uri), "rejected") << (uri == nullptr ? "null" : uri);
}

TEST(Uri, ChecksTakeTheLastCharacter) {
    const char text[] = "a/b/";
    EXPECT_EQ(URI::verify_chop_abspath(text + 1, text), nullptr);
    EXPECT_EQ(URI::verify_fill_authority(text + 1, text), nullptr);

    char** segments = URI::verify_chop_abspath(text, text + 2);
    ASSERT_NE(segments, nullptr);
    EXPECT_STREQ(segments[1], "b");
    EXPECT_EQ(segments[2], nullptr);
    URI::freeptrs(reinterpret_cast<void**>(segments));
    release(segments);

    auto* auth = URI::verify_fill_authority(text, text);
    ASSERT_NE(auth, nullptr);
    auth->port = 5;
    URI::freeauthority(auth);
    EXPECT_EQ(auth->host, nullptr);
    EXPECT_EQ(auth->port, 0);
    release(auth);
}

TEST(Uri, CharacterClassesAreExact) {
    const std::string reserved = "/;:?&@+=,$";
    const std::string marks = "_-!.*~'()";
    const std::string hex = "0123456789ABCDEFabcdef";
    for (int i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        const bool isAlphanumeric = i < 128 && std::isalnum(i) != 0;
        EXPECT_EQ(URI::is_reserved(c), reserved.find(c) != std::string::npos) << i;
        EXPECT_EQ(URI::is_mark(c), marks.find(c) != std::string::npos) << i;
        EXPECT_EQ(URI::is_unreserved(c), isAlphanumeric || URI::is_mark(c)) << i;
        EXPECT_EQ(URI::is_hex(c), hex.find(c) != std::string::npos) << i;
    }
    EXPECT_TRUE(URI::is_escaped("%aF1"));
    EXPECT_FALSE(URI::is_escaped("%a"));
    EXPECT_FALSE(URI::is_escaped("a%20"));
}

// Heap copies of the exact length let the sanitizers see a read behind the end.
TEST(Uri, ArbitraryBytesDoNoHarm) {
    std::mt19937 random(20240101);
    const std::string likely = "hab09:/?#%2F@.-_;[] \xe4\xff";
    for (int i = 0; i < 20000; ++i) {
        std::string text = i % 2 == 0 ? "h://" : "";
        const std::size_t length = random() % 24;
        for (std::size_t k = 0; k < length; ++k) text += likely[random() % likely.size()];
        const std::unique_ptr<char, void (*)(void*)> exact(String::convert(text.c_str()),
                                                           std::free);
        URI::freeparsedURI(URI::parseURI(exact.get()));
    }
}

TEST(Uri, CostIsLinear) {
    const std::string mega(1 << 20, 'a');
    std::string slashes;
    for (int i = 0; i < 1 << 18; ++i) slashes += "/a%20";
    for (const auto& uri :
         {"http://" + mega, "http://h/" + mega, "http://h" + slashes, "http://h/a?" + mega,
          "x:" + mega, mega + "://h/a", "http:" + std::string(1 << 20, '/'),
          "http://h:" + std::string(1 << 20, '9')}) {
        const auto start = std::chrono::steady_clock::now();
        URI::freeparsedURI(URI::parseURI(uri.c_str()));
        EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20))
            << uri.substr(0, 12);
    }
}
