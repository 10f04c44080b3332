#include "util/Socket.h"

#include <arpa/inet.h>
#include <fcntl.h>

#include "harness/loopback.h"
#include "harness/values.h"
#include "io/SocketInputStream.h"
#include "io/SocketOutputStream.h"
#include "util/sockutil.h"

using namespace Quenvale::Interceptor::SDK;
using harness::thrown;
using Util::Socket;

namespace {

bool isOpen(int descriptor) {
    return fcntl(descriptor, F_GETFD) != -1;
}

unsigned char* bytes(const char* text) {
    return reinterpret_cast<unsigned char*>(const_cast<char*>(text));
}

}  // namespace

TEST(Socket, ClosesItsDescriptorOnce) {
    Loopback peer;
    const int descriptor = peer.takeClient();
    Socket socket(descriptor, "a.host");
    EXPECT_STREQ(socket.itsHost, "a.host");
    EXPECT_EQ(socket.poll(), 0);
    EXPECT_EQ(socket.closeSocket(), 0);
    EXPECT_EQ(socket.itsDescriptor, -1);
    EXPECT_FALSE(isOpen(descriptor));
    EXPECT_EQ(socket.closeSocket(), -1);
    EXPECT_EQ(socket.poll(), -1);

    const int other = peer.takeServer();
    { Socket owner(other); }
    auto** names = static_cast<char**>(std::calloc(2, sizeof(char*)));
    names[0] = strdup("a name that goes with its list");
    Socket::DNSList list(names);
    list.clear();
    EXPECT_EQ(list.itsNames, nullptr);
    EXPECT_FALSE(isOpen(other));

    Loopback another;
    const int cancelled = another.takeClient();
    harness::onThreads([&] {
        pthread_cancel(pthread_self());
        { Socket owner(cancelled); }
        pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    });
    EXPECT_FALSE(isOpen(cancelled)) << "a thread that is cancelled may drop one";
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
    out.write(bytes("..abc"), 2, 3);
    out.writeByte(0x1ff);
    out.flush();
    unsigned char got[6] = {};
    EXPECT_EQ(in.read(got, 0, 0), -1) << "nothing asked for";
    EXPECT_EQ(in.read(got, 1, 4), 4);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(got + 1)), "abc\xff");
    EXPECT_EQ(in.available(), 0);
    out.write(bytes("abc"), 0, 3);
    near.closeSocket();
    EXPECT_EQ(in.read(got, 0, 4), -1) << "the peer closed in the middle";
}

TEST(SocketStreams, ALimitEndsTheReadsOfASilentPeer) {
    Loopback peer;
    Socket socket(peer.takeClient());
    IO::SocketInputStream in(&socket);
    unsigned char got[4] = {};
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
}

TEST(SocketStreams, RefuseInTheirOwnWords) {
    Loopback peer;
    Socket socket(peer.takeClient());
    IO::SocketOutputStream out(&socket);
    IO::SocketInputStream in(&socket);
    unsigned char byte = 0;
    EXPECT_EQ(thrown([&] { in.read(&byte, -1, 1); }), "offset < 0");
    EXPECT_EQ(thrown([&] { in.read(&byte, 0, -1); }), "len < 0");
    EXPECT_EQ(thrown([&] { out.write(&byte, 0, -1); }), "IOException: Failed to send on socket");

    in.closeStream();
    out.closeStream();
    in.closeStream();
    out.closeStream();
    const std::string closed = "IOException: stream is closed.";
    EXPECT_EQ(thrown([&] { in.read(&byte, 0, 1); }), closed);
    EXPECT_EQ(thrown([&] { in.available(); }), closed);
    EXPECT_EQ(thrown([&] { out.write(&byte, 0, 1); }), closed);
    EXPECT_TRUE(isOpen(socket.itsDescriptor)) << "the socket has another owner";
}
