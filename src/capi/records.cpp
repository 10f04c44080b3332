#include "capi/records.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "util/blockCache.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// Most pushes repeat what the object holds, and a text that is equal needs no new copy.
inline void push(Util::String& field, const char* text) {
    if (field.c_str() == nullptr && text == nullptr) return;
    if (field != text) field = text;
}

// The setters that are virtual warn behind the request stage, whatever the text.
void pushThrough(SiteStub& object, void (SiteStub::*set)(Util::String), const Util::String& held,
                 const char* text, bool isInRequestStage) {
    if (!isInRequestStage || held != text) (object.*set)(text);
}

// In pieces of a register's size: of one memset() of a record's size gcc makes a string
// instruction, whose start alone takes longer.
template <std::size_t... kPiece>
void zeroPieces(char* at, std::index_sequence<kPiece...>) {
    (std::memset(at + 16 * kPiece, 0, 16), ...);
}

template <class Record>
Record* newZeroed() {
    void* block = Util::popBlock(sizeof(Record));
    if (block == nullptr) block = Util::allocate(sizeof(Record));
    if (block == nullptr) return nullptr;
    auto* bytes = static_cast<char*>(block);
    constexpr std::size_t kRest = sizeof(Record) % 16;
    zeroPieces(bytes, std::make_index_sequence<sizeof(Record) / 16>());
    std::memset(bytes + sizeof(Record) - kRest, 0, kRest);
    return static_cast<Record*>(block);
}

template <class Record, class Inner>
Record* newRecord(Inner* Record::*inner, Inner* made, void (*dropInner)(Inner*)) {
    if (made == nullptr) return nullptr;
    auto* record = newZeroed<Record>();
    if (record == nullptr) {
        dropInner(made);
        return nullptr;
    }
    record->*inner = made;
    return record;
}

// A record begins with its texts, one behind the other.
template <class Record>
void releaseTextsOf(Record* record, char* Record::*last) {
    char** const first = reinterpret_cast<char**>(record);
    Util::releaseTexts(first, static_cast<std::size_t>(&(record->*last) - first) + 1);
}

// An interceptor's own calloc may have made the record, and then a small one can be smaller than
// what the cache keeps in its place.
template <class Record>
void releaseRecord(Record* record) {
    if constexpr (sizeof *record % 16 != 0)
        Util::releaseBlock(record);
    else if (!Util::pushBlock(record, sizeof *record))
        Util::releaseBlock(record, sizeof *record);
}

// Not exported: the record of a site inside an interaction's leaves the object alone.
void freeSiteStub_internal(SiteStubStruct* record) {
    if (record == nullptr) return;
    releaseTextsOf(record, &SiteStubStruct::upstreamOpID);
    freeFlowStub(record->flow);
    releaseRecord(record);
}

// The copies to an object know whether it is more than a site, since only then a late value warns.
SiteStub* copyToSite(SiteStubStruct* record, SiteStub* object, bool isInRequestStage) {
    pushThrough(*object, &SiteStub::setOpName, object->getOpName(), record->opName,
                isInRequestStage);
    push(object->itsOpID, record->opID);
    push(object->itsGroupName, record->groupName);
    push(object->itsGroupID, record->groupID);
    push(object->itsServiceName, record->serviceName);
    push(object->itsServiceID, record->serviceID);
    pushThrough(*object, &SiteStub::setUrl, object->getUrl(), record->url, isInRequestStage);
    push(object->itsSiteAttr, record->siteAttr);
    pushThrough(*object, &SiteStub::setPeerAddr, object->getPeerAddr(), record->peerAddr,
                isInRequestStage);
    push(object->itsLocalAddr, record->localAddr);
    push(object->itsUpstreamOpID, record->upstreamOpID);
    object->itsPeerType = record->peerType;
    object->itsAppType = record->appType;
    object->itsSvcType = record->svcType;
    object->itsOpType = record->opType;
    object->itIsContinuation = intToBool(record->continuation);
    toFlowStub(record->flow, object);
    return object;
}

void fromFlags(const InteractionStub* object, InteractionStubStruct* record) {
    record->lowPriority = boolToInt(object->itIsLowPriority);
    record->internal = boolToInt(object->itIsInternal);
    record->createFlag = boolToInt(object->itsCreateFlag);
    record->eventFlag = boolToInt(object->itsEventFlag);
    record->failed = boolToInt(object->itIsFailed);
    record->oneWay = boolToInt(object->itIsOneWay);
    record->clientFlag = boolToInt(object->itsClientFlag);
    record->split = boolToInt(object->itIsSplit);
}

}  // namespace

void replaceStr(char** target, const Util::String& value) {
    Util::release(*target);
    *target = value.empty() ? nullptr : Util::duplicate(value.c_str(), value.length());
}

unsigned char* ucDup(const unsigned char* bytes, int size) {
    auto* copy = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(size)));
    if (copy != nullptr && size > 0) std::memcpy(copy, bytes, static_cast<std::size_t>(size));
    return copy;
}

FlowStub* toFlowStub(const FlowStubStruct* record, FlowStub* object) {
    if (object->itsFlowID != record->flowID) object->setFlowID(record->flowID);
    push(object->itsParentID, record->parentID);
    push(object->itsFlowAttr1, record->flowAttr1);
    push(object->itsFlowAttr2, record->flowAttr2);
    push(object->itsSubNode, record->subNode);
    if (object->itsPathID != record->pathID) object->setPathID(record->pathID);
    push(object->itsPPathID, record->pPathID);
    return object;
}

FlowStubStruct* fromFlowStub(FlowStub* object, FlowStubStruct* record) {
    if (record == nullptr) record = newFlowStub();
    if (record == nullptr) return nullptr;
    assignStr(&record->flowID, object->getFlowID());
    assignStr(&record->parentID, object->itsParentID);
    assignStr(&record->flowAttr1, object->itsFlowAttr1);
    assignStr(&record->flowAttr2, object->itsFlowAttr2);
    assignStr(&record->subNode, object->itsSubNode);
    assignStr(&record->pathID, object->getPathID());
    assignStr(&record->pPathID, object->itsPPathID);
    record->impl = object;
    return record;
}

SiteStub* toSiteStub(SiteStubStruct* record, SiteStub* object) {
    if (object == nullptr)
        object = static_cast<SiteStub*>(static_cast<FlowStub*>(record->flow->impl));
    if (object == nullptr) {
        object = new SiteStub;
        record->flow->impl = static_cast<FlowStub*>(object);
    }
    return copyToSite(record, object, false);
}

SiteStubStruct* fromSiteStub(SiteStub* object, SiteStubStruct* record) {
    if (record == nullptr) record = newSiteStub();
    if (record == nullptr) return nullptr;
    assignStr(&record->opName, object->getOpName());
    assignStr(&record->opID, object->itsOpID);
    assignStr(&record->groupName, object->itsGroupName);
    assignStr(&record->groupID, object->itsGroupID);
    assignStr(&record->serviceName, object->itsServiceName);
    assignStr(&record->serviceID, object->itsServiceID);
    assignStr(&record->url, object->getUrl());
    assignStr(&record->siteAttr, object->itsSiteAttr);
    assignStr(&record->peerAddr, object->getPeerAddr());
    assignStr(&record->localAddr, object->itsLocalAddr);
    assignStr(&record->upstreamOpID, object->itsUpstreamOpID);
    record->peerType = object->itsPeerType;
    record->appType = object->itsAppType;
    record->svcType = object->itsSvcType;
    record->opType = object->itsOpType;
    record->continuation = boolToInt(object->itIsContinuation);
    fromFlowStub(object, record->flow);
    return record;
}

InteractionStub* toInteractionStub(InteractionStubStruct* record, InteractionStub* object) {
    push(object->itsFailure, record->failure);
    object->check();
    push(object->itsSecurityID, record->securityID);
    object->check();
    push(object->itsSecurityAttr1, record->securityAttr1);
    push(object->itsSecurityAttr2, record->securityAttr2);
    push(object->itsLocus, record->locus);
    push(object->itsDebugInfo, record->debugInfo);
    push(object->itsTrustSignature, record->trustSignature);
    push(object->itsCallerAddr, record->callerAddr);
    push(object->itsCalleeAddr, record->calleeAddr);
    object->itsMsgSize = record->size;
    object->itsSizeB = record->sizeB;
    object->itsSizeC = record->sizeC;
    object->itsSizeD = record->sizeD;
    object->itsTrustTimestamp = record->trustTimestamp;
    object->itsState = record->state;
    object->itIsLowPriority = intToBool(record->lowPriority);
    object->itIsInternal = intToBool(record->internal);
    object->itsCreateFlag = intToBool(record->createFlag);
    object->itsEventFlag = intToBool(record->eventFlag);
    object->itIsFailed = intToBool(record->failed);
    object->itIsOneWay = intToBool(record->oneWay);
    object->itsClientFlag = intToBool(record->clientFlag);
    object->itIsSplit = intToBool(record->split);
    copyToSite(record->site, object, object->itsState <= 0);
    return object;
}

InteractionStubStruct* fromInteractionStub(InteractionStub* object, InteractionStubStruct* record) {
    if (record == nullptr) record = newInteractionStub();
    if (record == nullptr) return nullptr;
    assignStr(&record->failure, object->itsFailure);
    assignStr(&record->securityID, object->itsSecurityID);
    assignStr(&record->securityAttr1, object->itsSecurityAttr1);
    assignStr(&record->securityAttr2, object->itsSecurityAttr2);
    assignStr(&record->locus, object->itsLocus);
    assignStr(&record->debugInfo, object->itsDebugInfo);
    assignStr(&record->trustSignature, object->itsTrustSignature);
    assignStr(&record->callerAddr, object->itsCallerAddr);
    assignStr(&record->calleeAddr, object->itsCalleeAddr);
    record->size = object->itsMsgSize;
    record->sizeB = object->itsSizeB;
    record->sizeC = object->itsSizeC;
    record->sizeD = object->itsSizeD;
    record->trustTimestamp = object->itsTrustTimestamp;
    record->state = object->itsState;
    fromFlags(object, record);
    fromSiteStub(object, record->site);
    return record;
}

Interaction* toInteraction(InteractionStruct* record, Interaction* object) {
    toInteractionStub(record->stub, object);
    return object;
}

InteractionStruct* fromInteraction(Interaction* object, InteractionStruct* record) {
    if (record == nullptr) record = newInteraction();
    if (record != nullptr) fromInteractionStub(object, record->stub);
    return record;
}

void toServerInteraction(ServerInteractionStruct* record, ServerInteraction* object) {
    toInteraction(record->interaction, object);
}

ServerInteractionStruct* fromServerInteraction(ServerInteraction* object,
                                               ServerInteractionStruct* record) {
    if (record == nullptr) record = newServerInteraction();
    if (record != nullptr) fromInteraction(object, record->interaction);
    return record;
}

void toClientInteraction(ClientInteractionStruct* record, ClientInteraction* object) {
    toInteraction(record->interaction, object);
}

ClientInteractionStruct* fromClientInteraction(ClientInteraction* object,
                                               ClientInteractionStruct* record) {
    if (record == nullptr) record = newClientInteraction();
    if (record != nullptr) fromInteraction(object, record->interaction);
    return record;
}

void refreshAnalyzed(Interaction* object, InteractionStubStruct* record) {
    SiteStubStruct* site = record->site;
    FlowStubStruct* flow = site->flow;
    assignStr(&record->debugInfo, object->itsDebugInfo);
    record->size = object->itsMsgSize;
    record->sizeC = object->itsSizeC;
    record->state = object->itsState;
    fromFlags(object, record);
    assignStr(&site->opID, object->itsOpID);
    assignStr(&site->groupName, object->itsGroupName);
    assignStr(&site->groupID, object->itsGroupID);
    assignStr(&site->serviceID, object->itsServiceID);
    site->appType = object->itsAppType;
    site->svcType = object->itsSvcType;
    site->continuation = boolToInt(object->itIsContinuation);
    assignStr(&flow->flowID, object->getFlowID());
    assignStr(&flow->pathID, object->getPathID());
    assignStr(&flow->pPathID, object->itsPPathID);
}

}  // namespace Quenvale::Interceptor::SDK

using namespace Quenvale::Interceptor::SDK;

char* qz_strdup(const char* text) {
    return Util::String::convert(text);
}

void qz_free(void* block) {
    std::free(block);
}

FlowStubStruct* newFlowStub() {
    return newZeroed<FlowStubStruct>();
}

SiteStubStruct* newSiteStub() {
    return newRecord(&SiteStubStruct::flow, newFlowStub(), freeFlowStub);
}

InteractionStubStruct* newInteractionStub() {
    return newRecord(&InteractionStubStruct::site, newSiteStub(), freeSiteStub);
}

InteractionStruct* newInteraction() {
    return newRecord(&InteractionStruct::stub, newInteractionStub(), freeInteractionStub);
}

ServerInteractionStruct* newServerInteraction() {
    return newRecord(&ServerInteractionStruct::interaction, newInteraction(), freeInteraction);
}

ClientInteractionStruct* newClientInteraction() {
    return newRecord(&ClientInteractionStruct::interaction, newInteraction(), freeInteraction);
}

void freeFlowStub(FlowStubStruct* record) {
    if (record == nullptr) return;
    releaseTextsOf(record, &FlowStubStruct::pPathID);
    releaseRecord(record);
}

void freeSiteStub(SiteStubStruct* record) {
    if (record == nullptr) return;
    if (record->flow != nullptr && record->flow->impl != nullptr) {
        delete static_cast<FlowStub*>(record->flow->impl);
        record->flow->impl = nullptr;
    }
    freeSiteStub_internal(record);
}

void freeInteractionStub(InteractionStubStruct* record) {
    if (record == nullptr) return;
    releaseTextsOf(record, &InteractionStubStruct::payloadContentType);
    freeSiteStub_internal(record->site);
    releaseRecord(record);
}

void freeInteraction(InteractionStruct* record) {
    if (record == nullptr) return;
    freeInteractionStub(record->stub);
    releaseRecord(record);
}

void freeServerInteraction(ServerInteractionStruct* record) {
    if (record == nullptr) return;
    freeInteraction(record->interaction);
    releaseRecord(record);
}

void freeClientInteraction(ClientInteractionStruct* record) {
    if (record == nullptr) return;
    freeInteraction(record->interaction);
    releaseRecord(record);
}
