#pragma once

#include <cstddef>
#include <cstring>

namespace Quenvale::Interceptor::SDK::Util {

/// memcpy for texts. Most of a call's have 16 to 32 characters, and two moves that may overlap cost
/// less than a call.
inline void copyText(void* to, const void* from, std::size_t length) {
    if (length < 16 || length > 32) {
        std::memcpy(to, from, length);
        return;
    }
    char head[16], tail[16];
    const std::size_t last = length - sizeof tail;
    std::memcpy(head, from, sizeof head);
    std::memcpy(tail, static_cast<const char*>(from) + last, sizeof tail);
    std::memcpy(to, head, sizeof head);
    std::memcpy(static_cast<char*>(to) + last, tail, sizeof tail);
}

}  // namespace Quenvale::Interceptor::SDK::Util
