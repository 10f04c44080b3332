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

// The last characters of a key, eight at most.
std::uint64_t loadTail(const char* end, std::size_t count) {
    if (count >= 4) return load<std::uint32_t>(end - count) << 32 | load<std::uint32_t>(end - 4);
    std::uint64_t tail = 0;
    for (std::size_t i = count; i > 0; --i)
        tail = tail << 8 | static_cast<unsigned char>(end[-static_cast<std::ptrdiff_t>(i)]);
    return tail;
}

}  // namespace

unsigned long hashKey(const char* key) noexcept {
    if (key == nullptr) return 0;
    const std::size_t length = std::strlen(key);
    const char* const end = key + length;
    std::uint64_t hash = ourHashSeed ^ length;
    for (; end - key > 8; key += 8) hash = fold(hash ^ load<std::uint64_t>(key), ourHashSeed);
    return fold(hash ^ loadTail(end, static_cast<std::size_t>(end - key)), ourHashSeed);
}

}  // namespace Quenvale::Interceptor::SDK::Util
