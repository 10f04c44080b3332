#include "uplink/Delivery.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <utility>

#include <cxxabi.h>

#include "uplink/AgentEvent.h"
#include "util/diagnostics.h"
#include "util/sockutil.h"
#include "util/trap.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// A payload stands behind two numbers, its content type and two texts that are not used.
constexpr int kPayloadLead[] = {1, 0};

constexpr const char* kFailed = "Failed to send agent event using wrapped streams\n";

int readLength(const unsigned char* from) {
    int length = 0;
    std::memcpy(&length, from, sizeof length);
    return length;
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
        const int begin = run.beginOf(next);
        const int end = run.endOf(run.count() - 1);
        const int sent = begin + SendBytesCounted(itsUplink.socketOf(itsSlot)->itsDescriptor,
                                                  run.bytes() + begin, end - begin);
        for (; next < run.count() && run.endOf(next) <= sent; ++next) noteSuccess();
        if (next == run.count()) break;
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
    // The first message goes by itself: it shows whether an idle socket is still good, and if it
    // is not, no more than this one can be lost with it.
    bool isFirst = true;
    std::unique_ptr<MessageRun> run;
    for (int position = 0; position < length;) {
        unsigned char* record = records.data + position;
        const int eventLength = readLength(record);
        const Util::ByteArray event(record + sizeof eventLength, eventLength, false);
        unsigned char* rest = event.data + eventLength;
        const int payloadLength = readLength(rest);
        rest += sizeof payloadLength;
        const unsigned char code = payloadLength > 0 ? *rest++ : 0;
        const Util::ByteArray payload(payloadLength > 0 ? rest : nullptr, payloadLength, false);
        position = static_cast<int>(rest + payloadLength - records.data);
        if (isFirst) {
            if (!delivery.send(event, payload, code)) return;
            isFirst = false;
            continue;
        }
        if (run == nullptr) run = std::make_unique<MessageRun>();
        run->add(event, payload, code);
        if (!run->isLong()) continue;
        if (!delivery.send(*run)) return;
        run.reset();
    }
    if (run == nullptr || delivery.send(*run)) delivery.finish();
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

void AsyncBinaryUplink::writeMessage(IO::DataOutputStream& out, const Util::ByteArray& event,
                                     const Util::ByteArray& payload,
                                     unsigned char contentTypeCode) {
    if (contentTypeCode != 0 && debugOn()) Util::trap();
    out.writeByte(1);
    out.writeBytes(event.data, event.length);
    if (payload.data != nullptr && payload.length > 0) {
        for (const int number : kPayloadLead) out.writeUnsignedInt(number);
        out.writeUTF(AgentEvent::DEFAULT_PAYLOAD_CONTENT_TYPE);
        out.writeUTF(Util::String::NIL);
        out.writeUTF(Util::String::NIL);
        out.writeBytes(payload.data, payload.length);
    }
    out.writeByte(0);
}

void AsyncBinaryUplink::MessageRun::add(const Util::ByteArray& event,
                                        const Util::ByteArray& payload,
                                        unsigned char contentTypeCode) {
    writeMessage(itsOut, event, payload, contentTypeCode);
    itsEnds.push_back(itsSink.count());
}

unsigned char* AsyncBinaryUplink::MessageRun::Sink::reserve(int length) {
    if (length > itsSize - itsCount) {
        const long long size = std::max(2LL * itsSize, static_cast<long long>(itsCount) + length);
        if (size > INT_MAX) throw std::bad_alloc();
        std::unique_ptr<unsigned char[]> larger(new unsigned char[static_cast<std::size_t>(size)]);
        std::memcpy(larger.get(), itsBytes.get(), static_cast<std::size_t>(itsCount));
        itsBytes = std::move(larger);
        itsSize = static_cast<int>(size);
    }
    unsigned char* at = itsBytes.get() + itsCount;
    itsCount += length;
    return at;
}

}  // namespace Quenvale::Interceptor::SDK
