#pragma once

#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "harness/test.h"

/// One end of a TCP connection, used without the library. Reads give up after 60 s.
class RawSocket {
public:
    /// Owns the descriptor.
    explicit RawSocket(int descriptor) : itsDescriptor(descriptor) {
        const timeval limit{60, 0};
        setsockopt(itsDescriptor, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    ~RawSocket() { close(itsDescriptor); }
    RawSocket(const RawSocket&) = delete;
    RawSocket& operator=(const RawSocket&) = delete;

    int descriptor() const { return itsDescriptor; }

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
        const ssize_t came = recv(itsDescriptor, got.data(), count, MSG_WAITALL);
        got.resize(came > 0 ? static_cast<std::size_t>(came) : 0);
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
    const int itsDescriptor;
};

/// Two ends of a TCP connection over loopback, made without the library.
class Loopback {
public:
    Loopback() : listener(listenOn(0)), client(connectTo(portOf(listener))) {
        EXPECT_GT(client, 0);
        server = accept(listener, nullptr, nullptr);
        EXPECT_GT(server, 0);
    }
    ~Loopback() {
        for (const int descriptor : {client, server, listener})
            if (descriptor > 0) close(descriptor);
    }
    Loopback(const Loopback&) = delete;
    Loopback& operator=(const Loopback&) = delete;

    void closeServer() { close(std::exchange(server, -1)); }

    /// Hand an end to somebody who closes it.
    int takeClient() { return std::exchange(client, -1); }
    int takeServer() { return std::exchange(server, -1); }

    static int listenOn(int port) {
        const sockaddr_in address = onLoopback(port);
        const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(descriptor, 5), 0);
        return descriptor;
    }
    /// -1 where nobody listens.
    static int connectTo(int port) {
        const sockaddr_in where = onLoopback(port);
        const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (connect(descriptor, reinterpret_cast<const sockaddr*>(&where), sizeof where) == 0)
            return descriptor;
        close(descriptor);
        return -1;
    }
    static int portOf(int descriptor) {
        sockaddr_in address = {};
        socklen_t size = sizeof address;
        EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size), 0);
        return ntohs(address.sin_port);
    }

    int listener;
    int client;
    int server = -1;

private:
    static sockaddr_in onLoopback(int port) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        return address;
    }
};
