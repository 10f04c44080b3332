#pragma once

namespace bench {

/// What an interceptor knows of one request.
struct Request {
    const char* url;
    const char* operation;
    const char* groupName;
    const char* serviceName;
    const char* peerAddress;
    const char* localAddress;
    const char* securityID;
    const char* siteAttribute;
};

/// Fewer kinds than a cache of decisions holds urls, and a power of two.
constexpr unsigned kRequests = 64;

/// One of kRequests different ones, with texts of 20 to 40 characters. Any number will do.
const Request& request(unsigned number);

/// One of `kColdUrls` urls, so many that none is still in a cache when its turn comes again.
constexpr unsigned kColdUrls = 4096;
const char* coldUrl(unsigned number);

}  // namespace bench
