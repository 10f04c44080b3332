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
constexpr int kBaseText = kBaseBytes / 3 * 4;
constexpr int kGuidText = 24;

// The only readers of the base, so that a process can be given a fresh one in one place.
void copyBase(unsigned char* bytes) {
    if (__base == nullptr)
        std::memset(bytes, 0, kBaseBytes);
    else
        std::memcpy(bytes, __base, kBaseBytes);
}

void copyBaseText(char* text) {
    if (baseText == nullptr)
        std::memset(text, base64_chars[0], kBaseText);
    else
        std::memcpy(text, baseText, kBaseText);
}

void putLowByteFirst(unsigned char* bytes, std::uint64_t value, int count) {
    for (int i = 0; i < count; ++i) bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

std::uint32_t nextSerial() {
    // Nothing but the number itself has to be agreed on between threads, so no lock.
    const std::uint32_t serial = counter.fetch_add(1, std::memory_order_relaxed);
    if (serial == UINT32_MAX) {
        // The base outlives a wrap of the counter: the fresh one is made and dropped.
        MutexGuard guard(itsLock);
        release(_getBase());
    }
    return serial;
}

}  // namespace

// The base fills 16 characters to the bit, and they are the same in every id.
String newGuid() {
    char* text = String::room(kGuidText);
    if (text == nullptr) return {};
    const std::uint32_t serial = nextSerial();
    copyBaseText(text);
    const std::uint64_t group = static_cast<std::uint64_t>(__builtin_bswap32(serial)) << 4;
    for (int i = 0; i < 6; ++i) text[kBaseText + i] = base64_chars[group >> (30 - 6 * i) & 63];
    text[kGuidText - 2] = text[kGuidText - 1] = '=';
    return String::adopt(text);
}

void getBytes(unsigned char* bytes) {
    copyBase(bytes);
    putLowByteFirst(bytes + kBaseBytes, nextSerial(), kCounterBytes);
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

char* textOfBase(const unsigned char* base) {
    if (base == nullptr) return nullptr;
    const String text = base64::encode(reinterpret_cast<const char*>(base), kBaseBytes);
    return String::convert(text.c_str());
}

}  // namespace Quenvale::Interceptor::SDK::Util
