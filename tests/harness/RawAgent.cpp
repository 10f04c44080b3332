#include "harness/RawAgent.h"

#include <algorithm>

namespace harness {

/// Reads values off a connection and remembers their bytes. After the end it reads zeros.
class RawAgent::Reader {
public:
    explicit Reader(RawSocket& socket) : itsSocket(socket) {}

    std::string bytes(std::size_t count) {
        const std::string text = itsSocket.receive(count);
        isAtEnd = isAtEnd || text.size() < count;
        raw += text;
        return text;
    }
    unsigned number() {
        unsigned value = 0;
        for (int shift = 0;; shift += 7) {
            const std::string byte = bytes(1);
            if (isAtEnd) return 0;
            value |= (static_cast<unsigned char>(byte[0]) & 0x7fU) << shift;
            if ((byte[0] & 0x80) == 0) return value;
        }
    }
    void block() {
        unsigned length = number();
        if (length < 2) return;
        for (--length; length > 0; length = number()) bytes(length);
    }
    /// False at the end of the connection.
    bool message() {
        raw.clear();
        bytes(1);
        block();
        if (number() != 0) {
            number();
            for (int i = 0; i < 3; ++i) {
                const unsigned length = number();
                bytes(length < 2 ? 0 : length - 1);
            }
            block();
            bytes(1);
        }
        return !isAtEnd;
    }

    std::string raw;
    bool isAtEnd = false;

private:
    RawSocket& itsSocket;
};

RawAgent::RawAgent(std::vector<Manners> manners)
    : itsManners(std::move(manners)),
      itsListener(Loopback::listenOn(0)),
      itsPort(Loopback::portOf(itsListener)) {
    itsThreads.emplace_back([this] { listen(); });
}

RawAgent::~RawAgent() {
    shutdown(itsListener, SHUT_RDWR);
    itsThreads.front().join();
    itsThreads.pop_front();
    for (const RawSocket& socket : itsSockets) shutdown(socket.descriptor(), SHUT_RDWR);
    for (std::thread& thread : itsThreads) thread.join();
    close(itsListener);
}

std::vector<std::string> RawAgent::waitForMessages(std::size_t count) {
    const auto collect = [](const std::vector<Connection>& connections) {
        std::vector<std::string> all;
        for (const Connection& connection : connections)
            all.insert(all.end(), connection.messages.begin(), connection.messages.end());
        return all;
    };
    return collect(waitFor([&](const auto& all) { return collect(all).size() >= count; }));
}

void RawAgent::listen() {
    for (;;) {
        const int descriptor = accept(itsListener, nullptr, nullptr);
        if (descriptor < 0) return;
        std::lock_guard<std::mutex> guard(itsLock);
        const std::size_t number = itsConnections.size();
        itsConnections.emplace_back();
        RawSocket& socket = itsSockets.emplace_back(descriptor);
        const Manners& manners = itsManners[std::min(number, itsManners.size() - 1)];
        itsThreads.emplace_back([=, &socket, &manners] { serve(socket, number, manners); });
    }
}

void RawAgent::serve(RawSocket& socket, std::size_t number, const Manners& manners) {
    Reader reader(socket);
    reader.bytes(12);
    std::string id(1, static_cast<char>(manners.id.size() + 1));
    if (!manners.id.empty()) id += manners.id + '\0';
    socket.send(id);
    reader.bytes(1);
    reader.block();
    reader.bytes(1);
    change(number, [&](Connection& connection) { connection.handshake = reader.raw; });
    if (!reader.isAtEnd) socket.send(std::string(1, static_cast<char>(manners.answer)));
    int left = manners.messagesBeforeReset;
    while (left != 0 && reader.message()) {
        // The reset that is due has been sent before the last message is told of.
        if (--left == 0) reset(socket);
        change(number, [&](Connection& connection) { connection.messages.push_back(reader.raw); });
    }
    change(number, [](Connection& connection) { connection.isOver = true; });
}

void RawAgent::reset(RawSocket& socket) {
    const linger atOnce = {1, 0};
    setsockopt(socket.descriptor(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    // Disconnecting resets and keeps the descriptor, which its owner closes.
    const sockaddr none = {};
    connect(socket.descriptor(), &none, sizeof none);
}

void RawAgent::change(std::size_t number, const std::function<void(Connection&)>& change) {
    std::lock_guard<std::mutex> guard(itsLock);
    change(itsConnections[number]);
    itsChange.notify_all();
}

}  // namespace harness
