#pragma once

#include "interaction/IIntCorrelator.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

/// The correlator of the process: a key map for calls that are named and the threads' stacks for
/// calls that are not. A named call is in both.
///
/// Threads:   any; the objects carry no state, and the two parts lock for themselves.
/// Ownership: interactions are borrowed.
class QZ_API IntCorrelatorImp : public IIntCorrelator {
public:
    static IIntCorrelator* ourKeyMap;  // An IntCorrMap.
    static IIntCorrelator* ourTlsMap;  // An IntCorrTlsStack.

    /// @{
    /// Make and destroy the two parts. No other operation may run meanwhile.
    static void init();
    static void deinit();
    /// @}

    Interaction* getServer(const Util::String& key) override;
    Interaction* getClient(const Util::String& key) override;
    void putServer(Interaction* interaction, const Util::String& key) override;
    void putClient(Interaction* interaction, const Util::String& key) override;
    void dropKey(const Util::String& key) override;
    void dropValue(Interaction* interaction, bool keepKeys) override;
    /// In stage 0 an open interaction is always shared: a second interceptor reports the same call.
    /// Past it, reuseMode 0 makes a new one, 1 refuses with null, 2 makes a copy back in stage 0.
    /// With `keyOnly` a key that leads nowhere is not looked for on the thread.
    Interaction* getForBegin(const Util::String& key, bool isServer, int reuseMode,
                             bool keyOnly) override;
    /// Whether it is on this thread's stack.
    bool hasInteraction(Interaction* interaction) override;

    /// Takes the interaction out of the key map and off all threads' stacks, also off those of a
    /// caller's own.
    static void forget(Interaction* interaction);

private:
    Util::qzmutex itsLock;  // Lives and dies with the object; no operation takes it.
};

}  // namespace Quenvale::Interceptor::SDK
