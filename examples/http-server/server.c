#define _POSIX_C_SOURCE 200809L
#include "server.h"

#include <microhttpd.h>
#include <pthread.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

enum { kLargestBody = 64 * 1024 };

typedef struct Site {
    const char* group;
    Answer answer;
} Site;

int is(const char* a, const char* b) {
    return strcmp(a, b) == 0;
}

static enum MHD_Result keep(Request* request, const char* data, size_t* size) {
    if (request->size + *size > kLargestBody) return MHD_NO;
    char* body = realloc(request->body, request->size + *size);
    if (body == NULL) return MHD_NO;
    memcpy(body + request->size, data, *size);
    request->body = body;
    request->size += *size;
    *size = 0;
    return MHD_YES;
}

/* Called with the headers, with each piece of the body, and once more at the end of the request. */
static enum MHD_Result handle(void* given, struct MHD_Connection* connection, const char* path,
                              const char* method, const char* version, const char* data,
                              size_t* size, void** state) {
    const Site* site = given;
    Request* request = *state;
    (void)version;
    if (request == NULL) {
        request = calloc(1, sizeof *request);
        if (request == NULL) return MHD_NO;
        request->call = callBegin(connection, site->group, method, path);
        *state = request;
        return MHD_YES;
    }
    if (*size > 0) return keep(request, data, size);

    callRequest(request->call, request->body, request->size);
    Reply reply = site->answer(method, path, request);
    struct MHD_Response* response =
        MHD_create_response_from_buffer(strlen(reply.text), reply.text, MHD_RESPMEM_MUST_COPY);
    const enum MHD_Result result = MHD_queue_response(connection, reply.status, response);
    MHD_destroy_response(response);
    callReply(request->call, reply.status, reply.text, strlen(reply.text));
    return result;
}

static void finish(void* unused, struct MHD_Connection* connection, void** state,
                   enum MHD_RequestTerminationCode code) {
    Request* request = *state;
    (void)unused;
    (void)connection;
    (void)code;
    if (request == NULL) return;
    callEnd(request->call);
    free(request->body);
    free(request);
    *state = NULL;
}

int serve(const char* group, const char* port, Answer answer) {
    sigset_t ends;
    int signal;
    Site site = {group, answer};
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, NULL);

    const int number = atoi(port);
    if (number < 0 || number > 65535) {
        fprintf(stderr, "no such port: %s\n", port);
        return 2;
    }
    struct MHD_Daemon* daemon = MHD_start_daemon(
        MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION, (unsigned short)number,
        NULL, NULL, &handle, &site, MHD_OPTION_NOTIFY_COMPLETED, &finish, NULL, MHD_OPTION_END);
    if (daemon == NULL) {
        fprintf(stderr, "cannot listen on port %d\n", number);
        return 1;
    }
    printf("listening on port %u\n",
           (unsigned)MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port);
    fflush(stdout);
    sigwait(&ends, &signal);
    MHD_stop_daemon(daemon);
    callsFlush();
    return 0;
}
