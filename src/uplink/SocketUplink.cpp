// The way of a report into a queue and out of it, and the flusher. SocketUplinkPool.cpp has the
// sockets.
#include "uplink/SocketUplink.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <memory>
#include <new>

#include <cxxabi.h>

#include "config/InterceptorConfig.h"
#include "interaction/Interaction.h"
#include "uplink/AgentEvent.h"
#include "uplink/SocketQueue.h"
#include "util/Clock.h"
#include "util/diagnostics.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// Bounds what an environment variable can make the library take.
constexpr int kMostSlots = 1024;
constexpr int kMostQueues = 1024;
constexpr int kNoBestYet = 10000000;
constexpr int kEventRoom = 2048;  // bytes, on the stack: most events need no block

/// An event's bytes, given back by whatever way the report ends.
struct EventBytes {
    EventBytes() = default;
    ~EventBytes() { bytes.releaseContent(); }
    EventBytes(const EventBytes&) = delete;
    EventBytes& operator=(const EventBytes&) = delete;

    Util::ByteArray bytes;
};

// When the event came about. An interceptor may have set any times, so the sum may wrap.
long long timeOf(const Interaction& interaction) {
    return static_cast<long long>(static_cast<unsigned long long>(interaction.itsRtTime) +
                                  static_cast<unsigned long long>(interaction.itsStartTime) +
                                  static_cast<unsigned long long>(interaction.itsCoTime));
}

}  // namespace

SocketUplink::SocketUplink() : SocketUplink(itsParams, InterceptorConfig::itsCurrent) {
    std::signal(SIGPIPE, SIG_IGN);
    startFlusher();
}

SocketUplink::SocketUplink(const Params& params, InterceptorConfig& config)
    : itsSettings(params),
      itsConfig(config),
      itsPoolSize(std::clamp(params.poolSize, 1, kMostSlots)),
      itsQueueCount(std::clamp(params.queueCount, 1, kMostQueues)),
      itsSockets(static_cast<std::size_t>(itsPoolSize)),
      itsSocketStates(static_cast<std::size_t>(itsPoolSize), kEmpty),
      itsThread(this, "qz-raw-flusher"),
      itsQueues(new SocketQueue[static_cast<std::size_t>(itsQueueCount)]) {
    for (int i = 0; i < itsQueueCount; ++i) itsQueues[i].init(itsSettings.bufferSize);
}

SocketUplink::~SocketUplink() {
    stop();
}

void SocketUplink::startFlusher() {
    itsThread.start();
}

bool SocketUplink::getAlive() {
    return itsOpenSockets != 0 || itsConfig.getAlive();
}

void SocketUplink::notifyAgent(Interaction* interaction) {
    if (!getAlive()) return;
    AgentEvent agentEvent(interaction, false, false);
    unsigned char room[kEventRoom];
    EventBytes event;
    try {
        event.bytes = agentEvent.serialize(room, sizeof room);
    } catch (const std::bad_alloc&) {
        return;
    }
    std::unique_ptr<SocketQueueRef> leaving;
    try {
        SocketQueueRef* ref = attachedTo(*interaction);
        const int state = interaction->itsState;
        bool isLast = state > 0;
        if (ref == nullptr) {
            ref = static_cast<SocketQueueRef*>(pick());
            const bool isFree = interaction->itsUplinkData == nullptr;
            if (isFree)
                interaction->itsUplinkData = ref;
            else
                leaving.reset(ref);
            isLast = isFree && (state == 2 || state == 3);
        }
        queueEvent(ref->itsQueue, timeOf(*interaction), event.bytes, true);
        if (isLast) {
            interaction->itsUplinkData = nullptr;
            leaving.reset(ref);
        }
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return;
    }
    if (leaving) leaving->clear();
}

// The library makes another uplink when it loads, and calls may have begun under that one or report
// to both. A bare event in one of its queues would be read as a record there, and it takes whatever
// is attached for its own.
SocketUplink::SocketQueueRef* SocketUplink::attachedTo(Interaction& interaction) {
    auto* ref = dynamic_cast<SocketQueueRef*>(interaction.itsUplinkData);
    return ref != nullptr && ref->itsUplink == this && ref->itsQueue != nullptr ? ref : nullptr;
}

void SocketUplink::flushAllQueues() {
    debugMsg("Flushing all queues\n");
    for (int i = 0; i < itsQueueCount; ++i) flushQueue(&itsQueues[i]);
}

void SocketUplink::shutdown() {
    itsRunning = false;
}

void SocketUplink::run() {
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

// At least 1 ms, so that no setting makes the thread spin.
void SocketUplink::rest() {
    const std::chrono::milliseconds interval(std::max(itsSettings.flushInterval, 1));
    std::unique_lock<std::mutex> guard(itsRestLock);
    itsRestEnd.wait_for(guard, interval, [this] { return itIsStopping.load(); });
}

UplinkData* SocketUplink::pick() {
    // Without a lock: two threads that choose the same queue at once lose a little evenness.
    SocketQueue* chosen = &itsQueues[0];
    int best = kNoBestYet;
    for (int i = 0; i < itsQueueCount; ++i) {
        const int count = itsQueues[i].itsRefCount.load(std::memory_order_relaxed);
        if (count >= best) continue;
        best = count;
        chosen = &itsQueues[i];
    }
    auto* ref = new SocketQueueRef(chosen, this);
    ++chosen->itsRefCount;
    return ref;
}

void SocketUplink::queueEvent(SocketQueue* queue, long long time, const Util::ByteArray& event,
                              bool flushAllowed) {
    const int size = itsSettings.bufferSize;
    const bool hasData = event.data != nullptr && event.length > 0;
    {
        Util::MutexGuard data(queue->itsDataLock);
        if (hasData && static_cast<long long>(queue->itsUsed) + event.length <= size) {
            if (queue->itsUsed == 0) queue->itsFirstEventTime = time;
            std::memcpy(queue->itsBuffer.get() + queue->itsUsed, event.data,
                        static_cast<std::size_t>(event.length));
            queue->itsUsed += event.length;
            data.unlock();
            debugMsg("Queuing event, length: %d\n", event.length);
            return;
        }
        if (flushAllowed || queue->itsUsed != 0) sendQueued(queue, event.length, data);
    }
    if (!hasData) return;
    // Now it fits, unless another thread filled the buffer meanwhile. One as large as the buffer
    // would fit too, and still goes the other way.
    if (event.length < size && flushAllowed)
        queueEvent(queue, time, event, false);
    else
        send(event.data, event.length);
}

// Taking itsSendLock with itsDataLock in hand means that the spare buffer is free at the swap. An
// empty buffer is sent like any other; the length that is logged is that of the event behind it.
void SocketUplink::sendQueued(SocketQueue* queue, int eventLength, Util::MutexGuard& data) {
    Util::MutexGuard guard(queue->itsSendLock);
    const int length = queue->itsUsed;
    queue->itsBuffer.swap(queue->itsSpareBuffer);
    queue->itsUsed = 0;
    data.unlock();
    debugMsg("Sending event, length: %d\n", eventLength);
    send(queue->itsSpareBuffer.get(), length);
}

void SocketUplink::flushQueue(SocketQueue* queue) {
    queueEvent(queue, 0, Util::ByteArray(), true);
}

void SocketUplink::flushAged() {
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

bool SocketUplink::isDue(SocketQueue* queue, long long now, long long limit) {
    Util::MutexGuard guard(queue->itsDataLock);
    if (queue->itsUsed == 0) return false;
    // An event from ahead of the clock stays until the clock is there: what is compared then is
    // below 0. Unsigned, because an interceptor may have set any time.
    const auto clock = static_cast<unsigned long long>(now);
    const auto first = static_cast<unsigned long long>(queue->itsFirstEventTime);
    const auto age = now < queue->itsFirstEventTime ? 0 - clock - first : clock - first;
    return static_cast<long long>(age) >= limit;
}

UplinkData* SocketUplink::SocketQueueRef::copy() {
    auto* result = new SocketQueueRef(itsQueue, itsUplink);
    if (itsQueue != nullptr) ++itsQueue->itsRefCount;
    return result;
}

void SocketUplink::SocketQueueRef::clear() {
    if (itsQueue == nullptr) return;
    --itsQueue->itsRefCount;
    itsQueue = nullptr;
}

}  // namespace Quenvale::Interceptor::SDK
