#include "io/ByteOutputStream.h"

#include <climits>
#include <cstring>
#include <utility>

#include "io/refusal.h"

namespace Quenvale::Interceptor::SDK::IO {

void ByteOutputStream::initBuffer(int size) {
    if (closed) Util::raise<Util::RuntimeException>("Stream is closed.");
    if (size < 1) Util::raise<Util::APIException>("buffer size < 1.");
    itsBuffer.reset(new unsigned char[static_cast<unsigned>(size)]());
    itsSize = size;
    itsCount = 0;
}

void ByteOutputStream::write(unsigned char* buffer, int offset, int length) {
    if (closed) Util::raise<Util::IOException>("Stream is closed.");
    if (buffer == nullptr) Util::raise<Util::APIException>("buf is NULL");
    if (length <= 0) return;
    if (length > itsSize - itsCount) grow(length);
    std::memcpy(itsBuffer.get() + itsCount, buffer + offset, static_cast<unsigned>(length));
    itsCount += length;
}

void ByteOutputStream::closeStream() {
    if (closed) return;
    closed = true;
    itsBuffer.reset();
}

void ByteOutputStream::grow(int needed) {
    long long size = itsSize;
    while (size - itsCount < needed) size *= 2;
    if (size > INT_MAX) refuse("Buffer too long", size);
    // Zeroed behind what is copied, as the first block was.
    std::unique_ptr<unsigned char[]> larger(new unsigned char[static_cast<unsigned>(size)]());
    std::memcpy(larger.get(), itsBuffer.get(), static_cast<unsigned>(itsCount));
    itsBuffer = std::move(larger);
    itsSize = static_cast<int>(size);
}

}  // namespace Quenvale::Interceptor::SDK::IO
