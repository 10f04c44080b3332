#include "uplink/SocketQueueRef.h"

namespace Quenvale::Interceptor::SDK {

UplinkData* PooledUplink::SocketQueueRef::copy() {
    auto* result = new SocketQueueRef(itsQueue, itsUplink);
    if (itsQueue != nullptr) ++itsQueue->itsRefCount;
    return result;
}

}  // namespace Quenvale::Interceptor::SDK
