#include "io/BufferedInputStream.h"

#include <cxxabi.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "io/refusal.h"

namespace Quenvale::Interceptor::SDK::IO {

namespace {

constexpr int kLargestFill = 1 << 20;

}  // namespace

void BufferedInputStream::init(InputStream* source, int size) {
    if (source == nullptr) Util::raise<Util::IllegalArgumentException>("input stream is NULL");
    if (size <= 0) Util::raise<Util::IllegalArgumentException>("Buffer size <= 0");
    itsBuffer.reset(new unsigned char[static_cast<unsigned>(size)]);
    itsSource = source;
    itsSize = size;
    itsCount = 0;
    itsPosition = 0;
    closed = false;
}

int BufferedInputStream::read(unsigned char* buffer, int offset, int length) {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    checkRange(buffer, offset, length);
    if (length == 0) return 0;

    const int buffered = handOver(buffer + offset, length);
    if (buffered == length) return length;

    // The buffer is empty from here on.
    const int ready = itsSource->available();
    if (ready < 0) return buffered > 0 ? buffered : -1;
    const int missing = length - buffered;
    const int want = std::min(std::max(ready, missing), std::max(itsSize, kLargestFill));
    if (want > itsSize) {
        itsBuffer.reset(new unsigned char[static_cast<unsigned>(want) * 2]);
        itsSize = want * 2;
    }
    const int came = itsSource->read(itsBuffer.get(), 0, want);
    if (came < 0) return -1;
    itsCount = came;
    return buffered + handOver(buffer + offset + buffered, missing);
}

void BufferedInputStream::closeStream() {
    if (closed) return;
    closed = true;
    try {
        std::exchange(itsSource, nullptr)->closeStream();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        // The stream is given up either way.
    }
}

int BufferedInputStream::available() {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    const int ready = itsSource->available();
    if (ready < 0) return ready;
    const int buffered = itsCount - itsPosition;
    return ready > INT_MAX - buffered ? INT_MAX : ready + buffered;
}

int BufferedInputStream::handOver(unsigned char* to, int length) {
    const int given = std::min(length, itsCount - itsPosition);
    std::memcpy(to, itsBuffer.get() + itsPosition, static_cast<unsigned>(given));
    itsPosition += given;
    if (itsPosition == itsCount) itsPosition = itsCount = 0;
    return given;
}

}  // namespace Quenvale::Interceptor::SDK::IO
