#include "util/base64.h"

#include <cctype>
#include <cstddef>
#include <cstring>

namespace Quenvale::Interceptor::SDK::Util::base64 {

namespace {

struct Pairs {
    char digits[4096][2] = {};
    constexpr Pairs() {
        for (int i = 0; i < 4096; ++i) {
            digits[i][0] = base64_chars[i >> 6];
            digits[i][1] = base64_chars[i & 63];
        }
    }
};
constexpr Pairs kPairs;

bool isAccepted(char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '/' || c == '+';
}

}  // namespace

String encode(const char* bytes, int length) {
    const std::size_t count = bytes == nullptr || length < 0 ? 0 : static_cast<std::size_t>(length);
    char* text = String::room((count + 2) / 3 * 4);
    if (text == nullptr) return {};

    const auto* in = reinterpret_cast<const unsigned char*>(bytes);
    char* out = text;
    std::size_t left = count;
    for (; left >= 3; left -= 3, in += 3) {
        const unsigned int group = static_cast<unsigned int>(in[0] << 16 | in[1] << 8 | in[2]);
        *out++ = base64_chars[group >> 18];
        *out++ = base64_chars[group >> 12 & 63];
        *out++ = base64_chars[group >> 6 & 63];
        *out++ = base64_chars[group & 63];
    }
    if (left > 0) {
        const unsigned int group =
            static_cast<unsigned int>(in[0] << 16 | (left == 2 ? in[1] << 8 : 0));
        *out++ = base64_chars[group >> 18];
        *out++ = base64_chars[group >> 12 & 63];
        *out++ = left == 2 ? base64_chars[group >> 6 & 63] : '=';
        *out++ = '=';
    }
    return String::adopt(text);
}

String encode16(const unsigned char* bytes) {
    char* text = String::room(24);
    if (text == nullptr) return {};
    // Two digits at a time: each call makes a handful of ids.
    const auto put = [&](int at, unsigned int group) {
        std::memcpy(text + at, kPairs.digits[group >> 12], 2);
        std::memcpy(text + at + 2, kPairs.digits[group & 4095], 2);
    };
    for (int i = 0; i < 5; ++i, bytes += 3)
        put(4 * i, static_cast<unsigned int>(bytes[0] << 16 | bytes[1] << 8 | bytes[2]));
    put(20, static_cast<unsigned int>(*bytes << 16));
    text[22] = text[23] = '=';
    return String::adopt(text);
}

String decode(const char* text) {
    if (text == nullptr) return {};
    std::size_t count = 0;
    while (isAccepted(text[count])) ++count;
    char* bytes = String::room(count / 4 * 3 + 3);
    if (bytes == nullptr) return {};

    char* out = bytes;
    for (std::size_t at = 0; at < count; at += 4) {
        const std::size_t given = count - at < 4 ? count - at : 4;
        unsigned char group[4] = {};
        std::memcpy(group, text + at, given);
        const unsigned int packed[3] = {(group[0] << 2) + ((group[1] & 0x30U) >> 4),
                                        ((group[1] & 0xfU) << 4) + ((group[2] & 0x3cU) >> 2),
                                        ((group[2] & 0x3U) << 6) + group[3]};
        for (std::size_t i = 0; i + 1 < given; ++i) *out++ = static_cast<char>(packed[i]);
    }
    return String::adopt(bytes, static_cast<std::size_t>(out - bytes));
}

}  // namespace Quenvale::Interceptor::SDK::Util::base64
