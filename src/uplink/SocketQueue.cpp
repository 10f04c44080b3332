#include "uplink/SocketQueue.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr int kDefaultSize = 0x10000;

}  // namespace

void PooledUplink::SocketQueue::init(int size) {
    const auto bytes = static_cast<std::size_t>(size > 0 ? size : kDefaultSize);
    Util::LatchGuard data(itsDataLock);
    Util::MutexGuard send(itsSendLock);
    // Left uninitialised: pages that no event reaches are never touched.
    itsBuffer.reset(new unsigned char[bytes]);
    itsSpareBuffer.reset(new unsigned char[bytes]);
}

}  // namespace Quenvale::Interceptor::SDK
