#include "uplink/AgentEvent.h"

// A release build has no assert(), but a payload's regions are checked there too.
#undef NDEBUG
#include <algorithm>
#include <cassert>
#include <cstdint>
#include <cstring>
#include <memory>
#include <type_traits>

#include "config/InterceptorConfig.h"
#include "interaction/Interaction.h"
#include "interaction/ServerInteraction.h"
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

// Both walks meet every field of the table with the same call: an optional one with its mask bit,
// which is absent when it is empty or 0, or an element of a list, which never is.

class SizeWalk {
public:
    explicit SizeWalk(int* textLengths) : itsLengths(textLengths) {}

    void optional(const char* text, int bit) {
        itsSize += includeOptional(text, bit, itsLengths[bit]);
    }
    void optional(const Util::String& text, int bit) { optional(text.c_str(), bit); }
    template <class Number>
    std::enable_if_t<std::is_integral_v<Number>> optional(Number value, int bit) {
        itsSize += includeOptional(value, bit);
    }
    void entry(const Util::String& text) { itsSize += computeStrLen(text); }
    void entry(long long) { itsSize += 8; }

    long long itsSize = kHeadSize;  // bytes
    long long itsMask = 0;

private:
    long long includeOptional(const char* text, int bit, int& length) {
        length = text == nullptr ? 0 : static_cast<int>(std::strlen(text));
        if (length == 0) return 0;
        itsMask |= 1LL << bit;
        return kLengthSize + static_cast<long long>(length);
    }
    template <class Number>
    int includeOptional(Number value, int bit) {
        if (value == 0) return 0;
        itsMask |= 1LL << bit;
        return sizeof value;
    }
    static long long computeStrLen(const Util::String& text) {
        return kLengthSize + static_cast<long long>(text.length());
    }

    int* itsLengths;
};

// Nothing is written behind the end. What finds no room there still counts, so that the position
// tells that something went wrong.
class WriteWalk {
public:
    WriteWalk(unsigned char* start, int position, int size, const int* textLengths)
        : itsAt(start + position), itsStart(start), itsEnd(start + size), itsLengths(textLengths) {}

    void optional(const char* text, int bit) { addOptional(text, itsLengths[bit]); }
    void optional(const Util::String& text, int bit) { addOptional(text.c_str(), itsLengths[bit]); }
    template <class Number>
    std::enable_if_t<std::is_integral_v<Number>> optional(Number value, int) {
        if (value != 0) addMandatory(value);
    }
    void entry(const Util::String& text) {
        const auto length = static_cast<int>(text.length());
        if (length == 0)
            addMandatory(0);
        else
            addStr(text.c_str(), length);
    }
    void entry(long long value) { addMandatory(value); }

    template <class Number>
    void addMandatory(Number value) {
        if (unsigned char* at = take(sizeof value)) putNumber(at, value);
    }

    int position() const { return static_cast<int>(itsAt - itsStart + itsMissing); }

private:
    void addOptional(const char* text, int length) {
        if (length != 0) addStr(text, length);
    }
    void addStr(const char* text, int length) {
        unsigned char* at = take(kLengthSize + static_cast<std::ptrdiff_t>(length));
        if (at != nullptr)
            std::memcpy(putNumber(at, length), text, static_cast<std::size_t>(length));
    }
    unsigned char* take(std::ptrdiff_t bytes) {
        if (bytes > itsEnd - itsAt) {
            itsMissing += bytes;
            return nullptr;
        }
        unsigned char* at = itsAt;
        itsAt += bytes;
        return at;
    }

    unsigned char* itsAt;
    unsigned char* itsStart;
    unsigned char* itsEnd;
    std::ptrdiff_t itsMissing = 0;
    const int* itsLengths;
};

}  // namespace

AgentEvent::AgentEvent(Interaction* interaction, bool firstFlag, bool separatePayload)
    : itsInteraction(interaction),
      itsFirstFlag(firstFlag),
      itsSeparatePayload(separatePayload),
      itsIsClient(interaction == nullptr || !interaction->isServer()) {}

// The order of the fields and the numbers of their bits are the format.
template <class Walk>
void AgentEvent::walkFields(Walk& walk, bool isClient) {
    Interaction& from = *itsInteraction;
    const bool isWhole = itHasRequest && itHasReply;
    // The moment of the end, for an event that tells of it. Unsigned, because an interceptor may
    // have set any start.
    auto time = static_cast<unsigned long long>(from.itsStartTime);
    if (itHasReply) time = from.itsRtTime > 0 ? time + static_cast<unsigned>(from.itsRtTime) : 0;

    walk.optional(from.getFlowID(), 2);
    walk.optional(kEventFormat, 43);
    walk.optional(AGENT_EVENT_TYPE, 47);
    walk.optional(from.getInteractionID(), 5);
    if (itHasRequest) walk.optional(from.getUpstreamInteractionID(), 46);
    walk.optional(static_cast<long long>(time), 0);
    walk.optional(from.itsMsgSize, 25);
    walk.optional(from.itsSizeB, 26);
    walk.optional(from.itsSizeC, 27);
    walk.optional(from.itsSizeD, 28);
    walk.optional(from.itsDebugInfo, 20);
    if (isWhole) walk.optional(from.itsRtTime, 1);
    if (itHasRequest) {
        walk.optional(from.itsParentID, 3);
        walk.optional(from.itsFlowAttr1, 4);
        walk.optional(from.itsLocus, 6);
        walk.optional(from.itsSequenceNumber, 7);
        walk.optional(from.getUrl(), 14);
        walk.optional(from.itsSecurityID, 8);
        walk.optional(from.itsSecurityAttr1, 9);
        walk.optional(from.itsGroupName, 10);
        walk.optional(from.itsServiceName, 11);
        walk.optional(from.getOpName(), 12);
        walk.optional(from.itsGroupID, 13);
        walk.optional(from.itsServiceID, 44);
        walk.optional(from.itsSiteAttr, 15);
        walk.optional(from.itsOpID, 16);
        if (itsOtherOpID != nullptr) walk.optional(*itsOtherOpID, 42);
        walk.optional(from.itsLocalAddr, 38);
        walk.optional(from.getPeerAddr(), 17);
        if (!isClient) {
            walk.optional(from.itsCalleeAddr, 48);
            walk.optional(from.itsCallerAddr, 49);
        }
        walk.optional(from.itsPeerType, 21);
        walk.optional(from.itsPlatformType, 45);
        walk.optional(from.itsAppType, 22);
        walk.optional(from.itsSvcType, 23);
        walk.optional(from.itsOpType, 24);
        // A child on another thread may be making a server's path at this moment.
        walk.optional(ServerInteraction::publishedText(from._getPathID(true)), 32);
        walk.optional(from._getPPathID(), 41);
        walk.optional(from.itsFlowAttr2, 34);
    }
    if (itHasReply) {
        walk.optional(from.itsCoTime, 30);
        walk.optional(from.itsFailure, 18);
        walk.optional(static_cast<unsigned char>(from.itIsFailed), 37);
    }
    if (itHasRequest) walk.optional(from.itsSubNode, 33);
    if (from.itsMsgFields != nullptr) {
        walk.optional(from.itsMsgFields->size(), 36);
        auto* node = from.itsMsgFields->getEntryList()->getHead();
        for (; node != nullptr; node = node->next) {
            walk.entry(node->data->key);
            walk.entry(node->data->value);
        }
    }
    if (itHasRequest && itsCheckpoints != nullptr) walkCheckpoints(walk);
}

// The arrivals are counted as they came, while their names stand once each.
template <class Walk>
void AgentEvent::walkCheckpoints(Walk& walk) {
    walk.optional(itsIncomingCount, 39);
    if (itsIncomingCount > 0) {
        const std::unique_ptr<Util::Map<long long>::Iterator> incoming(
            itsCheckpoints->getIncomingCheckpoints());
        while (incoming != nullptr && incoming->hasNext()) {
            const auto* checkpoint = incoming->next();
            walk.entry(checkpoint->key);
            walk.entry(checkpoint->value);
        }
    }
    const int newCount = itsNewNames == nullptr ? 0 : itsNewNames->size();
    walk.optional(newCount, 40);
    for (int i = 0; i < newCount; ++i) walk.entry(itsNewNames->at(i));
}

void AgentEvent::computeSize(bool isClient) {
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

    SizeWalk walk(itsTextLengths);
    walkFields(walk, isClient);
    itsOptionalMask = walk.itsMask;
    if (itsEventPayload != nullptr) itsOptionalMask |= 1LL << kPayloadBit;
    itsEventSize = static_cast<int>(walk.itsSize);
    itsTotalSize = static_cast<int>(walk.itsSize + payloadLength());
}

Util::ByteArray AgentEvent::serialize() {
    if (itsInteraction == nullptr) return {};
    computeSize(itsIsClient);
    const int size = itsSeparatePayload ? itsEventSize : itsTotalSize;
    std::unique_ptr<unsigned char[]> bytes(new unsigned char[static_cast<std::size_t>(size)]);
    bytes[0] = flags();

    WriteWalk walk(bytes.get(), itsPos, size, itsTextLengths);
    const int tag = InterceptorConfig::itsCurrent.itsEventTag;
    walk.addMandatory(tag == 0 ? 1 : tag);
    walk.addMandatory(itsTotalSize);
    walk.addMandatory(itsEventSize);
    walk.addMandatory(itsOptionalMask);
    walkFields(walk, itsIsClient);
    itsPos = walk.position();

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
        Util::ByteArray out(bytes.get(), size, false);
        itsPos = addOptionalDataOnly(out, itsEventPayload, itsPos);
    }
    if (itsPos != size)
        errorMsg("Incorrectly encoded message: itsPos is %d and size is %d\n", itsPos, size);
    return {bytes.release(), size, true};
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
