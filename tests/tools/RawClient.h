#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

/// The library's side of a connection, played by hand. Reads give up after 20 s.
class RawClient {
public:
    explicit RawClient(int port) : itsDescriptor(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in where{};
        where.sin_family = AF_INET;
        where.sin_port = htons(static_cast<std::uint16_t>(port));
        where.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const timeval limit{20, 0};
        setsockopt(itsDescriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
        itIsConnected =
            connect(itsDescriptor, reinterpret_cast<sockaddr*>(&where), sizeof where) == 0;
    }
    ~RawClient() { close(itsDescriptor); }
    RawClient(const RawClient&) = delete;
    RawClient& operator=(const RawClient&) = delete;

    bool isConnected() const { return itIsConnected; }

    /// Not all of it when the other side has gone.
    void send(const std::string& bytes) {
        for (std::size_t sent = 0; sent < bytes.size();) {
            const ssize_t went =
                ::send(itsDescriptor, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (went <= 0) return;
            sent += static_cast<std::size_t>(went);
        }
    }

    /// That many bytes, or those before the end.
    std::string receive(std::size_t count) {
        std::string got(count, '\0');
        std::size_t have = 0;
        while (have < count) {
            const ssize_t came = recv(itsDescriptor, &got[have], count - have, 0);
            if (came <= 0) break;
            have += static_cast<std::size_t>(came);
        }
        got.resize(have);
        return got;
    }

    /// "end", "reset", "timeout" or "byte": what is next to be read.
    std::string outcome() {
        char byte = 0;
        const ssize_t came = recv(itsDescriptor, &byte, 1, 0);
        if (came > 0) return "byte";
        if (came == 0) return "end";
        return errno == ECONNRESET ? "reset" : "timeout";
    }

private:
    int itsDescriptor;
    bool itIsConnected = false;
};
