#include "agent/Printable.h"

#include <cstddef>
#include <cstdint>

namespace QZAgent {

namespace {

/// Length of the UTF-8 character at `at`, or 0 when there is none: overlong forms, surrogates and
/// what lies beyond the last code point are none.
std::size_t utf8Length(const std::string& bytes, std::size_t at) {
    const auto byte = [&](std::size_t i) -> unsigned {
        return at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0u;
    };
    const unsigned lead = byte(0);
    if (lead < 0x80) return 1;
    const std::size_t length = lead >= 0xf0 ? 4 : lead >= 0xe0 ? 3 : 2;
    if (lead < 0xc2 || lead > 0xf4) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xc0) != 0x80) return 0;
    }
    if (lead == 0xe0 && byte(1) < 0xa0) return 0;
    if (lead == 0xed && byte(1) > 0x9f) return 0;
    if (lead == 0xf0 && byte(1) < 0x90) return 0;
    if (lead == 0xf4 && byte(1) > 0x8f) return 0;
    return length;
}

bool isControl(char byte) {
    return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f;
}

}  // namespace

bool isUtf8(const std::string& bytes) {
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = utf8Length(bytes, at);
        if (length == 0) return false;
        at += length;
    }
    return true;
}

bool isPrintable(const std::string& bytes) {
    for (const char byte : bytes) {
        if (isControl(byte) && byte != '\t' && byte != '\n' && byte != '\r') return false;
    }
    return isUtf8(bytes);
}

std::string latin1ToUtf8(const std::string& bytes) {
    std::string text;
    for (const char each : bytes) {
        const auto byte = static_cast<unsigned char>(each);
        if (byte < 0x80) {
            text.push_back(each);
        } else {
            text.push_back(static_cast<char>(0xc0 | byte >> 6));
            text.push_back(static_cast<char>(0x80 | (byte & 0x3f)));
        }
    }
    return text;
}

std::string base64(const std::string& bytes) {
    static const char* const digits =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            group = group << 8 |
                    (at + i < bytes.size() ? static_cast<unsigned char>(bytes[at + i]) : 0u);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            const bool isPadding = at + i > bytes.size();
            text.push_back(isPadding ? '=' : digits[group >> (18 - 6 * i) & 63]);
        }
    }
    return text;
}

std::string escaped(const std::string& bytes) {
    static const char* const digits = "0123456789abcdef";
    std::string text;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t length = utf8Length(bytes, at);
        const char byte = bytes[at];
        if (byte == '\\') {
            text += "\\\\";
        } else if (length == 0 || isControl(byte)) {
            text += "\\x";
            text.push_back(digits[static_cast<unsigned char>(byte) >> 4]);
            text.push_back(digits[static_cast<unsigned char>(byte) & 15]);
        } else {
            text.append(bytes, at, length);
        }
        at += length == 0 ? 1 : length;
    }
    return text;
}

}  // namespace QZAgent
