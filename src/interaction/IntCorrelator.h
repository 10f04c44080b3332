#pragma once

#include <atomic>

#include "interaction/IIntCorrelator.h"
#include "util/annotations.h"
#include "util/export.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

/// The process-wide door to the correlator, which is made at first use and then stays.
///
/// Threads: any.
class QZ_API IntCorrelator {
public:
    static std::atomic<IIntCorrelator*> ourBaseImpl;  // Null until first use.
    static Util::qzmutex& ourLock;                    // Guards the creation.

    /// The correlator; the first call makes it.
    static IIntCorrelator* instance() {
        IIntCorrelator* correlator = ourBaseImpl.load(std::memory_order_acquire);
        return correlator != nullptr ? correlator : create();
    }

    /// Makes it and publishes it; instance() calls this once.
    static void init() QZ_REQUIRES(ourLock);

    /// Takes out every entry that still leads to the interaction: it is about to go. Needed only
    /// while its counts of entries are not 0.
    static void forget(Interaction* interaction);

private:
    static IIntCorrelator* create();
};

}  // namespace Quenvale::Interceptor::SDK
