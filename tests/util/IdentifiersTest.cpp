#include "util/identifiers.h"

#include "harness/Vectors.h"

using namespace Quenvale::Interceptor::SDK::Util;

namespace {

std::string rootPath(const std::string& key) {
    return std::string("~") + URI::md5hash(key.c_str()).c_str();
}

}  // namespace

// Twice: the second round is answered by the caches.
TEST(Identifiers, KnownAnswers) {
    for (int round = 0; round < 2; ++round) {
        for (const auto& row : harness::readVectors("url.tsv")) {
            SCOPED_TRACE(row.line());
            const char* url = row.at(0);
            EXPECT_STREQ(canonicalUrl(url).c_str(), row.at(1));
            EXPECT_STREQ(getHostFromURL(url).c_str(), row.at(2));
            EXPECT_STREQ(groupID(url, true, false, false).c_str(), row.at(3));
            EXPECT_STREQ(groupID(url, false, false, false).c_str(), row.at(4));
            EXPECT_STREQ(groupID(url, true, true, true).c_str(), row.at(5));
        }
        for (const auto& row : harness::readVectors("pathid.tsv")) {
            // Rows share keys, and a hit would hide how a later one is made.
            if (round == 0) ourPathCache.clear();
            EXPECT_STREQ(pathID(row.at(0), row.at(1), row.at(2)).c_str(), row.at(3)) << row.line();
        }
        for (const auto& row : harness::readVectors("hash.tsv"))
            EXPECT_STREQ(md5hash(row.at(0)).c_str(), row.at(1)) << row.line();
    }
}

TEST(Identifiers, CachesKeepTheKeysUsedLast) {
    const char* const kUrl = "http://stays/a/b";
    canonicalUrl(kUrl);
    getHostFromURL(kUrl);
    for (int i = 0; i < 600; ++i) {
        const std::string name = "no url " + std::to_string(i);
        md5hash("kept in use");
        md5hash(name.c_str());
        EXPECT_EQ(canonicalUrl(name.c_str()).c_str(), nullptr);
        EXPECT_EQ(getHostFromURL(name.c_str()).c_str(), nullptr);
    }
    EXPECT_EQ(ourMD5HashCache.size(), 256);
    EXPECT_TRUE(ourMD5HashCache.hasKey("kept in use"));
    EXPECT_FALSE(ourMD5HashCache.hasKey("no url 344"));
    EXPECT_TRUE(ourMD5HashCache.hasKey("no url 345"));
    EXPECT_TRUE(ourUrlPathCache.hasKey(kUrl)) << "a url without a path pushes nothing out";
    EXPECT_TRUE(ourUrlHostCache.hasKey(kUrl)) << "a url without a host pushes nothing out";
}

TEST(Identifiers, NullAndLongUrls) {
    EXPECT_EQ(canonicalUrl(nullptr).c_str(), nullptr);
    EXPECT_EQ(getHostFromURL(nullptr).c_str(), nullptr);
    EXPECT_STREQ(groupID(nullptr, true, true, true).c_str(), "(consumer)");
    EXPECT_STREQ(groupID(nullptr, false, true, true).c_str(), "(provider)");
    EXPECT_TRUE(isDefaultGroup(CONSUMER_GROUP) && isDefaultGroup(PROVIDER_GROUP));
    EXPECT_FALSE(isDefaultGroup(String("(consumer)"))) << "the object, not the text";
    EXPECT_STREQ(replace("a", "a", "b").c_str(), "a");
    EXPECT_EQ(specialSvc(0xfeff) + specialSvc(0x10000) + specialSvc(short{-128}), 0);
    EXPECT_EQ(specialSvc(0xff00), 1);

    const std::string path = "/" + std::string(5000, 'a') + "/" + std::string(70000, 'b');
    EXPECT_STREQ(canonicalUrl(("http://h" + path + "/?q").c_str()).c_str(), path.c_str());
    EXPECT_EQ(groupID(("http://h" + path).c_str(), true, false, false).length(), 5000U);
}

TEST(Identifiers, PathKeys) {
    const std::string op(250, 'o');
    const std::string large(100000, 'p');
    const struct {
        const char* why;
        String path;
        std::string expected;
    } rows[] = {
        {"cut in the host", pathID(nullptr, "hostname", op.c_str()), rootPath(op + "@HOST")},
        {"cut before the host", pathID(nullptr, "h", (op + "opopo").c_str()),
         rootPath(op + "opopo")},
        {"a parent alone fills the key", pathID(large.c_str(), "h", "x"),
         URI::md5hash(std::string(255, 'p').c_str()).c_str()},
        {"ASCII letters only", pathID(nullptr, "a\xe4z", "x"), rootPath("x@A\xe4Z")},
        {"a blank parent is one", pathID("", "h", "x"), URI::md5hash("@x@H").c_str()},
        {"blank is not missing", pathID(nullptr, "", ""), rootPath("@")},
        {"no host and no url", pathID(nullptr, nullptr, nullptr, "x"), rootPath("0")},
        {"the url's host", pathID(nullptr, "http://h:80/a", nullptr, "x"), rootPath("x@H")},
        {"the host wins", pathID(nullptr, "http://h:80/a", "k", "x"), rootPath("x@K")},
    };
    for (const auto& row : rows) EXPECT_EQ(row.path.c_str(), row.expected) << row.why;
    EXPECT_EQ(pathID(nullptr, "/a", nullptr, "x").c_str(), nullptr);
}

// More keys than a cache holds, so that one thread's insertions drop what another just found.
TEST(Identifiers, ThreadsShareTheCaches) {
    const auto work = [](int step) {
        for (int i = 0; i < 1500; ++i) {
            const std::string name = "n" + std::to_string(i * step % 400);
            std::string url = "http://" + name;
            url.append("/").append(name).append("/x");
            EXPECT_TRUE(md5hash(name.c_str()) == URI::md5hash(name.c_str()));
            EXPECT_STREQ(groupID(url.c_str(), true, false, false).c_str(), name.c_str());
            EXPECT_EQ(pathID(nullptr, url.c_str(), nullptr, "x").length(), 25U);
        }
    };
    harness::onThreads([&] { work(1); }, [&] { work(2); }, [&] { work(3); }, [&] { work(4); });
}
