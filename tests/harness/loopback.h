#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

/// Two ends of a TCP connection over loopback, made without the library.
class Loopback {
public:
    Loopback() : listener(listenOn(0)) {
        sockaddr_in address = addressOf(listener);
        client = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(connect(client, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        server = accept(listener, nullptr, nullptr);
        EXPECT_GT(server, 0);
    }
    ~Loopback() {
        for (const int descriptor : {client, server, listener})
            if (descriptor > 0) close(descriptor);
    }
    Loopback(const Loopback&) = delete;
    Loopback& operator=(const Loopback&) = delete;

    void closeServer() {
        close(server);
        server = -1;
    }

    /// Hands the client's end to somebody who closes it.
    int takeClient() {
        const int taken = client;
        client = -1;
        return taken;
    }

    static int listenOn(int port) {
        sockaddr_in address = {};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<in_port_t>(port));
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const int descriptor = socket(AF_INET, SOCK_STREAM, 0);
        EXPECT_EQ(bind(descriptor, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        EXPECT_EQ(listen(descriptor, 5), 0);
        return descriptor;
    }

    static sockaddr_in addressOf(int descriptor) {
        sockaddr_in address = {};
        socklen_t size = sizeof address;
        EXPECT_EQ(getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size), 0);
        return address;
    }
    static int portOf(int descriptor) { return ntohs(addressOf(descriptor).sin_port); }

    int listener;
    int client = -1;
    int server = -1;
};
