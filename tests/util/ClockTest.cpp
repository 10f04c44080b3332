#include "harness/test.h"
#include "util/Clock.h"

using Quenvale::Interceptor::SDK::Util::Clock;

TEST(Clock, ADurationReadsInTheUnitOfItsSize) {
    const struct {
        const char* why;
        long long ticks;
        const char* text;
    } rows[] = {
        {"nothing", 0, "0 ns"},
        {"last microseconds", 9999, "9999 us"},
        {"first milliseconds, digit 0 left out", 10000, "10 ms"},
        {"first seconds", 10000000, "10 sec"},
        {"last seconds", 59999999, "59.9 sec"},
        {"tenths of a minute", 90000000, "1.5 min"},
        {"beyond the product in double", INT64_MAX, "153722867280.9 min"},
        {"negative", -20000, "-20000 us"},
    };
    for (const auto& row : rows)
        EXPECT_STREQ(Clock::toString(row.ticks).c_str(), row.text) << row.why;
    EXPECT_STREQ(Clock::toStringMS(1034000).c_str(), "1034 ms") << "the digit is the hundreds'";
    EXPECT_STREQ(Clock::toStringMS(1234000).c_str(), "1234.2 ms");
}

TEST(Clock, ConvertsToWholeUnits) {
    Clock::init();
    const long long expected[] = {2, 125, 125000, 125000999, 0};
    for (int unit = 0; unit <= 4; ++unit)
        EXPECT_EQ(Clock::TheClock->_convert(unit == 2 ? 125000000 : 125000999, unit),
                  expected[unit]);
    EXPECT_EQ(Clock(10)._convertToMicro(2500000), 25) << "resolution is per second";
    EXPECT_EQ(Clock(INT64_MAX)._convertToMicro(2000000), -2) << "wraps, no undefined behaviour";
}

TEST(Clock, CounterAndMillisecondsAreOneClock) {
    const long long micros = Clock::_getCounter();
    const long long millis = Clock::_currentTimeMillis();
    EXPECT_GE(millis, micros / 1000);
    EXPECT_LE(millis * 1000, Clock::_getCounter());
    EXPECT_GE(Clock::_elapsed(micros), 0);
    EXPECT_EQ(Clock::_getFrequency(), 1000000);
}
