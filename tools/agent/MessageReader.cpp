#include "agent/MessageReader.h"

#include "agent/EventDecoder.h"

namespace QZAgent {

namespace {

constexpr std::uint32_t kEventMessage = 1;
constexpr std::size_t kTextLimit = 4096;  // bytes of a content type

}  // namespace

MessageReader::MessageReader(std::uint64_t offset, std::size_t limit)
    : itsOffset(offset),
      itsValueStart(offset),
      itsText(kTextLimit),
      itsEvent(limit),
      itsPayload(limit) {}

bool MessageReader::feed(const unsigned char* data, std::size_t size, const Sink& sink) {
    Bytes bytes{data, size};
    while (!itIsMalformed && bytes.size > 0) {
        const std::size_t before = bytes.size;
        const Step entered = itsStep;
        const Progress progress = step(bytes);
        itsOffset += before - bytes.size;
        if (progress == Progress::Bad) itIsMalformed = true;
        if (progress != Progress::Done) continue;
        itsValueStart = itsOffset;
        if (entered == Step::End || (entered == Step::Separator && !itHasPayload)) {
            finish(sink);
        }
    }
    return !itIsMalformed;
}

Progress MessageReader::bad(const std::string& reason) {
    itsMalformed.offset = itsValueStart;
    itsMalformed.reason = reason;
    return Progress::Bad;
}

/// Each step moves on to the next when its value is there.
Progress MessageReader::step(Bytes& bytes) {
    Progress progress = Progress::More;
    switch (itsStep) {
        case Step::Start:
            progress = fixed(bytes, kEventMessage, "message type");
            break;
        case Step::Event:
            return eventBlock(bytes);
        case Step::Separator:
            return separator(bytes);
        case Step::Index:
            progress = fixed(bytes, 0, "second number of the payload");
            break;
        case Step::ContentType:
            progress = text(bytes);
            if (progress == Progress::Done) {
                itsMessage.contentType = itsText.text();
                itsText.reset();
            }
            break;
        case Step::Text2:
        case Step::Text3:
            progress = text(bytes);
            if (progress != Progress::Done) break;
            if (!itsText.isNull()) return bad("a text of the payload that should be null");
            itsText.reset();
            break;
        case Step::Payload:
            progress = payloadBlock(bytes);
            break;
        case Step::End:
            return fixed(bytes, 0, "end of the message");
    }
    if (progress == Progress::Done) itsStep = static_cast<Step>(static_cast<int>(itsStep) + 1);
    return progress;
}

Progress MessageReader::fixed(Bytes& bytes, std::uint32_t wanted, const char* what) {
    const unsigned char byte = bytes.next();
    if (byte == wanted) return Progress::Done;
    return bad(std::string(what) + ": " + std::to_string(byte) + " in place of " +
               std::to_string(wanted));
}

Progress MessageReader::text(Bytes& bytes) {
    const Progress progress = itsText.feed(bytes);
    return progress == Progress::Bad ? bad(itsText.reason()) : progress;
}

Progress MessageReader::eventBlock(Bytes& bytes) {
    const Progress progress = itsEvent.feed(bytes);
    if (progress == Progress::Bad) return bad(itsEvent.reason());
    if (progress != Progress::Done) return progress;
    // Checked here and not at the message's end, so that the rest of a wrong event isn't waited
    // for.
    const std::vector<unsigned char>& raw = itsEvent.bytes();
    DecodeError error;
    if (!decodeEvent(raw.data(), raw.size(), itsMessage.event, itsMessage.payload, error)) {
        itsMalformed.inEvent = error.offset;
        return bad(error.reason);
    }
    itsStep = Step::Separator;
    return progress;
}

Progress MessageReader::separator(Bytes& bytes) {
    const unsigned char byte = bytes.next();
    if (byte > 1) return bad("behind the event: " + std::to_string(byte) + " in place of 0 or 1");
    itHasPayload = byte == 1;
    const Event& event = itsMessage.event;
    const bool isEmbedded =
        itsEvent.held() == event.totalSize && event.totalSize != event.eventSize;
    if (itHasPayload && (isEmbedded || !event.hasPayload())) {
        return bad("a payload that the event doesn't speak of");
    }
    if (!itHasPayload && !isEmbedded && event.payloadSize() != 0) {
        return bad("the payload of " + std::to_string(event.payloadSize()) + " bytes is missing");
    }
    itsStep = Step::Index;
    return Progress::Done;
}

Progress MessageReader::payloadBlock(Bytes& bytes) {
    const Progress progress = itsPayload.feed(bytes);
    if (progress == Progress::Bad) return bad(itsPayload.reason());
    if (progress != Progress::Done) return progress;
    if (itsPayload.held() != itsMessage.event.payloadSize()) {
        return bad("a payload of " + std::to_string(itsPayload.held()) +
                   " bytes where the event says " + std::to_string(itsMessage.event.payloadSize()));
    }
    const std::vector<unsigned char>& payload = itsPayload.bytes();
    itsMessage.payload.assign(payload.begin(), payload.end());
    return progress;
}

void MessageReader::finish(const Sink& sink) {
    itsMessage.raw = std::move(itsEvent.bytes());
    sink(itsMessage);
    itsMessage = Message();
    itsEvent.reset();
    itsPayload.reset();
    itHasPayload = false;
    itsStep = Step::Start;
}

}  // namespace QZAgent
