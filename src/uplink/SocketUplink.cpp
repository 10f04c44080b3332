// The way of a report into a queue and out of it, and the flusher's sleep. SocketUplinkPool.cpp has
// the sockets.
#include "uplink/SocketUplink.h"

#include <algorithm>
#include <csignal>
#include <cstring>

#include "config/InterceptorConfig.h"
#include "uplink/Report.h"
#include "uplink/SocketQueue.h"
#include "util/diagnostics.h"

namespace Quenvale::Interceptor::SDK {

SocketUplink::SocketUplink() : SocketUplink(itsParams, InterceptorConfig::itsCurrent) {
    std::signal(SIGPIPE, SIG_IGN);
    startFlusher();
}

SocketUplink::SocketUplink(const Params& params, InterceptorConfig& config)
    : PooledUplink(params, "qz-raw-flusher"), itsConfig(config) {}

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
    report(interaction, false,
           [this](SocketQueue* queue, long long time, const Util::ByteArray& bytes,
                  const AgentEvent& /*event*/) { queueEvent(queue, time, bytes, true); });
}

void SocketUplink::shutdown() {
    itsRunning = false;
}

// At least 1 ms, so that no setting makes the thread spin.
void SocketUplink::rest() {
    const std::chrono::milliseconds interval(std::max(itsSettings.flushInterval, 1));
    std::unique_lock<std::mutex> guard(itsRestLock);
    itsRestEnd.wait_for(guard, interval, [this] { return itIsStopping.load(); });
}

void SocketUplink::queueEvent(SocketQueue* queue, long long time, const Util::ByteArray& event,
                              bool flushAllowed) {
    const int size = itsSettings.bufferSize;
    const bool hasData = event.data != nullptr && event.length > 0;
    {
        Util::LatchGuard data(queue->itsDataLock);
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
void SocketUplink::sendQueued(SocketQueue* queue, int eventLength, Util::LatchGuard& data) {
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

}  // namespace Quenvale::Interceptor::SDK
