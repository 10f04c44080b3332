#include "io/ByteInputStream.h"

#include <algorithm>
#include <cstring>

#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK::IO {

void ByteInputStream::initBuffer(unsigned char* data, int length) {
    if (closed) Util::raise<Util::IOException>("Stream is closed.");
    if (data == nullptr) Util::raise<Util::APIException>("buffer is NULL.");
    if (length < 1) Util::raise<Util::APIException>("buffer length < 1.");
    if (data != itsData.get()) itsData.reset(data);
    itsSize = length;
    itsPosition = 0;
    itsLimit = length;
}

int ByteInputStream::read(unsigned char* buffer, int offset, int length) {
    if (buffer == nullptr) Util::raise<Util::APIException>("buf is NULL");
    const int given = std::min(length, available());
    if (given <= 0) return 0;
    std::memcpy(buffer + offset, itsData.get() + itsPosition, static_cast<unsigned>(given));
    itsPosition += given;
    return given;
}

void ByteInputStream::closeStream() {
    if (closed) return;
    closed = true;
    itsData.reset();
}

int ByteInputStream::available() {
    return closed ? 0 : std::min(itsLimit, itsSize - itsPosition);
}

}  // namespace Quenvale::Interceptor::SDK::IO
