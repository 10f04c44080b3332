// The queues' side: which queue an event goes to, and when a queue is sent. SocketPool.cpp has the
// sockets.
#include "uplink/PooledUplink.h"

#include <algorithm>
#include <typeinfo>

#include <cxxabi.h>

#include "interaction/Interaction.h"
#include "uplink/SocketQueue.h"
#include "uplink/SocketQueueRef.h"
#include "util/Clock.h"
#include "util/diagnostics.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// Bounds what an environment variable can make the library take.
constexpr int kMostSlots = 1024;
constexpr int kMostQueues = 1024;
constexpr int kNoBestYet = 10000000;

}  // namespace

// Starts no thread: the derived class does, once all that the thread touches is there and all that
// can fail is over, for the object must not go while a thread runs in it.
PooledUplink::PooledUplink(const Params& params, const char* flusher)
    : itsSettings(params),
      itsPoolSize(std::clamp(params.poolSize, 1, kMostSlots)),
      itsQueueCount(std::clamp(params.queueCount, 1, kMostQueues)),
      itsSockets(static_cast<std::size_t>(itsPoolSize)),
      itsSocketStates(static_cast<std::size_t>(itsPoolSize), kEmpty),
      itsThread(this, flusher),
      itsQueues(new SocketQueue[static_cast<std::size_t>(itsQueueCount)]) {
    for (int i = 0; i < itsQueueCount; ++i) itsQueues[i].init(itsSettings.bufferSize);
}

PooledUplink::~PooledUplink() = default;

void PooledUplink::flushAllQueues() {
    debugMsg("Flushing all queues\n");
    for (int i = 0; i < itsQueueCount; ++i) flushQueue(&itsQueues[i]);
}

void PooledUplink::run() {
    while (itsRunning) {
        rest();
        if (!itsRunning) break;
        try {
            flushAged();
        } catch (abi::__forced_unwind&) {
            throw;
        } catch (...) {
            continue;
        }
    }
}

// Without a lock: two threads that choose at once may choose the same queue, which costs nothing
// but a little evenness. None has fewer attachments than none.
UplinkData* PooledUplink::pick() {
    SocketQueue* chosen = &itsQueues[0];
    int best = kNoBestYet;
    for (int i = 0; i < itsQueueCount && best > 0; ++i) {
        const int count = itsQueues[i].itsRefCount.load(std::memory_order_relaxed);
        if (count >= best) continue;
        best = count;
        chosen = &itsQueues[i];
    }
    auto* ref = new SocketQueueRef(chosen, this);
    ++chosen->itsRefCount;
    return ref;
}

// A call may report to two uplinks. Each has its own form of what stands in a queue, and an event
// in another's would be misread there.
PooledUplink::SocketQueueRef* PooledUplink::attachedTo(const Interaction& interaction) const {
    UplinkData* data = interaction.itsUplinkData;
    if (data == nullptr || typeid(*data) != typeid(SocketQueueRef)) return nullptr;
    auto* ref = static_cast<SocketQueueRef*>(data);
    return ref->itsUplink == this && ref->itsQueue != nullptr ? ref : nullptr;
}

// An interceptor may have set any times, so the sum may wrap.
long long PooledUplink::timeOf(const Interaction& interaction) {
    return static_cast<long long>(static_cast<unsigned long long>(interaction.itsRtTime) +
                                  static_cast<unsigned long long>(interaction.itsStartTime) +
                                  static_cast<unsigned long long>(interaction.itsCoTime));
}

void PooledUplink::flushAged() {
    // With the next pass a flush interval away, an event goes out before it reaches maxAge.
    const long long limit = static_cast<long long>(itsSettings.maxAge) - itsSettings.flushInterval;
    bool quiet = true;
    for (int i = 0; i < itsQueueCount; ++i) {
        // Read for each queue, since the send of the one before can have taken long.
        if (!isDue(&itsQueues[i], Util::Clock::_currentTimeMillis(), limit)) continue;
        quiet = false;
        flushQueue(&itsQueues[i]);
    }
    if (!quiet || itsOpenSockets < 1) return;
    const int slot = acquire();
    if (slot >= 0) release(slot, false);
}

bool PooledUplink::isDue(SocketQueue* queue, long long now, long long limit) {
    Util::LatchGuard guard(queue->itsDataLock);
    if (queue->itsUsed == 0) return false;
    // An event from ahead of the clock stays until the clock is there: what is compared then is
    // below 0. Unsigned, because an interceptor may have set any time.
    const auto clock = static_cast<unsigned long long>(now);
    const auto first = static_cast<unsigned long long>(queue->itsFirstEventTime);
    const auto age = now < queue->itsFirstEventTime ? 0 - clock - first : clock - first;
    return static_cast<long long>(age) >= limit;
}

}  // namespace Quenvale::Interceptor::SDK
