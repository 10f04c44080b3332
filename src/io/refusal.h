#pragma once

#include <cstdio>

#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Arguments that the buffering and array streams refuse alike.
inline void checkRange(const unsigned char* buffer, int offset, int length) {
    if (buffer == nullptr) Util::raise<Util::APIException>("NULL buffer");
    if (offset < 0) Util::raise<Util::APIException>("offset is negative");
    if (length < 0) Util::raise<Util::APIException>("len is negative");
}

/// An IOException whose text is `what`, ": " and the number.
[[noreturn]] inline void refuse(const char* what, long long value) {
    char text[64];
    std::snprintf(text, sizeof text, "%s: %lld", what, value);
    Util::raise<Util::IOException>(text);
}

}  // namespace Quenvale::Interceptor::SDK::IO
