#pragma once

#include "uplink/AsyncBinaryUplink.h"
#include "uplink/UplinkData.h"
#include "util/blocks.h"

namespace Quenvale::Interceptor::SDK {

/// What the uplink attaches to an interaction: the queue that its events go to.
///
/// The queue counts its attachments, as a measure of load for the choice of a queue and for
/// nothing else: an attachment that is deleted without clear() leaves the count higher, which is
/// accepted.
class QZ_LOCAL AsyncBinaryUplink::SocketQueueRef final : public UplinkData, public Util::Pooled {
public:
    /// Does not count; whoever makes it does.
    SocketQueueRef(SocketQueue* queue, AsyncBinaryUplink* uplink);

    /// A further attachment to the same queue.
    UplinkData* copy() override;
    /// Gives the queue up.
    void clear() override;

    SocketQueue* itsQueue;  // Null after clear().
    AsyncBinaryUplink* itsUplink;
};

}  // namespace Quenvale::Interceptor::SDK
