#include "interceptor.h"

#include <QZInt-c.h>
#include <arpa/inet.h>
#include <netinet/in.h>
#include <stdio.h>
#include <stdlib.h>

struct Call {
    ServerInteractionStruct* record;
    int hasReply;
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

Call* callBegin(struct MHD_Connection* connection, const char* method, const char* path) {
    const char* host = MHD_lookup_connection_value(connection, MHD_HEADER_KIND, "Host");
    Call* call = calloc(1, sizeof *call);
    char url[2048];
    if (call == NULL) return NULL;
    snprintf(url, sizeof url, "http://%s%s", host == NULL ? "localhost" : host, path);

    call->record = qz_beginServer();
    siSetUrl(call->record, url);
    siSetOpName(call->record, method);
    siSetGroupName(call->record, "demo-shop");
    setPeer(call->record, connection);
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
