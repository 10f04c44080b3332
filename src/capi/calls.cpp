// How an interceptor tells the system about a call. The server and the client half are one body
// for both kinds of record: Kind says which object belongs to which record.
#include "capi/records.h"
#include "uplink/Uplink.h"

namespace Quenvale::Interceptor::SDK {

namespace {

struct Server {
    using Record = ServerInteractionStruct;
    static constexpr bool kIsServer = true;
    static Interaction* create() { return ServerInteraction::create(Util::String::NIL); }
    static Record* from(Interaction* object, Record* record) {
        return fromServerInteraction(static_cast<ServerInteraction*>(object), record);
    }
    static void to(Record* record, Interaction* object) {
        toServerInteraction(record, static_cast<ServerInteraction*>(object));
    }
};

struct Client {
    using Record = ClientInteractionStruct;
    static constexpr bool kIsServer = false;
    static Interaction* create() {
        return ClientInteraction::create(Util::String::NIL, Util::String::NIL, false, false);
    }
    static Record* from(Interaction* object, Record* record) {
        return fromClientInteraction(static_cast<ClientInteraction*>(object), record);
    }
    static void to(Record* record, Interaction* object) {
        toClientInteraction(record, static_cast<ClientInteraction*>(object));
    }
};

// A second record of one object takes the first one's place.
template <class Kind>
typename Kind::Record* newRecord(Interaction* object) {
    typename Kind::Record* record = Kind::from(object, nullptr);
    object->itsRecord = record;
    return record;
}

template <class Kind>
typename Kind::Record* beginCall() {
    const ErrnoKeeper keeper;
    return newRecord<Kind>(Interaction::begin(Util::String::NIL, Kind::kIsServer, 0, false));
}

template <class Kind>
typename Kind::Record* createCall() {
    const ErrnoKeeper keeper;
    return newRecord<Kind>(Kind::create());
}

template <class Kind>
typename Kind::Record* getCall() {
    const ErrnoKeeper keeper;
    Interaction* object = Interaction::get(Util::String::NIL, !Kind::kIsServer);
    if (object == nullptr) return nullptr;
    auto* record = static_cast<typename Kind::Record*>(object->itsRecord);
    return record == nullptr ? newRecord<Kind>(object) : Kind::from(object, record);
}

// The second step runs even when the first has just run it, so that a call that still has no group
// throws here each time; one with a group has nothing to gain from it.
void ensureDefaultGroupData(InteractionStub* object) {
    object->loadFromCache();
    if (object->itsGroupName.empty() || object->itsGroupID.empty())
        object->computeDefaultGroupData();
}

template <class Kind>
void reportRequest(typename Kind::Record* record) {
    Interaction* object = objectOf(record);
    if (object == nullptr) return;
    const ErrnoKeeper keeper;
    Kind::to(record, object);
    ensureDefaultGroupData(object);
    object->requestAnalyzed();
    refreshAnalyzed(object, stubOf(record));
}

template <class Kind>
void endCall(typename Kind::Record* record) {
    Interaction* object = objectOf(record);
    if (object == nullptr) return;
    const ErrnoKeeper keeper;
    InteractionStubStruct* stub = stubOf(record);
    if (object->itsState > 0) {
        object->itsFailure = stub->failure;
    } else if (object->itsState == 0) {
        Kind::to(record, object);
        ensureDefaultGroupData(object);
    }
    object->end();
    stub->site->flow->impl = nullptr;
    delete object;
}

template <class Kind>
void applyRecord(typename Kind::Record* record) {
    const ErrnoKeeper keeper;
    if (Interaction* object = objectOf(record)) Kind::to(record, object);
}

// Server and client records have one shape, so the source may be either.
template <class Destination>
void copyUplink(const void* source, Destination* destination) {
    Interaction* from = objectOf(static_cast<const ServerInteractionStruct*>(source));
    Interaction* to = objectOf(destination);
    if (from != nullptr && to != nullptr) to->copyUplink(from);
}

}  // namespace

}  // namespace Quenvale::Interceptor::SDK

using namespace Quenvale::Interceptor::SDK;

ServerInteractionStruct* qz_beginServer() {
    return beginCall<Server>();
}

ClientInteractionStruct* qz_beginClient() {
    return beginCall<Client>();
}

ServerInteractionStruct* qz_createServer() {
    return createCall<Server>();
}

ClientInteractionStruct* qz_createClient() {
    return createCall<Client>();
}

ServerInteractionStruct* qz_getServer() {
    return getCall<Server>();
}

ClientInteractionStruct* qz_getClient() {
    return getCall<Client>();
}

void qz_serverAnalyzed(ServerInteractionStruct* server) {
    reportRequest<Server>(server);
}

void qz_clientAnalyzed(ClientInteractionStruct* client) {
    reportRequest<Client>(client);
}

void qz_endServer(ServerInteractionStruct* server) {
    endCall<Server>(server);
}

void qz_endClient(ClientInteractionStruct* client) {
    endCall<Client>(client);
}

void qz_applyCallerToRealServerInteraction(ServerInteractionStruct* server) {
    applyRecord<Server>(server);
}

void qz_applyCallerToRealClientInteraction(ClientInteractionStruct* client) {
    applyRecord<Client>(client);
}

void qz_flushUplink() {
    const ErrnoKeeper keeper;
    if (Uplink* uplink = Interaction::uplink()) uplink->flushAllQueues();
}

void qz_copyUplinkToClient(void* source, ClientInteractionStruct* destination) {
    copyUplink(source, destination);
}

void qz_copyUplinkToServer(void* source, ServerInteractionStruct* destination) {
    copyUplink(source, destination);
}
