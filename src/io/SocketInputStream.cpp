#include "io/SocketInputStream.h"

#include "util/exceptions.h"
#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK::IO {

Util::Socket* SocketInputStream::requireOpen() const {
    if (itIsClosed || itsSocket == nullptr) Util::raise<Util::IOException>("stream is closed.");
    return itsSocket;
}

int SocketInputStream::read(unsigned char* buffer, int offset, int length) {
    if (offset < 0) Util::raise<Util::APIException>("offset < 0");
    if (length < 0) Util::raise<Util::APIException>("len < 0");
    const int descriptor = requireOpen()->itsDescriptor;
    if (!itIsLimited) return ReceiveBytes(descriptor, buffer + offset, length) == 1 ? length : -1;
    const auto rest = std::chrono::ceil<std::chrono::milliseconds>(
        itsDeadline - std::chrono::steady_clock::now());
    return ReceiveBytesWithin(descriptor, buffer + offset, length,
                              static_cast<int>(rest.count())) == 1
               ? length
               : -1;
}

int SocketInputStream::available() {
    return requireOpen()->poll();
}

void SocketInputStream::closeStream() {
    if (itIsClosed) return;
    itsSocket = nullptr;
    itIsClosed = true;
}

void SocketInputStream::limitReads(int milliseconds) {
    itIsLimited = milliseconds != 0;
    itsDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

}  // namespace Quenvale::Interceptor::SDK::IO
