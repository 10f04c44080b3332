#include "util/qzmutex.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace Quenvale::Interceptor::SDK::Util {

namespace {

constexpr int kLooks = 20;

inline void pauseBriefly() {
#ifdef __x86_64__
    __builtin_ia32_pause();
#endif
}

// Neither result matters: whoever wakes looks again. errno is the host's.
void futex(std::atomic<int>& word, int operation, int value) {
    static_assert(sizeof word == sizeof(int) && std::atomic<int>::is_always_lock_free);
    const int kept = errno;
    syscall(SYS_futex, reinterpret_cast<int*>(&word), operation, value, nullptr, nullptr, 0);
    errno = kept;
}

}  // namespace

// What a latch guards nearly always takes less time than to fall asleep and to be woken, so a
// thread first looks again. Who has slept can't know whether others still do, so that the latch
// stays awaited with it.
void qzlatch::wait() {
    for (int i = 0; i < kLooks; ++i) {
        pauseBriefly();
        int found = itsState.load(std::memory_order_relaxed);
        if (found == kFree &&
            itsState.compare_exchange_weak(found, kTaken, std::memory_order_acquire,
                                           std::memory_order_relaxed))
            return;
    }
    while (itsState.exchange(kAwaited, std::memory_order_acquire) != kFree)
        futex(itsState, FUTEX_WAIT_PRIVATE, kAwaited);
}

void qzlatch::wakeOne() {
    futex(itsState, FUTEX_WAKE_PRIVATE, 1);
}

}  // namespace Quenvale::Interceptor::SDK::Util
