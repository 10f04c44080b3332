#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace QZAgent {

/// What an event tells: the request alone, the reply alone, or both at once.
enum class EventKind { Request, Reply, Whole };

/// One checkpoint that arrived with the request: its name and its time, as carried.
struct Checkpoint {
    std::string name;
    std::int64_t elapsed = 0;  // ms
};

/// One decoded event. A field that the event doesn't carry has no value: a writer leaves out what
/// is empty or 0, so that a value held here is never empty and never 0. Texts are bytes in the
/// encoding of the instrumented program.
struct Event {
    static constexpr std::uint8_t REPLIED = 0x01;
    static constexpr std::uint8_t CLIENT = 0x02;
    static constexpr std::uint8_t LOW_PRIORITY = 0x04;
    static constexpr std::uint8_t FAILURE = 0x08;
    static constexpr std::uint8_t ONE_WAY = 0x10;
    static constexpr std::uint8_t CREATE = 0x20;
    static constexpr std::uint8_t EVENT = 0x40;
    static constexpr std::uint8_t WHOLE = 0x80;

    std::uint8_t flags = 0;
    std::int32_t eventTag = 0;
    std::uint32_t totalSize = 0;  // bytes: the event and its payload, wherever the payload travels
    std::uint32_t eventSize = 0;  // bytes: the event without its payload
    std::uint64_t mask = 0;

    std::optional<std::string> flowID;
    std::optional<std::uint8_t> formatMark;
    std::optional<std::string> interactionID;
    std::optional<std::string> upstreamInteractionID;
    std::optional<std::int64_t> time;  // ms since 1970
    std::optional<std::int64_t> msgSize;
    std::optional<std::int64_t> sizeB;
    std::optional<std::int64_t> sizeC;
    std::optional<std::int64_t> sizeD;
    std::optional<std::string> debugInfo;
    std::optional<std::int32_t> rtTime;  // ms
    std::optional<std::string> parentID;
    std::optional<std::string> flowAttr1;
    std::optional<std::string> locus;
    std::optional<std::int32_t> sequenceNumber;
    std::optional<std::string> url;
    std::optional<std::string> securityID;
    std::optional<std::string> securityAttr1;
    std::optional<std::string> groupName;
    std::optional<std::string> serviceName;
    std::optional<std::string> opName;
    std::optional<std::string> groupID;
    std::optional<std::string> serviceID;
    std::optional<std::string> siteAttr;
    std::optional<std::string> opID;
    std::optional<std::string> otherOpID;
    std::optional<std::string> localAddr;
    std::optional<std::string> peerAddr;
    std::optional<std::string> calleeAddr;
    std::optional<std::string> callerAddr;
    std::optional<std::int16_t> peerType;
    std::optional<std::int16_t> platformType;
    std::optional<std::int16_t> appType;
    std::optional<std::int16_t> svcType;
    std::optional<std::int16_t> opType;
    std::optional<std::string> pathID;
    std::optional<std::string> pPathID;
    std::optional<std::string> flowAttr2;
    std::optional<std::int32_t> coTime;  // ms
    std::optional<std::string> failure;
    std::optional<std::uint8_t> failed;
    std::optional<std::string> subNode;

    std::vector<std::pair<std::string, std::string>> msgFields;
    /// The number of arrivals. Two arrivals of one name count twice and are listed once, so that
    /// this can exceed the size of the list below.
    std::int32_t incomingCount = 0;
    std::vector<Checkpoint> incomingCheckpoints;
    std::vector<std::string> newCheckpoints;

    EventKind kind() const;
    bool isClient() const { return (flags & CLIENT) != 0; }
    bool hasFlag(std::uint8_t flag) const { return (flags & flag) != 0; }
    bool hasPayload() const;  // The event speaks of a payload; it can be of 0 bytes.
    std::size_t payloadSize() const { return totalSize - eventSize; }
    const std::string* msgField(const std::string& name) const;  // Null when there is none.
};

/// In which kinds of event a field can stand.
enum class FieldScope { Always, Request, ServerRequest, Reply, WholeOnly };

/// One row of the format: the fields 1 to 43 in the order of the bytes. Decoding, text and JSON all
/// walk it.
struct Field {
    using Member =
        std::variant<std::optional<std::string> Event::*, std::optional<std::uint8_t> Event::*,
                     std::optional<std::int16_t> Event::*, std::optional<std::int32_t> Event::*,
                     std::optional<std::int64_t> Event::*>;
    const char* name;
    int bit;
    FieldScope scope;
    Member member;
};

const std::vector<Field>& eventFields();

/// Mask bits of what follows the fields of the table.
constexpr int kMsgFieldsBit = 36;
constexpr int kIncomingBit = 39;
constexpr int kNewBit = 40;
constexpr int kPayloadBit = 19;

const char* kindName(EventKind kind);  // "request", "reply" or "whole"

}  // namespace QZAgent
