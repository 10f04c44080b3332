#include "util/Clock.h"

#include <sys/time.h>

#include <cstdint>
#include <cstdio>

#include "util/diagnostics.h"

namespace Quenvale::Interceptor::SDK::Util {

namespace {

constexpr long long kMicrosPerSecond = 1000000;

// Towards zero. What does not fit becomes the most negative number, by which _convertToMicro()
// knows an overflow.
long long truncate(double value) {
    constexpr double kLimit = 9223372036854775808.0;  // 2 to the 63rd.
    return value >= -kLimit && value < kLimit ? static_cast<long long>(value) : INT64_MIN;
}

// A number, its digit behind the point unless that is 0, and the unit.
String format(long long whole, long long digit, const char* unit) {
    char text[64];
    if (digit == 0)
        std::snprintf(text, sizeof text, "%lld %s", whole, unit);
    else
        std::snprintf(text, sizeof text, "%lld.%lld %s", whole, digit, unit);
    return text;
}

}  // namespace

Clock::Clock(long long resolution) : itsResolution(resolution), itsFrequency(_getFrequency()) {}

void Clock::init() {
    if (TheClock == nullptr) TheClock = new Clock(kMicrosPerSecond);
}

long long Clock::_currentTimeMillis() {
    timeval now;
    gettimeofday(&now, nullptr);
    return now.tv_sec * 1000LL + now.tv_usec / 1000;
}

long long Clock::_getCounter() {
    timeval now;
    gettimeofday(&now, nullptr);
    return now.tv_sec * kMicrosPerSecond + now.tv_usec;
}

long long Clock::_getFrequency() {
    return kMicrosPerSecond;
}

long long Clock::_elapsed(long long start) {
    return _getCounter() - start;
}

long long Clock::_convertToMicro(long long ticks) const {
    const auto asDouble = static_cast<double>(ticks);
    const long long micro = truncate(asDouble * static_cast<double>(itsResolution)) / itsFrequency;
    if (micro >= 0 || ticks <= 0) return micro;
    // Unsigned, since a resolution finer than the frequency can wrap here.
    const long long seconds = truncate(asDouble / static_cast<double>(itsFrequency));
    return static_cast<long long>(static_cast<unsigned long long>(seconds) *
                                  static_cast<unsigned long long>(itsResolution));
}

long long Clock::_convert(long long ticks, int unit) const {
    const long long micro = _convertToMicro(ticks);
    switch (unit) {
        case 0:
            return micro / (60 * kMicrosPerSecond);
        case 1:
            return micro / kMicrosPerSecond;
        case 2:
            return micro / 1000;
        case 3:
            return micro;
        default:
            errorMsg("Unknown type of time unit: %d\n", unit);
            return 0;
    }
}

String Clock::toString(long long ticks) {
    init();
    const long long micro = TheClock->_convertToMicro(ticks);
    if (micro == 0) return format(TheClock->_convertToMicro(ticks * 1000), 0, "ns");
    if (micro <= 9999) return format(micro, 0, "us");
    const long long ms = micro / 1000;
    if (ms <= 9999) return format(ms, (micro - ms * 1000) / 100, "ms");
    const long long sec = ms / 1000;
    if (sec <= 59) return format(sec, ms % 1000 / 100, "sec");
    return format(sec / 60, sec % 60 / 6, "min");
}

String Clock::toStringMS(long long ticks) {
    init();
    const long long ms = TheClock->_convert(ticks, 2);
    return format(ms, ms % 1000 / 100, "ms");
}

}  // namespace Quenvale::Interceptor::SDK::Util
