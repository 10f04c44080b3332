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

#include "config/InterceptorConfig.h"
#include "interaction/Interaction.h"
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

}  // namespace

// Meets every field of the table: an optional one with its mask bit, which is absent when it is
// empty or 0, or an element of a list, which never is. What finds no room is counted all the same,
// so that one walk writes the event or tells how much room it takes.
class AgentEvent::Walk {
public:
    Walk(unsigned char* room, int size) : itsRoom(room), itsEnd(size) {}

    void addOptional(const char* text, std::size_t length, int bit) {
        if (length == 0) return;
        itsMask |= 1LL << bit;
        addStr(text, length);
    }
    void addOptional(const Util::String& text, int bit) {
        addOptional(text.c_str(), text.length(), bit);
    }
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
        return itsSize <= itsEnd ? itsRoom + start : nullptr;
    }

    unsigned char* itsRoom;
    long long itsEnd;
};

AgentEvent::AgentEvent(Interaction* interaction, bool firstFlag, bool separatePayload)
    : itsInteraction(interaction),
      itsFirstFlag(firstFlag),
      itsSeparatePayload(separatePayload),
      itsIsClient(interaction == nullptr || !interaction->isServer()) {}

// The order of the fields and the numbers of their bits are the format.
void AgentEvent::walkFields(Walk& walk, bool isClient) {
    Interaction& from = *itsInteraction;
    const bool isWhole = itHasRequest && itHasReply;
    // The moment of the end, for an event that tells of it. Unsigned, because an interceptor may
    // have set any start.
    auto time = static_cast<unsigned long long>(from.itsStartTime);
    if (itHasReply) time = from.itsRtTime > 0 ? time + static_cast<unsigned>(from.itsRtTime) : 0;

    walk.addOptional(from.getFlowID(), 2);
    walk.addOptional(kEventFormat, 43);
    walk.addOptional(AGENT_EVENT_TYPE, 47);
    walk.addOptional(from.getInteractionID(), 5);
    if (itHasRequest) walk.addOptional(from.getUpstreamInteractionID(), 46);
    walk.addOptional(static_cast<long long>(time), 0);
    walk.addOptional(from.itsMsgSize, 25);
    walk.addOptional(from.itsSizeB, 26);
    walk.addOptional(from.itsSizeC, 27);
    walk.addOptional(from.itsSizeD, 28);
    walk.addOptional(from.itsDebugInfo, 20);
    if (isWhole) walk.addOptional(from.itsRtTime, 1);
    if (itHasRequest) {
        walk.addOptional(from.itsParentID, 3);
        walk.addOptional(from.itsFlowAttr1, 4);
        walk.addOptional(from.itsLocus, 6);
        walk.addOptional(from.itsSequenceNumber, 7);
        walk.addOptional(from.getUrl(), 14);
        walk.addOptional(from.itsSecurityID, 8);
        walk.addOptional(from.itsSecurityAttr1, 9);
        walk.addOptional(from.itsGroupName, 10);
        walk.addOptional(from.itsServiceName, 11);
        walk.addOptional(from.getOpName(), 12);
        walk.addOptional(from.itsGroupID, 13);
        walk.addOptional(from.itsServiceID, 44);
        walk.addOptional(from.itsSiteAttr, 15);
        walk.addOptional(from.itsOpID, 16);
        if (itsOtherOpID != nullptr) walk.addOptional(*itsOtherOpID, 42);
        walk.addOptional(from.itsLocalAddr, 38);
        walk.addOptional(from.getPeerAddr(), 17);
        if (!isClient) {
            walk.addOptional(from.itsCalleeAddr, 48);
            walk.addOptional(from.itsCallerAddr, 49);
        }
        walk.addOptional(from.itsPeerType, 21);
        walk.addOptional(from.itsPlatformType, 45);
        walk.addOptional(from.itsAppType, 22);
        walk.addOptional(from.itsSvcType, 23);
        walk.addOptional(from.itsOpType, 24);
        // A child on another thread may be making a server's path at this moment.
        const char* path = ServerInteraction::publishedText(from._getPathID(true));
        walk.addOptional(path, path == nullptr ? 0 : std::strlen(path), 32);
        walk.addOptional(from._getPPathID(), 41);
        walk.addOptional(from.itsFlowAttr2, 34);
    }
    if (itHasReply) {
        walk.addOptional(from.itsCoTime, 30);
        walk.addOptional(from.itsFailure, 18);
        walk.addOptional(static_cast<unsigned char>(from.itIsFailed), 37);
    }
    if (itHasRequest) walk.addOptional(from.itsSubNode, 33);
    if (from.itsMsgFields != nullptr) {
        walk.addOptional(from.itsMsgFields->size(), 36);
        auto* node = from.itsMsgFields->getEntryList()->getHead();
        for (; node != nullptr; node = node->next) {
            walk.addEntry(node->data->key);
            walk.addEntry(node->data->value);
        }
    }
    if (itHasRequest && itsCheckpoints != nullptr) walkCheckpoints(walk);
}

// The arrivals are counted as they came, while their names stand once each.
void AgentEvent::walkCheckpoints(Walk& walk) {
    walk.addOptional(itsIncomingCount, 39);
    if (itsIncomingCount > 0) {
        const std::unique_ptr<Util::Map<long long>::Iterator> incoming(
            itsCheckpoints->getIncomingCheckpoints());
        while (incoming != nullptr && incoming->hasNext()) {
            const auto* checkpoint = incoming->next();
            walk.addEntry(checkpoint->key);
            walk.addEntry(checkpoint->value);
        }
    }
    const int newCount = itsNewNames == nullptr ? 0 : itsNewNames->size();
    walk.addOptional(newCount, 40);
    for (int i = 0; i < newCount; ++i) walk.addEntry(itsNewNames->at(i));
}

void AgentEvent::computeSize(bool isClient) {
    prepare(isClient);
    walk(nullptr, 0, isClient);
}

void AgentEvent::prepare(bool isClient) {
    Interaction& from = *itsInteraction;
    from.loadFromCache();
    itHasReply = from.itsState > 0;
    itHasRequest = !itHasReply || !from.itsRqstNotified;
    if (from.itIncludesPayload) computeParts();
    if (!isClient && from.itsUpstreamOpID != from.itsOpID) itsOtherOpID = &from.itsUpstreamOpID;
    itsCheckpoints = from.getCheckpoints(false);
    if (itsCheckpoints != nullptr) {
        itsIncomingCount = itsCheckpoints->getIncomingCheckpointsCount();
        itsNewNames = itsCheckpoints->getNewCheckpoints();
    }
}

int AgentEvent::walk(unsigned char* room, int size, bool isClient) {
    Walk walk(room, size);
    walkFields(walk, isClient);
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
    int size = walk(bytes, roomSize, itsIsClient);
    // Again where a child on another thread has made a server's path meanwhile.
    for (int had = roomSize; size > had; size = walk(bytes, had, itsIsClient)) {
        had = size;
        block.reset(new unsigned char[static_cast<std::size_t>(size)]);
        bytes = block.get();
    }
    bytes[0] = flags();
    const int tag = InterceptorConfig::itsCurrent.itsEventTag;
    unsigned char* head = putNumber(bytes + 1, tag == 0 ? 1 : tag);
    head = putNumber(head, itsTotalSize);
    head = putNumber(head, itsEventSize);
    putNumber(head, itsOptionalMask);
    itsPos = itsEventSize;

    if (itsEventPayload != nullptr && itsSeparatePayload) {
        const int length = payloadLength();
        auto* copy = new unsigned char[static_cast<std::size_t>(length)];
        itsPayloadCopy = Util::ByteArray(copy, length, true);
        const int processed = addOptionalDataOnly(itsPayloadCopy, itsEventPayload, 0);
        if (processed != length)
            errorMsg(
                "Separate payload processed incorrectly: pre-processing length is %d and "
                "processed length is %d\n",
                length, processed);
    } else if (itsEventPayload != nullptr) {
        Util::ByteArray out(bytes, size, false);
        itsPos = addOptionalDataOnly(out, itsEventPayload, itsPos);
    }
    if (itsPos != size)
        errorMsg("Incorrectly encoded message: itsPos is %d and size is %d\n", itsPos, size);
    const bool isOwned = block != nullptr;
    return {isOwned ? block.release() : bytes, size, isOwned};
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
