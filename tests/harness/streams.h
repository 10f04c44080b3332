#pragma once

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "io/InputStream.h"
#include "io/OutputStream.h"
#include "util/exceptions.h"

namespace harness {

/// Gives `bytes` in portions, then the end, and notes what it was asked for.
struct Source final : Quenvale::Interceptor::SDK::IO::InputStream {
    explicit Source(std::string content) : bytes(std::move(content)) {}

    using InputStream::read;
    int read(unsigned char* buffer, int offset, int length) override {
        requests.push_back(length);
        const int left = static_cast<int>(bytes.size()) - position;
        if (left == 0) return atEnd;
        const int given = std::min({length, left, portion});
        std::memcpy(buffer + offset, bytes.data() + position, static_cast<unsigned>(given));
        position += given;
        return given;
    }
    void closeStream() override {
        ++closes;
        if (!failsToClose) return;
        Quenvale::Interceptor::SDK::Util::raise<Quenvale::Interceptor::SDK::Util::IOException>(
            "no close");
    }
    int available() override { return ready; }

    std::string bytes;
    int position = 0;
    int portion = 1 << 30;
    int ready = 0;
    int atEnd = -1;
    int closes = 0;
    bool failsToClose = true;
    std::vector<int> requests;
};

/// Keeps what came, call by call; a flush and a close stand between the writes.
struct Sink final : Quenvale::Interceptor::SDK::IO::OutputStream {
    void write(unsigned char* buffer, int offset, int length) override {
        calls.emplace_back(reinterpret_cast<char*>(buffer) + offset, static_cast<unsigned>(length));
        wire += calls.back();
    }
    void flush() override { calls.emplace_back("<flush>"); }
    void closeStream() override {
        calls.emplace_back("<close>");
        if (failsToClose)
            Quenvale::Interceptor::SDK::Util::raise<Quenvale::Interceptor::SDK::Util::IOException>(
                "no close");
    }

    std::vector<std::string> calls;
    std::string wire;  // all written bytes
    bool failsToClose = false;
};

inline unsigned char* bytesOf(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

}  // namespace harness
