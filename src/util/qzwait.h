#pragma once

#include <pthread.h>
#include <sys/time.h>

#include <ctime>

#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK::Util {

/// What qzevent and qzsemaphore share: the results of a wait, its limits and its course.
constexpr unsigned long kWaitObtained = 0;
constexpr unsigned long kWaitTimedOut = 258;
constexpr unsigned long kWaitForever = ~0UL;

/// `timeout` milliseconds from now by the wall clock. The microseconds deliberately do not carry
/// into the seconds, so that a deadline can fall up to one second early.
inline timespec waitDeadline(const timeval& now, unsigned long timeout) {
    const auto micros = static_cast<unsigned long>(now.tv_usec);
    timespec deadline;
    deadline.tv_sec = now.tv_sec + static_cast<time_t>(timeout / 1000);
    deadline.tv_nsec = static_cast<long>(((timeout % 1000) * 1000 + micros) % 1000000 * 1000);
    return deadline;
}

/// Waits until `take` has what it wants; it is called under the lock. The lock is not given up
/// between a failed test and the wait: a signal in between would wake nobody, and a wait without a
/// limit would sleep on it for ever. Whatever ends the wait on the condition other than a wake-up
/// counts as the end of the time. (The analysis can't see that `lock` is the one `take` asks for.)
template <class Take>
unsigned long waitUntilTaken(const qzmutex& lock, pthread_cond_t* condition, unsigned long timeout,
                             Take take) QZ_NO_THREAD_SAFETY_ANALYSIS {
    timeval now;
    gettimeofday(&now, nullptr);
    const timespec deadline = waitDeadline(now, timeout);

    MutexGuard guard(lock);
    while (!take()) {
        if (timeout == 0) return kWaitTimedOut;
        const int result = timeout == kWaitForever
                               ? pthread_cond_wait(condition, lock.handle())
                               : pthread_cond_timedwait(condition, lock.handle(), &deadline);
        if (result != 0) return kWaitTimedOut;
    }
    return kWaitObtained;
}

}  // namespace Quenvale::Interceptor::SDK::Util
