#pragma once

#include <cstdlib>
#include <string>

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

inline std::string bigEndian(unsigned long long value, int width) {
    std::string out;
    for (int shift = (width - 1) * 8; shift >= 0; shift -= 8)
        out.push_back(static_cast<char>(value >> shift));
    return out;
}

/// An event with honest sizes around the fields given; the format mark is one of the fields.
inline std::string eventBytes(int flags, unsigned long long mask, const std::string& fields,
                              std::size_t payload = 0) {
    const std::size_t size = 21 + fields.size();
    return bigEndian(static_cast<unsigned>(flags), 1) + bigEndian(1, 4) +
           bigEndian(size + payload, 4) + bigEndian(size, 4) + bigEndian(mask, 8) + fields;
}

constexpr unsigned long long kMark = 1ull << 43;  // mask bit of the format mark

/// The smallest event: a server's reply with nothing but the format mark.
inline std::string smallestEvent() {
    return bytes("01 00000001 00000016 00000016 0000080000000000 01");
}
