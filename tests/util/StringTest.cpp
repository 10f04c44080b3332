#include "util/String.h"

#include <malloc.h>

#include "harness/test.h"
#include "util/blockCache.h"
#include "util/blocks.h"
#include "util/text.h"

namespace Quenvale::Interceptor::SDK::Util {
namespace {

TEST(Blocks, HoldWhatWasAskedForAndMixWithMalloc) {
    std::vector<std::size_t> sizes = {0, 1, 2000, 70000};
    for (std::size_t step = 16; step <= 1040; step += 16)
        sizes.insert(sizes.end(), {step - 1, step, step + 1});
    for (const std::size_t size : sizes) {
        // What comes back is taken again, and has to hold what its class holds.
        for (int i = 0; i < 3; ++i) {
            void* block = allocate(size);
            ASSERT_NE(block, nullptr);
            ASSERT_GE(malloc_usable_size(block), size);
            std::memset(block, 0x5a, size);
            i == 1 ? releaseBlock(block, size) : release(block);
            release(std::malloc(size));
        }
        std::free(allocate(size));
        auto* zeroed = static_cast<char*>(allocateZeroed(size));
        EXPECT_EQ(std::string(zeroed, size), std::string(size, '\0'));
        release(zeroed);
    }
    release(nullptr);
}

TEST(Blocks, AThreadsBlocksGoWhenItEnds) {
    const auto run = [] {
        harness::onThreads([] {
            std::vector<void*> blocks;
            for (int i = 0; i < 400; ++i) blocks.push_back(allocate(24U << (i % 6)));
            for (void* block : blocks) release(block);
        });
    };
    run();
    const std::size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 100; ++i) run();
    EXPECT_LT(mallinfo2().uordblks, before + 200000) << "a hundred caches would be millions";
}

TEST(Blocks, AThreadKeepsThemForItsNextUse) {
#ifdef QZ_PLAIN_BLOCKS
    GTEST_SKIP() << "a sanitizer's build keeps none";
#endif
    harness::onThreads([] {
        constexpr std::size_t kSize = 200;
        void* blocks[12];
        for (void*& block : blocks) block = allocate(kSize);
        release(allocate(kSize + 100));  // From now on there is a cache.
        const std::size_t before = mallinfo2().uordblks;
        for (void* block : blocks) release(block);
        EXPECT_LT(before, mallinfo2().uordblks + kSize) << "they went back to malloc";
    });
}

TEST(String, NilBlankAndTextAreThreeStatesAndConcatenationKeepsNil) {
    const String nil, blank(""), text("abc");
    EXPECT_TRUE(nil.empty() && blank.empty() && !text.empty());
    EXPECT_FALSE(nil == blank || blank == text || String("ab") == text);
    EXPECT_TRUE(nil == String::NIL && nil == nullptr && blank == String::BLANK);
    EXPECT_EQ(nil.length(), 0U);
    EXPECT_TRUE(nil < blank && nil < text && !(blank < nil) && !(nil < nil) && blank < text);
    EXPECT_EQ((nil + blank).c_str(), nullptr);
    EXPECT_STREQ((nil + text).c_str(), "abc");
    EXPECT_STREQ((text + nil).c_str(), "abc");
    EXPECT_STREQ((text + String("d")).c_str(), "abcd");
    String self("ab");
    self.append(self.c_str());
    EXPECT_STREQ(self.c_str(), "abab") << "a text may be appended to itself";
}

TEST(String, CopiesAreTheirOwnAndMovesLeaveNil) {
    for (std::size_t length = 0; length < 70; ++length) {
        std::string text;
        for (std::size_t i = 0; i < length; ++i) text += static_cast<char>('!' + i);
        const String copy(text.c_str());
        EXPECT_EQ(copy.c_str(), text);
        String assigned("a text that gives way");
        assigned = copy;
        EXPECT_EQ(assigned, copy);
        EXPECT_NE(assigned.c_str(), copy.c_str());
        String& alias = assigned;
        assigned = alias;
        EXPECT_EQ(assigned, copy) << "self assignment keeps the text";
        assigned = assigned.c_str() + length / 2;
        EXPECT_EQ(assigned.c_str(), text.substr(length / 2)) << "from within itself";
        EXPECT_EQ(assigned.length(), length - length / 2);
        const String moved(std::move(assigned));
        EXPECT_EQ(assigned.c_str(), nullptr);
        EXPECT_EQ(moved.c_str(), text.substr(length / 2));
    }
}

TEST(String, EndsAtAZeroCharacter) {
    EXPECT_EQ(String("ab\0cd", 5).length(), 2U);
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
    EXPECT_EQ(String::find("abc", 'c', 2), 2U);
    EXPECT_EQ(String::find("abc", 'c', 3), ~0U) << "a start at the length is behind the text";
    EXPECT_EQ(String::find("abc", '\0'), ~0U) << "the terminator is never found";
    EXPECT_EQ(String::find(nullptr, 'a'), ~0U);
    EXPECT_EQ(String::find("", 'a'), ~0U);
    EXPECT_EQ(String::find("abcabc", "ca"), 2U);
    EXPECT_EQ(String::find("abc", static_cast<const char*>(nullptr)), ~0U);
}

TEST(Text, NumbersInEveryBaseAndCapitals) {
    const std::tuple<long long, int, const char*> rows[] = {
        {0, 10, "0"},      {255, 16, "ff"},
        {-10, 2, "-1010"}, {35, 36, "z"},
        {5, 37, ""},       {5, 1, ""},
        {-255, 16, "-ff"}, {std::numeric_limits<long long>::min(), 16, "-8000000000000000"},
    };
    for (const auto& [value, base, expected] : rows) {
        char text[kNumberText];
        lltoa(value, text, base);
        EXPECT_STREQ(text, expected);
    }
    EXPECT_STREQ(String::addrToString(reinterpret_cast<void*>(0xABCUL)).c_str(), "abc");
    char upper[] = "az\xe4Z";
    EXPECT_STREQ(strupr(upper), "AZ\xe4Z") << "ASCII letters only";
}

}  // namespace
}  // namespace Quenvale::Interceptor::SDK::Util
