/* The stock of a small shop over HTTP, instrumented with the interceptor beside it. The gateway is
 * its caller.
 *
 *   http-backend [PORT]    0 or nothing takes a free port; the port in use is printed
 *
 *   GET  /stock/items      a list           POST /stock/cart    adds what is sent
 *   GET  /stock/slow       takes 300 ms     GET  /stock/broken  fails
 *
 * SIGINT or SIGTERM ends it. */
#define _POSIX_C_SOURCE 200809L
#include <microhttpd.h>
#include <stdio.h>
#include <string.h>
#include <time.h>

#include "server.h"

static Reply answer(const char* method, const char* path, const Request* request) {
    Reply reply = {MHD_HTTP_NOT_FOUND, "no such page\n"};
    if (is(method, "GET") && is(path, "/stock/items")) {
        reply.status = MHD_HTTP_OK;
        strcpy(reply.text, "[\"apple\", \"pear\", \"plum\"]\n");
    } else if (is(method, "POST") && is(path, "/stock/cart")) {
        reply.status = MHD_HTTP_CREATED;
        snprintf(reply.text, sizeof reply.text, "added %zu bytes\n", request->size);
    } else if (is(method, "GET") && is(path, "/stock/slow")) {
        const struct timespec pause = {0, 300 * 1000 * 1000};
        nanosleep(&pause, NULL);
        reply.status = MHD_HTTP_OK;
        strcpy(reply.text, "at last\n");
    } else if (is(method, "GET") && is(path, "/stock/broken")) {
        reply.status = MHD_HTTP_INTERNAL_SERVER_ERROR;
        strcpy(reply.text, "broken on purpose\n");
    }
    return reply;
}

int main(int argc, char** argv) {
    return serve("demo-stock", argc > 1 ? argv[1] : "0", answer);
}
