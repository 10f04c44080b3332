#include "interaction/InteractionStub.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "interaction/ServerInteraction.h"
#include "util/diagnostics.h"
#include "util/dispose.h"
#include "util/exceptions.h"
#include "util/threadkey.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr unsigned int kLongestDebugInfo = 64 * 1024;  // bytes

constexpr unsigned int kLongestGroupID = 32;

bool isValidGroupID(const Util::String& id) {
    if (id.c_str() == nullptr || id.length() > kLongestGroupID) return false;
    for (const char* p = id.c_str(); *p != '\0'; ++p)
        if (std::isprint(static_cast<unsigned char>(*p)) == 0) return false;
    return true;
}

Util::List<Util::String>* copyOf(Util::List<Util::String>* source) {
    if (source == nullptr) return nullptr;
    auto* copy = new Util::List<Util::String>(0);
    for (auto* node = source->getHead(); node != nullptr; node = node->next) copy->add(node->data);
    return copy;
}

Util::ByteArray* copyOf(const Util::ByteArray* source) {
    if (source == nullptr) return nullptr;
    auto* copy = new Util::ByteArray;
    if (source->data != nullptr && source->length >= 0) {
        const auto length = static_cast<std::size_t>(source->length);
        copy->data = new unsigned char[length];
        std::memcpy(copy->data, source->data, length);
        copy->length = source->length;
    }
    auto** link = &copy->extra;
    for (const auto* region = source->extra; region != nullptr; region = region->extra) {
        *link = static_cast<Util::ByteArray::Region*>(std::malloc(sizeof *region));
        if (*link == nullptr) break;
        **link = *region;
        (*link)->extra = nullptr;
        link = &(*link)->extra;
    }
    return copy;
}

}  // namespace

void InteractionStub::setUrl(Util::String url) {
    check();
    SiteStub::setUrl(std::move(url));
}

void InteractionStub::setOpName(Util::String name) {
    check();
    SiteStub::setOpName(std::move(name));
}

void InteractionStub::setPeerAddr(Util::String address) {
    check();
    SiteStub::setPeerAddr(std::move(address));
}

Util::String& InteractionStub::getInteractionID() {
    return itsInteractionID;
}

void InteractionStub::setInteractionID(Util::String id) {
    itsInteractionID = std::move(id);
}

const Util::String& InteractionStub::getUpstreamInteractionID() {
    return itsInteractionID;
}

void InteractionStub::setGroupName(Util::String name) {
    check();
    itsGroupName = std::move(name);
}

void InteractionStub::setServiceName(Util::String name) {
    check();
    itsServiceName = std::move(name);
}

void InteractionStub::setSecurityID(Util::String id) {
    check();
    itsSecurityID = std::move(id);
}

void InteractionStub::setSecurityAttr1(Util::String text) {
    check();
    itsSecurityAttr1 = std::move(text);
}

void InteractionStub::setOpID(Util::String id) {
    check();
    checkFrozenNGSO();
    itsOpID = std::move(id);
}

void InteractionStub::setServiceID(Util::String id) {
    check();
    checkFrozenNGSO();
    itsServiceID = std::move(id);
}

void InteractionStub::setUpstreamInteractionID(Util::String id) {
    checkFrozenNGSO();
    itsUpstreamInteractionID = std::move(id);
}

void InteractionStub::setGroupID(Util::String id) {
    if (!isValidGroupID(id))
        Util::raise<Util::APIException>(Util::String("Group ID is invalid: ") + id);
    check();
    checkFrozenNGSO();
    itsGroupID = std::move(id);
}

void InteractionStub::setInteractionStubFields(const InteractionStub* source) {
    if (source == this) return;
    itsInteractionID = ServerInteraction::publishedText(source->itsInteractionID);
    itsUpstreamInteractionID = source->itsUpstreamInteractionID;
    itsFailure = source->itsFailure;
    itIsFailed = source->itIsFailed;
    itsLocus = source->itsLocus;
    itIsOneWay = source->itIsOneWay;
    itsClientFlag = source->itsClientFlag;
    itsSequenceNumber = source->itsSequenceNumber;
    itsStartTime = source->itsStartTime;
    itsRtTime = source->itsRtTime;
    itsCoTime = source->itsCoTime;
    itsState = source->itsState;
    itIsSplit = source->itIsSplit;
    itsPayloadContentType = source->itsPayloadContentType;
    itIncludesPayload = source->itIncludesPayload;
    itsMsgSize = source->itsMsgSize;
    itsSizeB = source->itsSizeB;
    itsSizeC = source->itsSizeC;
    itsSizeD = source->itsSizeD;
    itsSecurityID = source->itsSecurityID;
    itsSecurityAttr1 = source->itsSecurityAttr1;
    itsSecurityAttr2 = source->itsSecurityAttr2;
    itsDebugInfo = source->itsDebugInfo;
    itIsLowPriority = source->itIsLowPriority;
    itIsInternal = source->itIsInternal;
    itsCreateFlag = source->itsCreateFlag;
    itIsLoaded = source->itIsLoaded;
    itForcesSvcType = source->itForcesSvcType;
    itComputesPath = source->itComputesPath;
    itsEventFlag = source->itsEventFlag;
    itsEvaluators = source->itsEvaluators;
    itsRqstNotified = source->itsRqstNotified;
    itsTrustSignature = source->itsTrustSignature;
    itsCalleeAddr = source->itsCalleeAddr;
    itsCallerAddr = source->itsCallerAddr;
    itsTrustTimestamp = source->itsTrustTimestamp;

    auto* keys = copyOf(source->itsKeys);
    Util::nullify(&itsKeys, false);
    itsKeys = keys;

    auto* payload = copyOf(source->itsPayload);
    Util::nullify(&itsPayload, false);
    itsPayload = payload;

    auto* fields = source->itsMsgFields == nullptr ? nullptr : source->itsMsgFields->copy();
    Util::nullify(&itsMsgFields, false);
    itsMsgFields = fields;
}

void InteractionStub::warnOfLateValue() const {
    if (!canLog(2)) return;
    char* thread = Util::currentThreadKey();
    warningMsg("Value cannot be set in this stage of processing. Thread: %s\n", thread);
    Util::release(thread);
}

void InteractionStub::warnOfFrozenValue() const {
    if (!canLog(4)) return;
    char* thread = Util::currentThreadKey();
    warningMsg("WARNING: attempting to change the NGSO after it has been 'frozen'. Thread: %s\n",
               thread);
    Util::release(thread);
    debugMsg("WARNING: attempting to change the NGSO after it has been 'frozen'.");
}

bool InteractionStub::readDebugInfo() {
    const bool isOn = canLog(4);
    ourDebugInfo.store(isOn ? kDebugOn : kDebugOff, std::memory_order_relaxed);
    return isOn;
}

void InteractionStub::appendDebugInfo(const char* file, int line, int maxLength, const char* format,
                                      ...) {
    // Notes come from what peers send as well, and each is appended to all that went before.
    if (maxLength < 1 || itsDebugInfo.length() > kLongestDebugInfo) return;
    const std::size_t room = static_cast<std::size_t>(maxLength) + 1;
    auto* text = static_cast<char*>(Util::allocateZeroed(room));
    if (text == nullptr) return;
    const int prefix = std::snprintf(text, room, "%s, line %d: ", file, line);
    if (prefix >= 0 && prefix < maxLength) {
        va_list arguments;
        va_start(arguments, format);
        std::vsnprintf(text + prefix, room - static_cast<std::size_t>(prefix), format, arguments);
        va_end(arguments);
    }
    itsDebugInfo.append(text);
    Util::release(text);
}

}  // namespace Quenvale::Interceptor::SDK
