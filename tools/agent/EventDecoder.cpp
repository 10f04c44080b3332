#include "agent/EventDecoder.h"

#include <cstring>
#include <limits>

namespace QZAgent {

namespace {

constexpr std::size_t kHeadSize = 21;  // bytes: flags, tag, two sizes, mask

std::uint64_t bit(int number) {
    return std::uint64_t{1} << number;
}

std::uint64_t knownMask() {
    std::uint64_t mask = bit(kMsgFieldsBit) | bit(kIncomingBit) | bit(kNewBit) | bit(kPayloadBit);
    for (const Field& field : eventFields()) mask |= bit(field.bit);
    return mask;
}

std::string hex(std::uint64_t value) {
    static const char* const digits = "0123456789abcdef";
    std::string text;
    do {
        text.insert(text.begin(), digits[value & 15]);
        value >>= 4;
    } while (value != 0);
    return "0x" + text;
}

/// One walk over the bytes of one event. Each operation is false at the first thing wrong, with the
/// error set.
class Walk {
public:
    Walk(const unsigned char* data, std::size_t size, DecodeError& error)
        : itsData(data), itsEnd(size), itsError(error) {}

    bool head(Event& event);
    bool flags(const Event& event);
    bool fields(Event& event);
    bool msgFields(Event& event);
    bool checkpoints(Event& event);
    bool end();

private:
    bool fail(std::size_t offset, const std::string& reason) {
        itsError = {offset, reason};
        return false;
    }
    bool have(std::size_t count, const char* what) {
        if (itsEnd - itsPos >= count) return true;
        return fail(itsPos, std::string(what) + ": " + std::to_string(count) + " bytes wanted, " +
                                std::to_string(itsEnd - itsPos) + " are left");
    }
    std::uint64_t take(std::size_t width) {
        std::uint64_t value = 0;
        for (std::size_t i = 0; i < width; ++i) value = value << 8 | itsData[itsPos++];
        return value;
    }
    bool scope(const Field& field, const Event& event);
    bool value(const char* name, std::optional<std::string>& into);
    template <typename T>
    bool value(const char* name, std::optional<T>& into);
    bool entry(const char* what, std::string& into);
    bool count(const char* what, std::int32_t& into);
    bool incoming(Event& event);
    bool newOnes(Event& event);
    bool tailFits(bool hasNew) const;

    const unsigned char* itsData;
    std::size_t itsPos = 0;
    std::size_t itsEnd;
    DecodeError& itsError;
};

bool Walk::head(Event& event) {
    if (!have(kHeadSize, "head")) return false;
    event.flags = static_cast<std::uint8_t>(take(1));
    event.eventTag = static_cast<std::int32_t>(take(4));
    event.totalSize = static_cast<std::uint32_t>(take(4));
    event.eventSize = static_cast<std::uint32_t>(take(4));
    event.mask = take(8);
    constexpr auto largest = static_cast<std::uint32_t>(std::numeric_limits<std::int32_t>::max());
    if (event.eventTag == 0) return fail(1, "event tag is 0");
    if (event.totalSize > largest) return fail(5, "total size is negative");
    if (event.eventSize > event.totalSize) {
        return fail(9, "event size " + std::to_string(event.eventSize) + " exceeds total size " +
                           std::to_string(event.totalSize));
    }
    if (itsEnd != event.eventSize && itsEnd != event.totalSize) {
        return fail(9, "sizes " + std::to_string(event.eventSize) + " and " +
                           std::to_string(event.totalSize) + " in " + std::to_string(itsEnd) +
                           " bytes");
    }
    if (event.eventSize < kHeadSize) return fail(9, "event size is below that of the head");
    if (event.totalSize > event.eventSize && !event.hasPayload()) {
        return fail(5, "sizes speak of a payload, the mask doesn't");
    }
    const std::uint64_t unknown = event.mask & ~knownMask();
    if (unknown != 0) return fail(13, "unknown mask bits " + hex(unknown));
    itsEnd = event.eventSize;
    return true;
}

bool Walk::flags(const Event& event) {
    if (event.hasFlag(Event::WHOLE) && !event.hasFlag(Event::REPLIED))
        return fail(0, "whole event without a reply");
    if (event.hasFlag(Event::FAILURE) != ((event.mask & bit(18)) != 0)) {
        return fail(0, "failure flag and failure text disagree");
    }
    return true;
}

bool Walk::scope(const Field& field, const Event& event) {
    const EventKind kind = event.kind();
    bool allowed = true;
    if (field.scope == FieldScope::Request) allowed = kind != EventKind::Reply;
    if (field.scope == FieldScope::ServerRequest)
        allowed = kind != EventKind::Reply && !event.isClient();
    if (field.scope == FieldScope::Reply) allowed = kind != EventKind::Request;
    if (field.scope == FieldScope::WholeOnly) allowed = kind == EventKind::Whole;
    if (allowed) return true;
    return fail(13, std::string(field.name) + " has no place in a " +
                        (event.isClient() ? "client" : "server") + "'s " + kindName(kind) +
                        " event");
}

bool Walk::value(const char* name, std::optional<std::string>& into) {
    const std::size_t at = itsPos;
    std::string text;
    if (!entry(name, text)) return false;
    if (text.empty()) return fail(at, std::string(name) + " is present but empty");
    into = std::move(text);
    return true;
}

template <typename T>
bool Walk::value(const char* name, std::optional<T>& into) {
    if (!have(sizeof(T), name)) return false;
    const std::size_t at = itsPos;
    into = static_cast<T>(take(sizeof(T)));
    if (*into == 0) return fail(at, std::string(name) + " is present but 0");
    return true;
}

bool Walk::entry(const char* what, std::string& into) {
    if (!have(4, what)) return false;
    const std::size_t at = itsPos;
    const std::uint64_t length = take(4);
    if (length > itsEnd - itsPos) {
        return fail(at, std::string(what) + ": length " + std::to_string(length) + ", but " +
                            std::to_string(itsEnd - itsPos) + " bytes are left");
    }
    if (std::memchr(itsData + itsPos, 0, length) != nullptr) {
        return fail(at, std::string(what) + " holds a zero byte");
    }
    into.assign(reinterpret_cast<const char*>(itsData + itsPos), length);
    itsPos += length;
    return true;
}

bool Walk::count(const char* what, std::int32_t& into) {
    if (!have(4, what)) return false;
    const std::size_t at = itsPos;
    into = static_cast<std::int32_t>(take(4));
    if (into > 0) return true;
    return fail(at, std::string(what) + " is " + std::to_string(into));
}

bool Walk::fields(Event& event) {
    for (const Field& field : eventFields()) {
        if ((event.mask & bit(field.bit)) == 0) continue;
        if (!scope(field, event)) return false;
        const bool good = std::visit(
            [&](auto member) { return this->value(field.name, event.*member); }, field.member);
        if (!good) return false;
    }
    if (!event.formatMark) return fail(13, "format mark is missing");
    if (*event.formatMark != 1)
        return fail(0, "format mark is " + std::to_string(*event.formatMark));
    if (event.failed && *event.failed != 1)
        return fail(0, "failed is " + std::to_string(*event.failed));
    return true;
}

bool Walk::msgFields(Event& event) {
    if ((event.mask & bit(kMsgFieldsBit)) == 0) return true;
    std::int32_t wanted = 0;
    if (!count("number of message fields", wanted)) return false;
    for (; wanted > 0; --wanted) {
        std::pair<std::string, std::string> field;
        if (!entry("key of a message field", field.first)) return false;
        if (!entry("value of a message field", field.second)) return false;
        event.msgFields.push_back(std::move(field));
    }
    return true;
}

bool Walk::checkpoints(Event& event) {
    const bool any = (event.mask & (bit(kIncomingBit) | bit(kNewBit))) != 0;
    if (any && event.kind() == EventKind::Reply)
        return fail(13, "checkpoints have no place in a reply event");
    return incoming(event) && newOnes(event);
}

/// From here to the end: the new checkpoints where the mask tells of them, and nothing else.
bool Walk::tailFits(bool hasNew) const {
    DecodeError ignored;
    Walk ahead(itsData, itsEnd, ignored);
    ahead.itsPos = itsPos;
    std::int32_t wanted = 0;
    if (hasNew && !ahead.count("", wanted)) return false;
    std::string name;
    for (; wanted > 0; --wanted) {
        if (!ahead.entry("", name)) return false;
    }
    return ahead.itsPos == itsEnd;
}

/// The count says how many arrived; a name that arrived twice is listed once. So the number of
/// entries is at most the count, and it is the one that makes the rest of the event come out even.
/// As no text holds a zero byte, a count or length taken for a name is seen at once, and the most
/// entries that fit are the right ones.
bool Walk::incoming(Event& event) {
    if ((event.mask & bit(kIncomingBit)) == 0) return true;
    if (!count("number of incoming checkpoints", event.incomingCount)) return false;
    const bool hasNew = (event.mask & bit(kNewBit)) != 0;
    std::vector<std::size_t> ends;
    std::int32_t wanted = event.incomingCount;
    for (; wanted > 0 && itsPos < itsEnd; --wanted) {
        Checkpoint checkpoint;
        if (!entry("name of an incoming checkpoint", checkpoint.name)) break;
        if (!have(8, "time of an incoming checkpoint")) break;
        checkpoint.elapsed = static_cast<std::int64_t>(take(8));
        event.incomingCheckpoints.push_back(std::move(checkpoint));
        ends.push_back(itsPos);
    }
    // Cheap however many there are: ahead of a wrong split stands the start of a text, which as a
    // length points beyond the event, or leads to a zero byte soon.
    while (!ends.empty()) {
        itsPos = ends.back();
        if (tailFits(hasNew)) return true;
        // With nothing missing from the list there is no other split to look for.
        if (wanted == 0 && !hasNew) break;
        ends.pop_back();
        event.incomingCheckpoints.pop_back();
    }
    return fail(itsPos, "incoming checkpoints don't fit their count of " +
                            std::to_string(event.incomingCount));
}

bool Walk::newOnes(Event& event) {
    if ((event.mask & bit(kNewBit)) == 0) return true;
    std::int32_t wanted = 0;
    if (!count("number of new checkpoints", wanted)) return false;
    for (; wanted > 0; --wanted) {
        std::string name;
        if (!entry("name of a new checkpoint", name)) return false;
        event.newCheckpoints.push_back(std::move(name));
    }
    return true;
}

bool Walk::end() {
    if (itsPos == itsEnd) return true;
    return fail(itsPos,
                std::to_string(itsEnd - itsPos) + " bytes are left over behind the last field");
}

}  // namespace

bool decodeEvent(const unsigned char* data, std::size_t size, Event& event, std::string& payload,
                 DecodeError& error) {
    event = Event();
    payload.clear();
    Walk walk(data, size, error);
    const bool good = walk.head(event) && walk.flags(event) && walk.fields(event) &&
                      walk.msgFields(event) && walk.checkpoints(event) && walk.end();
    if (!good) return false;
    payload.assign(reinterpret_cast<const char*>(data) + event.eventSize, size - event.eventSize);
    return true;
}

}  // namespace QZAgent
