#pragma once

#include <pthread.h>

#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK::Util {

/// A flag to wait for. With manual reset it lets everybody through until nonsignal(); otherwise
/// each signal lets one waiter through, and one that nobody waited for is kept.
///
/// Threads: any.
/// Units:   time-outs are milliseconds; 0 only tests, all bits set waits for ever. A limited wait
///          can end up to a second early (see qzwait.h).
class QZ_API qzevent {
public:
    qzevent(bool manualReset, bool signalled);  // `signalled`: its first state.
    ~qzevent();
    qzevent(const qzevent&) = delete;
    qzevent& operator=(const qzevent&) = delete;

    void signal();     // Lets waiters through.
    void nonsignal();  // Takes a signal back.

    /// 0 when the event was had, 258 when the time ran out.
    unsigned long wait(unsigned long timeout);

private:
    qzmutex itsLock;
    pthread_cond_t itsCondition;
    const bool itIsManualReset;
    bool itIsSignalled QZ_GUARDED_BY(itsLock);
};

}  // namespace Quenvale::Interceptor::SDK::Util
