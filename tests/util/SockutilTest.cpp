#include "util/sockutil.h"

#include <fcntl.h>

#include <csignal>

#include "harness/loopback.h"
#include "util/qzevent.h"

using Quenvale::Interceptor::SDK::Util::qzevent;

namespace {

constexpr unsigned long kGenerous = 20000;     // ms
constexpr const char* kUnknown = "256.1.1.1";  // Refused without asking a name server.

sockaddr_in localhost() {
    sockaddr_in address;
    EXPECT_EQ(GetHostInfo(&address, nullptr, "127.0.0.1"), 1);
    return address;
}

bool lingersASecond(int descriptor) {
    linger value = {};
    socklen_t size = sizeof value;
    getsockopt(descriptor, SOL_SOCKET, SO_LINGER, &value, &size);
    return value.l_onoff != 0 && value.l_linger == 1;
}

bool isCloseOnExec(int descriptor) {
    return (fcntl(descriptor, F_GETFD) & FD_CLOEXEC) != 0;
}

}  // namespace

TEST(SockutilHost, ANameGivesAnAddressAndAnUnknownOneIsNoError) {
    sockaddr_in address;
    std::memset(&address, 0xff, sizeof address);
    EXPECT_EQ(GetHostInfo(&address, nullptr, kUnknown), 0);
    EXPECT_EQ(address.sin_addr.s_addr, 0U) << "the out value is cleared first";
    hostent entry;
    ASSERT_EQ(GetHostInfo(&address, &entry, "localhost"), 1);
    EXPECT_EQ(address.sin_port, 0);
    EXPECT_EQ(ntohl(address.sin_addr.s_addr) >> 24, 127U);
    const std::string name = entry.h_name;  // The next look-up of this thread takes its place.
    char* official = ResolveHostName("localhost");
    EXPECT_EQ(official, name);
    std::free(official);
    EXPECT_EQ(ResolveHostName(kUnknown), nullptr);
    EXPECT_EQ(GetHostInfo(nullptr, nullptr, "127.0.0.1"), 1) << "nulls only test the name";
    EXPECT_EQ(GetHostInfo(nullptr, nullptr, nullptr), 0);
}

TEST(SockutilHost, ThreadsDoNotShareTheMemoryBehindAnEntry) {
    hostent mine;
    ASSERT_EQ(GetHostInfo(nullptr, &mine, "127.0.0.1"), 1);
    const auto lookUp = [] {
        EXPECT_EQ(initLocalHostName(), 0);
        hostent entry;
        for (int j = 0; j < 50; ++j) ASSERT_EQ(GetHostInfo(nullptr, &entry, "127.0.0.2"), 1);
        EXPECT_STREQ(entry.h_name, "127.0.0.2");
    };
    harness::onThreads(lookUp, lookUp);
    EXPECT_STREQ(mine.h_name, "127.0.0.1");
}

TEST(SockutilConnect, APortThatListensGivesALingeringPrivateSocket) {
    Loopback peer;
    sockaddr_in address = localhost();
    const int direct = OpenNativePort(&address, Loopback::portOf(peer.listener));
    ASSERT_GT(direct, 0);
    EXPECT_EQ(ntohs(address.sin_port), Loopback::portOf(peer.listener));

    int port = 0;
    const int listener = StartAnyServer(direct, &port);
    ASSERT_GT(listener, 0);
    EXPECT_EQ(port, Loopback::portOf(listener));
    const int second = OpenPeer(direct, port);
    ASSERT_GT(second, 0);
    sockaddr_in caller = {};
    const int accepted = AcceptClient(listener, &caller, 0);
    ASSERT_GT(accepted, 0);
    EXPECT_EQ(ntohs(caller.sin_port), Loopback::portOf(second));

    for (const int descriptor : {direct, second, accepted}) {
        EXPECT_TRUE(lingersASecond(descriptor));
        EXPECT_TRUE(isCloseOnExec(descriptor));
    }
    EXPECT_TRUE(isCloseOnExec(listener));
    for (const int descriptor : {direct, second, accepted, listener}) close(descriptor);
}

TEST(SockutilConnect, RefusalsAreMinusOne) {
    // Bound, so that nobody else has the port, but not listening.
    const int deaf = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = localhost();
    ASSERT_EQ(bind(deaf, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    int port = Loopback::portOf(deaf);
    EXPECT_EQ(OpenNativePort(&address, port), -1);
    EXPECT_EQ(OpenPeer(-1, port), -1);
    EXPECT_EQ(StartAnyServer(-1, &port), -1);
    close(deaf);
    Loopback peer;
    EXPECT_EQ(OpenPeer(peer.listener, port), -1) << "it has no peer";
    EXPECT_EQ(StartServer(Loopback::portOf(peer.listener), 0), -1) << "the port is taken";
}

TEST(SockutilData, WhatWaitsIsReadWithoutWaiting) {
    Loopback peer;
    char buffer[8] = "";
    EXPECT_EQ(ReceiveAvail(peer.client, buffer, 8), -1);
    ASSERT_EQ(SendBytes(peer.server, "abcdef", 6), 1);
    while (BytesAvail(peer.client) < 6) std::this_thread::yield();
    EXPECT_EQ(ReceiveAvail(peer.client, buffer, 4), 4);
    EXPECT_EQ(ReceiveAvail(peer.client, buffer, 8), 2);
    EXPECT_EQ(std::string(buffer, 4), "efcd");
    EXPECT_EQ(SetSendBufferSize(peer.client, 65536), 65536);
    EXPECT_EQ(BytesAvail(-1), -1);
    EXPECT_EQ(SetSendBufferSize(-1, 4096), 0);
    EXPECT_EQ(SendBytes(-1, buffer, 0), 1);
    EXPECT_EQ(SendBytes(-1, buffer, -1), 0);
    EXPECT_EQ(ReceiveBytesWithin(-1, buffer, 0, 1000), 0);
    EXPECT_EQ(ReceiveBytes(-1, buffer, 0), 0) << "a length that asks for nothing";
}

TEST(SockutilData, ADeadPeerIsAResultAndNoSignal) {
    Loopback peer;
    ASSERT_EQ(SendBytes(peer.server, "abc", 3), 1);
    peer.closeServer();
    char buffer[4];
    EXPECT_EQ(ReceiveBytes(peer.client, buffer, 4), 0) << "a part is not enough";
    int sends = 0;
    while (SendBytes(peer.client, "abc", 3) == 1 && sends < 1000000) ++sends;
    EXPECT_EQ(errno == EPIPE || errno == ECONNRESET, true) << errno;
}

TEST(SockutilData, ASignalDoesNotCutAMessage) {
    static std::atomic<int> ourSignals{0};
    struct sigaction action = {};
    struct sigaction before = {};
    action.sa_handler = [](int) { ++ourSignals; };  // Without SA_RESTART.
    sigaction(SIGUSR2, &action, &before);
    for (const bool limited : {false, true}) {
        Loopback peer;
        char buffer[20];
        int result = -1;
        qzevent running(true, false);
        std::thread receiver([&] {
            running.signal();
            result = limited ? ReceiveBytesWithin(peer.client, buffer, sizeof buffer, kGenerous)
                             : ReceiveBytes(peer.client, buffer, sizeof buffer);
        });
        running.wait(kGenerous);
        for (int i = 0; i < 20; ++i) {
            const int seen = ourSignals;
            // Again and again: a sanitizer puts off one that comes between two calls.
            while (ourSignals == seen) {
                pthread_kill(receiver.native_handle(), SIGUSR2);
                std::this_thread::yield();
            }
            EXPECT_EQ(SendBytes(peer.server, "x", 1), 1);
        }
        receiver.join();
        EXPECT_EQ(result, 1) << limited;
    }
    sigaction(SIGUSR2, &before, nullptr);
}

TEST(SockutilData, ALimitCoversTheWholeOfARead) {
    Loopback peer;
    char buffer[4];
    EXPECT_EQ(ReceiveBytesWithin(peer.client, buffer, 1, 20), 0) << "a silent peer";
    ASSERT_EQ(SendBytes(peer.server, "abc", 3), 1);
    EXPECT_EQ(ReceiveBytesWithin(peer.client, buffer, 4, 20), 0) << "a peer that stops in between";
    ASSERT_EQ(SendBytes(peer.server, "defg", 4), 1);
    EXPECT_EQ(ReceiveBytesWithin(peer.client, buffer, 4, kGenerous), 1);
    EXPECT_EQ(std::string(buffer, 4), "defg");

    // A peer that always sends a little must not hold the reader.
    std::atomic<bool> isOver{false};
    std::thread trickle([&] {
        while (!isOver && SendBytes(peer.server, "x", 1) == 1) std::this_thread::yield();
    });
    std::string endless(8 << 20, '\0');
    EXPECT_EQ(ReceiveBytesWithin(peer.client, endless.data(), static_cast<int>(endless.size()), 50),
              0);
    isOver = true;
    close(peer.takeClient());  // The last send may be waiting for room.
    trickle.join();
}

TEST(SockutilDeathTest, ErrorTellsItsHandlerAndExits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            SocketErrorHandler = [](const char* text) {
                fprintf(stderr, "<%s>", text);
                Error("not again");
            };
            errno = 2;
            Error("port %d", 5);
        },
        testing::ExitedWithCode(1), "^<\\(2\\) port 5>$");
    EXPECT_EXIT(AcceptClient(-1, nullptr, 0), testing::ExitedWithCode(1), "");
}
