// The other end of the measured connections: a process of its own, so that its work is not charged
// to what is measured, that reads as fast as it can. As an agent it answers the handshake, pushes
// one configuration and counts event messages; with "raw" it only counts bytes.
//
// It prints its port, and then, for every line that it reads, what it has counted so far.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr std::size_t kChunk = std::size_t{1} << 18;  // bytes
constexpr char kAgentID[] = "bench-agent-0001";
constexpr std::size_t kHello = 12;        // bytes
constexpr std::size_t kSubscription = 4;  // bytes
constexpr unsigned char kNoCredentials = 0;

std::atomic<unsigned long long> ourCount{0};
int ourPort = 0;

[[noreturn]] void fail(const char* what) {
    std::fprintf(stderr, "bench receiver: %s\n", what);
    std::exit(1);
}

/// One connection, read by blocking calls. The end of the connection ends the thread's work by
/// the exception Closed.
class Connection {
public:
    struct Closed {};

    explicit Connection(int descriptor) : itsDescriptor(descriptor), itsChunk(kChunk) {}
    ~Connection() { close(itsDescriptor); }
    Connection(const Connection&) = delete;
    Connection& operator=(const Connection&) = delete;

    unsigned char next() {
        if (itsFrom == itsTo) fill();
        return itsChunk[itsFrom++];
    }
    void skip(std::size_t bytes) {
        while (bytes > itsTo - itsFrom) {
            bytes -= itsTo - itsFrom;
            fill();
        }
        itsFrom += bytes;
    }
    void expect(unsigned char byte, const char* where) {
        if (next() != byte) fail(where);
    }
    /// A byte block in one piece.
    void skipBlock() {
        std::size_t length = 0;
        unsigned char byte = 0;
        int shift = 0;
        do {
            byte = next();
            length |= std::size_t{byte & 0x7fu} << shift;
            shift += 7;
        } while (byte > 0x7f);
        skip(length - 1);
        expect(0, "a block goes on");
    }
    void send(const std::string& bytes) {
        if (::send(itsDescriptor, bytes.data(), bytes.size(), MSG_NOSIGNAL) !=
            static_cast<ssize_t>(bytes.size()))
            fail("an answer was not taken");
    }
    std::size_t fill() {
        const ssize_t got = recv(itsDescriptor, itsChunk.data(), kChunk, 0);
        if (got <= 0) throw Closed();
        itsFrom = 0;
        itsTo = static_cast<std::size_t>(got);
        return itsTo;
    }

private:
    int itsDescriptor;
    std::vector<unsigned char> itsChunk;
    std::size_t itsFrom = 0;
    std::size_t itsTo = 0;
};

// Only for blocks whose length fits one or two bytes.
std::string block(const std::string& bytes) {
    std::size_t length = bytes.size() + 1;
    std::string out;
    if (length > 0x7f) out += static_cast<char>((length & 0x7f) | 0x80);
    if (length > 0x7f) length >>= 7;
    out += static_cast<char>(length);
    return out + bytes + '\0';
}

// No payloads, no checkpoints, no paths.
std::string configuration() {
    return "127.0.0.1\n" + std::to_string(ourPort) + "\n1\n0\n0\n0\n0\n0\n0\n";
}

void serveAgent(Connection& peer) {
    peer.skip(kHello);
    peer.send(block(kAgentID));
    peer.expect(kNoCredentials, "credentials came");
    peer.skipBlock();
    peer.expect(0, "the handshake ends otherwise");
    peer.send("\x01");
    unsigned char type = peer.next();
    if (type == 5) {
        peer.skip(kSubscription - 1);
        peer.send("\x04" + block(configuration()));
        type = peer.next();
    }
    for (;; type = peer.next()) {
        if (type != 1) fail("something else than an event came");
        peer.skipBlock();
        peer.expect(0, "an event came with a payload");
        ++ourCount;
    }
}

void serve(int descriptor, bool isRaw) {
    Connection peer(descriptor);
    try {
        if (!isRaw) serveAgent(peer);
        for (;;) ourCount += peer.fill();
    } catch (Connection::Closed) {
    }
}

}  // namespace

int main(int count, char** arguments) {
    const bool isRaw = count > 1 && std::strcmp(arguments[1], "raw") == 0;
    const int listener = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* generic = reinterpret_cast<sockaddr*>(&address);
    if (bind(listener, generic, size) != 0 || listen(listener, 16) != 0 ||
        getsockname(listener, generic, &size) != 0)
        fail("no port to listen on");
    ourPort = ntohs(address.sin_port);
    std::thread([listener, isRaw] {
        for (;;) {
            const int descriptor = accept(listener, nullptr, nullptr);
            if (descriptor >= 0) std::thread(serve, descriptor, isRaw).detach();
        }
    }).detach();

    std::printf("%d\n", ourPort);
    std::fflush(stdout);
    while (std::getchar() == '\n') {
        std::printf("%llu\n", ourCount.load());
        std::fflush(stdout);
    }
    // The threads go with the process, whatever they are doing.
    std::_Exit(0);
}
