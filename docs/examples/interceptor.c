/* A complete interceptor in C, and around it the program that it looks into: a shop that answers
 * two requests, and asks a stock service on the way. */
#include <stdio.h>
#include <string.h>

#include "capi/QZInt-c.h"

/* What the program knows of a request or a reply. */
typedef struct Message {
    const char* method;
    const char* url;
    const char* peer;    /* the address of the other side */
    const char* context; /* what came under the name QZ_Header; NULL if nothing did */
    const char* body;
    int status; /* of a reply */
} Message;

/* ---- The interceptor. */

static const unsigned char* bytes(const Message* message) {
    return (const unsigned char*)message->body;
}

static int size(const Message* message) {
    return (int)strlen(message->body);
}

/* A request has come in. */
static ServerInteractionStruct* requestArrived(const Message* request) {
    ServerInteractionStruct* call = qz_beginServer();
    qz_readHeader(request->context, call); /* first: it overwrites the record */
    siSetUrl(call, request->url);
    siSetOpName(call, request->method);
    siSetPeerAddr(call, request->peer);
    siSetPayload(call, bytes(request), size(request));
    qz_serverAnalyzed(call); /* the request is reported */
    return call;
}

/* Its reply goes out. */
static void replyLeaves(ServerInteractionStruct* call, const Message* reply) {
    siSetPayload(call, bytes(reply), size(reply));
    if (reply->status >= 500) siSetFailure(call, "the shop could not answer");
    qz_endServer(call); /* the reply is reported */
    freeServerInteraction(call);
}

/* A request goes out. What comes back in `context` is to be sent along under the name QZ_Header,
 * and released with qz_free(). */
static ClientInteractionStruct* requestLeaves(const Message* request, char** context) {
    ClientInteractionStruct* call = qz_beginClient();
    ciSetUrl(call, request->url);
    ciSetOpName(call, request->method);
    ciSetPeerAddr(call, request->peer);
    ciSetPayload(call, bytes(request), size(request));
    qz_clientAnalyzed(call); /* the request is reported */
    *context = qz_writeHeader(call, 0);
    return call;
}

/* Its reply has come. */
static void replyArrived(ClientInteractionStruct* call, const Message* reply) {
    ciSetPayload(call, bytes(reply), size(reply));
    if (reply->status >= 500) ciSetFailure(call, "the stock service could not answer");
    qz_endClient(call); /* the reply is reported */
    freeClientInteraction(call);
}

/* ---- The program. */

static Message askStock(void) {
    const Message request = {"GET", "http://stock.example/stock/count", "10.0.0.3", NULL, "7", 0};
    const Message reply = {NULL, NULL, NULL, NULL, "no answer", 503};
    char* context = NULL;
    ClientInteractionStruct* call = requestLeaves(&request, &context);
    printf("QZ_Header: %s\n", context == NULL ? "" : context); /* a real program sends it */
    qz_free(context);
    replyArrived(call, &reply);
    return reply;
}

static void answer(const Message* request) {
    Message reply = {NULL, NULL, NULL, NULL, "added", 200};
    ServerInteractionStruct* call = requestArrived(request);
    if (askStock().status >= 500) reply.body = "sold out";
    replyLeaves(call, &reply);
}

int main(void) {
    const Message first = {"POST", "http://shop.example/cart/add", "10.0.0.1", NULL, "article=6",
                           0};
    Message second = first;
    second.context = "Interaction=i-1;Flow=f-1;FlowFields=customer:42;";
    second.body = "article=7";
    answer(&first);
    answer(&second);
    qz_flushUplink(); /* the process ends, and what is queued would be lost */
    return 0;
}
