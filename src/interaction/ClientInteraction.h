#pragma once

#include "interaction/Interaction.h"

namespace Quenvale::Interceptor::SDK {

/// A call that goes out. One that is created under a server takes the server's flow, checkpoints
/// and queue, and computes its path from the server's: that ties the two calls together.
///
/// Threads:   the thread that made it, until manageExternally().
/// Ownership: create gives an object that the caller destroys.
/// Errors:    create throws what the server's loadFromCache() throws, and nothing is left behind.
class QZ_API ClientInteraction : public Interaction {
public:
    /// The parent is the server of `key`, or this thread's innermost one. The client itself is
    /// known by `key` only where `clientKey` is empty. `flag` goes into the event.
    static ClientInteraction* create(const Util::String& key, const Util::String& clientKey,
                                     bool ignored, bool flag);

    /// Outside of the correlator, without ids and parent: what fromStub() fills.
    ClientInteraction();
    ~ClientInteraction() override;

    /// NIL, always.
    const Util::String& getUpstreamInteractionID() override;
    /// The decision for clients of this URL and operation name.
    EntryRef loadConfig() override;
    /// Computed at the first call, whatever the argument; empty without a parent path.
    Util::String& _getPathID(bool argument) override;
    /// As for any interaction, but keys of one that is managed externally have already gone.
    void setCleanEnd() override;

    /// Once: without a parent path at that time the client never gets one.
    void computePath(bool argument);

    /// The client leaves this thread now; the caller ends it from wherever the reply arrives.
    void manageExternally();

    bool itsPathComputed = false;        // computePath() ran.
    bool itIsManagedExternally = false;  // manageExternally() ran.

private:
    void inherit(Interaction* parent);
};

}  // namespace Quenvale::Interceptor::SDK
