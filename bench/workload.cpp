#include "workload.h"

#include <cstdio>
#include <cstring>
#include <vector>

namespace bench {

namespace {

// Numbered texts that live as long as the process.
const char* numbered(const char* format, unsigned number) {
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return ::strdup(text);
}

std::vector<Request> makeRequests() {
    std::vector<Request> requests;
    for (unsigned i = 0; i < kRequests; ++i) {
        requests.push_back({numbered("http://books.example:8080/orders/no%02u", i),
                            numbered("placeOrderWithVoucher%02u", i),
                            numbered("bookshop-front-group%02u", i),
                            numbered("org.example.books.OrderDesk%02u", i),
                            numbered("client-%02u.branch.example:50123", i),
                            numbered("front-%02u.books.example:8080", i),
                            numbered("reader%02u@members.example", i),
                            numbered("Bookworm/3.1.%02u (x86_64; en)", i)});
    }
    return requests;
}

std::vector<const char*> makeColdUrls() {
    std::vector<const char*> urls;
    for (unsigned i = 0; i < kColdUrls; ++i)
        urls.push_back(numbered("http://books.example:8080/orders/new%04u", i));
    return urls;
}

}  // namespace

const Request& request(unsigned number) {
    static const std::vector<Request> requests = makeRequests();
    return requests[number % kRequests];
}

const char* coldUrl(unsigned number) {
    static const std::vector<const char*> urls = makeColdUrls();
    return urls[number % kColdUrls];
}

}  // namespace bench
