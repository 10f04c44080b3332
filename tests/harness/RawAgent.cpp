#include "harness/RawAgent.h"

namespace harness {

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

std::string RawAgent::waitForBytes(std::size_t count) {
    const auto collect = [](const std::vector<Connection>& connections) {
        std::string all;
        for (const Connection& connection : connections) all += connection.bytes;
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
    std::string handshake = socket.receive(12);
    std::string id(1, static_cast<char>(manners.id.size() + 1));
    if (!manners.id.empty()) id += manners.id + '\0';
    socket.send(id);
    // The id comes back as a block, between the credentials' byte and the last one.
    handshake += socket.receive(1 + id.size() + 1);
    change(number, [&](Connection& connection) { connection.handshake = handshake; });
    socket.send(std::string(1, static_cast<char>(manners.answer)));
    for (int left = manners.bytesBeforeReset; left != 0;) {
        const std::string byte = socket.receive(1);
        if (byte.empty()) break;
        // The reset that is due has been sent before the last byte is told of.
        if (--left == 0) reset(socket);
        change(number, [&](Connection& connection) { connection.bytes += byte; });
    }
    change(number, [](Connection& connection) { connection.isOver = true; });
}

void RawAgent::reset(RawSocket& socket) {
    const linger atOnce = {1, 0};
    setsockopt(socket.descriptor(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
    // Disconnecting resets and keeps the descriptor, which its owner closes.
    const sockaddr none = {};
    static_cast<void>(connect(socket.descriptor(), &none, sizeof none));
}

void RawAgent::change(std::size_t number, const std::function<void(Connection&)>& change) {
    std::lock_guard<std::mutex> guard(itsLock);
    change(itsConnections[number]);
    itsChange.notify_all();
}

}  // namespace harness
