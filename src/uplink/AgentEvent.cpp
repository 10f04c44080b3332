#include "uplink/AgentEvent.h"

// A release build has no assert(), but a payload's regions are checked there too.
#undef NDEBUG
#include <algorithm>
#include <cassert>
#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <type_traits>
#include <typeinfo>

#include "config/InterceptorConfig.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"
#include "util/copy.h"
#include "util/diagnostics.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr int kHeadSize = 21;
constexpr int kLengthSize = 4;
constexpr unsigned char kEventFormat = 1;
constexpr int kPayloadBit = 19;

enum Flag : unsigned char {
    kReplyFlag = 0x01,
    kClientFlag = 0x02,
    kLowPriorityFlag = 0x04,
    kFailureFlag = 0x08,
    kOneWayFlag = 0x10,
    kCreateFlag = 0x20,
    kEventFlag = 0x40,
    kWholeFlag = 0x80,
};

// Big-endian, and behind it the place for the next.
template <class Number>
unsigned char* putNumber(unsigned char* at, Number value) {
    auto bits = static_cast<std::make_unsigned_t<Number>>(value);
    if constexpr (sizeof bits == 8)
        bits = __builtin_bswap64(bits);
    else if constexpr (sizeof bits == 4)
        bits = __builtin_bswap32(bits);
    else if constexpr (sizeof bits == 2)
        bits = __builtin_bswap16(bits);
    std::memcpy(at, &bits, sizeof bits);
    return at + sizeof bits;
}

// Meets every field of the table: an optional one with its mask bit, which is absent when it is
// empty or 0, or an element of a list, which never is. What finds no room is counted all the same,
// so that one walk writes the event or tells how much room it takes.
//
// The table's walk stays in registers: it is handed to the lists, and comes back, by value.
class Walk {
public:
    Walk(unsigned char* room, int size) : itsRoom(room), itsEnd(size) {}

    // The text of a String.
    void addOptional(const char* text, int bit) {
        const std::size_t length = Util::String::lengthOf(text);
        if (length == 0) return;
        itsMask |= 1LL << bit;
        addStr(text, length);
    }
    void addOptional(const Util::String& text, int bit) { addOptional(text.c_str(), bit); }
    template <class Number>
    std::enable_if_t<std::is_integral_v<Number>> addOptional(Number value, int bit) {
        if (value == 0) return;
        itsMask |= 1LL << bit;
        addMandatory(value);
    }
    void addEntry(const Util::String& text) {
        if (text.empty())
            addMandatory(0);
        else
            addStr(text.c_str(), text.length());
    }
    void addEntry(long long value) { addMandatory(value); }

    long long itsSize = kHeadSize;  // bytes
    long long itsMask = 0;

private:
    template <class Number>
    void addMandatory(Number value) {
        if (unsigned char* at = take(sizeof value)) putNumber(at, value);
    }
    void addStr(const char* text, std::size_t length) {
        unsigned char* at = take(kLengthSize + length);
        if (at != nullptr) Util::copyText(putNumber(at, static_cast<int>(length)), text, length);
    }
    unsigned char* take(std::size_t bytes) {
        const long long start = itsSize;
        itsSize += static_cast<long long>(bytes);
        if (itsSize > itsEnd) return nullptr;
        unsigned char* at = itsRoom + start;
        if (at == nullptr) __builtin_unreachable();  // Spares the caller a second test.
        return at;
    }

    unsigned char* itsRoom;
    long long itsEnd;
};

// What an interaction answers when it is asked for a field. Servers and clients of ours would only
// hand over most of them as they stand, and are read in place; a class of an interceptor's may
// answer as it likes.
class Answers {
public:
    explicit Answers(Interaction& from)
        : itsFrom(from),
          itIsServer(typeid(from) == typeid(ServerInteraction)),
          itIsOurs(itIsServer || typeid(from) == typeid(ClientInteraction)) {}

    const char* flowID() const { return known(itsFrom.itsFlowID, &Interaction::getFlowID); }
    const char* interactionID() const {
        return known(itsFrom.itsInteractionID, &Interaction::getInteractionID);
    }
    const Util::String& upstreamInteractionID() const {
        return itIsServer ? itsFrom.itsUpstreamInteractionID : itsFrom.getUpstreamInteractionID();
    }
    const Util::String& url() const { return itIsOurs ? itsFrom.itsUrl : itsFrom.getUrl(); }
    const Util::String& opName() const {
        return itIsOurs ? itsFrom.itsOpName : itsFrom.getOpName();
    }
    const Util::String& peerAddr() const {
        return itIsOurs ? itsFrom.itsPeerAddr : itsFrom.getPeerAddr();
    }
    // A child on another thread may be making a server's path at this moment.
    const char* pathID() const {
        return ServerInteraction::publishedText(itIsServer ? itsFrom.itsPathID
                                                           : itsFrom._getPathID(true));
    }
    const Util::String& pPathID() const {
        return itIsOurs ? itsFrom.itsPPathID : itsFrom._getPPathID();
    }

private:
    // A server makes its id when it is first asked for, by this thread or by another.
    template <class Getter>
    const char* known(const Util::String& field, Getter getter) const {
        const char* text = itIsOurs ? ServerInteraction::publishedText(field) : nullptr;
        if (text != nullptr && *text != '\0') return text;
        return ServerInteraction::publishedText((itsFrom.*getter)());
    }

    Interaction& itsFrom;
    const bool itIsServer;  // Not of a class derived from it; the same holds below.
    const bool itIsOurs;
};

Walk withMsgFields(Walk walk, Util::Map<Util::String>& fields) {
    walk.addOptional(fields.size(), 36);
    for (auto* node = fields.getEntryList()->getHead(); node != nullptr; node = node->next) {
        walk.addEntry(node->data->key);
        walk.addEntry(node->data->value);
    }
    return walk;
}

// The arrivals are counted as they came, while their names stand once each.
Walk withIncoming(Walk walk, int count, Checkpoints& checkpoints) {
    walk.addOptional(count, 39);
    const std::unique_ptr<Util::Map<long long>::Iterator> incoming(
        checkpoints.getIncomingCheckpoints());
    while (incoming != nullptr && incoming->hasNext()) {
        const auto* checkpoint = incoming->next();
        walk.addEntry(checkpoint->key);
        walk.addEntry(checkpoint->value);
    }
    return walk;
}

Walk withNewNames(Walk walk, Util::Vector<Util::String>& names) {
    const int count = names.size();
    walk.addOptional(count, 40);
    for (int i = 0; i < count; ++i) walk.addEntry(names.at(i));
    return walk;
}

}  // namespace

AgentEvent::AgentEvent(Interaction* interaction, bool firstFlag, bool separatePayload)
    : itsInteraction(interaction),
      itsFirstFlag(firstFlag),
      itsSeparatePayload(separatePayload),
      itsIsClient(interaction == nullptr || !interaction->isServer()) {}

void AgentEvent::computeSize(bool isClient) {
    prepare(isClient);
    walkFields(nullptr, 0, isClient);
}

inline void AgentEvent::prepare(bool isClient) {
    Interaction& from = *itsInteraction;
    from.loadFromCache();
    itHasReply = from.itsState > 0;
    itHasRequest = !itHasReply || !from.itsRqstNotified;
    if (from.itIncludesPayload) computeParts();
    if (!isClient && from.itsUpstreamOpID != from.itsOpID) itsOtherOpID = &from.itsUpstreamOpID;
    if (!itHasRequest || from.itsCheckpoints == nullptr) return;
    itsIncomingCount = from.itsCheckpoints->getIncomingCheckpointsCount();
    itsNewNames = from.itsCheckpoints->getNewCheckpoints();
}

// The order of the fields and the numbers of their bits are the format.
int AgentEvent::walkFields(unsigned char* room, int size, bool isClient) {
    Interaction& from = *itsInteraction;
    // The moment of the end, for an event that tells of it. Unsigned, because an interceptor may
    // have set any start.
    auto time = static_cast<unsigned long long>(from.itsStartTime);
    if (itHasReply) time = from.itsRtTime > 0 ? time + static_cast<unsigned>(from.itsRtTime) : 0;

    const Answers answers(from);
    Walk walk(room, size);
    walk.addOptional(answers.flowID(), 2);
    walk.addOptional(kEventFormat, 43);
    walk.addOptional(AGENT_EVENT_TYPE, 47);
    walk.addOptional(answers.interactionID(), 5);
    if (itHasRequest) walk.addOptional(answers.upstreamInteractionID(), 46);
    walk.addOptional(static_cast<long long>(time), 0);
    if ((from.itsMsgSize | from.itsSizeB | from.itsSizeC | from.itsSizeD) != 0) {
        walk.addOptional(from.itsMsgSize, 25);
        walk.addOptional(from.itsSizeB, 26);
        walk.addOptional(from.itsSizeC, 27);
        walk.addOptional(from.itsSizeD, 28);
    }
    walk.addOptional(from.itsDebugInfo, 20);
    if (itHasRequest) {
        if (itHasReply) walk.addOptional(from.itsRtTime, 1);
        walk.addOptional(from.itsParentID, 3);
        walk.addOptional(from.itsFlowAttr1, 4);
        walk.addOptional(from.itsLocus, 6);
        walk.addOptional(from.itsSequenceNumber, 7);
        walk.addOptional(answers.url(), 14);
        walk.addOptional(from.itsSecurityID, 8);
        walk.addOptional(from.itsSecurityAttr1, 9);
        walk.addOptional(from.itsGroupName, 10);
        walk.addOptional(from.itsServiceName, 11);
        walk.addOptional(answers.opName(), 12);
        walk.addOptional(from.itsGroupID, 13);
        walk.addOptional(from.itsServiceID, 44);
        walk.addOptional(from.itsSiteAttr, 15);
        walk.addOptional(from.itsOpID, 16);
        if (itsOtherOpID != nullptr) walk.addOptional(*itsOtherOpID, 42);
        walk.addOptional(from.itsLocalAddr, 38);
        walk.addOptional(answers.peerAddr(), 17);
        if (!isClient) {
            walk.addOptional(from.itsCalleeAddr, 48);
            walk.addOptional(from.itsCallerAddr, 49);
        }
        walk.addOptional(from.itsPeerType, 21);
        walk.addOptional(from.itsPlatformType, 45);
        walk.addOptional(from.itsAppType, 22);
        walk.addOptional(from.itsSvcType, 23);
        walk.addOptional(from.itsOpType, 24);
        walk.addOptional(answers.pathID(), 32);
        walk.addOptional(answers.pPathID(), 41);
        walk.addOptional(from.itsFlowAttr2, 34);
    }
    if (itHasReply) {
        walk.addOptional(from.itsCoTime, 30);
        walk.addOptional(from.itsFailure, 18);
        walk.addOptional(static_cast<unsigned char>(from.itIsFailed), 37);
    }
    if (itHasRequest) walk.addOptional(from.itsSubNode, 33);
    if (from.itsMsgFields != nullptr) walk = withMsgFields(walk, *from.itsMsgFields);
    if (itsIncomingCount > 0) walk = withIncoming(walk, itsIncomingCount, *from.itsCheckpoints);
    if (itsNewNames != nullptr) walk = withNewNames(walk, *itsNewNames);

    itsOptionalMask = walk.itsMask;
    if (itsEventPayload != nullptr) itsOptionalMask |= 1LL << kPayloadBit;
    const long long total = walk.itsSize + payloadLength();
    if (total > INT_MAX) throw std::bad_alloc();
    itsEventSize = static_cast<int>(walk.itsSize);
    itsTotalSize = static_cast<int>(total);
    return itsSeparatePayload ? itsEventSize : itsTotalSize;
}

Util::ByteArray AgentEvent::serialize(unsigned char* room, int roomSize) {
    if (itsInteraction == nullptr) return {};
    prepare(itsIsClient);
    std::unique_ptr<unsigned char[]> block;
    unsigned char* bytes = room;
    int size = roomSize;
    // Again where a child on another thread has made a server's path meanwhile.
    for (int had = size; (size = walkFields(bytes, had, itsIsClient)) > had; had = size) {
        block.reset(new unsigned char[static_cast<std::size_t>(size)]);
        bytes = block.get();
    }
    addHead(bytes);
    itsPos = itsEventSize;
    if (itsEventPayload != nullptr) addPayload(bytes, size);
    const bool isOwned = block != nullptr;
    return {isOwned ? block.release() : bytes, size, isOwned};
}

inline void AgentEvent::addHead(unsigned char* at) const {
    *at++ = flags();
    const int tag = InterceptorConfig::itsCurrent.itsEventTag;
    at = putNumber(at, tag == 0 ? 1 : tag);
    at = putNumber(at, itsTotalSize);
    at = putNumber(at, itsEventSize);
    putNumber(at, itsOptionalMask);
}

void AgentEvent::addPayload(unsigned char* bytes, int size) {
    if (itsSeparatePayload) {
        const int length = payloadLength();
        auto* copy = new unsigned char[static_cast<std::size_t>(length)];
        itsPayloadCopy = Util::ByteArray(copy, length, true);
        const int processed = addOptionalDataOnly(itsPayloadCopy, itsEventPayload, 0);
        if (processed != length)
            errorMsg(
                "Separate payload processed incorrectly: pre-processing length is %d and "
                "processed length is %d\n",
                length, processed);
    } else {
        Util::ByteArray out(bytes, size, false);
        itsPos = addOptionalDataOnly(out, itsEventPayload, itsPos);
    }
    if (itsPos != size)
        errorMsg("Incorrectly encoded message: itsPos is %d and size is %d\n", itsPos, size);
}

int AgentEvent::addOptionalDataOnly(Util::ByteArray& out, const Util::ByteArray* message, int pos) {
    if (message == nullptr || message->data == nullptr || message->length <= 0) return pos;
    if (pos < 0 || message->length > out.length - pos) return pos;
    unsigned char* to = out.data + pos;
    std::memcpy(to, message->data, static_cast<std::size_t>(message->length));
    int msgPos = 0;
    for (const auto* region = message->extra; region != nullptr; region = region->extra) {
        const int start = std::max(msgPos, region->position);
        const long long end =
            std::max<long long>(start, static_cast<long long>(region->position) + region->length);
        if (end >= message->length)
            __assert_fail("msgPos < message->length", "AgentEvent", 420, "addOptionalDataOnly");
        std::memset(to + start, region->fill, static_cast<std::size_t>(end - start));
        msgPos = static_cast<int>(end);
    }
    return pos + message->length;
}

void AgentEvent::computeParts() {
    itsEventPayload = itsInteraction->itsPayload;
}

int AgentEvent::payloadLength() const {
    return itsEventPayload == nullptr ? 0 : std::max(0, itsEventPayload->length);
}

unsigned char AgentEvent::flags() const {
    const Interaction& from = *itsInteraction;
    unsigned flags = 0;
    if (itHasReply) flags |= kReplyFlag;
    if (itsIsClient) flags |= kClientFlag;
    if (from.itIsLowPriority) flags |= kLowPriorityFlag;
    if (itHasReply && !from.itsFailure.empty()) flags |= kFailureFlag;
    if (from.itIsOneWay) flags |= kOneWayFlag;
    if (from.itsCreateFlag) flags |= kCreateFlag;
    if (from.itsEventFlag) flags |= kEventFlag;
    if (itHasRequest && itHasReply) flags |= kWholeFlag;
    return static_cast<unsigned char>(flags);
}

}  // namespace Quenvale::Interceptor::SDK
