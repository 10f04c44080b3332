#include "uplink/SocketQueueRef.h"

#include "uplink/SocketQueue.h"

namespace Quenvale::Interceptor::SDK {

AsyncBinaryUplink::SocketQueueRef::SocketQueueRef(SocketQueue* queue, AsyncBinaryUplink* uplink)
    : itsQueue(queue), itsUplink(uplink) {}

UplinkData* AsyncBinaryUplink::SocketQueueRef::copy() {
    auto* result = new SocketQueueRef(itsQueue, itsUplink);
    if (itsQueue != nullptr) ++itsQueue->itsRefCount;
    return result;
}

void AsyncBinaryUplink::SocketQueueRef::clear() {
    if (itsQueue == nullptr) return;
    --itsQueue->itsRefCount;
    itsQueue = nullptr;
}

}  // namespace Quenvale::Interceptor::SDK
