#pragma once

#include "util/String.h"
#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK::Util {

/// The library's time base: the wall clock, a counter of microseconds, and durations as text.
///
/// Threads: any.
/// Units:   ticks are those of _getCounter(), of which a second has _getFrequency().
class QZ_API Clock {
public:
    /// The one instance; null until init(). Never deleted.
    static Clock* TheClock;

    /// With so many units to a second, which _convertToMicro() converts to; init() takes a million.
    explicit Clock(long long resolution);

    /// Makes the one instance. Runs while the library loads.
    static void init();

    /// Wall clock, in ms since 1970.
    static long long _currentTimeMillis();
    /// Wall clock in ticks; it follows changes of the system's time.
    static long long _getCounter();
    static long long _getFrequency();            // 1,000,000.
    static long long _elapsed(long long start);  // Ticks since `start`.

    /// Ticks as microseconds, towards zero.
    long long _convertToMicro(long long ticks) const;

    /// Whole units: 0 minutes, 1 seconds, 2 milliseconds, 3 microseconds; 0 for any other unit.
    long long _convert(long long ticks, int unit) const;

    /// A duration in the unit that suits its size, such as "10 ms" or "1.5 min".
    static String toString(long long ticks);

    /// A duration in milliseconds. What stands behind the point is the hundreds digit of the
    /// milliseconds themselves and no fraction: 1234 milliseconds read "1234.2 ms".
    static String toStringMS(long long ticks);

private:
    qzmutex itsLock;  // Lives and dies with the clock; no operation takes it.
    long long itsResolution;
    long long itsFrequency;
};

}  // namespace Quenvale::Interceptor::SDK::Util
