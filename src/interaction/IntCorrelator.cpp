#include "interaction/IntCorrelator.h"

#include "interaction/OwnCorrelator.h"

namespace Quenvale::Interceptor::SDK {

void IntCorrelator::init() {
    ourBaseImpl.store(OwnCorrelator::make(), std::memory_order_release);
}

void IntCorrelator::forget(Interaction* interaction) {
    IntCorrelatorImp::forget(interaction);
}

IIntCorrelator* IntCorrelator::create() {
    Util::MutexGuard guard(ourLock);
    if (ourBaseImpl.load(std::memory_order_relaxed) == nullptr) init();
    return ourBaseImpl.load(std::memory_order_relaxed);
}

}  // namespace Quenvale::Interceptor::SDK
