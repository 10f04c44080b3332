#pragma once

#include <pthread.h>

#include <atomic>

#include "util/annotations.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// The library's lock wherever one may be waited on or taken again: recursive, so a thread may lock
/// it again and then owes as many unlocks. Every operation is const, so that a const object can
/// guard what it reads.
///
/// Threads: any. No order between two locks is enforced here; it belongs to their owners.
class QZ_API QZ_CAPABILITY("mutex") qzmutex {
public:
    qzmutex() = default;
    ~qzmutex() { pthread_mutex_destroy(&itsMutex); }
    qzmutex(const qzmutex&) = delete;
    qzmutex& operator=(const qzmutex&) = delete;

    /// False when the mutex could not be had; then there is nothing to unlock.
    bool lock() const QZ_ACQUIRE() { return pthread_mutex_lock(&itsMutex) == 0; }
    /// As lock(), but false at once when another thread holds it.
    bool trylock() const QZ_TRY_ACQUIRE(true) { return pthread_mutex_trylock(&itsMutex) == 0; }
    /// By the thread that holds it.
    void unlock() const QZ_RELEASE() { pthread_mutex_unlock(&itsMutex); }

    /// For pthread_cond_wait; the caller holds the lock exactly once.
    pthread_mutex_t* handle() const { return &itsMutex; }

private:
    // The static form costs no call.
    mutable pthread_mutex_t itsMutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
};

/// Holds a lock for a scope. A lock that failed is not unlocked.
class QZ_SCOPED_CAPABILITY MutexGuard {
public:
    /// Waits for the lock.
    explicit MutexGuard(const qzmutex& lock) QZ_ACQUIRE(lock)
        : itsLock(&lock), itIsLocked(lock.lock()) {}
    ~MutexGuard() QZ_RELEASE() {
        if (itIsLocked) itsLock->unlock();
    }
    MutexGuard(const MutexGuard&) = delete;
    MutexGuard& operator=(const MutexGuard&) = delete;

    /// Ends the hold before the scope does.
    void unlock() QZ_RELEASE() {
        if (!itIsLocked) return;
        itIsLocked = false;
        itsLock->unlock();
    }

private:
    const qzmutex* itsLock;
    bool itIsLocked;
};

/// The lock for what is nearly always over at once and never taken again by who holds it: one
/// atomic operation takes it and one gives it back, a third of a mutex. A thread that finds it
/// taken looks again a few times and then sleeps.
///
/// Threads: any, but not one that holds it: nothing tells.
class QZ_CAPABILITY("mutex") qzlatch {
public:
    qzlatch() = default;
    qzlatch(const qzlatch&) = delete;
    qzlatch& operator=(const qzlatch&) = delete;

    /// Waits for it.
    void lock() QZ_ACQUIRE() {
        int found = kFree;
        if (__builtin_expect(
                !itsState.compare_exchange_strong(found, kTaken, std::memory_order_acquire,
                                                  std::memory_order_relaxed),
                0))
            wait();
    }
    /// By the thread that holds it.
    void unlock() QZ_RELEASE() {
        if (__builtin_expect(itsState.exchange(kFree, std::memory_order_release) == kAwaited, 0))
            wakeOne();
    }

private:
    enum State : int { kFree, kTaken, kAwaited };  // kAwaited: taken, and others may sleep.

    QZ_LOCAL void wait();
    QZ_LOCAL void wakeOne();

    std::atomic<int> itsState{kFree};
};

/// Holds a latch for a scope.
class QZ_SCOPED_CAPABILITY LatchGuard {
public:
    /// Waits for the latch.
    explicit LatchGuard(qzlatch& latch) QZ_ACQUIRE(latch) : itsLatch(&latch) { latch.lock(); }
    ~LatchGuard() QZ_RELEASE() { unlock(); }
    LatchGuard(const LatchGuard&) = delete;
    LatchGuard& operator=(const LatchGuard&) = delete;

    /// Ends the hold before the scope does.
    void unlock() QZ_RELEASE() {
        if (itsLatch == nullptr) return;
        itsLatch->unlock();
        itsLatch = nullptr;
    }

private:
    qzlatch* itsLatch;
};

}  // namespace Quenvale::Interceptor::SDK::Util
