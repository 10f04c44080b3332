/* What an interceptor in C does where calls and threads do not go one to one: an event loop, a
 * worker thread, a part of a call, a call that is not to be seen. Each part makes calls of its own,
 * and the agent shows what they were. */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <stdio.h>
#include <string.h>

#include "capi/QZInt-c.h"
#include "wanted.h"

/* ---- An event loop: many calls on one thread. */

/* All in one callback, when the request is known in full: no call stays in its request stage. */
static ServerInteractionStruct* loopCallBegins(const char* url, const char* context) {
    ServerInteractionStruct* call = qz_createServer(); /* not begin: it would find another's call */
    qz_readHeader(context, call);
    siSetUrl(call, url);
    siSetOpName(call, "GET");
    qz_serverAnalyzed(call);
    return call;
}

/* A request that goes out on behalf of `call`, whichever call the thread began last. */
static ClientInteractionStruct* loopRequestLeaves(ServerInteractionStruct* call, const char* url) {
    SiteStubStruct* site = qz_split(call->interaction, NULL);
    ServerInteractionStruct* standIn = qz_beginServerSplit(site); /* now the innermost one */
    ClientInteractionStruct* request = qz_createClient();
    ciSetUrl(request, url);
    ciSetOpName(request, "GET");
    qz_clientAnalyzed(request);
    qz_endServer(standIn); /* reports nothing */
    freeServerInteraction(standIn);
    freeSiteStub(site);
    return request;
}

static void loopReplyArrived(ClientInteractionStruct* request) {
    qz_endClient(request);
    freeClientInteraction(request);
}

static void loopCallEnds(ServerInteractionStruct* call) {
    qz_endServer(call);
    freeServerInteraction(call);
}

static void eventLoop(void) {
    ServerInteractionStruct* first = loopCallBegins("http://loop.example/loop/first", NULL);
    ServerInteractionStruct* second = loopCallBegins("http://loop.example/loop/second", NULL);
    ClientInteractionStruct* request = loopRequestLeaves(first, "http://db.example/db/first");
    loopCallEnds(second);
    loopReplyArrived(request);
    loopCallEnds(first);
}

/* ---- A call that another thread goes on with. */

typedef struct Job {
    SiteStubStruct* site;
    ServerInteractionStruct* continuation; /* the worker's */
} Job;

static void* work(void* argument) {
    Job* job = argument;
    job->continuation = qz_beginServerSplit(job->site);
    ClientInteractionStruct* request = qz_beginClient();
    ciSetUrl(request, "http://db.example/db/work");
    ciSetOpName(request, "GET");
    qz_clientAnalyzed(request);
    qz_endClient(request);
    freeClientInteraction(request);
    siAddFlowFieldToPropagate(job->continuation, "worker", "yes", 1);
    return NULL;
}

static void workerThread(void) {
    Job job;
    pthread_t worker;
    ServerInteractionStruct* call = qz_beginServer();
    siSetUrl(call, "http://shop.example/work/start");
    siSetOpName(call, "POST");
    qz_serverAnalyzed(call); /* before the split, so that the record knows of it */
    job.site = qz_split(call->interaction, NULL);
    if (pthread_create(&worker, NULL, work, &job) == 0) {
        pthread_join(worker, NULL); /* or any other way to know that the worker is done */
        qz_serverJoin(call, job.continuation->interaction);
        qz_endServer(job.continuation); /* reports nothing; it may come from any thread */
        freeServerInteraction(job.continuation);
    }
    freeSiteStub(job.site);
    ClientInteractionStruct* request = qz_beginClient();
    ciSetUrl(request, "http://db.example/db/after");
    ciSetOpName(request, "GET");
    qz_clientAnalyzed(request);
    char* context = qz_writeHeader(request, 0); /* carries what the worker added */
    printf("QZ_Header: %s\n", context == NULL ? "" : context);
    qz_free(context);
    qz_endClient(request);
    freeClientInteraction(request);
    qz_endServer(call);
    freeServerInteraction(call);
}

/* ---- A part of a call, shown as a request of its own. */

static void subRequest(void) {
    void* client = NULL;
    void* server = NULL;
    ServerInteractionStruct* call = qz_beginServer();
    siSetUrl(call, "http://shop.example/parts/all");
    siSetOpName(call, "GET");
    qz_serverAnalyzed(call);
    qz_createSubRequest("render", &client, &server);
    /* ... the part itself ... */
    qz_endSubRequest(client, server);
    qz_endServer(call);
    freeServerInteraction(call);
}

/* ---- A reply whose payload is made only where the agent wants it. */

static void wantedPayload(void) {
    const char* body = "made for the agent";
    ServerInteractionStruct* call = qz_beginServer();
    siSetUrl(call, "http://shop.example/wanted/body");
    siSetOpName(call, "GET");
    qz_serverAnalyzed(call); /* fixes the decision */
    if (payloadIsWanted(call))
        siSetPayload(call, (const unsigned char*)body, (int)strlen(body));
    else
        siSetSize(call, (long long)strlen(body));
    qz_endServer(call);
    freeServerInteraction(call);
}

/* ---- A call that was begun and turns out to be none. */

static void forgottenCall(void) {
    ServerInteractionStruct* call = qz_beginServer();
    siSetUrl(call, "http://shop.example/health/check");
    call->interaction->stub->internal = 1; /* nothing of it is reported */
    qz_endServer(call);
    freeServerInteraction(call);
}

int main(void) {
    forgottenCall();
    subRequest();
    eventLoop();
    workerThread();
    wantedPayload();
    qz_flushUplink();
    return 0;
}
