#pragma once

#include <pthread.h>

#include <cstddef>

#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK::Util {

/// A count that waits take from and releases add to, never above its maximum.
///
/// Threads: any.
/// Units:   time-outs as for qzevent.
class QZ_API qzsemaphore {
public:
    /// A maximum of 0, or an initial count above it, aborts the process.
    qzsemaphore(std::size_t initialCount, std::size_t maxCount);
    ~qzsemaphore();
    qzsemaphore(const qzsemaphore&) = delete;
    qzsemaphore& operator=(const qzsemaphore&) = delete;

    /// Adds as much of `count` as there is room for. False, and nothing is done, when there is no
    /// room at all or `count` is 0.
    bool release(std::size_t count);

    /// 0 when one was taken, 258 when the time ran out.
    unsigned long wait(unsigned long timeout);

private:
    qzmutex itsLock;
    pthread_cond_t itsCondition;
    const std::size_t itsMaxCount;
    std::size_t itsCount QZ_GUARDED_BY(itsLock);
};

}  // namespace Quenvale::Interceptor::SDK::Util
