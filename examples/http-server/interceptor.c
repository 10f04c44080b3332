#include "interceptor.h"

#include <QZInt-c.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static const char kHeaderName[] = "QZ_Header";

struct Call {
    ServerInteractionStruct* record;
    int hasReply;
};

struct Outgoing {
    ClientInteractionStruct* record;
    char* header;
};

struct Share {
    Call* call;
    SiteStubStruct* site;
    ServerInteractionStruct* record; /* the other thread's */
};

static void setPeer(ServerInteractionStruct* record, struct MHD_Connection* connection) {
    const union MHD_ConnectionInfo* info =
        MHD_get_connection_info(connection, MHD_CONNECTION_INFO_CLIENT_ADDRESS);
    char text[INET_ADDRSTRLEN];
    if (info == NULL || info->client_addr->sa_family != AF_INET) return;
    const struct sockaddr_in* address = (const struct sockaddr_in*)(const void*)info->client_addr;
    if (inet_ntop(AF_INET, &address->sin_addr, text, sizeof text) != NULL)
        siSetPeerAddr(record, text);
}

Call* callBegin(struct MHD_Connection* connection, const char* group, const char* method,
                const char* path) {
    const char* host = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Host");
    const char* context = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, kHeaderName);
    const char* customer = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "X-Customer");
    Call* call = calloc(1, sizeof *call);
    char url[2048];
    if (call == NULL) return NULL;
    snprintf(url, sizeof url, "http://%s%s", host == NULL ? "localhost" : host, path);

    call->record = qz_beginServer();
    /* First of all: it refreshes the record, and what was written there would be lost. */
    qz_readHeader(context, call->record);
    siSetUrl(call->record, url);
    siSetOpName(call->record, method);
    siSetGroupName(call->record, group);
    setPeer(call->record, connection);
    if (customer != NULL) siAddFlowFieldToPropagate(call->record, "customer", customer, 0);
    return call;
}

void callRequest(Call* call, const char* body, size_t size) {
    if (call == NULL) return;
    if (size > 0) siSetPayload(call->record, (const unsigned char*)body, (int)size);
    qz_serverAnalyzed(call->record);
}

void callReply(Call* call, unsigned int status, const char* body, size_t size) {
    if (call == NULL) return;
    siSetPayload(call->record, (const unsigned char*)body, (int)size);
    if (status >= 500) {
        char failure[32];
        snprintf(failure, sizeof failure, "HTTP status %u", status);
        siSetFailure(call->record, failure);
    }
    call->hasReply = 1;
}

void callEnd(Call* call) {
    if (call == NULL) return;
    if (!call->hasReply) siSetFailure(call->record, "the client went away");
    qz_endServer(call->record);
    freeServerInteraction(call->record);
    free(call);
}

void callsFlush(void) {
    qz_flushUplink();
}

void callPart(const char* name, void (*work)(void*), void* argument) {
    void* client = NULL;
    void* server = NULL;
    qz_createSubRequest(name, &client, &server);
    work(argument);
    qz_endSubRequest(client, server);
}

Outgoing* outgoingBegin(const char* method, const char* url, const char* body, size_t size) {
    Outgoing* outgoing = calloc(1, sizeof *outgoing);
    if (outgoing == NULL) return NULL;
    outgoing->record = qz_beginClient();
    ciSetUrl(outgoing->record, url);
    ciSetOpName(outgoing->record, method);
    if (size > 0) ciSetPayload(outgoing->record, (const unsigned char*)body, (int)size);
    /* Before the header is written: in this order the event keeps the call's ids. */
    qz_clientAnalyzed(outgoing->record);

    char* context = qz_writeHeader(outgoing->record, 0);
    if (context == NULL) return outgoing;
    const size_t length = sizeof kHeaderName + 2 + strlen(context);
    outgoing->header = malloc(length);
    if (outgoing->header != NULL)
        snprintf(outgoing->header, length, "%s: %s", kHeaderName, context);
    qz_free(context);
    return outgoing;
}

const char* outgoingHeader(const Outgoing* outgoing) {
    return outgoing == NULL ? NULL : outgoing->header;
}

void outgoingEnd(Outgoing* outgoing, long status, const char* body, size_t size,
                 const char* failure) {
    char text[32];
    if (outgoing == NULL) return;
    if (size > 0) ciSetPayload(outgoing->record, (const unsigned char*)body, (int)size);
    if (failure == NULL && status >= 500) {
        snprintf(text, sizeof text, "HTTP status %ld", status);
        failure = text;
    }
    ciSetFailure(outgoing->record, failure);
    qz_endClient(outgoing->record);
    freeClientInteraction(outgoing->record);
    free(outgoing->header);
    free(outgoing);
}

Share* shareOpen(Call* call) {
    Share* share = call == NULL ? NULL : calloc(1, sizeof *share);
    if (share == NULL) return NULL;
    share->call = call;
    share->site = qz_split(call->record->interaction, NULL);
    return share;
}

void shareEnter(Share* share) {
    if (share == NULL) return;
    share->record = qz_beginServerSplit(share->site);
    siAddFlowFieldToPropagate(share->record, "worker", "yes", 1);
}

void shareTakeBack(Share* share) {
    if (share != NULL) qz_serverJoin(share->call->record, share->record->interaction);
}

void shareLeave(Share* share) {
    if (share == NULL) return;
    qz_endServer(share->record);
    freeServerInteraction(share->record);
    freeSiteStub(share->site);
    free(share);
}
