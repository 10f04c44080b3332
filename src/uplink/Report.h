#pragma once

#include <new>

#include <cxxabi.h>

#include "interaction/Interaction.h"
#include "uplink/AgentEvent.h"
#include "uplink/SocketQueueRef.h"

namespace Quenvale::Interceptor::SDK {

/// @cond

/// One event's use of a queue: that of the call's earlier events, or the one with the fewest
/// attachments, which the call then keeps until its last event. Where another uplink has attached
/// something to the call, that stays, and the queue is this event's only.
class QZ_LOCAL PooledUplink::QueueUse {
public:
    QueueUse(PooledUplink& uplink, Interaction& interaction) : itsInteraction(interaction) {
        const int state = interaction.itsState;
        const bool isFirst = interaction.itsUplinkData == nullptr;
        if (!isFirst) itsRef = uplink.attachedTo(interaction);
        itIsLast = state > 0;
        if (itsRef != nullptr) return;
        itsRef = static_cast<SocketQueueRef*>(uplink.pick());
        itIsOwn = !isFirst;
        if (itIsOwn) return;
        interaction.itsUplinkData = itsRef;
        itIsLast = state == 2 || state == 3;
    }
    ~QueueUse() {
        if (itIsOwn) giveUp();
    }
    QueueUse(const QueueUse&) = delete;
    QueueUse& operator=(const QueueUse&) = delete;

    SocketQueue* queue() const { return itsRef->itsQueue; }
    /// Once the event is queued. Without it, after an exception, the attachment stays.
    void finish() {
        if (itIsOwn || !itIsLast) return;
        itsInteraction.itsUplinkData = nullptr;
        giveUp();
    }

private:
    void giveUp() {
        itsRef->clear();
        delete itsRef;
    }

    Interaction& itsInteraction;
    SocketQueueRef* itsRef = nullptr;
    bool itIsLast;
    bool itIsOwn = false;  // Not attached to the call.
};

template <class Append>
void PooledUplink::report(Interaction* interaction, bool separatePayload, Append append) {
    constexpr int kEventRoom = 2048;  // bytes, on the stack: most events need no block
    // Gives bytes back by whatever way the report ends. Those in the room are not owned.
    struct Releasing {
        explicit Releasing(Util::ByteArray& bytes) : itsBytes(bytes) {}
        ~Releasing() {
            if (itsBytes.owned && itsBytes.data != nullptr) itsBytes.releaseContent();
        }
        Releasing(const Releasing&) = delete;
        Releasing& operator=(const Releasing&) = delete;

        Util::ByteArray& itsBytes;
    };

    AgentEvent event(interaction, false, separatePayload);
    const Releasing payload(event.itsPayloadCopy);
    unsigned char room[kEventRoom];
    try {
        Util::ByteArray bytes = event.serialize(room, sizeof room);
        const Releasing block(bytes);
        try {
            QueueUse use(*this, *interaction);
            append(use.queue(), timeOf(*interaction), bytes, event);
            use.finish();
        } catch (abi::__forced_unwind&) {
            throw;
        } catch (...) {
            return;
        }
    } catch (const std::bad_alloc&) {
        return;
    }
}

/// @endcond

}  // namespace Quenvale::Interceptor::SDK
