#include "util/md5.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "harness/Vectors.h"
#include "util/base64.h"
#include "util/uri.h"

using namespace Quenvale::Interceptor::SDK::Util;

namespace {

// The hash text of a text that arrives in portions of the given size.
std::string hashInPortions(const std::string& text, std::size_t portion) {
    Quenvale_MD5Context context;
    Quenvale_MD5Init(&context);
    for (std::size_t at = 0; at < text.size(); at += portion) {
        const std::string part = text.substr(at, portion);
        Quenvale_MD5Update(&context, reinterpret_cast<const unsigned char*>(part.data()),
                           static_cast<unsigned int>(part.size()));
    }
    unsigned char digest[16];
    Quenvale_MD5Final(digest, &context);
    return base64::encode(reinterpret_cast<const char*>(digest), 16).c_str();
}

}  // namespace

TEST(Md5, KnownAnswers) {
    for (const auto& row : harness::readVectors("hash.tsv")) {
        SCOPED_TRACE(row.line());
        EXPECT_STREQ(URI::md5hash(row.at(0)).c_str(), row.at(1));
    }
}

TEST(Md5, PortionsMakeNoDifference) {
    std::string text;
    for (int i = 0; i < 200; ++i) text += static_cast<char>('!' + i % 90);
    const std::string whole = URI::md5hash(text.c_str()).c_str();
    for (std::size_t portion = 1; portion <= text.size(); ++portion)
        EXPECT_EQ(hashInPortions(text, portion), whole) << "portions of " << portion;
}

TEST(Md5, CountFollowsThePublishedFormAcross64Bits) {
    Quenvale_MD5Context context;
    Quenvale_MD5Init(&context);
    context.count[0] = ~std::uint64_t{0} - 7;  // One byte before the overflow, at the last index.
    const unsigned char byte = 'x';
    Quenvale_MD5Update(&context, &byte, 1);
    EXPECT_EQ(context.count[0], 0U);
    EXPECT_EQ(context.count[1], 1U);
}

TEST(Md5, FinalWipesTheContext) {
    Quenvale_MD5Context context;
    Quenvale_MD5Init(&context);
    Quenvale_MD5Update(&context, reinterpret_cast<const unsigned char*>("secret"), 6);
    unsigned char digest[16];
    Quenvale_MD5Final(digest, &context);
    const Quenvale_MD5Context zero = {};
    EXPECT_EQ(std::memcmp(&context, &zero, sizeof zero), 0);
}

TEST(Md5, SeveralTextsHashLikeTheirConcatenation) {
    const char* const kEnd = nullptr;
    EXPECT_TRUE(URI::md5hash(true, "get", "Quote@", "/svc/a", kEnd) ==
                URI::md5hash("getQuote@/svc/a"));
    EXPECT_TRUE(URI::md5hash(true, kEnd, kEnd) == URI::md5hash(""));
    EXPECT_TRUE(URI::md5hash(nullptr) == URI::md5hash(""));
}

TEST(Md5, RawHashEndsAtItsFirstZeroByte) {
    const char* const kEnd = nullptr;
    bool sawZero = false;
    for (int i = 0; i < 64; ++i) {
        const std::string text = "raw" + std::to_string(i);
        const String raw = URI::md5hash(false, text.c_str(), kEnd);
        const String encoded = URI::md5hash(true, text.c_str(), kEnd);
        if (raw.length() == 16) {
            EXPECT_TRUE(base64::encode(raw.c_str(), 16) == encoded) << text;
        } else {
            sawZero = true;
            char padded[17] = {};
            std::memcpy(padded, raw.c_str(), raw.length());
            const String start = base64::encode(padded, static_cast<int>(raw.length()));
            const unsigned int same = raw.length() / 3 * 4;
            EXPECT_EQ(std::strncmp(start.c_str(), encoded.c_str(), same), 0) << text;
        }
    }
    EXPECT_TRUE(sawZero) << "no text of the walk has a zero byte in its hash";
}

TEST(Base64, EncodesAnyLength) {
    const struct {
        const char* why;
        const char* bytes;
        int length;
        const char* text;
    } rows[] = {
        {"nothing", "", 0, ""},
        {"null", nullptr, 5, ""},
        {"negative", "abc", -1, ""},
        {"two paddings", "f", 1, "Zg=="},
        {"one padding", "fo", 2, "Zm8="},
        {"no padding", "foo", 3, "Zm9v"},
        {"zero bytes count", "\0\0\0", 3, "AAAA"},
        {"bytes above 127, both signs of the alphabet's end", "\xfb\xff\xfe", 3, "+//+"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_STREQ(base64::encode(row.bytes, row.length).c_str(), row.text);
    }
    const std::string large(100000, '\xff');
    const String text = base64::encode(large.data(), static_cast<int>(large.size()));
    EXPECT_EQ(text.length(), 133336U);
}

TEST(Base64, DecodePacksTheCharactersThemselves) {
    const struct {
        const char* why;
        const char* text;
        const char* bytes;
    } rows[] = {
        {"nothing", "", ""},
        {"a group of four: 0x61 in each place", "aaaa", "\x86\x18\xa1"},
        {"stops at the padding, and the rest is short", "aa==aa", "\x86"},
        {"stops at a character outside the alphabet", "aaaa-aaaa", "\x86\x18\xa1"},
        {"ends at a zero byte", "@aaa", ""},
        {"stops at bytes above 127", "aaa\xe4", "\x86\x18"},
        {"a zero byte ends the text", "aP00aaaa", "\x85\x0c\x30\x86\x18\xa1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_STREQ(base64::decode(row.text).c_str(), row.bytes);
    }
    EXPECT_EQ(base64::decode(nullptr).c_str(), nullptr);
}
