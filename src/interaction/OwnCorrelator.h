#pragma once

#include "interaction/IntCorrTlsStack.h"
#include "interaction/IntCorrelator.h"
#include "interaction/IntCorrelatorImp.h"

namespace Quenvale::Interceptor::SDK {

/// The short way to the library's own correlator, for calls by thread. What the virtual operations
/// do with an empty key is known as long as no host has put a correlator or stacks of its own in
/// the place of ours; where one has, and with a key, the call takes the way through them.
///
/// Threads: any.
class OwnCorrelator {
public:
    /// Makes the process's correlator. Runs under IntCorrelator::ourLock.
    static IIntCorrelator* make();
    /// Takes note of the threads' stacks that the library has made; null for none.
    static void setStacks(IntCorrTlsStack* stacks) { ourStacks = stacks; }

    /// As getForBegin() of the process's correlator.
    static Interaction* begin(const Util::String& key, bool isServer, int reuseMode);
    /// What a begin does with what it has found: the second half of getForBegin().
    static Interaction* joinOrCreate(Interaction* found, bool isFoundByThread,
                                     const Util::String& key, bool isServer, int reuseMode);
    /// As putServer() or putClient(), for an interaction that nobody else can know yet.
    static void putNew(Interaction* interaction, const Util::String& key, bool isServer);
    /// As dropValue(), keeping the keys.
    static void drop(Interaction* interaction);

private:
    // Null where the short way is not open.
    static IntCorrTlsStack* stacks() {
        const IIntCorrelator* correlator =
            IntCorrelator::ourBaseImpl.load(std::memory_order_acquire);
        const bool isOpen = correlator != nullptr && correlator == ourCorrelator &&
                            IntCorrelatorImp::ourTlsMap == ourStacks;
        return isOpen ? ourStacks : nullptr;
    }

    static const IIntCorrelator* ourCorrelator;
    static IntCorrTlsStack* ourStacks;
};

}  // namespace Quenvale::Interceptor::SDK
