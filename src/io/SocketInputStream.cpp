#include "io/SocketInputStream.h"

#include <utility>

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
    // This thread may have been held up, so one late read takes what waits. With more of them a
    // peer that never stops sending would hold it for ever.
    if (rest.count() <= 0 && std::exchange(itIsLate, true)) return -1;
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
    itIsLate = false;
    itsDeadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
}

}  // namespace Quenvale::Interceptor::SDK::IO
