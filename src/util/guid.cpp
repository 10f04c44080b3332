#include "util/guid.h"

#include <netinet/in.h>
#include <unistd.h>

#include <cstring>

#include "util/Clock.h"
#include "util/base64.h"
#include "util/blocks.h"
#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK::Util {

namespace {

constexpr int kAddressBytes = 4;
constexpr int kProcessBytes = 2;
constexpr int kTimeBytes = 6;
constexpr int kBaseBytes = kAddressBytes + kProcessBytes + kTimeBytes;
constexpr int kCounterBytes = 4;
constexpr int kGuidBytes = kBaseBytes + kCounterBytes;

// The only reader of the base, so that a process can be given a fresh one in one place.
void copyBase(unsigned char* bytes) {
    if (__base == nullptr)
        std::memset(bytes, 0, kBaseBytes);
    else
        std::memcpy(bytes, __base, kBaseBytes);
}

void putLowByteFirst(unsigned char* bytes, std::uint64_t value, int count) {
    for (int i = 0; i < count; ++i) bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

}  // namespace

String newGuid() {
    unsigned char bytes[kGuidBytes];
    getBytes(bytes);
    return base64::encode16(bytes);
}

void getBytes(unsigned char* bytes) {
    // Nothing but the number itself has to be agreed on between threads, so no lock.
    const std::uint32_t serial = counter.fetch_add(1, std::memory_order_relaxed);
    if (serial == UINT32_MAX) {
        // The base outlives a wrap of the counter: the fresh one is made and dropped.
        MutexGuard guard(itsLock);
        release(_getBase());
    }
    copyBase(bytes);
    putLowByteFirst(bytes + kBaseBytes, serial, kCounterBytes);
}

unsigned char* _getBase() {
    auto* base = static_cast<unsigned char*>(allocateZeroed(kBaseBytes));
    if (base == nullptr) return nullptr;
    sockaddr_in address = {};
    if (GetLocalHostInfo(&address) != 0) std::memcpy(base, &address.sin_addr, kAddressBytes);
    putLowByteFirst(base + kAddressBytes, static_cast<std::uint64_t>(getpid()), kProcessBytes);
    putLowByteFirst(base + kAddressBytes + kProcessBytes,
                    static_cast<std::uint64_t>(Clock::_currentTimeMillis()), kTimeBytes);
    return base;
}

}  // namespace Quenvale::Interceptor::SDK::Util
