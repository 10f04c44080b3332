#include "harness/RawAgent.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>

#include "harness/loopback.h"

namespace harness {

/// Reads values off a connection and remembers their bytes. After the end it reads zeros.
class RawAgent::Reader {
public:
    explicit Reader(int descriptor) : itsDescriptor(descriptor) {}

    int byte() {
        unsigned char value = 0;
        isAtEnd = isAtEnd || recv(itsDescriptor, &value, 1, MSG_WAITALL) != 1;
        if (isAtEnd) return 0;
        raw.push_back(static_cast<char>(value));
        return value;
    }
    unsigned number() {
        unsigned value = 0;
        for (int shift = 0;; shift += 7) {
            const int next = byte();
            value |= static_cast<unsigned>(next & 0x7f) << shift;
            if (next < 0x80) return value;
        }
    }
    std::string bytes(std::size_t count) {
        std::string text;
        while (text.size() < count && !isAtEnd) text.push_back(static_cast<char>(byte()));
        return text;
    }
    std::string text() {
        const unsigned length = number();
        return bytes(length < 2 ? 0 : length - 1);
    }
    std::string block() {
        const unsigned length = number();
        if (length < 2) return "";
        std::string all = bytes(length - 1);
        for (unsigned more = number(); more > 0; more = number()) all += bytes(more);
        return all;
    }
    /// False at the end of the connection.
    bool message() {
        raw.clear();
        byte();
        block();
        if (number() != 0) {
            number();
            for (int i = 0; i < 3; ++i) text();
            block();
            byte();
        }
        return !isAtEnd;
    }

    std::string raw;
    bool isAtEnd = false;

private:
    int itsDescriptor;
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
    {
        std::lock_guard<std::mutex> guard(itsLock);
        for (const int descriptor : itsDescriptors) shutdown(descriptor, SHUT_RDWR);
    }
    for (std::thread& thread : itsThreads) thread.join();
    for (const int descriptor : itsDescriptors) close(descriptor);
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
        itsDescriptors.push_back(descriptor);
        const Manners& manners = itsManners[std::min(number, itsManners.size() - 1)];
        itsThreads.emplace_back([=, &manners] { serve(descriptor, number, manners); });
    }
}

void RawAgent::serve(int descriptor, std::size_t number, const Manners& manners) {
    Reader reader(descriptor);
    reader.bytes(12);
    std::string id(1, static_cast<char>(manners.id.size() + 1));
    if (!manners.id.empty()) id += manners.id + '\0';
    send(descriptor, id.data(), id.size(), MSG_NOSIGNAL);
    reader.byte();
    const std::string echo = reader.block();
    reader.byte();
    change(number, [&](Connection& connection) {
        connection.echo = echo;
        connection.handshake = reader.raw;
    });
    if (!reader.isAtEnd) {
        const char answer = static_cast<char>(manners.answer);
        send(descriptor, &answer, 1, MSG_NOSIGNAL);
    }
    int left = manners.messagesBeforeReset;
    while (left != 0 && reader.message()) {
        --left;
        // The reset that is due has been sent before the last message is told of.
        if (left == 0) break;
        change(number, [&](Connection& connection) { connection.messages.push_back(reader.raw); });
    }
    if (left == 0) {
        const linger atOnce = {1, 0};
        setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
        // Disconnecting resets and keeps the descriptor, which the destructor closes.
        const sockaddr none = {};
        connect(descriptor, &none, sizeof none);
        if (manners.messagesBeforeReset > 0)
            change(number, [&](Connection& c) { c.messages.push_back(reader.raw); });
    }
    change(number, [](Connection& connection) { connection.isOver = true; });
}

void RawAgent::change(std::size_t number, const std::function<void(Connection&)>& change) {
    std::lock_guard<std::mutex> guard(itsLock);
    change(itsConnections[number]);
    itsChange.notify_all();
}

}  // namespace harness
