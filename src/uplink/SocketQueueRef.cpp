#include "uplink/SocketQueueRef.h"

#include "uplink/SocketQueue.h"

namespace Quenvale::Interceptor::SDK {

PooledUplink::SocketQueueRef::SocketQueueRef(SocketQueue* queue, PooledUplink* uplink)
    : itsQueue(queue), itsUplink(uplink) {}

UplinkData* PooledUplink::SocketQueueRef::copy() {
    auto* result = new SocketQueueRef(itsQueue, itsUplink);
    if (itsQueue != nullptr) ++itsQueue->itsRefCount;
    return result;
}

void PooledUplink::SocketQueueRef::clear() {
    if (itsQueue == nullptr) return;
    --itsQueue->itsRefCount;
    itsQueue = nullptr;
}

}  // namespace Quenvale::Interceptor::SDK
