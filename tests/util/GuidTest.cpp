#include "util/guid.h"

#include <unistd.h>

#include <set>

#include "harness/test.h"
#include "util/Clock.h"
#include "util/base64.h"

using namespace Quenvale::Interceptor::SDK::Util;

namespace {

std::uint64_t lowByteFirst(const unsigned char* bytes, int count) {
    std::uint64_t value = 0;
    for (int i = count - 1; i >= 0; --i) value = value << 8 | bytes[i];
    return value;
}

}  // namespace

TEST(Guid, CounterFollowsTheBaseAndItsWrapKeepsIt) {
    counter = 0xfffffffe;
    for (const std::uint32_t serial : {0xfffffffeU, 0xffffffffU, 0U, 1U}) {
        unsigned char bytes[16];
        getBytes(bytes);
        EXPECT_EQ(std::memcmp(bytes, __base, 12), 0);
        EXPECT_EQ(lowByteFirst(bytes + 12, 4), serial);
        const std::uint32_t next = counter.exchange(serial);
        EXPECT_EQ(newGuid(), base64::encode16(bytes)) << "the text is that of the bytes";
        EXPECT_EQ(counter, next);
    }
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

TEST(Guid, ThreadsNeverShareOne) {
    constexpr int kThreads = 4;
    constexpr int kEach = 5000;
    std::vector<std::vector<std::string>> made(kThreads);
    const auto make = [&](std::vector<std::string>& mine) {
        for (int i = 0; i < kEach; ++i) mine.emplace_back(newGuid().c_str());
    };
    harness::onThreads([&] { make(made[0]); }, [&] { make(made[1]); }, [&] { make(made[2]); },
                       [&] { make(made[3]); });
    std::set<std::string> all;
    for (const auto& mine : made) all.insert(mine.begin(), mine.end());
    EXPECT_EQ(all.size(), static_cast<std::size_t>(kThreads * kEach));
    EXPECT_EQ(all.begin()->size(), 24U);
    EXPECT_EQ(all.begin()->substr(0, 16), all.rbegin()->substr(0, 16)) << "the base's characters";
}
