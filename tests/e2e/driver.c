/* The interceptor of the end-to-end tests, in C: it makes calls through the C interface as the
 * lines of its standard input tell, and answers each with a line. "-" stands for a text that isn't
 * given.
 *
 *   server URL OP PAYLOAD FAILURE   a whole server call, analysed and ended
 *   whole URL OP                    a server call that is never analysed
 *   open URL OP                     an analysed server that stays open; close ends it
 *   flood THREADS CALLS             threads that make calls; sizes count up on each thread
 *   spin THREADS                    threads that make calls until the process ends
 *   records COUNT                   records and texts from this program's calloc and strdup
 *   flush                           sends what is queued
 *   exit                            leaves main
 */
#define _POSIX_C_SOURCE 200809L
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "capi/QZInt-c.h"

static const char* given(const char* word) {
    return word == NULL || strcmp(word, "-") == 0 ? NULL : word;
}

static ServerInteractionStruct* begin(const char* url, const char* op) {
    ServerInteractionStruct* call = qz_beginServer();
    siSetUrl(call, given(url));
    siSetOpName(call, given(op));
    return call;
}

static void end(ServerInteractionStruct* call) {
    qz_endServer(call);
    freeServerInteraction(call);
}

/* The functions with C++ symbols are reached from C as well. */
static int symbolsWork(void) {
    unsigned size = 0;
    SiteStubStruct* site = newSiteStub();
    char* block = serializeSiteStub(site, &size);
    SiteStubStruct* back = deserializeSiteStub(block, NULL);
    const int works = size == 27 && strlencustom(back->url) == 0 && siGetSize(NULL, NULL) == 0 &&
                      ciGetSize(NULL, NULL) == 0 && ciGetPayloadContentType(NULL) == NULL;
    qz_free(block);
    freeSiteStub(site);
    freeSiteStub(back);
    return works;
}

static void serverCall(char** words) {
    ServerInteractionStruct* call = begin(words[1], words[2]);
    const char* payload = given(words[3]);
    siSetPeerAddr(call, "peer.example");
    if (payload != NULL) siSetPayload(call, (const unsigned char*)payload, (int)strlen(payload));
    qz_serverAnalyzed(call);
    siSetSize(call, 7);
    siSetFailure(call, given(words[4]));
    end(call);
}

/* Made here and released there, small ones and large, and then the library makes calls of its own
 * in what it may have kept. */
static void ownRecords(char** words) {
    static const size_t kLengths[] = {0, 1, 7, 8, 15, 16, 63, 255, 256, 319, 1000, 1023, 1024};
    char text[1025];
    for (int i = 0; i < atoi(words[1]); ++i) {
        memset(text, 'x', sizeof text);
        text[kLengths[(size_t)i % (sizeof kLengths / sizeof *kLengths)]] = '\0';
        ServerInteractionStruct* call = calloc(1, sizeof *call);
        call->interaction = calloc(1, sizeof *call->interaction);
        InteractionStubStruct* stub = call->interaction->stub = calloc(1, sizeof *stub);
        SiteStubStruct* site = stub->site = calloc(1, sizeof *site);
        FlowStubStruct* flow = site->flow = calloc(1, sizeof *flow);
        stub->locus = strdup(text);
        site->siteAttr = strdup(text);
        flow->flowAttr1 = strdup(text);
        freeServerInteraction(call);
        call = begin(text, text);
        siSetGroupName(call, "group");
        siSetServiceName(call, text);
        end(call);
    }
}

/* A negative number of calls never ends. */
static struct Work {
    pthread_t id;
    int calls;
} ourWork[64];

static void* makeCalls(void* argument) {
    const struct Work* work = argument;
    char op[32];
    snprintf(op, sizeof op, "t%d", (int)(work - ourWork));
    for (int i = 1; work->calls < 0 || i <= work->calls; ++i) {
        ServerInteractionStruct* call = begin("http://host.example/shop/cart", op);
        siSetSize(call, i);
        qz_serverAnalyzed(call);
        siSetSize(call, i);
        end(call);
    }
    return NULL;
}

static void flood(int threads, int calls) {
    for (int i = 0; i < threads; ++i) {
        ourWork[i].calls = calls;
        if (pthread_create(&ourWork[i].id, NULL, makeCalls, &ourWork[i]) != 0) exit(3);
    }
    for (int i = 0; calls >= 0 && i < threads; ++i) pthread_join(ourWork[i].id, NULL);
}

static ServerInteractionStruct* ourOpenCall;

/* 0 when the command is not known. */
static int obey(char** words) {
    const char* command = words[0];
    if (strcmp(command, "server") == 0) {
        serverCall(words);
    } else if (strcmp(command, "whole") == 0) {
        end(begin(words[1], words[2]));
    } else if (strcmp(command, "records") == 0) {
        ownRecords(words);
    } else if (strcmp(command, "open") == 0) {
        ourOpenCall = begin(words[1], words[2]);
        qz_serverAnalyzed(ourOpenCall);
    } else if (strcmp(command, "close") == 0) {
        end(ourOpenCall);
    } else if (strcmp(command, "flood") == 0) {
        flood(atoi(words[1]), atoi(words[2]));
    } else if (strcmp(command, "spin") == 0) {
        flood(atoi(words[1]), -1);
    } else if (strcmp(command, "flush") == 0) {
        qz_flushUplink();
    } else {
        return 0;
    }
    return 1;
}

int main(void) {
    char line[4096];
    if (!symbolsWork()) return 4;
    while (fgets(line, sizeof line, stdin) != NULL && strcmp(line, "exit\n") != 0) {
        char* words[8] = {NULL};
        char* rest = line;
        int count = 0;
        while (count < 7 && (words[count] = strtok_r(NULL, " \n", &rest)) != NULL) ++count;
        if (!obey(words)) return 2;
        puts("ok");
        fflush(stdout);
    }
    return 0;
}
