#pragma once

#include <array>
#include <cstdio>
#include <cstring>
#include <vector>

namespace bench {

/// What an interceptor knows of one request: texts of 20 to 40 characters.
enum Text {
    kUrl,
    kOperation,
    kGroupName,
    kServiceName,
    kPeerAddress,
    kLocalAddress,
    kSecurityID,
    kSiteAttribute,
    kTexts
};
using Request = std::array<const char*, kTexts>;

/// Fewer requests than a cache of decisions holds urls, and so many urls for the cold case that
/// none is still in the cache when its turn comes again.
constexpr unsigned kRequests = 64;
constexpr unsigned kColdUrls = 4096;

// A text that lives as long as the process.
inline const char* numbered(const char* format, unsigned number) {
    char text[64];
    std::snprintf(text, sizeof text, format, number);
    return ::strdup(text);
}

/// Any number will do.
inline const Request& request(unsigned number) {
    static const auto requests = [] {
        constexpr const char* kFormats[kTexts] = {"http://books.example:8080/orders/no%02u",
                                                  "placeOrderWithVoucher%02u",
                                                  "bookshop-front-group%02u",
                                                  "org.example.books.OrderDesk%02u",
                                                  "client-%02u.branch.example:50123",
                                                  "front-%02u.books.example:8080",
                                                  "reader%02u@members.example",
                                                  "Bookworm/3.1.%02u (x86_64; en)"};
        std::vector<Request> made(kRequests);
        for (unsigned i = 0; i < kRequests; ++i)
            for (unsigned k = 0; k < kTexts; ++k) made[i][k] = numbered(kFormats[k], i);
        return made;
    }();
    return requests[number % kRequests];
}

inline const char* coldUrl(unsigned number) {
    static const auto urls = [] {
        std::vector<const char*> made;
        for (unsigned i = 0; i < kColdUrls; ++i)
            made.push_back(numbered("http://books.example:8080/orders/new%04u", i));
        return made;
    }();
    return urls[number % kColdUrls];
}

}  // namespace bench
