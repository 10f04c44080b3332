#include "util/identifiers.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "harness/Vectors.h"

using namespace Quenvale::Interceptor::SDK::Util;

namespace {

std::string rootPath(const std::string& key) {
    return std::string("~") + URI::md5hash(key.c_str()).c_str();
}

}  // namespace

// Twice: the second round is answered by the caches.
TEST(Identifiers, KnownAnswersOfUrls) {
    for (int round = 0; round < 2; ++round) {
        for (const auto& row : harness::readVectors("url.tsv")) {
            SCOPED_TRACE(row.line());
            const char* url = row.at(0);
            EXPECT_STREQ(canonicalUrl(url).c_str(), row.at(1));
            EXPECT_STREQ(getHostFromURL(url).c_str(), row.at(2));
            EXPECT_STREQ(groupID(url, true, false, false).c_str(), row.at(3));
            EXPECT_STREQ(groupID(url, false, false, false).c_str(), row.at(4));
            EXPECT_STREQ(groupID(url, true, false, true).c_str(), row.at(5));
        }
    }
}

TEST(Identifiers, KnownAnswersOfPaths) {
    for (int round = 0; round < 2; ++round) {
        for (const auto& row : harness::readVectors("pathid.tsv")) {
            SCOPED_TRACE(row.line());
            EXPECT_STREQ(pathID(row.at(0), row.at(1), row.at(2)).c_str(), row.at(3));
        }
    }
}

TEST(Identifiers, HashIsTheSameThroughTheCache) {
    for (int round = 0; round < 2; ++round) {
        for (const auto& row : harness::readVectors("hash.tsv"))
            EXPECT_STREQ(md5hash(row.at(0)).c_str(), row.at(1)) << row.line();
        EXPECT_TRUE(md5hash(nullptr) == URI::md5hash(""));
    }
}

TEST(Identifiers, CachesHoldTheKeysUsedLast) {
    md5hash("kept in use");
    for (int i = 0; i < 600; ++i) {
        md5hash(std::to_string(i).c_str());
        md5hash("kept in use");
    }
    EXPECT_EQ(ourMD5HashCache.size(), 256);
    EXPECT_TRUE(ourMD5HashCache.hasKey("kept in use"));
    EXPECT_FALSE(ourMD5HashCache.hasKey("344"));
    EXPECT_TRUE(ourMD5HashCache.hasKey("345"));
}

TEST(Identifiers, UrlsWithoutAValuePushNothingOut) {
    canonicalUrl("http://stays/a/b");
    getHostFromURL("http://stays/a/b");
    for (int i = 0; i < 300; ++i) {
        const std::string url = "no url " + std::to_string(i);
        EXPECT_EQ(canonicalUrl(url.c_str()).c_str(), nullptr);
        EXPECT_EQ(getHostFromURL(url.c_str()).c_str(), nullptr);
    }
    EXPECT_TRUE(ourUrlPathCache.hasKey("http://stays/a/b"));
    EXPECT_TRUE(ourUrlHostCache.hasKey("http://stays/a/b"));
}

TEST(Identifiers, LongUrlsAreHandledWhole) {
    const std::string path = "/" + std::string(5000, 'a') + "/" + std::string(70000, 'b');
    EXPECT_STREQ(canonicalUrl(("http://h" + path + "/?q").c_str()).c_str(), path.c_str());
    EXPECT_EQ(groupID(("http://h" + path).c_str(), true, false, false).length(), 5000U);
}

TEST(Identifiers, NullUrls) {
    EXPECT_EQ(canonicalUrl(nullptr).c_str(), nullptr);
    EXPECT_EQ(getHostFromURL(nullptr).c_str(), nullptr);
    EXPECT_STREQ(groupID(nullptr, true, true, true).c_str(), "(consumer)");
    EXPECT_STREQ(groupID(nullptr, false, true, true).c_str(), "(provider)");
    EXPECT_TRUE(absolutePath(nullptr) == String::NIL);
}

TEST(Identifiers, FlagsNameNoGroupOfOneSegment) {
    for (const bool flag : {false, true}) {
        EXPECT_STREQ(groupID("http://h/cart", true, flag, !flag).c_str(), "(consumer)");
        EXPECT_STREQ(groupID("http://h/cart", false, true, flag).c_str(), "(provider)");
        EXPECT_STREQ(groupID("http://h/shop/cart", false, flag, flag).c_str(), "shop");
        EXPECT_STREQ(groupID("http://h//cart", true, true, flag).c_str(), "(consumer)");
    }
}

TEST(Identifiers, DefaultGroupIsAnIdentity) {
    EXPECT_TRUE(isDefaultGroup(CONSUMER_GROUP));
    EXPECT_TRUE(isDefaultGroup(PROVIDER_GROUP));
    EXPECT_FALSE(isDefaultGroup(String("(consumer)")));
    EXPECT_FALSE(isDefaultGroup(groupID(nullptr, true, false, false)));
    EXPECT_FALSE(isDefaultGroup(String::NIL));
}

TEST(Identifiers, SpecialServicesAreABlock) {
    EXPECT_EQ(specialSvc(0xfeff), 0);
    EXPECT_EQ(specialSvc(0xff00), 1);
    EXPECT_EQ(specialSvc(0xffff), 1);
    EXPECT_EQ(specialSvc(0x10000), 0);
    EXPECT_EQ(specialSvc(short{-128}), 0);
}

TEST(Identifiers, PathKeyIsCutAt255Characters) {
    const std::string op(250, 'o');
    EXPECT_EQ(pathID(nullptr, "hostname", op.c_str()).c_str(), rootPath(op + "@HOST"));
    EXPECT_TRUE(pathID(nullptr, "hostX", op.c_str()) == pathID(nullptr, "hostY", op.c_str()));
    EXPECT_FALSE(pathID(nullptr, "hosX", op.c_str()) == pathID(nullptr, "hosY", op.c_str()));
    const std::string large(100000, 'p');
    EXPECT_TRUE(pathID(large.c_str(), "h", "x") == URI::md5hash(std::string(255, 'p').c_str()));
}

TEST(Identifiers, PathKeyParts) {
    EXPECT_EQ(pathID(nullptr, "a\xe4z", "x").c_str(), rootPath("x@A\xe4Z")) << "ASCII only";
    EXPECT_TRUE(pathID("", "h", "x") == URI::md5hash("@x@H")) << "blank parent";
    EXPECT_EQ(pathID(nullptr, "", "").c_str(), rootPath("@")) << "blank is not missing";
}

TEST(Identifiers, PathHostComesFromTheUrlOnlyIfNotGiven) {
    const struct {
        const char* why;
        const char* url;
        const char* host;
        const char* key;
    } rows[] = {
        {"neither", nullptr, nullptr, "0"},
        {"from the url", "http://h:80/a", nullptr, "x@H"},
        {"the host wins", "http://h:80/a", "k", "x@K"},
        {"no url", nullptr, "k", "x@K"},
        {"a bad url does not matter", "/a", "k", "x@K"},
    };
    for (const auto& row : rows)
        EXPECT_EQ(pathID(nullptr, row.url, row.host, "x").c_str(), rootPath(row.key)) << row.why;
    EXPECT_EQ(pathID(nullptr, "/a", nullptr, "x").c_str(), nullptr);
}

TEST(Identifiers, ReplaceReplacesNothing) {
    EXPECT_STREQ(replace("a", "a", "b").c_str(), "a");
    EXPECT_EQ(replace(String(), "a", "b").c_str(), nullptr);
}

// More keys than a cache holds, so that one thread's insertions drop what another just found.
TEST(Identifiers, ThreadsShareTheCaches) {
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([t] {
            for (int i = 0; i < 1500; ++i) {
                const std::string name = "n" + std::to_string((i * (t + 1)) % 400);
                const std::string url = "http://" + name + "/" + name + "/x";
                EXPECT_TRUE(md5hash(name.c_str()) == URI::md5hash(name.c_str()));
                EXPECT_STREQ(groupID(url.c_str(), true, false, false).c_str(), name.c_str());
                EXPECT_EQ(pathID(nullptr, url.c_str(), nullptr, "x").length(), 25U);
            }
        });
    }
    for (auto& thread : threads) thread.join();
}
