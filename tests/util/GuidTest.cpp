#include "util/guid.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "util/Clock.h"

using namespace Quenvale::Interceptor::SDK::Util;

namespace {

std::uint64_t lowByteFirst(const unsigned char* bytes, int count) {
    std::uint64_t value = 0;
    for (int i = count - 1; i >= 0; --i) value = value << 8 | bytes[i];
    return value;
}

}  // namespace

TEST(Guid, BytesAreBaseAndCounter) {
    unsigned char first[16];
    unsigned char second[16];
    counter = 0x01020304;
    getBytes(first);
    getBytes(second);
    EXPECT_EQ(std::memcmp(first, __base, 12), 0);
    EXPECT_EQ(std::memcmp(first, second, 12), 0);
    const unsigned char expected[] = {0x04, 0x03, 0x02, 0x01};
    EXPECT_EQ(std::memcmp(first + 12, expected, 4), 0) << "the value before the increment";
    EXPECT_EQ(lowByteFirst(second + 12, 4), 0x01020305U);
}

TEST(Guid, BaseNamesProcessAndTime) {
    const auto before = static_cast<std::uint64_t>(Clock::_currentTimeMillis());
    unsigned char* base = _getBase();
    const auto after = static_cast<std::uint64_t>(Clock::_currentTimeMillis());
    ASSERT_NE(base, nullptr);
    EXPECT_EQ(lowByteFirst(base + 4, 2), static_cast<std::uint64_t>(getpid()) & 0xffff);
    EXPECT_GE(lowByteFirst(base + 6, 6), before);
    EXPECT_LE(lowByteFirst(base + 6, 6), after);
    release(base);
}

TEST(Guid, WrapKeepsTheBase) {
    unsigned char last[16];
    unsigned char first[16];
    counter = 0xffffffff;
    getBytes(last);
    getBytes(first);
    EXPECT_EQ(lowByteFirst(last + 12, 4), 0xffffffffU);
    EXPECT_EQ(lowByteFirst(first + 12, 4), 0U);
    EXPECT_EQ(std::memcmp(last, first, 12), 0);
}

TEST(Guid, TextsInARowDifferOnlyInTheCounter) {
    counter = 7;
    const std::string a = newGuid().c_str();
    const std::string b = newGuid().c_str();
    EXPECT_NE(a, b);
    EXPECT_EQ(a.substr(0, 16), b.substr(0, 16));
    for (const auto& text : {a, b}) {
        EXPECT_EQ(text.size(), 24U);
        EXPECT_EQ(text.substr(22), "==");
    }
}

TEST(Guid, ThreadsNeverShareOne) {
    constexpr int kThreads = 4;
    constexpr int kEach = 5000;
    std::vector<std::vector<std::string>> made(kThreads);
    std::vector<std::thread> threads;
    for (auto& mine : made)
        threads.emplace_back([&mine] {
            for (int i = 0; i < kEach; ++i) mine.emplace_back(newGuid().c_str());
        });
    for (auto& thread : threads) thread.join();
    std::set<std::string> all;
    for (const auto& mine : made) all.insert(mine.begin(), mine.end());
    EXPECT_EQ(all.size(), static_cast<std::size_t>(kThreads * kEach));
}
