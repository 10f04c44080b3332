#include "util/md5.h"

#include "harness/test.h"
#include "util/base64.h"
#include "util/uri.h"

using namespace Quenvale::Interceptor::SDK::Util;

TEST(Md5, PortionsMakeNoDifference) {
    std::string text;
    for (int i = 0; i < 200; ++i) text += static_cast<char>('!' + i % 90);
    const String whole = URI::md5hash(text.c_str());
    for (std::size_t portion = 1; portion <= text.size(); ++portion) {
        Quenvale_MD5Context context;
        Quenvale_MD5Init(&context);
        for (std::size_t at = 0; at < text.size(); at += portion) {
            const std::string part = text.substr(at, portion);
            Quenvale_MD5Update(&context, reinterpret_cast<const unsigned char*>(part.data()),
                               static_cast<unsigned int>(part.size()));
        }
        unsigned char digest[16];
        Quenvale_MD5Final(digest, &context);
        EXPECT_TRUE(base64::encode(reinterpret_cast<char*>(digest), 16) == whole) << portion;
    }
    EXPECT_TRUE(URI::md5hash(true, text.substr(0, 63).c_str(), text.c_str() + 63, nullptr) ==
                whole);
    EXPECT_TRUE(URI::md5hash(true, nullptr, nullptr) == URI::md5hash(""));
}

TEST(Md5, RawHashEndsAtItsFirstZeroByte) {
    int shortened = 0;
    for (int i = 0; i < 64; ++i) {
        const std::string text = "raw" + std::to_string(i);
        std::string raw = URI::md5hash(false, text.c_str(), nullptr).c_str();
        if (raw.size() < 16) ++shortened;
        raw.resize(raw.size() / 3 * 3);
        const std::string encoded =
            base64::encode(raw.data(), static_cast<int>(raw.size())).c_str();
        EXPECT_EQ(std::string(URI::md5hash(text.c_str()).c_str()).substr(0, encoded.size()),
                  encoded);
    }
    EXPECT_GT(shortened, 0) << "no text of the walk has a zero byte in its hash";
}

TEST(Base64, EncodesAnyLength) {
    const struct {
        const char *why, *bytes;
        int length;
        const char* text;
    } rows[] = {
        {"nothing", "", 0, ""},
        {"null", nullptr, 5, ""},
        {"negative", "abc", -1, ""},
        {"two paddings", "f", 1, "Zg=="},
        {"one padding", "fo", 2, "Zm8="},
        {"zero bytes count", "\0\0\0", 3, "AAAA"},
        {"above 127", "\xfb\xff\xfe", 3, "+//+"},
    };
    for (const auto& row : rows)
        EXPECT_STREQ(base64::encode(row.bytes, row.length).c_str(), row.text) << row.why;
    EXPECT_EQ(base64::encode(std::string(100000, 'x').data(), 100000).length(), 133336U);
}

TEST(Base64, DecodePacksTheCharactersThemselves) {
    const char* const rows[][3] = {
        {"0x61 in each place", "aaaa", "\x86\x18\xa1"},
        {"stops at the padding", "aa==aa", "\x86"},
        {"stops outside the alphabet", "aaaa-aaaa", "\x86\x18\xa1"},
        {"stops above 127", "aaa\xe4", "\x86\x18"},
    };
    for (const auto& [why, text, bytes] : rows)
        EXPECT_STREQ(base64::decode(text).c_str(), bytes) << why;
    EXPECT_EQ(base64::decode(nullptr).c_str(), nullptr);
}
