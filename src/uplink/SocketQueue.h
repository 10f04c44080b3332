#pragma once

#include <atomic>
#include <memory>

#include "uplink/PooledUplink.h"

namespace Quenvale::Interceptor::SDK {

/// One memory queue: two buffers of one size, of which one takes events while the other is on the
/// wire. Memory is taken once, by init().
///
/// What an append touches fills one cache line, which no other queue and no choice of one shares.
class QZ_LOCAL PooledUplink::SocketQueue {
public:
    /// A size of 0 or less gives the default of 64 KiB.
    void init(int size);

    alignas(64) Util::qzlatch itsDataLock;  // Before itsSendLock.
    std::unique_ptr<unsigned char[]> itsBuffer QZ_GUARDED_BY(itsDataLock);
    long long itsFirstEventTime QZ_GUARDED_BY(itsDataLock) = 0;  // given with the oldest event
    int itsUsed QZ_GUARDED_BY(itsDataLock) = 0;                  // bytes of itsBuffer

    // Attachments: a measure of load, so that a count that has just changed does no harm.
    alignas(64) std::atomic<int> itsRefCount{0};
    // Held during a send from this queue, so that two sends of one queue stay in order. Taken with
    // itsDataLock in hand, which is let go before the network is touched.
    Util::qzmutex itsSendLock QZ_AFTER(itsDataLock);
    std::unique_ptr<unsigned char[]> itsSpareBuffer QZ_GUARDED_BY(itsSendLock);
    Util::qzmutex itsGuard;  // Part of the object; nothing locks it.
};

}  // namespace Quenvale::Interceptor::SDK
