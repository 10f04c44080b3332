#pragma once

#include <pthread.h>

#include "util/Runnable.h"
#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

/// A thread over a body. A guest's thread: it takes no signal of the host's, all are blocked but
/// SIGSEGV, SIGBUS, SIGFPE and SIGILL, and an exception ends it and nothing else.
///
/// Threads:   any.
/// Ownership: the body is borrowed and outlives the thread. This object may go while the thread
///            runs: it neither joins nor cancels.
class QZ_API qzthread {
public:
    /// `name` shows in `top -H`, its first 15 characters; it is borrowed, null leaves the host's.
    explicit qzthread(Runnable* body, const char* name = nullptr);
    ~qzthread();
    qzthread(const qzthread&) = delete;
    qzthread& operator=(const qzthread&) = delete;

    /// False when the thread can't be had, and on the thread that this object started last.
    bool start();

    /// Waits for the end of the thread started last; nothing when there is none to wait for.
    void join();

    /// Gives up join(): what the system keeps for the thread goes when it ends.
    void detach();

    /// A signal cuts it short.
    static void sleep(int milliseconds);

    /// The same as Util::currentThreadKey().
    static char* currentThreadKey();

private:
    static void* start_thread(void* arg);
    void forget(pthread_t id);

    pthread_t itsID QZ_GUARDED_BY(itsLock) = 0;
    char* itsKey QZ_GUARDED_BY(itsLock) = nullptr;  // From malloc.
    Runnable* itsBody;
    const char* itsName;
    bool itIsJoinable QZ_GUARDED_BY(itsLock) = false;
    Util::qzmutex itsLock;
};

}  // namespace Quenvale::Interceptor::SDK
