#pragma once

#include <cstddef>
#include <cstring>

namespace Quenvale::Interceptor::SDK::Util {

/// memcpy for texts, which may not overlap. Most of a call's have 8 to 64 characters, and a few
/// moves that may overlap each other cost less than a call.
inline void* copyText(void* to, const void* from, std::size_t length) {
    auto* out = static_cast<char*>(to);
    const auto* in = static_cast<const char*>(from);
    if (__builtin_expect(length - 16 <= 48, 1)) {
        struct Piece {
            char bytes[16];
        };
        const std::size_t last = length - sizeof(Piece);
        Piece head, tail;
        std::memcpy(&head, in, sizeof head);
        std::memcpy(&tail, in + last, sizeof tail);
        if (length > 2 * sizeof(Piece)) {
            Piece second, third;
            std::memcpy(&second, in + sizeof head, sizeof second);
            std::memcpy(&third, in + last - sizeof third, sizeof third);
            std::memcpy(out + sizeof head, &second, sizeof second);
            std::memcpy(out + last - sizeof third, &third, sizeof third);
        }
        std::memcpy(out, &head, sizeof head);
        std::memcpy(out + last, &tail, sizeof tail);
        return to;
    }
    if (length - 8 < 8) {
        long long head, tail;
        std::memcpy(&head, in, sizeof head);
        std::memcpy(&tail, in + length - sizeof tail, sizeof tail);
        std::memcpy(out, &head, sizeof head);
        std::memcpy(out + length - sizeof tail, &tail, sizeof tail);
        return to;
    }
    if (length == 0) return to;
    return std::memcpy(to, from, length);
}

}  // namespace Quenvale::Interceptor::SDK::Util
