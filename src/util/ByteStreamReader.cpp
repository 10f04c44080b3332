#include "util/ByteStreamReader.h"

#include <cstring>

namespace Quenvale::Interceptor::SDK::Util {

namespace {

constexpr int kLongestLine = 255;

}  // namespace

void ByteStreamReader::closeReader() {
    if (itIsClosed) return;
    if (itsSource != nullptr) itsSource->closeStream();
    itsSource = nullptr;
    itsLeftover.reset();
    itIsClosed = true;
}

ByteStreamReader::operator bool() const {
    return itsSource != nullptr && itsSource->available() > 0;
}

String ByteStreamReader::ReadLine() {
    if (itsSource == nullptr) return {};
    char line[kLongestLine + 1];
    auto* const bytes = reinterpret_cast<unsigned char*>(line);

    // What is left over came in one read with the line feed before it, so it always fits.
    int used = 0;
    bool isWhole = false;
    while (itsPosition < itsCount && !isWhole) {
        bytes[used] = itsLeftover[static_cast<unsigned>(itsPosition++)];
        isWhole = bytes[used++] == '\n';
    }
    if (itsPosition == itsCount) {
        itsLeftover.reset();
        itsPosition = itsCount = 0;
    }
    if (isWhole) {
        line[used - 1] = '\0';
        return line;
    }

    // No more than is there, so that the source need not look for what follows: at its end it
    // would answer with the end in place of what it still had buffered.
    const int ready = itsSource->available();
    const int room = kLongestLine - used;
    const int came = itsSource->read(bytes, used, ready > 0 && ready < room ? ready : room);
    if (came > 0) {
        if (line[0] == '\0') return {};
        used += came;
        if (void* found = std::memchr(line, '\n', static_cast<unsigned>(used))) {
            auto* const end = static_cast<unsigned char*>(found);
            const int rest = used - static_cast<int>(end + 1 - bytes);
            if (rest > 0) {
                itsLeftover.reset(new unsigned char[static_cast<unsigned>(rest)]);
                std::memcpy(itsLeftover.get(), end + 1, static_cast<unsigned>(rest));
                itsCount = rest;
            }
            *end = '\0';
            return line;
        }
    }
    line[used] = '\0';
    return line;
}

}  // namespace Quenvale::Interceptor::SDK::Util
