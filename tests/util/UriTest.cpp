#include "util/uri.h"

#include <cctype>
#include <random>
#include <sstream>

#include "harness/test.h"

using namespace Quenvale::Interceptor::SDK::Util;

namespace {

void add(std::string& out, const char* name, const char* text) {
    if (text != nullptr) out += std::string(" ") + name + "=" + text;
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
        if (auth->port != 0) add(out, "port", std::to_string(auth->port).c_str());
    }
    if (result->abs_path != nullptr) out += " ";
    for (char** segment = result->abs_path; segment != nullptr && *segment != nullptr; ++segment)
        out += std::string("[") + *segment + "]";
    add(out, "query", result->query);
    return out.substr(1);
}

}  // namespace

// url.tsv, read in IdentifiersTest, has the plain cases. An authority is a server or a name.
TEST(Uri, TakesApart) {
    const char* const rows[][3] = {
        {"only the scheme is lowered", "A1+-.B://H/A", "scheme=a1+-.b host=H [A]"},
        {"a query right behind the authority", "http://h?x", "scheme=http host=h query=x"},
        {"an empty query", "http://h/a/?", "scheme=http host=h [a]"},
        {"an opaque part keeps its ?", "x:?b/c;d%20", "scheme=x opaque=?b/c;d%20"},
        {"all of a path's marks", "x:/:@&=+$,_-!.*~'()%2f", "scheme=x [:@&=+$,_-!.*~'()%2f]"},
        {"all parts", "s://u:p@h:80/a?q", "scheme=s user=u:p host=h port=80 [a] query=q"},
        {"nothing before the @", "s://@h", "scheme=s host=h"},
        {"a colon before the @ is no port", "s://u:1@h", "scheme=s user=u:1 host=h"},
        {"two @", "s://a@b@c", "scheme=s reg=a@b@c"},
        {"two colons and no @", "s://a:1:2", "scheme=s reg=a:1:2"},
        {"a number and more", "s://u@h:8x", "scheme=s reg=u@h:8x"},
        {"a port wraps", "s://h:184467440737095516169", "scheme=s host=h port=9"},
        {"no host", "s://:80", "scheme=s reg=:80"},
        {"no host behind the @", "s://u@", "scheme=s reg=u@"},
        {"dots and hyphens", "s://a-b.c9.:1", "scheme=s host=a-b.c9. port=1"},
        {"a leading dot", "s://u@.a", "scheme=s reg=u@.a"},
        {"two dots", "s://a..b", "scheme=s reg=a..b"},
        {"a hyphen at the end", "s://a-/a", "scheme=s reg=a- [a]"},
        {"a hyphen beside a dot", "s://a.-b", "scheme=s reg=a.-b"},
    };
    for (const auto& [why, uri, parts] : rows) EXPECT_EQ(parsed(uri), parts) << uri << ": " << why;
}

TEST(Uri, Rejects) {
    EXPECT_EQ(URI::parseURI(nullptr), nullptr);
    const char text[] = "a/b/";
    EXPECT_EQ(URI::verify_chop_abspath(text + 1, text), nullptr) << "an end before the start";
    EXPECT_EQ(URI::verify_fill_authority(text + 1, text), nullptr);
    // One a word, since a space is refused anywhere; spaces and bytes above 127 follow.
    std::istringstream words(
        "/a/b abc 1a://h/a http: http:/ http:/?x http:// http://?x http:/// ht_tp://h/a :a "
        "http://h///a http://h/a// file:/a//b http://h/a#f http://h#f http://h/a;p http://h/a%zz "
        "http://h/a%2 http://h/a% http://h/%/a http://h%2/a http://[::1]/a http://h/a?%4 "
        "http://h/a?# x:a#b x:%4g http://h/\xe4 http://\xe4/a \xe4://h/a x:\xff");
    for (std::string uri; words >> uri;) EXPECT_EQ(parsed(uri.c_str()), "rejected") << uri;
    for (const char* uri : {"", "a ://h/a", "http://h /a", "http://h/a b", "http://h/a?b c", "x: "})
        EXPECT_EQ(parsed(uri), "rejected") << uri;
}

TEST(Uri, CharacterClassesAreExact) {
    const std::string reserved = "/;:?&@+=,$";
    const std::string marks = "_-!.*~'()";
    for (int i = 0; i < 256; ++i) {
        const char c = static_cast<char>(i);
        EXPECT_EQ(URI::is_reserved(c), reserved.find(c) != std::string::npos) << i;
        EXPECT_EQ(URI::is_mark(c), marks.find(c) != std::string::npos) << i;
        EXPECT_EQ(URI::is_unreserved(c), (i < 128 && std::isalnum(i)) || URI::is_mark(c)) << i;
        EXPECT_EQ(URI::is_hex(c), i < 128 && std::isxdigit(i)) << i;
    }
}

// Blocks of the exact length let the sanitizers see a read behind the end.
TEST(Uri, ArbitraryBytesDoNoHarm) {
    std::mt19937 random(20240101);
    const std::string likely = "hab09:/?#%2F@.-_;[] \xe4\xff";
    for (int i = 0; i < 20000; ++i) {
        std::string text = i % 2 == 0 ? "h://" : "";
        for (auto left = random() % 24; left > 0; --left) text += likely[random() % likely.size()];
        URI::freeparsedURI(URI::parseURI(String(text.c_str()).c_str()));
    }
}
