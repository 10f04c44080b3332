#pragma once

#include <cerrno>

#include "capi/QZInt-c.h"
#include "interaction/ClientInteraction.h"
#include "interaction/ServerInteraction.h"

/// The records of the C interface and their objects: the road from one to the other, and the two
/// directions of copying. The calls that begin with `to` write from record to object, those that
/// begin with `from` from object to record.
///
/// The object knows its record (`itsRecord`) and the record its object (`impl`).
///
/// Threads:   a record and its object belong to one thread at a time.
/// Ownership: a record owns its texts. Of objects only the SiteStub of a stand-alone site record
///            belongs to its record.
namespace Quenvale::Interceptor::SDK {

/// Replaces the text of a field by a copy of the value, null for an empty one.
void replaceStr(char** target, const Util::String& value);

/// The same, but a field that already holds the same text keeps its buffer. Most fields of a call
/// are null on both sides, and a refresh looks at all of them.
inline void assignStr(char** target, const Util::String& value) {
    if (*target == nullptr && value.c_str() == nullptr) return;
    if (value != *target) replaceStr(target, value);
}

/// A malloc block with a copy of the bytes.
unsigned char* ucDup(const unsigned char* bytes, int size);

inline bool intToBool(int value) {
    return value != 0;
}
inline int boolToInt(bool value) {
    return value ? 1 : 0;
}

/// The innermost records of a record, or null where one is missing on the way down.
inline InteractionStubStruct* stubOf(const InteractionStruct* record) {
    return record == nullptr ? nullptr : record->stub;
}
template <class Outer>
InteractionStubStruct* stubOf(const Outer* record) {
    return record == nullptr ? nullptr : stubOf(record->interaction);
}

/// The object behind a record, or null.
template <class Record>
Interaction* objectOf(const Record* record) {
    const InteractionStubStruct* stub = stubOf(record);
    if (stub == nullptr || stub->site == nullptr || stub->site->flow == nullptr) return nullptr;
    return static_cast<Interaction*>(static_cast<FlowStub*>(stub->site->flow->impl));
}

FlowStub* toFlowStub(const FlowStubStruct* record, FlowStub* object);
FlowStubStruct* fromFlowStub(FlowStub* object, FlowStubStruct* record);

/// A null object is taken from the record, or made and then owned by the record.
SiteStub* toSiteStub(SiteStubStruct* record, SiteStub* object);
SiteStubStruct* fromSiteStub(SiteStub* object, SiteStubStruct* record);

InteractionStub* toInteractionStub(InteractionStubStruct* record, InteractionStub* object);
InteractionStubStruct* fromInteractionStub(InteractionStub* object, InteractionStubStruct* record);

Interaction* toInteraction(InteractionStruct* record, Interaction* object);
InteractionStruct* fromInteraction(Interaction* object, InteractionStruct* record);
void toServerInteraction(ServerInteractionStruct* record, ServerInteraction* object);
ServerInteractionStruct* fromServerInteraction(ServerInteraction* object,
                                               ServerInteractionStruct* record);
void toClientInteraction(ClientInteractionStruct* record, ClientInteraction* object);
ClientInteractionStruct* fromClientInteraction(ClientInteraction* object,
                                               ClientInteractionStruct* record);

/// Brings to a record that was just copied to its object what requestAnalyzed() and the ids'
/// derivation have changed since, and the flags, which may be any number in the record and are 0 or
/// 1 from then on; all else is equal.
void refreshAnalyzed(Interaction* object, InteractionStubStruct* record);

/// What an interceptor's errno must not feel of us.
class ErrnoKeeper {
public:
    ErrnoKeeper() : itsValue(errno) {}
    ~ErrnoKeeper() { errno = itsValue; }
    ErrnoKeeper(const ErrnoKeeper&) = delete;
    ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

private:
    int itsValue;
};

}  // namespace Quenvale::Interceptor::SDK
