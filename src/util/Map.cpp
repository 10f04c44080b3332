#include "util/Map.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "util/hashSeed.h"

namespace Quenvale::Interceptor::SDK::Util {

namespace {

// Each bit of the result depends on each of both, and without the seed nobody can tell how.
inline std::uint64_t fold(std::uint64_t a, std::uint64_t b) {
    __extension__ using Wide = unsigned __int128;
    const Wide product = static_cast<Wide>(a) * b;
    return static_cast<std::uint64_t>(product) ^ static_cast<std::uint64_t>(product >> 64);
}

template <class Number>
std::uint64_t load(const char* from) {
    Number value;
    std::memcpy(&value, from, sizeof value);
    return value;
}

// Of a text of at most 16 characters, all of them in two numbers.
void loadShort(const char* text, std::size_t length, std::uint64_t& a, std::uint64_t& b) {
    const char* const end = text + length;
    if (length >= 8) {
        a = load<std::uint64_t>(text);
        b = load<std::uint64_t>(end - 8);
    } else if (length >= 4) {
        a = load<std::uint32_t>(text);
        b = load<std::uint32_t>(end - 4);
    } else if (length > 0) {
        a = static_cast<unsigned char>(text[0]) |
            static_cast<std::uint64_t>(static_cast<unsigned char>(text[length / 2])) << 8;
        b = static_cast<unsigned char>(end[-1]);
    }
}

}  // namespace

std::uint64_t hashText(const char* text, std::size_t length, std::uint64_t start) noexcept {
    // Not the seed itself: the hash begins with that, and then two texts whose halves are each
    // other's would meet.
    const std::uint64_t other = ourHashSeed << 29 | ourHashSeed >> 35;
    std::uint64_t hash = start ^ length;
    std::uint64_t a = 0;
    std::uint64_t b = 0;
    if (length <= 16) {
        loadShort(text, length, a, b);
    } else {
        const char* const last = text + length - 16;
        for (; text < last; text += 16)
            hash = fold(hash ^ load<std::uint64_t>(text), other ^ load<std::uint64_t>(text + 8));
        a = load<std::uint64_t>(last);
        b = load<std::uint64_t>(last + 8);
    }
    return fold(fold(hash ^ a, other ^ b), ourHashSeed);
}

unsigned long hashKey(const char* key) noexcept {
    return key == nullptr ? 0 : hashText(key, std::strlen(key), ourHashSeed);
}

}  // namespace Quenvale::Interceptor::SDK::Util
