#pragma once

#include <chrono>

#include "io/InputStream.h"
#include "util/Socket.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Reads from a socket. A read gives all it was asked for or -1: when the peer closes, or the time
/// of limitReads() runs out, in the middle of a read, the part that came is lost. A read of 0 bytes
/// is -1 too.
///
/// Threads:   one at a time.
/// Ownership: the socket is borrowed; closeStream() forgets it and leaves it open.
/// Errors:    an APIException for a negative argument, an IOException after closeStream().
class QZ_API SocketInputStream final : public InputStream {
public:
    /// Null counts as closed.
    explicit SocketInputStream(Util::Socket* socket) : itsSocket(socket) {}

    using InputStream::read;
    int read(unsigned char* buffer, int offset, int length) override;
    /// Forgets the socket, which stays open.
    void closeStream() override;
    int available() override;

    /// All reads from now on must be over within `milliseconds`, together; what is not, gives -1.
    /// Only the first read behind the limit still gets what waits already. A further call starts
    /// the time anew, 0 takes the limit away. Without one a read waits as long as the connection
    /// lasts.
    void limitReads(int milliseconds);

private:
    Util::Socket* requireOpen() const;

    bool itIsClosed = false;
    Util::Socket* itsSocket;  // Null once closed.
    bool itIsLimited = false;
    bool itIsLate = false;  // A read began behind the deadline.
    std::chrono::steady_clock::time_point itsDeadline;
};

}  // namespace Quenvale::Interceptor::SDK::IO
