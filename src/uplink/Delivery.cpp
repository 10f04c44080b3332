#include "uplink/Delivery.h"

#include <poll.h>

#include <cxxabi.h>

#include "uplink/AgentEvent.h"
#include "uplink/MessageRun.h"
#include "util/diagnostics.h"
#include "util/sockutil.h"
#include "util/trap.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr const char* kFailed = "Failed to send agent event using wrapped streams\n";

// Whether the other end has closed, as far as is known here.
bool isClosedBeyond(int descriptor) {
    pollfd asked = {descriptor, POLLRDHUP, 0};
    return poll(&asked, 1, 0) != 0;
}

}  // namespace

AsyncBinaryUplink::Delivery::Delivery(AsyncBinaryUplink& uplink, const Wording& words)
    : itsUplink(uplink), itsWords(words) {}

AsyncBinaryUplink::Delivery::~Delivery() {
    if (itsSlot >= 0) giveBack(true);
}

bool AsyncBinaryUplink::Delivery::open() {
    itsSlot = itsUplink.acquire();
    if (itsSlot < 0) {
        if (debugOn())
            forcedMsg(1,
                      "AsyncBinaryUplink::%s: failed to acquire a socket. Aborting send of %s.\n",
                      itsWords.operation, itsWords.all);
        return false;
    }
    itsStreams = std::make_unique<SocketStreams>(itsUplink.socketOf(itsSlot), false);
    return true;
}

bool AsyncBinaryUplink::Delivery::send(const Util::ByteArray& event, const Util::ByteArray& payload,
                                       unsigned char contentTypeCode) {
    if (write(event, payload, contentTypeCode)) return true;
    if (!tryAnother()) return false;
    if (write(event, payload, contentTypeCode)) return true;
    giveUp();
    return false;
}

bool AsyncBinaryUplink::Delivery::send(const MessageRun& run) {
    int next = 0;
    int retried = -1;  // The message that has failed once.
    while (next < run.count()) {
        const int descriptor = itsUplink.socketOf(itsSlot)->itsDescriptor;
        const int begin = run.beginOf(next);
        // A connection that was closed orderly still takes one message, and not all may go with it.
        const int end = isClosedBeyond(descriptor) ? run.endOf(next) : run.length();
        const int sent = begin + SendBytesCounted(descriptor, run.bytes() + begin, end - begin);
        const int done = run.countUpTo(sent);
        for (; debugOn() && next < done; ++next) noteSuccess();
        next = done;
        if (sent == end) continue;
        errorMsg("%s", kFailed);
        if (next == retried) {
            giveUp();
            return false;
        }
        retried = next;
        if (!tryAnother()) return false;
    }
    return true;
}

bool AsyncBinaryUplink::Delivery::write(const Util::ByteArray& event,
                                        const Util::ByteArray& payload, unsigned char code) {
    if (!writeEventUsingStreams(*itsStreams, event, payload, code)) return false;
    noteSuccess();
    return true;
}

void AsyncBinaryUplink::Delivery::noteSuccess() const {
    if (debugOn())
        forcedMsg(4, "AsyncBinaryUplink::%s succeeded with socket %d.\n", itsWords.operation,
                  itsSlot);
}

bool AsyncBinaryUplink::Delivery::tryAnother() {
    if (debugOn())
        forcedMsg(1,
                  "AsyncBinaryUplink::%s failed with socket %d. Releasing socket to try with "
                  "another.\n",
                  itsWords.operation, itsSlot);
    giveBack(true);
    return open();
}

void AsyncBinaryUplink::Delivery::giveUp() {
    const int slot = itsSlot;
    giveBack(true);
    if (debugOn())
        forcedMsg(1,
                  "AsyncBinaryUplink::%s failed with socket %d. Socket discarded. Aborting send of "
                  "%s.\n",
                  itsWords.operation, slot, itsWords.lost);
}

void AsyncBinaryUplink::Delivery::finish() {
    if (debugOn())
        forcedMsg(4, "AsyncBinaryUplink::%s: releasing socket %d for reuse.\n", itsWords.operation,
                  itsSlot);
    giveBack(false);
}

void AsyncBinaryUplink::Delivery::giveBack(bool discard) {
    itsStreams.reset();
    const int slot = itsSlot;
    itsSlot = -1;
    itsUplink.release(slot, discard);
}

void AsyncBinaryUplink::sendEvents(const Util::ByteArray& records, int length) {
    static constexpr Delivery::Wording kWords = {"send", "buffer", "agent event buffer"};
    Delivery delivery(*this, kWords);
    if (!delivery.open()) return;
    MessageRun run(length);
    for (int position = 0; position < length;) {
        const int next = run.fill(records, position, length);
        if (next > position) {
            if (!delivery.send(run)) return;
            position = next;
        } else {
            const MessageRun::Record alone(records.data + position);
            if (!delivery.send(alone.event, alone.payload, alone.contentTypeCode)) return;
            position = static_cast<int>(alone.end - records.data);
        }
    }
    delivery.finish();
}

void AsyncBinaryUplink::sendEvent(const Util::ByteArray& event, const Util::ByteArray& payload,
                                  const Util::String& contentType) {
    static constexpr Delivery::Wording kWords = {"sendEvent", "event", "agent event"};
    if (payload.data != nullptr && debugOn() &&
        contentType != AgentEvent::DEFAULT_PAYLOAD_CONTENT_TYPE)
        Util::trap();
    Delivery delivery(*this, kWords);
    if (!delivery.open()) return;
    if (delivery.send(event, payload, 0)) delivery.finish();
}

bool AsyncBinaryUplink::writeEventUsingStreams(SocketStreams& streams, const Util::ByteArray& event,
                                               const Util::ByteArray& payload,
                                               const unsigned char& contentTypeCode) {
    try {
        writeMessage(*streams.itsDataOut, event, payload, contentTypeCode);
        streams.itsDataOut->flush();
        return true;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        errorMsg("%s", kFailed);
        return false;
    }
}

}  // namespace Quenvale::Interceptor::SDK
