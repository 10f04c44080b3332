#pragma once

#include "interaction/IIntCorrelator.h"
#include "util/String.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK {

/// Interactions by thread: each thread has a stack of servers and one of clients, and its innermost
/// open call is on top. Only the top can be popped.
///
/// A thread reaches its own two stacks through a thread-local pointer, without a lock. A thread
/// that ends takes its entries with it, and so does this object.
///
/// Threads:   any. The object is destroyed only when no thread uses it.
/// Ownership: interactions are borrowed; one that is destroyed takes itself off all stacks.
/// Errors:    APIException* for a key, which has no meaning here, and for what is neither a server
///            nor a client.
class QZ_API IntCorrTlsStack : public IIntCorrelator {
public:
    IntCorrTlsStack() = default;
    ~IntCorrTlsStack() override;
    IntCorrTlsStack(const IntCorrTlsStack&) = delete;
    IntCorrTlsStack& operator=(const IntCorrTlsStack&) = delete;

    Interaction* getServer(const Util::String& key) override;
    Interaction* getClient(const Util::String& key) override;
    void putServer(Interaction* interaction, const Util::String& key) override;
    void putClient(Interaction* interaction, const Util::String& key) override;
    void dropKey(const Util::String& key) override;
    /// Pops the interaction if it is on top of its stack.
    void dropValue(Interaction* interaction, bool flag) override;
    /// Whether it is on this thread's stack.
    bool hasInteraction(Interaction* interaction) override;

    /// @{
    /// The same for either stack. A null interaction is nowhere.
    Interaction* getInteraction(const Util::String& key, bool isServer);
    void putInteraction(Interaction* interaction, const Util::String& key, bool isServer);
    Interaction* popInteraction(Interaction* interaction, bool isServer);
    bool findInteraction(Interaction* interaction, bool isServer);
    /// @}
    /// The interaction if it is on top of this thread's stack, otherwise null.
    Interaction* peekInteraction(Interaction* interaction, bool isServer);

    /// Names the calling thread; no other live thread has the same name.
    Util::String getTID();
};

}  // namespace Quenvale::Interceptor::SDK
