#include "util/guid.h"

#include <netinet/in.h>
#include <unistd.h>

#include <cstring>
#include <utility>

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

// The base outlives a wrap of the counter: the fresh one is made and dropped.
__attribute__((noinline, cold)) void passWrap() {
    MutexGuard guard(itsLock);
    release(_getBase());
}

std::uint32_t nextSerial() {
    // Nothing but the number itself has to be agreed on between threads, so no lock.
    const std::uint32_t serial = counter.fetch_add(1, std::memory_order_relaxed);
    if (__builtin_expect(serial == UINT32_MAX, 0)) passWrap();
    return serial;
}

// The serial's characters and the padding, as the one number that the store below writes: ids are
// copied right after they are made, and a copy waits for each store that it finds under way.
template <int... I>
std::uint64_t serialText(std::uint32_t serial, std::integer_sequence<int, I...>) {
    const std::uint64_t bits = static_cast<std::uint64_t>(__builtin_bswap32(serial)) << 4;
    constexpr std::uint64_t kPadding = 0x3d3dUL << 48;
    return (kPadding | ... |
            (static_cast<std::uint64_t>(base64_chars[bits >> (30 - 6 * I) & 63]) << (8 * I)));
}

}  // namespace

// The base fills 16 characters to the bit, and they are the same in every id.
String newGuid() {
    char* text = String::room(kGuidText);
    if (text == nullptr) return {};
    copyBaseText(text);
    const std::uint64_t tail = serialText(nextSerial(), std::make_integer_sequence<int, 6>());
    std::memcpy(text + kBaseText, &tail, sizeof tail);
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
