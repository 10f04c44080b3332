#include "util/String.h"

#include "harness/test.h"
#include "util/text.h"

namespace Quenvale::Interceptor::SDK::Util {
namespace {

TEST(String, NilBlankAndTextAreThreeStatesAndConcatenationKeepsNil) {
    const String nil, blank(""), text("abc");
    EXPECT_TRUE(nil.empty() && blank.empty() && !text.empty());
    EXPECT_FALSE(nil == blank);
    EXPECT_TRUE(nil == String::NIL && nil == nullptr && blank == String::BLANK);
    EXPECT_EQ(nil.length(), 0U);
    EXPECT_TRUE(nil < blank && nil < text && !(blank < nil) && !(nil < nil) && blank < text);
    EXPECT_EQ((nil + nil).c_str(), nullptr);
    EXPECT_EQ((nil + blank).c_str(), nullptr);
    EXPECT_STREQ((nil + text).c_str(), "abc");
    EXPECT_STREQ((text + nil).c_str(), "abc");
    EXPECT_STREQ((text + String("d")).c_str(), "abcd");
    String self("ab");
    self.append(self.c_str());
    EXPECT_STREQ(self.c_str(), "abab") << "a text may be appended to itself";
}

TEST(String, CopiesAreTheirOwnAndMovesLeaveNil) {
    String a("abc");
    String b(a);
    EXPECT_NE(a.c_str(), b.c_str());
    b = a;
    EXPECT_NE(a.c_str(), b.c_str());
    String& alias = a;
    a = alias;
    EXPECT_STREQ(a.c_str(), "abc") << "self assignment keeps the text";
    const String c(std::move(a));
    EXPECT_EQ(a.c_str(), nullptr);
    EXPECT_STREQ(c.c_str(), "abc");
}

TEST(String, ATextOfAnyLengthIsCopiedWhole) {
    for (std::size_t length = 0; length < 70; ++length) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('!' + i);
        const Util::String copy(text.c_str());
        EXPECT_EQ(copy.c_str(), text);
        Util::String assigned("a text that gives way");
        assigned = copy.c_str();
        EXPECT_EQ(assigned, copy);
        assigned = assigned.c_str() + length / 2;
        EXPECT_EQ(assigned.c_str(), text.substr(length / 2)) << "from within itself";
        EXPECT_EQ(assigned.length(), length - length / 2);
    }
}

TEST(String, EndsAtAZeroCharacter) {
    const char text[] = "ab\0cd";
    EXPECT_EQ(String(text, 5).length(), 2U);
    EXPECT_TRUE(String(text, 5) == String("ab"));
    for (const unsigned length : {5U, 300U, 70000U}) {
        char* room = String::room(length);
        std::memset(room, 'x', length);
        room[length - 2] = '\0';
        const String ended = String::adopt(room, length);
        EXPECT_EQ(ended.length(), length - 2);
        EXPECT_EQ(std::strlen(ended.c_str()), length - 2);
    }
}

TEST(String, FindAnswersAPositionOrAllBits) {
    const struct {
        const char *why, *text;
        char ch;
        unsigned int start, at;
    } rows[] = {
        {"the last character", "abc", 'c', 2, 2},
        {"a start at the length is behind the text", "abc", 'c', 3, ~0U},
        {"the terminator is never found", "abc", '\0', 0, ~0U},
        {"null text", nullptr, 'a', 0, ~0U},
        {"an empty text from its start", "", 'a', 0, ~0U},
    };
    for (const auto& row : rows)
        EXPECT_EQ(String::find(row.text, row.ch, row.start), row.at) << row.why;
    EXPECT_EQ(String::find("abcabc", "ca"), 2U);
    EXPECT_EQ(String::find("abc", static_cast<const char*>(nullptr)), ~0U);
}

TEST(Text, NumbersInEveryBase) {
    const struct {
        long long value;
        int base;
        const char* text;
    } rows[] = {
        {0, 10, "0"},      {255, 16, "ff"},
        {-10, 2, "-1010"}, {35, 36, "z"},
        {5, 37, ""},       {5, 1, ""},
        {-255, 16, "-ff"}, {std::numeric_limits<long long>::min(), 16, "-8000000000000000"},
    };
    for (const auto& row : rows) {
        char text[kNumberText];
        lltoa(row.value, text, row.base);
        EXPECT_STREQ(text, row.text);
    }
    EXPECT_STREQ(String::addrToString(reinterpret_cast<void*>(0xABCUL)).c_str(), "abc");
    char upper[] = "az\xe4Z";
    EXPECT_STREQ(strupr(upper), "AZ\xe4Z") << "ASCII letters only";
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK::Util
