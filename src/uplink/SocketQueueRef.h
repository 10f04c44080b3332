#pragma once

#include "uplink/PooledUplink.h"
#include "uplink/UplinkData.h"
#include "util/blocks.h"

namespace Quenvale::Interceptor::SDK {

/// What an uplink attaches to an interaction: the queue that its events go to.
///
/// The queue counts its attachments, as a measure of load for the choice of a queue and for
/// nothing else: an attachment that is deleted without clear() leaves the count higher, which is
/// accepted.
class QZ_LOCAL PooledUplink::SocketQueueRef final : public UplinkData, public Util::Pooled {
public:
    /// Does not count; whoever makes it does.
    SocketQueueRef(SocketQueue* queue, PooledUplink* uplink);

    /// A further attachment to the same queue.
    UplinkData* copy() override;
    /// Gives the queue up.
    void clear() override;

    SocketQueue* itsQueue;  // Null after clear().
    PooledUplink* itsUplink;
};

/// One event's use of a queue: that of the call's earlier events, or the one with the fewest
/// attachments, which the call then keeps until its last event. Where another uplink has attached
/// something to the call, that stays, and the queue is this event's only.
class QZ_LOCAL PooledUplink::QueueUse {
public:
    QueueUse(PooledUplink& uplink, Interaction& interaction);
    ~QueueUse();
    QueueUse(const QueueUse&) = delete;
    QueueUse& operator=(const QueueUse&) = delete;

    SocketQueue* queue() const;
    /// Once the event is queued. Without it, after an exception, the attachment stays.
    void finish();

private:
    void giveUp();

    Interaction& itsInteraction;
    SocketQueueRef* itsRef;
    bool itIsLast = false;
    bool itIsOwn = false;  // Not attached to the call.
};

}  // namespace Quenvale::Interceptor::SDK
