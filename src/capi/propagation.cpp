// What leaves the calling thread or the process: the context header, a split, a join and a
// sub-request.
#include <memory>

#include "capi/records.h"
#include "helpers/Helpers.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// What a sub-request takes from the server that it runs in. The service's id goes to the server
// half alone.
void describeLike(Interaction& parent, Interaction& child, bool takesServiceID,
                  const char* opName) {
    child.setUrl(parent.getUrl());
    child.setPeerAddr(parent.getPeerAddr());
    child.setGroupName(parent.itsGroupName);
    child.setGroupID(parent.itsGroupID);
    child.itsAppType = parent.itsAppType;
    child.setServiceName(parent.itsServiceName);
    if (takesServiceID) {
        parent.loadFromCache();
        child.setServiceID(parent.itsServiceID);
    }
    child.itsSvcType = parent.itsSvcType;
    child.itsOpType = parent.itsOpType;
    child.setOpName(opName);
    parent.loadFromCache();
    child.setOpID(parent.itsOpID);
}

void endAndDestroy(Interaction* interaction) {
    if (interaction == nullptr) return;
    interaction->end();
    delete interaction;
}

}  // namespace

}  // namespace Quenvale::Interceptor::SDK

using namespace Quenvale::Interceptor::SDK;

ServerInteractionStruct* qz_beginServerSplit(SiteStubStruct* site) {
    if (site == nullptr) return nullptr;
    const ErrnoKeeper keeper;
    SiteStub* stub = toSiteStub(site, nullptr);
    ServerInteraction* object =
        ServerInteraction::begin(stub, Util::String::NIL, Util::String::NIL);
    ServerInteractionStruct* record = fromServerInteraction(object, nullptr);
    object->itsRecord = record;
    return record;
}

ServerInteractionStruct* qz_beginServerSplit2(char* text) {
    if (text == nullptr) return nullptr;
    const std::unique_ptr<SiteStubStruct, void (*)(SiteStubStruct*)> site(
        deserializeSiteStub(text, nullptr), freeSiteStub);
    return qz_beginServerSplit(site.get());
}

int qz_readHeader(const char* text, ServerInteractionStruct* server) {
    auto* object = static_cast<ServerInteraction*>(objectOf(server));
    if (object == nullptr || object->itsState >= 1) return 0;
    const ErrnoKeeper keeper;
    const bool isRead = Helpers::readHeader(Util::String(text), object);
    fromServerInteraction(object, server);
    return boolToInt(isRead);
}

void qz_serverJoin(ServerInteractionStruct* server, InteractionStruct* other) {
    auto* object = static_cast<ServerInteraction*>(objectOf(server));
    Interaction* otherObject = objectOf(other);
    if (object == nullptr || otherObject == nullptr) return;
    const ErrnoKeeper keeper;
    toInteraction(other, otherObject);
    toServerInteraction(server, object);
    object->join(static_cast<InteractionStub*>(otherObject));
    fromServerInteraction(object, server);
}

char* qz_writeHeader(ClientInteractionStruct* client, int trust) {
    auto* object = static_cast<ClientInteraction*>(objectOf(client));
    if (object == nullptr) return nullptr;
    const ErrnoKeeper keeper;
    if (object->itsState < 1) toClientInteraction(client, object);
    const Util::String header = Helpers::writeHeader(object, intToBool(trust));
    // The header computes a path if need be.
    FlowStubStruct* flow = stubOf(client)->site->flow;
    assignStr(&flow->pathID, object->getPathID());
    assignStr(&flow->pPathID, object->itsPPathID);
    return qz_strdup(header.c_str());
}

SiteStubStruct* qz_split(InteractionStruct* record, void* /*unused*/) {
    Interaction* object = objectOf(record);
    if (object == nullptr) return nullptr;
    const ErrnoKeeper keeper;
    return fromSiteStub(object->split(), nullptr);
}

char* qz_splitServer(ServerInteractionStruct* server, unsigned* size) {
    if (server == nullptr) return nullptr;
    SiteStubStruct* site = qz_split(server->interaction, size);
    char* text = serializeSiteStub(site, size);
    freeSiteStub(site);
    return text;
}

void qz_createSubRequest(const char* opName, void** clientOut, void** serverOut) {
    if (clientOut == nullptr || serverOut == nullptr) return;
    *clientOut = nullptr;
    *serverOut = nullptr;
    Interaction* parent = Interaction::get(Util::String::NIL, false);
    if (parent == nullptr) return;
    const ErrnoKeeper keeper;
    ClientInteraction* client =
        ClientInteraction::create(Util::String::NIL, Util::String::NIL, false, false);
    *clientOut = client;
    describeLike(*parent, *client, false, opName);
    const Util::String header = Helpers::writeHeader(client, false);
    client->requestAnalyzed();

    ServerInteraction* server = ServerInteraction::create(Util::String::NIL);
    *serverOut = server;
    Helpers::readHeader(header, server);
    describeLike(*parent, *server, true, opName);
    server->requestAnalyzed();
}

void qz_endSubRequest(void* client, void* server) {
    const ErrnoKeeper keeper;
    endAndDestroy(static_cast<ServerInteraction*>(server));
    endAndDestroy(static_cast<ClientInteraction*>(client));
}
