/* A small shop over HTTP, instrumented with the interceptor beside it.
 *
 *   http-server [PORT]     0 or nothing takes a free port; the port in use is printed
 *
 *   GET  /shop/items       a list           POST /shop/cart    adds what is sent
 *   GET  /shop/slow        takes 300 ms     GET  /shop/broken  fails
 *
 * SIGINT or SIGTERM ends it. */
#define _POSIX_C_SOURCE 200809L
#include <microhttpd.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "interceptor.h"

enum { kLargestBody = 64 * 1024 };

typedef struct Request {
    Call* call;
    char* body;
    size_t size;
} Request;

typedef struct Reply {
    unsigned int status;
    char text[160];
} Reply;

static int is(const char* a, const char* b) {
    return strcmp(a, b) == 0;
}

static Reply answer(const char* method, const char* path, const Request* request) {
    Reply reply = {MHD_HTTP_NOT_FOUND, "no such page\n"};
    if (is(method, "GET") && is(path, "/shop/items")) {
        reply.status = MHD_HTTP_OK;
        strcpy(reply.text, "[\"apple\", \"pear\", \"plum\"]\n");
    } else if (is(method, "POST") && is(path, "/shop/cart")) {
        reply.status = MHD_HTTP_CREATED;
        snprintf(reply.text, sizeof reply.text, "added %zu bytes\n", request->size);
    } else if (is(method, "GET") && is(path, "/shop/slow")) {
        const struct timespec pause = {0, 300 * 1000 * 1000};
        nanosleep(&pause, NULL);
        reply.status = MHD_HTTP_OK;
        strcpy(reply.text, "at last\n");
    } else if (is(method, "GET") && is(path, "/shop/broken")) {
        reply.status = MHD_HTTP_INTERNAL_SERVER_ERROR;
        strcpy(reply.text, "broken on purpose\n");
    }
    return reply;
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
static enum MHD_Result handle(void* unused, struct MHD_Connection* connection, const char* path,
                              const char* method, const char* version, const char* data,
                              size_t* size, void** state) {
    Request* request = *state;
    (void)unused;
    (void)version;
    if (request == NULL) {
        request = calloc(1, sizeof *request);
        if (request == NULL) return MHD_NO;
        request->call = callBegin(connection, method, path);
        *state = request;
        return MHD_YES;
    }
    if (*size > 0) return keep(request, data, size);

    callRequest(request->call, request->body, request->size);
    Reply reply = answer(method, path, request);
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

int main(int argc, char** argv) {
    sigset_t ends;
    int signal;
    sigemptyset(&ends);
    sigaddset(&ends, SIGINT);
    sigaddset(&ends, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &ends, NULL);

    const int port = argc > 1 ? atoi(argv[1]) : 0;
    if (port < 0 || port > 65535) {
        fprintf(stderr, "usage: http-server [PORT]\n");
        return 2;
    }
    struct MHD_Daemon* daemon = MHD_start_daemon(
        MHD_USE_INTERNAL_POLLING_THREAD | MHD_USE_THREAD_PER_CONNECTION, (unsigned short)port, NULL,
        NULL, &handle, NULL, MHD_OPTION_NOTIFY_COMPLETED, &finish, NULL, MHD_OPTION_END);
    if (daemon == NULL) {
        fprintf(stderr, "http-server: cannot listen on port %d\n", port);
        return 1;
    }
    printf("listening on port %u\n",
           (unsigned)MHD_get_daemon_info(daemon, MHD_DAEMON_INFO_BIND_PORT)->port);
    fflush(stdout);
    sigwait(&ends, &signal);
    MHD_stop_daemon(daemon);
    return 0;
}
