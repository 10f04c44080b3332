#include "util/Socket.h"

#include <pthread.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK::Util {

Socket::Socket(int descriptor, const char* host)
    : itsDescriptor(descriptor), itsHost(String::convert(host)) {}

// close() is a point of cancellation, and an unwind out of here would end the process.
Socket::~Socket() {
    int cancelState = PTHREAD_CANCEL_ENABLE;
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &cancelState);
    if (itsDescriptor > 0) closeSocket();
    pthread_setcancelstate(cancelState, nullptr);
    std::free(itsHost);
}

int Socket::closeSocket() {
    const int result = close(itsDescriptor);
    itsDescriptor = -1;
    return result;
}

int Socket::poll() const {
    return BytesAvail(itsDescriptor);
}

int Socket::initLocalHostAddr() {
    sockaddr_in address;
    if (GetLocalHostInfo(&address) == 0) return -1;
    unsigned char byte[4];
    static_assert(sizeof byte == sizeof address.sin_addr);
    std::memcpy(byte, &address.sin_addr, sizeof byte);
    char text[sizeof "255.255.255.255"];
    std::snprintf(text, sizeof text, "%d.%d.%d.%d", byte[0], byte[1], byte[2], byte[3]);

    // A text that was published is never released, since another thread may be reading it; so a
    // new one is published only for a new address.
    char* before = ourLocalHostAddr.load(std::memory_order_acquire);
    if (before != nullptr && std::strcmp(before, text) == 0) return 0;
    char* fresh = String::convert(text);
    if (!ourLocalHostAddr.compare_exchange_strong(before, fresh, std::memory_order_acq_rel))
        std::free(fresh);
    return 0;
}

Socket::DNSList::~DNSList() {
    clear();
}

void Socket::DNSList::clear() {
    if (itsNames == nullptr) return;
    for (char** name = itsNames; *name != nullptr; ++name) std::free(*name);
    std::free(itsNames);
    itsNames = nullptr;
}

}  // namespace Quenvale::Interceptor::SDK::Util
