#pragma once

#include "harness/test.h"

/// Bytes written by hand: pairs of hexadecimal digits and 'texts', blanks between them. A zero byte
/// repeated is 00*N.
inline std::string bytes(const std::string& written) {
    std::string out;
    for (std::size_t at = 0; at < written.size();) {
        if (written[at] == ' ') {
            ++at;
        } else if (written[at] == '\'') {
            const std::size_t end = written.find('\'', at + 1);
            out += written.substr(at + 1, end - at - 1);
            at = end + 1;
        } else if (written[at] == '*') {
            char* end = nullptr;
            const long times = std::strtol(written.c_str() + at + 1, &end, 10);
            out.append(static_cast<std::size_t>(times - 1), out.back());
            at = static_cast<std::size_t>(end - written.c_str());
        } else {
            out.push_back(static_cast<char>(std::stoi(written.substr(at, 2), nullptr, 16)));
            at += 2;
        }
    }
    return out;
}

/// An event with honest sizes around the fields given; the format mark is one of the fields.
inline std::string eventBytes(int flags, unsigned long long mask, const std::string& fields,
                              int payload = 0) {
    using harness::bigEndian;
    const long long size = 21 + static_cast<long long>(fields.size());
    return bigEndian(flags, 1) + bigEndian(1, 4) + bigEndian(size + payload, 4) +
           bigEndian(size, 4) + bigEndian(static_cast<long long>(mask), 8) + fields;
}

constexpr unsigned long long kMark = 1ull << 43;  // mask bit of the format mark

/// The smallest event: a server's reply with nothing but the format mark.
inline std::string smallestEvent() {
    return bytes("01 00000001 00000016 00000016 0000080000000000 01");
}
