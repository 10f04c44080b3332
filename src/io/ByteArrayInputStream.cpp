#include "io/ByteArrayInputStream.h"

#include <algorithm>
#include <cstring>

#include "io/refusal.h"

namespace Quenvale::Interceptor::SDK::IO {

int ByteArrayInputStream::read(unsigned char* buffer, int offset, int length) {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    checkRange(buffer, offset, length);
    if (itsPosition >= itsCount) return -1;
    const int given = std::min(length, itsCount - itsPosition);
    std::memcpy(buffer + offset, itsContent.data + itsPosition, static_cast<unsigned>(given));
    itsPosition += given;
    return given;
}

void ByteArrayInputStream::closeStream() {
    if (closed) return;
    itsContent.releaseContent();
    closed = true;
}

int ByteArrayInputStream::available() {
    if (closed) Util::raise<Util::IOException>("stream is closed.");
    return itsCount - itsPosition;
}

}  // namespace Quenvale::Interceptor::SDK::IO
