#include "interaction/IntCorrelator.h"

#include "interaction/IntCorrelatorImp.h"

namespace Quenvale::Interceptor::SDK {

void IntCorrelator::init() {
    auto* correlator = new IntCorrelatorImp;
    IntCorrelatorImp::init();
    ourBaseImpl.store(correlator, std::memory_order_release);
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
