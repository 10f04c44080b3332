// The accessors: each row of the tables below is one value with its setter and getter for server
// and client records. A setter writes the record first and then the object, a getter reads the
// record.
#include <cstdlib>
#include <cstring>

#include "capi/records.h"
#include "util/ByteArray.h"

namespace Quenvale::Interceptor::SDK {

namespace {

char** opName(InteractionStubStruct* stub) {
    return &stub->site->opName;
}
char** opID(InteractionStubStruct* stub) {
    return &stub->site->opID;
}
char** groupName(InteractionStubStruct* stub) {
    return &stub->site->groupName;
}
char** groupID(InteractionStubStruct* stub) {
    return &stub->site->groupID;
}
char** serviceName(InteractionStubStruct* stub) {
    return &stub->site->serviceName;
}
char** serviceID(InteractionStubStruct* stub) {
    return &stub->site->serviceID;
}
char** url(InteractionStubStruct* stub) {
    return &stub->site->url;
}
char** peerAddr(InteractionStubStruct* stub) {
    return &stub->site->peerAddr;
}
char** subNode(InteractionStubStruct* stub) {
    return &stub->site->flow->subNode;
}
char** payloadContentType(InteractionStubStruct* stub) {
    return &stub->payloadContentType;
}
short* peerType(InteractionStubStruct* stub) {
    return &stub->site->peerType;
}
short* appType(InteractionStubStruct* stub) {
    return &stub->site->appType;
}
short* svcType(InteractionStubStruct* stub) {
    return &stub->site->svcType;
}
short* opType(InteractionStubStruct* stub) {
    return &stub->site->opType;
}
int* oneWay(InteractionStubStruct* stub) {
    return &stub->oneWay;
}
int* lowPriority(InteractionStubStruct* stub) {
    return &stub->lowPriority;
}

void replaceText(char** field, const char* text) {
    // The copy first: the text may be the one that stands in the field.
    char* copy = Util::String::convert(text);
    Util::release(*field);
    *field = copy;
}

template <class Record, class Store>
void setText(Record* record, char** (*field)(InteractionStubStruct*), const char* text,
             Store store) {
    Interaction* object = objectOf(record);
    if (object == nullptr) return;
    const ErrnoKeeper keeper;  // A late value may be logged.
    // Both copies first: the text may be the one that stands in the field.
    const std::size_t length = text == nullptr ? 0 : std::strlen(text);
    char* copy = Util::duplicate(text, length);
    Util::String value = Util::String::ofLength(text, length);
    char** place = field(stubOf(record));
    Util::release(*place);
    *place = copy;
    store(*object, std::move(value));
}

template <class Record>
char* getText(Record* record, char** (*field)(InteractionStubStruct*)) {
    InteractionStubStruct* stub = stubOf(record);
    return stub == nullptr ? nullptr : qz_strdup(*field(stub));
}

template <class Record, class Number, class Store>
void setNumber(Record* record, Number* (*field)(InteractionStubStruct*), int value, Store store) {
    Interaction* object = objectOf(record);
    if (object == nullptr) return;
    *field(stubOf(record)) = static_cast<Number>(value);
    store(*object, static_cast<Number>(value));
}

template <class Record, class Number>
int getNumber(Record* record, Number* (*field)(InteractionStubStruct*)) {
    InteractionStubStruct* stub = stubOf(record);
    return stub == nullptr ? 0 : *field(stub);
}

template <class Record>
void setFailure(Record* record, const char* text) {
    if (InteractionStubStruct* stub = stubOf(record)) replaceText(&stub->failure, text);
}

template <class Record>
char* getFailure(Record* record) {
    InteractionStubStruct* stub = stubOf(record);
    return stub == nullptr ? nullptr : qz_strdup(stub->failure);
}

template <class Record>
void qz_setSize(Record* record, long long size) {
    Interaction* object = objectOf(record);
    if (object == nullptr) return;
    stubOf(record)->size = size;
    object->itsMsgSize = size;
}

template <class Record>
long long getSize(Record* record) {
    InteractionStubStruct* stub = stubOf(record);
    return stub == nullptr ? 0 : stub->size;
}

// A first payload that is not yet reported is the request's and a second one the reply's: the
// request goes out with the payload it had before the new one takes its place.
template <class Record>
void setPayload(Record* record, const unsigned char* bytes, int size) {
    Interaction* object = objectOf(record);
    if (object == nullptr) return;
    const ErrnoKeeper keeper;
    const bool isGiven = bytes != nullptr && size > 0;
    Util::ByteArray fresh;
    if (isGiven) {
        fresh = Util::ByteArray(new unsigned char[static_cast<std::size_t>(size)], size, true);
        std::memcpy(fresh.data, bytes, static_cast<std::size_t>(size));
    }
    if (object->itsPayload != nullptr && !object->getRqstNotified()) {
        try {
            object->requestAnalyzed();
        } catch (...) {
            fresh.releaseContent();
            throw;
        }
    }
    Util::nullify(&object->itsPayload, false);
    if (isGiven) {
        object->itsPayload = new Util::ByteArray(fresh);
        object->itsMsgSize = size;
    }
    qz_setSize(record, isGiven ? size : 0);
}

template <class Record>
PayloadStruct* getPayload(Record* record) {
    Interaction* object = objectOf(record);
    if (object == nullptr || object->itsPayload == nullptr) return nullptr;
    auto* payload = static_cast<PayloadStruct*>(std::malloc(sizeof(PayloadStruct)));
    if (payload == nullptr) return nullptr;
    payload->data = ucDup(object->itsPayload->data, object->itsPayload->length);
    payload->size = payload->data == nullptr ? 0 : object->itsPayload->length;
    return payload;
}

char* getField(Interaction* object, Util::Map<Util::String>* Interaction::*fields,
               const char* name) {
    if (object == nullptr || name == nullptr || object->*fields == nullptr) return nullptr;
    const Util::String& value = (object->*fields)->find(name);
    return value.empty() ? nullptr : qz_strdup(value.c_str());
}

template <class Record>
char* getMsgField(Record* record, const char* name) {
    return getField(objectOf(record), &Interaction::itsMsgFields, name);
}

template <class Record>
char* getFlowField(Record* record, const char* name) {
    return getField(objectOf(record), &Interaction::itsFlowFields, name);
}

template <class Record>
void setMsgField(Record* record, const char* name, const char* value, int overwrite) {
    if (Interaction* object = objectOf(record))
        object->setMsgField(name, value, intToBool(overwrite));
}

template <class Record>
void addFlowField(Record* record, const char* name, const char* value, int overwrite) {
    if (Interaction* object = objectOf(record))
        object->addFlowFieldToPropagate(name, value, intToBool(overwrite));
}

}  // namespace

}  // namespace Quenvale::Interceptor::SDK

using namespace Quenvale::Interceptor::SDK;
using ServerRecord = ServerInteractionStruct;
using ClientRecord = ClientInteractionStruct;

// The last argument says how the object takes the value.
#define QZ_TEXT_OF(prefix, Record, Name, field, store)                                          \
    void prefix##Set##Name(Record* record, const char* text) {                                  \
        setText(record, field, text, [](Interaction& object, Util::String&& value) { store; }); \
    }                                                                                           \
    char* prefix##Get##Name(Record* record) {                                                   \
        return getText(record, field);                                                          \
    }

#define QZ_TEXT(Name, field, store)                  \
    QZ_TEXT_OF(si, ServerRecord, Name, field, store) \
    QZ_TEXT_OF(ci, ClientRecord, Name, field, store)

#define QZ_NUMBER_OF(prefix, Record, Name, field, store)                                  \
    void prefix##Set##Name(Record* record, int value) {                                   \
        setNumber(record, field, value, [](Interaction& object, auto number) { store; }); \
    }                                                                                     \
    int prefix##Get##Name(Record* record) {                                               \
        return getNumber(record, field);                                                  \
    }

#define QZ_NUMBER(Name, field, store)                  \
    QZ_NUMBER_OF(si, ServerRecord, Name, field, store) \
    QZ_NUMBER_OF(ci, ClientRecord, Name, field, store)

QZ_TEXT(PeerAddr, peerAddr, object.setPeerAddr(std::move(value)))
QZ_TEXT(Url, url, object.setUrl(std::move(value)))
QZ_TEXT(OpName, opName, object.setOpName(std::move(value)))
QZ_TEXT(OpID, opID, object.setOpID(std::move(value)))
QZ_TEXT(GroupName, groupName, object.setGroupName(std::move(value)))
QZ_TEXT(GroupID, groupID, object.setGroupID(std::move(value)))
QZ_TEXT(ServiceName, serviceName, object.setServiceName(std::move(value)))
QZ_TEXT(ServiceID, serviceID, object.setServiceID(std::move(value)))
QZ_TEXT_OF(si, ServerRecord, SubNode, subNode, object.itsSubNode = std::move(value))

QZ_NUMBER(PeerType, peerType, object.itsPeerType = number)
QZ_NUMBER(AppType, appType, object.itsAppType = number)
QZ_NUMBER(SvcType, svcType, object.itsSvcType = number)
QZ_NUMBER(OpType, opType, object.itsOpType = number)
QZ_NUMBER(OneWay, oneWay, object.itIsOneWay = intToBool(number))
QZ_NUMBER(LowPriority, lowPriority, object.itIsLowPriority = intToBool(number))

#define QZ_OTHERS(prefix, Record)                                                                  \
    void prefix##SetFailure(Record* record, const char* text) {                                    \
        setFailure(record, text);                                                                  \
    }                                                                                              \
    char* prefix##GetFailure(Record* record) {                                                     \
        return getFailure(record);                                                                 \
    }                                                                                              \
    void prefix##SetSize(Record* record, long long size) {                                         \
        qz_setSize(record, size);                                                                  \
    }                                                                                              \
    long long prefix##GetSize(Record* record, unsigned char*) {                                    \
        return getSize(record);                                                                    \
    }                                                                                              \
    void prefix##SetPayload(Record* record, const unsigned char* bytes, int size) {                \
        setPayload(record, bytes, size);                                                           \
    }                                                                                              \
    PayloadStruct* prefix##GetPayload(Record* record) {                                            \
        return getPayload(record);                                                                 \
    }                                                                                              \
    void prefix##SetPayloadContentType(Record* record, const char* text) {                         \
        setText(record, payloadContentType, text, [](Interaction& object, Util::String&& value) {  \
            object.itsPayloadContentType = std::move(value);                                       \
        });                                                                                        \
    }                                                                                              \
    char* prefix##GetPayloadContentType(Record* record) {                                          \
        InteractionStubStruct* stub = stubOf(record);                                              \
        return stub == nullptr ? nullptr : stub->payloadContentType;                               \
    }                                                                                              \
    void prefix##SetMsgField(Record* record, const char* name, const char* value, int overwrite) { \
        setMsgField(record, name, value, overwrite);                                               \
    }                                                                                              \
    char* prefix##GetMsgField(Record* record, const char* name) {                                  \
        return getMsgField(record, name);                                                          \
    }                                                                                              \
    void prefix##AddFlowFieldToPropagate(Record* record, const char* name, const char* value,      \
                                         int overwrite) {                                          \
        addFlowField(record, name, value, overwrite);                                              \
    }                                                                                              \
    char* prefix##GetFlowFieldToPropagate(Record* record, const char* name) {                      \
        return getFlowField(record, name);                                                         \
    }

QZ_OTHERS(si, ServerRecord)
QZ_OTHERS(ci, ClientRecord)

void qz_freePayload(PayloadStruct* payload) {
    if (payload == nullptr) return;
    std::free(payload->data);
    std::free(payload);
}
