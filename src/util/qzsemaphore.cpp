#include "util/qzsemaphore.h"

// A release build has no assert(), but this class keeps its assertions there too.
#undef NDEBUG
#include <cassert>

#include <algorithm>

#include "util/qzwait.h"

namespace Quenvale::Interceptor::SDK::Util {

namespace {

void require(bool holds, const char* condition, unsigned int line) {
    if (!holds) __assert_fail(condition, "util/qzmutex", line, "qzsemaphore");
}

}  // namespace

qzsemaphore::qzsemaphore(std::size_t initialCount, std::size_t maxCount)
    : itsMaxCount(maxCount), itsCount(initialCount) {
    require(maxCount != 0, "max_count != 0", __LINE__);
    require(initialCount <= maxCount, "initial_count <= max_count", __LINE__);
    pthread_cond_init(&itsCondition, nullptr);
}

qzsemaphore::~qzsemaphore() {
    pthread_cond_destroy(&itsCondition);
}

bool qzsemaphore::release(std::size_t count) {
    if (count == 0) return false;
    MutexGuard guard(itsLock);
    if (itsCount >= itsMaxCount) return false;
    itsCount += std::min(count, itsMaxCount - itsCount);
    if (count == 1)
        pthread_cond_signal(&itsCondition);
    else
        pthread_cond_broadcast(&itsCondition);
    return true;
}

unsigned long qzsemaphore::wait(unsigned long timeout) {
    return waitUntilTaken(itsLock, &itsCondition, timeout, [this]() QZ_REQUIRES(itsLock) {
        if (itsCount == 0) return false;
        --itsCount;
        return true;
    });
}

}  // namespace Quenvale::Interceptor::SDK::Util
