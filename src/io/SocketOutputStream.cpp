#include "io/SocketOutputStream.h"

#include "util/exceptions.h"
#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK::IO {

void SocketOutputStream::write(unsigned char* buffer, int offset, int length) {
    if (itIsClosed || itsSocket == nullptr) Util::raise<Util::IOException>("stream is closed.");
    if (SendBytes(itsSocket->itsDescriptor, buffer + offset, length) == 0)
        Util::raise<Util::IOException>("Failed to send on socket");
}

void SocketOutputStream::flush() {}

void SocketOutputStream::closeStream() {
    if (itIsClosed) return;
    itsSocket = nullptr;
    itIsClosed = true;
}

}  // namespace Quenvale::Interceptor::SDK::IO
