#ifndef SERVER_H
#define SERVER_H

#include <stddef.h>

#include "interceptor.h"

typedef struct Request {
    Call* call;
    char* body;
    size_t size;
} Request;

typedef struct Reply {
    unsigned int status;
    char text[160];
} Reply;

/* Answers one request. Runs on the connection's own thread, behind the analysed call. */
typedef Reply (*Answer)(const char* method, const char* path, const Request* request);

int is(const char* a, const char* b);

/* Runs an instrumented HTTP server until SIGINT or SIGTERM and gives the status to exit with.
 * `group` is the application's name in its events. Port 0 is a free one; the port in use is
 * printed. */
int serve(const char* group, const char* port, Answer answer);

#endif
