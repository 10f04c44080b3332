#include "harness/test.h"
#include "util/Clock.h"

using Quenvale::Interceptor::SDK::Util::Clock;

TEST(Clock, ADurationReadsInTheUnitOfItsSizeWithoutADigit0) {
    const std::pair<long long, const char*> rows[] = {
        {0, "0 ns"},
        {9999, "9999 us"},
        {10000, "10 ms"},
        {10000000, "10 sec"},
        {59999999, "59.9 sec"},
        {90000000, "1.5 min"},
        {-20000, "-20000 us"},
        {INT64_MAX, "153722867280.9 min"},
    };
    for (const auto& [ticks, text] : rows) EXPECT_STREQ(Clock::toString(ticks).c_str(), text);
    EXPECT_STREQ(Clock::toStringMS(1034000).c_str(), "1034 ms") << "the digit is the hundreds'";
    EXPECT_STREQ(Clock::toStringMS(1234000).c_str(), "1234.2 ms");
}

TEST(Clock, ConvertsToWholeUnitsAndReadsOneClockInTwo) {
    Clock::init();
    const long long expected[] = {2, 125, 125000, 125000999, 0};
    for (int unit = 0; unit <= 4; ++unit)
        EXPECT_EQ(Clock::TheClock->_convert(unit == 2 ? 125000000 : 125000999, unit),
                  expected[unit]);
    EXPECT_EQ(Clock(10)._convertToMicro(2500000), 25) << "resolution is per second";
    EXPECT_EQ(Clock(INT64_MAX)._convertToMicro(2000000), -2) << "wraps, no undefined behaviour";

    const long long micros = Clock::_getCounter();
    const long long millis = Clock::_currentTimeMillis();
    EXPECT_GE(millis, micros / 1000);
    EXPECT_LE(millis * 1000, Clock::_getCounter());
    EXPECT_GE(Clock::_elapsed(micros), 0);
}
