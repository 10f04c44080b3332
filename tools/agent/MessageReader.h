#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/Event.h"
#include "agent/Wire.h"

namespace QZAgent {

struct Message {
    Event event;
    std::vector<unsigned char> raw;
    std::string payload;
    std::string contentType;
};

/// What of a stream is no event message, and where.
struct Malformed {
    std::uint64_t offset = 0;  // byte of the stream
    std::optional<std::size_t>
        inEvent;  // byte of the event, where the block came whole but is no event
    std::string reason;
};

/// Cuts a stream of event messages into events, in whatever portions the bytes come. A message is a
/// byte 1, the event's block, optionally a payload with its content type, and a byte 0.
///
/// What an unfinished message holds is bounded by twice `limit`, and grows with what arrived only.
/// After the first malformed byte nothing more is read: where the next message would start is
/// unknown.
class MessageReader {
public:
    using Sink = std::function<void(Message&)>;

    /// `offset` is the position of the first byte in the stream, for reports.
    MessageReader(std::uint64_t offset, std::size_t limit);

    /// Calls `sink` once per message that these bytes finish. False once the stream is malformed.
    bool feed(const unsigned char* data, std::size_t size, const Sink& sink);

    const Malformed& malformed() const { return itsMalformed; }
    bool isInsideMessage() const { return itsStep != Step::Start; }
    std::size_t held() const {
        return itsEvent.held() + itsPayload.held();
    }  // bytes of the unfinished message

private:
    enum class Step { Start, Event, Separator, Index, ContentType, Text2, Text3, Payload, End };

    Progress step(Bytes& bytes);
    Progress fixed(Bytes& bytes, std::uint32_t wanted, const char* what);
    Progress text(Bytes& bytes);
    Progress eventBlock(Bytes& bytes);
    Progress separator(Bytes& bytes);
    Progress payloadBlock(Bytes& bytes);
    Progress bad(const std::string& reason);
    void finish(const Sink& sink);

    std::uint64_t itsOffset;      // of the next byte
    std::uint64_t itsValueStart;  // of the value being read
    Step itsStep = Step::Start;
    bool itHasPayload = false;
    TextReader itsText;
    BlockReader itsEvent;
    BlockReader itsPayload;
    Message itsMessage;
    Malformed itsMalformed;
    bool itIsMalformed = false;
};

}  // namespace QZAgent
