#pragma once

#include "interaction/IIntCorrelator.h"
#include "util/String.h"
#include "util/annotations.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK {

class ThreadStacks;

/// Interactions by thread: each thread has a stack of servers and one of clients, and its innermost
/// open call is on top. Only the top can be popped.
///
/// A thread reaches its own two stacks through a thread-local pointer, under a lock that nobody
/// else wants. The registry of all threads' stacks is for the rare moments: a thread's first put,
/// its end, and an interaction that goes while another thread's stack still leads to it. A thread
/// that ends takes its entries with it.
///
/// What held a thread's stacks serves a later thread; it is freed with this object and not before,
/// so that an interaction can keep a pointer to its entry.
///
/// Threads:   any. Lock order: itsLock, then the lock of one thread's stacks. The object is
///            destroyed only when no thread uses it or ends.
/// Ownership: interactions are borrowed. The correlator's own object counts its entries in them, so
///            that one that is destroyed can take them out; of any other its owner drops them.
/// Errors:    APIException* for a key, which has no meaning here, and for what is neither a server
///            nor a client.
class QZ_API IntCorrTlsStack : public IIntCorrelator {
public:
    explicit IntCorrTlsStack(bool isCorrelators = false) : itIsCorrelators(isCorrelators) {}
    ~IntCorrTlsStack() override;

    Interaction* getServer(const Util::String& key) override;
    Interaction* getClient(const Util::String& key) override;
    void putServer(Interaction* interaction, const Util::String& key) override;
    void putClient(Interaction* interaction, const Util::String& key) override;
    void dropKey(const Util::String& key) override;
    /// Pops the interaction if it is on top of its stack.
    void dropValue(Interaction* interaction, bool flag) override;
    /// Whether it is on this thread's stack.
    bool hasInteraction(Interaction* interaction) override;

    // The same for either stack. A null interaction is nowhere.
    Interaction* getInteraction(const Util::String& key, bool isServer);
    void putInteraction(Interaction* interaction, const Util::String& key, bool isServer);
    Interaction* popInteraction(Interaction* interaction, bool isServer);
    bool findInteraction(Interaction* interaction, bool isServer);
    /// The interaction if it is on top of this thread's stack, otherwise null.
    Interaction* peekInteraction(Interaction* interaction, bool isServer);

    /// Names the calling thread; no other live thread has the same name.
    Util::String getTID();

    /// For the correlator's own object: takes the interaction off all threads' stacks.
    void forget(Interaction* interaction);

private:
    friend class ThreadStacks;

    ThreadStacks* ensureStacks();
    void retire(ThreadStacks* stacks);

    const bool itIsCorrelators;
    Util::qzmutex itsLock;
    ThreadStacks* itsStacks QZ_GUARDED_BY(itsLock) = nullptr;
    ThreadStacks* itsIdleStacks QZ_GUARDED_BY(itsLock) = nullptr;  // Those that no thread uses.
};

}  // namespace Quenvale::Interceptor::SDK
