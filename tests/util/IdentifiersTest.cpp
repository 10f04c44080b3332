#include "util/identifiers.h"

#include <unistd.h>

#include <set>

#include "harness/Vectors.h"
#include "util/Clock.h"
#include "util/base64.h"
#include "util/guid.h"
#include "util/md5.h"

using namespace Quenvale::Interceptor::SDK::Util;
using std::string_literals::operator""s;

namespace {

String rootPath(const std::string& key) {
    return "~" + URI::md5hash(key.c_str());
}

// Of the text in portions.
std::string digestOf(const std::string& text, std::size_t portion) {
    Quenvale_MD5Context context;
    Quenvale_MD5Init(&context);
    for (std::size_t at = 0; at < text.size(); at += portion)
        Quenvale_MD5Update(&context, reinterpret_cast<const unsigned char*>(text.data() + at),
                           static_cast<unsigned>(std::min(portion, text.size() - at)));
    unsigned char digest[16];
    Quenvale_MD5Final(digest, &context);
    return {reinterpret_cast<char*>(digest), sizeof digest};
}

}  // namespace

TEST(Guid, CounterFollowsTheBaseOfProcessAndTimeAndItsWrapKeepsIt) {
    const std::int64_t before = Clock::_currentTimeMillis();
    unsigned char* base = _getBase();
    ASSERT_NE(base, nullptr);
    const pid_t process = getpid();
    EXPECT_EQ(std::memcmp(base + 4, &process, 2), 0) << "low byte first";
    std::int64_t made = 0;
    std::memcpy(&made, base + 6, 6);
    EXPECT_GE(made, before);
    EXPECT_LE(made, Clock::_currentTimeMillis());
    release(base);

    counter = 0xfffffffe;
    for (const std::uint32_t serial : {0xfffffffeU, 0xffffffffU, 0U, 1U}) {
        unsigned char bytes[16];
        getBytes(bytes);
        EXPECT_EQ(std::memcmp(bytes, __base, 12), 0);
        EXPECT_EQ(std::memcmp(bytes + 12, &serial, 4), 0) << "low byte first";
        const std::uint32_t next = counter.exchange(serial);
        EXPECT_EQ(newGuid(), base64::encode16(bytes)) << "the text is that of the bytes";
        EXPECT_EQ(counter, next);
    }
}

TEST(Guid, ThreadsNeverShareOne) {
    constexpr int kEach = 10000;
    std::set<std::string> made[2];
    const auto make = [](std::set<std::string>& mine) {
        for (int i = 0; i < kEach; ++i) mine.emplace(newGuid().c_str());
    };
    harness::onThreads([&] { make(made[0]); }, [&] { make(made[1]); });
    made[0].merge(made[1]);
    EXPECT_EQ(made[0].size(), 2U * kEach);
}

// hash.tsv has the known answers.
TEST(Md5, PortionsMakeNoDifferenceAndARawHashEndsAtItsFirstZeroByte) {
    std::string text;
    for (int i = 0; i < 200; ++i) text += static_cast<char>('!' + i % 90);
    const String whole = URI::md5hash(text.c_str());
    for (std::size_t portion = 1; portion <= text.size(); ++portion)
        EXPECT_EQ(base64::encode(digestOf(text, portion).data(), 16), whole) << portion;
    EXPECT_EQ(URI::md5hash(true, text.substr(0, 63).c_str(), text.c_str() + 63, nullptr), whole);
    EXPECT_EQ(URI::md5hash(true, nullptr, nullptr), URI::md5hash(""));
    const String raw = URI::md5hash(false, "raw22", nullptr);
    EXPECT_EQ(raw.length(), 7U);
    EXPECT_STREQ(raw.c_str(), digestOf("raw22", 64).c_str());
}

TEST(Base64, EncodesAnyLengthAndDecodePacksTheCharactersThemselves) {
    const std::pair<std::string, const char*> encoded[] = {
        {"", ""}, {"f", "Zg=="}, {"fo", "Zm8="}, {"\0\0\0"s, "AAAA"}, {"\xfb\xff\xfe", "+//+"},
    };
    for (const auto& [bytes, text] : encoded)
        EXPECT_STREQ(base64::encode(bytes.data(), static_cast<int>(bytes.size())).c_str(), text);
    EXPECT_STREQ(base64::encode(nullptr, 5).c_str(), "");
    EXPECT_STREQ(base64::encode("abc", -1).c_str(), "");
    EXPECT_EQ(base64::encode(std::string(100000, 'x').data(), 100000).length(), 133336U);

    const char* const decoded[][3] = {
        {"0x61 in each place", "aaaa", "\x86\x18\xa1"},
        {"stops at the padding", "aa==aa", "\x86"},
        {"stops outside the alphabet", "aaaa-aaaa", "\x86\x18\xa1"},
        {"stops above 127", "aaa\xe4", "\x86\x18"},
    };
    for (const auto& [why, text, bytes] : decoded)
        EXPECT_STREQ(base64::decode(text).c_str(), bytes) << why;
    EXPECT_EQ(base64::decode(nullptr).c_str(), nullptr);
}

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

TEST(Identifiers, NullsLongUrlsAndPathKeys) {
    EXPECT_EQ(canonicalUrl(nullptr).c_str(), nullptr);
    EXPECT_EQ(getHostFromURL(nullptr).c_str(), nullptr);
    EXPECT_STREQ(groupID(nullptr, false, true, true).c_str(), "(provider)");
    EXPECT_TRUE(isDefaultGroup(CONSUMER_GROUP) && isDefaultGroup(PROVIDER_GROUP));
    EXPECT_FALSE(isDefaultGroup(String("(consumer)"))) << "the object, not the text";
    EXPECT_STREQ(replace("a", "a", "b").c_str(), "a");
    EXPECT_EQ(specialSvc(0xfeff) + specialSvc(0x10000) + specialSvc(short{-128}), 0);
    EXPECT_EQ(specialSvc(0xff00) + specialSvc(0xffff), 2);

    const std::string path = "/" + std::string(5000, 'a') + "/" + std::string(70000, 'b');
    EXPECT_STREQ(canonicalUrl(("http://h" + path + "/?q").c_str()).c_str(), path.c_str());
    EXPECT_EQ(groupID(("http://h" + path).c_str(), true, false, false).length(), 5000U);

    const std::string op(250, 'o');
    const std::string large(100000, 'p');
    EXPECT_EQ(pathID(nullptr, "hostname", op.c_str()), rootPath(op + "@HOST")) << "cut there";
    EXPECT_EQ(pathID(nullptr, "h", (op + "opopo").c_str()), rootPath(op + "opopo"));
    EXPECT_EQ(pathID(large.c_str(), "h", "x"), URI::md5hash(large.substr(0, 255).c_str()));
    EXPECT_EQ(pathID(nullptr, "a\xe4z", "x"), rootPath("x@A\xe4Z")) << "ASCII letters only";
    EXPECT_EQ(pathID("", "h", "x"), URI::md5hash("@x@H")) << "a blank parent is one";
    EXPECT_EQ(pathID(nullptr, "", ""), rootPath("@")) << "blank is not missing";
    EXPECT_EQ(pathID(nullptr, nullptr, nullptr, "x"), rootPath("0"));
    EXPECT_EQ(pathID(nullptr, "http://h:80/a", nullptr, "x"), rootPath("x@H"));
    EXPECT_EQ(pathID(nullptr, "http://h:80/a", "k", "x"), rootPath("x@K")) << "the host wins";
    EXPECT_EQ(pathID(nullptr, "/a", nullptr, "x").c_str(), nullptr);
}

// More keys than a cache holds, so that one thread's insertions drop what another just found.
TEST(Identifiers, ThreadsShareTheCaches) {
    const auto work = [](int step) {
        for (int i = 0; i < 1500; ++i) {
            const std::string name = "n" + std::to_string(i * step % 400);
            const std::string url = ("http://" + name).append("/").append(name).append("/x");
            EXPECT_TRUE(md5hash(name.c_str()) == URI::md5hash(name.c_str()));
            EXPECT_STREQ(groupID(url.c_str(), true, false, false).c_str(), name.c_str());
            EXPECT_EQ(pathID(nullptr, url.c_str(), nullptr, "x").length(), 25U);
        }
    };
    harness::onThreads([&] { work(1); }, [&] { work(2); }, [&] { work(3); }, [&] { work(4); });
}
