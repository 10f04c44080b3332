#pragma once

/// Numbers as text and the case of ASCII letters. One private copy in each translation unit: the
/// names at global scope must not meet those of a host.

namespace {

/// Holds any number that lltoa writes: a sign, 64 digits and the terminator.
constexpr int kNumberText = 66;

/// Reverses the range in place, both ends included; nothing happens unless `end` lies behind.
[[maybe_unused]] inline void strreverse(char* begin, char* end) {
    while (end > begin) {
        const char last = *end;
        *end-- = *begin;
        *begin++ = last;
    }
}

/// Writes `value` in a base from 2 to 36, a negative one with "-" in every base; any other base
/// gives the empty text. The buffer holds kNumberText bytes or as many as the caller knows to do.
[[maybe_unused]] inline void lltoa(long long value, char* buffer, int base) {
    char* out = buffer;
    if (base >= 2 && base <= 36) {
        const auto radix = static_cast<unsigned long long>(base);
        auto rest = static_cast<unsigned long long>(value);
        const char* const digits = "0123456789abcdefghijklmnopqrstuvwxyz";
        if (value < 0) rest = 0ULL - rest;
        do {
            *out++ = digits[rest % radix];
            rest /= radix;
        } while (rest != 0);
        if (value < 0) *out++ = '-';
        strreverse(buffer, out - 1);
    }
    *out = '\0';
}

[[maybe_unused]] inline void itoa(int value, char* buffer, int base) {
    lltoa(value, buffer, base);
}

}  // namespace

namespace Quenvale::Interceptor::SDK::Util {

/// ASCII letters only; bytes above 127 stay as they are. Both change the text and return it.
inline char* strlwr(char* text) {
    for (char* p = text; *p != '\0'; ++p)
        if (*p >= 'A' && *p <= 'Z') *p = static_cast<char>(*p + 32);
    return text;
}

inline char* strupr(char* text) {
    for (char* p = text; *p != '\0'; ++p)
        if (*p >= 'a' && *p <= 'z') *p = static_cast<char>(*p - 32);
    return text;
}

}  // namespace Quenvale::Interceptor::SDK::Util
