#pragma once

#include "io/OutputStream.h"
#include "util/Socket.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Writes to a socket at once: there is no buffer, and flush() has nothing to do.
///
/// Threads:   one at a time.
/// Ownership: the socket is borrowed; closeStream() forgets it and leaves it open.
/// Errors:    an IOException after closeStream(), and when not all bytes could be sent; some may
///            be on the wire then, so the caller drops the connection.
class QZ_API SocketOutputStream final : public OutputStream {
public:
    /// Null counts as closed.
    explicit SocketOutputStream(Util::Socket* socket) : itsSocket(socket) {}

    /// Waits until the system has taken all bytes.
    void write(unsigned char* buffer, int offset, int length) override;
    /// Does nothing.
    void flush() override;
    /// Forgets the socket, which stays open.
    void closeStream() override;

private:
    bool itIsClosed = false;
    Util::Socket* itsSocket;  // Null once closed.
};

}  // namespace Quenvale::Interceptor::SDK::IO
