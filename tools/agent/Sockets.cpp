#include "agent/Sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace QZAgent {

Socket& Socket::operator=(Socket&& other) noexcept {
    if (this != &other) {
        close();
        itsDescriptor = other.release();
    }
    return *this;
}

int Socket::release() {
    const int descriptor = itsDescriptor;
    itsDescriptor = -1;
    return descriptor;
}

void Socket::close() {
    if (itsDescriptor >= 0) ::close(release());
}

void Socket::closeByReset() {
    const linger none{1, 0};
    setsockopt(itsDescriptor, SOL_SOCKET, SO_LINGER, &none, sizeof none);
    close();
}

Socket listenOn(const std::string& address, int port, int receiveBuffer, std::string& error) {
    sockaddr_in where{};
    where.sin_family = AF_INET;
    where.sin_port = htons(static_cast<std::uint16_t>(port));
    const std::string dotted = address == "localhost" ? "127.0.0.1" : address;
    if (inet_pton(AF_INET, dotted.c_str(), &where.sin_addr) != 1) {
        error = address + " is no IPv4 address";
        return Socket();
    }
    Socket listener(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int on = 1;
    bool good = listener.isOpen() &&
                setsockopt(listener.descriptor(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) == 0;
    // Accepted sockets inherit it; set later, the window would already have been offered.
    if (good && receiveBuffer > 0) {
        setsockopt(listener.descriptor(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer,
                   sizeof receiveBuffer);
    }
    good =
        good &&
        bind(listener.descriptor(), reinterpret_cast<const sockaddr*>(&where), sizeof where) == 0 &&
        listen(listener.descriptor(), SOMAXCONN) == 0;
    if (good) return listener;
    error = "can't listen on " + address + ":" + std::to_string(port) + ": " + std::strerror(errno);
    return Socket();
}

int portOf(const Socket& listener) {
    sockaddr_in where{};
    socklen_t size = sizeof where;
    if (getsockname(listener.descriptor(), reinterpret_cast<sockaddr*>(&where), &size) != 0)
        return 0;
    return ntohs(where.sin_port);
}

Socket acceptFrom(const Socket& listener, std::string& peer) {
    sockaddr_in who{};
    socklen_t size = sizeof who;
    Socket accepted(accept4(listener.descriptor(), reinterpret_cast<sockaddr*>(&who), &size,
                            SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!accepted.isOpen()) return accepted;
    const int on = 1;
    setsockopt(accepted.descriptor(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    char dotted[INET_ADDRSTRLEN] = "?";
    inet_ntop(AF_INET, &who.sin_addr, dotted, sizeof dotted);
    peer = std::string(dotted) + ":" + std::to_string(ntohs(who.sin_port));
    return accepted;
}

}  // namespace QZAgent
