/* A small shop over HTTP, instrumented with the interceptor beside it. It has its goods from the
 * backend.
 *
 *   http-gateway BACKEND-URL [PORT]    as in http://127.0.0.1:8081; 0 or nothing takes a free port
 *
 *   GET  /shop/items       a list           POST /shop/cart    adds what is sent
 *   GET  /shop/price       has a part that shows as a request of its own
 *   GET  /shop/slow        has a worker thread ask the backend, which takes 300 ms
 *   any other page         what the backend says to it
 *
 * SIGINT or SIGTERM ends it. */
#include <stdio.h>
#include <string.h>

#include "fetch.h"
#include "worker.h"

static const char* backend;

static void addPrices(void* given) {
    Reply* reply = given;
    const size_t used = strcspn(reply->text, "\n");
    snprintf(reply->text + used, sizeof reply->text - used, ", 7 each\n");
}

static Reply answer(const char* method, const char* path, const Request* request) {
    const char* page = strncmp(path, "/shop/", 6) == 0 ? path + 6 : "";
    char url[1024];
    snprintf(url, sizeof url, "%s/stock/%s", backend, is(page, "price") ? "items" : page);
    if (is(page, "slow")) return workerFetch(request->call, url);
    if (is(method, "POST"))
        return fetch(url, request->body == NULL ? "" : request->body, request->size);

    Reply reply = fetch(url, NULL, 0);
    if (is(page, "price")) callPart("price", addPrices, &reply);
    return reply;
}

int main(int argc, char** argv) {
    if (argc < 2) {
        fprintf(stderr, "usage: http-gateway BACKEND-URL [PORT]\n");
        return 2;
    }
    backend = argv[1];
    if (!fetchInit() || !workerStart()) {
        fprintf(stderr, "http-gateway: no libcurl or no worker thread\n");
        return 1;
    }
    return serve("demo-shop", argc > 2 ? argv[2] : "0", answer);
}
