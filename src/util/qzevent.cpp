#include "util/qzevent.h"

#include "util/qzwait.h"

namespace Quenvale::Interceptor::SDK::Util {

qzevent::qzevent(bool manualReset, bool signalled)
    : itIsManualReset(manualReset), itIsSignalled(signalled) {
    pthread_cond_init(&itsCondition, nullptr);
}

qzevent::~qzevent() {
    pthread_cond_destroy(&itsCondition);
}

void qzevent::signal() {
    MutexGuard guard(itsLock);
    itIsSignalled = true;
    if (itIsManualReset)
        pthread_cond_broadcast(&itsCondition);
    else
        pthread_cond_signal(&itsCondition);
}

void qzevent::nonsignal() {
    MutexGuard guard(itsLock);
    itIsSignalled = false;
}

unsigned long qzevent::wait(unsigned long timeout) {
    return waitUntilTaken(itsLock, &itsCondition, timeout, [this]() QZ_REQUIRES(itsLock) {
        if (!itIsSignalled) return false;
        itIsSignalled = itIsManualReset;
        return true;
    });
}

}  // namespace Quenvale::Interceptor::SDK::Util
