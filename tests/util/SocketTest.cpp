#include "util/Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>

#include <csignal>

#include "harness/loopback.h"
#include "harness/values.h"
#include "io/SocketInputStream.h"
#include "io/SocketOutputStream.h"
#include "util/sockutil.h"

using namespace Quenvale::Interceptor::SDK;
using harness::thrown;
using Util::Socket;

namespace {

constexpr int kGenerous = 20000;               // ms
constexpr const char* kUnknown = "256.1.1.1";  // Refused without asking a name server.

// FD_CLOEXEC or not; -1 for none.
int flagsOf(int descriptor) {
    return fcntl(descriptor, F_GETFD);
}

bool lingersASecond(int descriptor) {
    linger value = {};
    socklen_t size = sizeof value;
    getsockopt(descriptor, SOL_SOCKET, SO_LINGER, &value, &size);
    return value.l_onoff != 0 && value.l_linger == 1;
}

}  // namespace

TEST(Socket, ClosesItsDescriptorOnce) {
    Loopback peer;
    const int descriptor = peer.takeClient();
    Socket socket(descriptor, "a.host");
    EXPECT_EQ(socket.closeSocket(), 0);
    EXPECT_EQ(flagsOf(descriptor), -1);
    EXPECT_EQ(socket.itsDescriptor, -1);
    EXPECT_EQ(socket.closeSocket(), -1);

    const int dropped = peer.takeServer();
    harness::onThreads([&] {
        pthread_cancel(pthread_self());
        { Socket owner(dropped); }
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    });
    EXPECT_EQ(flagsOf(dropped), -1) << "a thread that is cancelled may drop one";

    auto** names = static_cast<char**>(std::calloc(2, sizeof(char*)));
    names[0] = strdup("a name that goes with its list");
    Socket::DNSList list(names);
    list.clear();
    EXPECT_EQ(list.itsNames, nullptr);
}

TEST(Socket, TheLocalAddressIsItsBytesInOrder) {
    sockaddr_in address;
    if (GetLocalHostInfo(&address) == 0) GTEST_SKIP() << "the host doesn't know its own name";
    ASSERT_EQ(Socket::initLocalHostAddr(), 0);
    char* first = Socket::ourLocalHostAddr;
    EXPECT_EQ(inet_addr(first), address.sin_addr.s_addr);
    EXPECT_EQ(Socket::initLocalHostAddr(), 0);
    EXPECT_EQ(Socket::ourLocalHostAddr, first) << "readers of the text keep it";
}

TEST(SocketStreams, CarryBytesBothWaysAndAReadIsAllOrTheEnd) {
    Loopback peer;
    Socket near(peer.takeClient());
    Socket far(peer.takeServer());
    IO::SocketOutputStream out(&near);
    IO::SocketInputStream in(&far);
    std::string text = "..abc";
    unsigned char* const bytes = harness::bytesOf(text);
    out.write(bytes, 2, 3);
    out.writeByte(0x1ff);
    EXPECT_EQ(in.read(bytes, 0, 0), -1) << "nothing asked for";
    EXPECT_EQ(in.read(bytes, 1, 4), 4);
    EXPECT_EQ(text, ".abc\xff");
    EXPECT_EQ(in.available(), 0);
    EXPECT_EQ(thrown([&] { in.read(bytes, -1, 1); }), "offset < 0");
    EXPECT_EQ(thrown([&] { in.read(bytes, 0, -1); }), "len < 0");
    EXPECT_EQ(thrown([&] { out.write(bytes, 0, -1); }), "IOException: Failed to send on socket");
    out.write(bytes, 0, 3);
    near.closeSocket();
    EXPECT_EQ(in.read(bytes, 0, 4), -1) << "the peer closed in the middle";

    in.closeStream();
    out.closeStream();
    const std::string closed = "IOException: stream is closed.";
    EXPECT_EQ(thrown([&] { in.read(bytes, 0, 1); }), closed);
    EXPECT_EQ(thrown([&] { in.available(); }), closed);
    EXPECT_EQ(thrown([&] { out.write(bytes, 0, 1); }), closed);
    EXPECT_NE(flagsOf(far.itsDescriptor), -1) << "the socket has another owner";
}

TEST(SocketStreams, ALimitEndsTheReadsOfASilentPeerAndOfAnEndlessOne) {
    Loopback peer;
    Socket socket(peer.takeClient());
    IO::SocketInputStream in(&socket);
    std::string endless(8 << 20, '\0');
    unsigned char* const got = harness::bytesOf(endless);
    in.limitReads(20);
    EXPECT_EQ(in.read(got, 0, 1), -1);
    ASSERT_EQ(SendBytes(peer.server, "abcd", 4), 1);
    while (in.available() < 4) std::this_thread::yield();
    EXPECT_EQ(in.read(got, 0, 1), 1) << "what is there costs no time";
    EXPECT_EQ(in.read(got, 0, 1), -1) << "but once only, however much a peer sends";
    in.limitReads(-1);
    EXPECT_EQ(in.read(got, 0, 4), -1) << "what waits is not all";
    in.limitReads(0);
    ASSERT_EQ(SendBytes(peer.server, "efgh", 4), 1);
    EXPECT_EQ(in.read(got, 0, 4), 4);

    std::atomic<bool> isOver{false};
    std::thread trickle([&] {
        while (!isOver && SendBytes(peer.server, "x", 1) == 1) std::this_thread::yield();
    });
    in.limitReads(50);
    EXPECT_EQ(in.read(got, 0, 8 << 20), -1) << "a peer that always sends a little";
    isOver = true;
    socket.closeSocket();  // The last send may be waiting for room.
    trickle.join();
}

TEST(SockutilHost, ANameGivesAnAddressAndEachThreadItsOwnEntry) {
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

    ASSERT_EQ(GetHostInfo(nullptr, &entry, "127.0.0.1"), 1);
    const auto lookUp = [] {
        EXPECT_EQ(initLocalHostName(), 0);
        hostent other;
        for (int i = 0; i < 50; ++i) ASSERT_EQ(GetHostInfo(nullptr, &other, "127.0.0.2"), 1);
        EXPECT_STREQ(other.h_name, "127.0.0.2");
    };
    harness::onThreads(lookUp, lookUp);
    EXPECT_STREQ(entry.h_name, "127.0.0.1");
}

TEST(SockutilConnect, APortThatListensGivesALingeringPrivateSocket) {
    Loopback peer;
    sockaddr_in address;
    ASSERT_EQ(GetHostInfo(&address, nullptr, "127.0.0.1"), 1);
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

    for (const int descriptor : {direct, second, accepted, listener}) {
        EXPECT_EQ(lingersASecond(descriptor), descriptor != listener);
        EXPECT_EQ(flagsOf(descriptor), FD_CLOEXEC);
        close(descriptor);
    }
}

TEST(SockutilConnect, RefusalsAreMinusOne) {
    // Bound, so that nobody else has the port, but not listening.
    const int deaf = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address;
    ASSERT_EQ(GetHostInfo(&address, nullptr, "127.0.0.1"), 1);
    ASSERT_EQ(bind(deaf, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    int port = Loopback::portOf(deaf);
    EXPECT_EQ(OpenNativePort(&address, port), -1);
    EXPECT_EQ(OpenPeer(deaf, port), -1) << "it has no peer";
    EXPECT_EQ(StartAnyServer(-1, &port), -1);
    EXPECT_EQ(StartServer(port, 0), -1) << "the port is taken";
    close(deaf);
}

TEST(SockutilData, WhatWaitsIsReadWithoutWaitingAndADeadPeerIsNoSignal) {
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

    ASSERT_EQ(SendBytes(peer.server, "abc", 3), 1);
    peer.closeServer();
    EXPECT_EQ(ReceiveBytes(peer.client, buffer, 4), 0) << "a part is not enough";
    int sends = 0;
    while (SendBytes(peer.client, "abc", 3) == 1 && sends < 1000000) ++sends;
    EXPECT_TRUE(errno == EPIPE || errno == ECONNRESET) << errno;
}

TEST(SockutilData, ASignalDoesNotCutAMessage) {
    static std::atomic<int> ourSignals{0};
    struct sigaction action = {};
    action.sa_handler = [](int) { ++ourSignals; };  // Without SA_RESTART.
    sigaction(SIGUSR2, &action, nullptr);
    const std::string text = "that arrives in bits";
    for (const bool limited : {false, true}) {
        Loopback peer;
        std::thread receiver([&] {
            char buffer[20];
            const int result = limited ? ReceiveBytesWithin(peer.client, buffer, 20, kGenerous)
                                       : ReceiveBytes(peer.client, buffer, 20);
            EXPECT_EQ(result == 1 ? std::string(buffer, 20) : "nothing", text) << limited;
        });
        for (const char& next : text) {
            const int seen = ourSignals;
            // Again and again: a sanitizer puts off one that comes between two calls.
            while (ourSignals == seen) {
                pthread_kill(receiver.native_handle(), SIGUSR2);
                std::this_thread::yield();
            }
            EXPECT_EQ(SendBytes(peer.server, &next, 1), 1);
        }
        receiver.join();
    }
}

TEST(SockutilDeathTest, ErrorTellsItsHandlerAndExits) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto tell = [] {
        SocketErrorHandler = [](const char* text) {
            fprintf(stderr, "<%s>", text);
            Error("not again");
        };
        errno = 2;
        Error("port %d", 5);
    };
    EXPECT_EXIT(tell(), testing::ExitedWithCode(1), "^<\\(2\\) port 5>$");
    EXPECT_EXIT(AcceptClient(-1, nullptr, 0), testing::ExitedWithCode(1), "");
}
