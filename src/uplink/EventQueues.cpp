// The way of a report from the interaction into a queue, and of a queue to its send.
#include <climits>
#include <cstring>

#include "uplink/AgentEvent.h"
#include "uplink/AsyncBinaryUplink.h"
#include "uplink/Report.h"
#include "uplink/SocketQueue.h"
#include "util/diagnostics.h"
#include "util/trap.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr long long kBareOverhead = 8;     // Two lengths.
constexpr long long kPayloadOverhead = 9;  // And the content type's code.

bool hasData(const Util::ByteArray& bytes) {
    return bytes.data != nullptr && bytes.length > 0;
}

int payloadLength(const Util::ByteArray& payload) {
    return hasData(payload) ? payload.length : 0;
}

unsigned char* append(unsigned char* out, const void* bytes, int length) {
    std::memcpy(out, bytes, static_cast<std::size_t>(length));
    return out + length;
}

}  // namespace

void AsyncBinaryUplink::notifyAgent(Interaction* interaction) {
    if (!getAlive()) return;
    report(interaction, true,
           [this](SocketQueue* queue, long long time, const Util::ByteArray& bytes,
                  const AgentEvent& event) {
               queueEvent(queue, time, bytes, true, event.itsPayloadCopy, event.itsContentType);
           });
}

int AsyncBinaryUplink::computeEventLength(const Util::ByteArray& event,
                                          const Util::ByteArray& payload) {
    if (!hasData(event)) return 0;
    const long long length = hasData(payload) ? kPayloadOverhead + event.length + payload.length
                                              : kBareOverhead + event.length;
    // More than any queue holds, so that the event goes out past the queues.
    return length > INT_MAX ? INT_MAX : static_cast<int>(length);
}

int AsyncBinaryUplink::copyEventAndPayload(unsigned char* buffer, int position,
                                           const Util::ByteArray& event,
                                           const Util::ByteArray& payload,
                                           const Util::String& contentType) {
    unsigned char* out = buffer + position;
    out = append(out, &event.length, sizeof event.length);
    out = append(out, event.data, event.length);
    const int length = payloadLength(payload);
    out = append(out, &length, sizeof length);
    if (length > 0) {
        if (debugOn() && contentType != AgentEvent::DEFAULT_PAYLOAD_CONTENT_TYPE) Util::trap();
        *out++ = 0;
        out = append(out, payload.data, length);
    }
    return static_cast<int>(out - buffer);
}

// Flattened for the append, which is as far as most reports go.
__attribute__((flatten)) void AsyncBinaryUplink::queueEvent(SocketQueue* queue, long long time,
                                                            const Util::ByteArray& event,
                                                            bool flushAllowed,
                                                            const Util::ByteArray& payload,
                                                            const Util::String& contentType) {
    const int length = computeEventLength(event, payload);
    {
        Util::LatchGuard data(queue->itsDataLock);
        const int used = queue->itsUsed;
        if (length > 0 && length <= itsSettings.bufferSize - used) {
            if (used == 0) queue->itsFirstEventTime = time;
            queue->itsUsed =
                copyEventAndPayload(queue->itsBuffer.get(), used, event, payload, contentType);
            data.unlock();
            if (!canLog(4)) return;
            debugMsg("Queuing event, length: %d, payload: %d, total including metadata: %d.\n",
                     event.length, payloadLength(payload), length);
            return;
        }
        if (flushAllowed || used != 0) sendQueued(queue, data);
    }
    if (length == 0) return;
    // Now it fits, unless another thread filled the buffer meanwhile. One as large as the buffer
    // would fit too, and still goes the other way.
    if (length < itsSettings.bufferSize && flushAllowed)
        queueEvent(queue, time, event, false, payload, contentType);
    else
        sendEvent(event, payload, contentType);
}

// Taking itsSendLock with itsDataLock in hand means that whoever finds the queue full waits for the
// send that is under way, and others behind it: the spare buffer is free at the swap.
void AsyncBinaryUplink::sendQueued(SocketQueue* queue, Util::LatchGuard& data) {
    Util::MutexGuard send(queue->itsSendLock);
    const int length = queue->itsUsed;
    if (length < 1) {
        data.unlock();
        debugMsg("Queue flushed, but it is empty.\n");
        return;
    }
    queue->itsBuffer.swap(queue->itsSpareBuffer);
    queue->itsUsed = 0;
    data.unlock();
    debugMsg("Sending events, total data length: %d\n", length);
    sendEvents(Util::ByteArray(queue->itsSpareBuffer.get(), length, false), length);
}

void AsyncBinaryUplink::flushQueue(SocketQueue* queue) {
    queueEvent(queue, 0, Util::ByteArray(), true, Util::ByteArray(), Util::String::BLANK);
}

}  // namespace Quenvale::Interceptor::SDK
