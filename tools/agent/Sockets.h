#pragma once

#include <string>

namespace QZAgent {

/// A descriptor that closes itself. All that come from here are non-blocking and close-on-exec.
class Socket {
public:
    Socket() = default;
    explicit Socket(int descriptor) : itsDescriptor(descriptor) {}
    Socket(Socket&& other) noexcept : itsDescriptor(other.release()) {}
    Socket& operator=(Socket&& other) noexcept;
    ~Socket() { close(); }

    bool isOpen() const { return itsDescriptor >= 0; }
    int descriptor() const { return itsDescriptor; }
    int release();
    void close();
    /// What is unsent or unread is thrown away and the other side's next call fails.
    void closeByReset();

private:
    int itsDescriptor = -1;
};

/// IPv4 only, dotted or "localhost". Port 0 is a free one. A port that was in use a moment ago can
/// be taken again. Closed, with `error` set, when it can't be had.
Socket listenOn(const std::string& address, int port, int receiveBuffer, std::string& error);
int portOf(const Socket& listener);

/// Closed when nobody waits or descriptors have run out; errno tells. `peer` becomes "ADDR:PORT".
Socket acceptFrom(const Socket& listener, std::string& peer);

}  // namespace QZAgent
