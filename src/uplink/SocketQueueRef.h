#pragma once

#include "uplink/SocketQueue.h"
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
    SocketQueueRef(SocketQueue* queue, PooledUplink* uplink) : itsQueue(queue), itsUplink(uplink) {}

    /// A further attachment to the same queue.
    UplinkData* copy() override;
    /// Gives the queue up.
    void clear() override {
        if (itsQueue == nullptr) return;
        --itsQueue->itsRefCount;
        itsQueue = nullptr;
    }

    SocketQueue* itsQueue;  // Null after clear().
    PooledUplink* itsUplink;
};

}  // namespace Quenvale::Interceptor::SDK
