#include "agent/PeerConnection.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace QZAgent {

namespace {

constexpr unsigned char kEventMessage = 1;
constexpr unsigned char kSubscription[] = {5, 3, 0, 0};
constexpr char kConfigMessage = 4;
constexpr std::size_t kMostUnsent = std::size_t{128} << 20;  // bytes

}  // namespace

PeerConnection::PeerConnection(Socket socket, int number, Port port, const Faults& faults,
                               PeerState& state)
    : itsSocket(std::move(socket)),
      itsNumber(number),
      itsPort(port),
      itsFaults(faults),
      itsState(state),
      itsMessages(0, state.blockLimit) {
    if (itsFaults.refuse || itsFaults.closeAfterBytes == 0u) close(itsFaults.closeByReset);
}

void PeerConnection::close(bool byReset) {
    holds(0);
    if (byReset && itsSocket.isOpen()) itsSocket.closeByReset();
    itsSocket.close();
}

void PeerConnection::holds(std::size_t bytes) {
    itsState.buffered += bytes - itsHeld;
    itsHeld = bytes;
}

void PeerConnection::send(const std::string& bytes) {
    itsUnsent += bytes;
    if (itsUnsent.size() > kMostUnsent) {
        ended("dropped: it doesn't read what is sent to it");
        return;
    }
    write();
}

void PeerConnection::write() {
    while (isOpen() && !itsUnsent.empty()) {
        const ssize_t sent = ::send(descriptor(), itsUnsent.data(), itsUnsent.size(), MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
        if (sent < 0) {
            // What the other side sent before it went is still to be read: reading finds the end.
            itsUnsent.clear();
            return;
        }
        itsUnsent.erase(0, static_cast<std::size_t>(sent));
    }
}

void PeerConnection::read(unsigned char* scratch, std::size_t size, Time now) {
    if (itsFaults.readChunk > 0)
        size = std::min(size, static_cast<std::size_t>(itsFaults.readChunk));
    if (itsFaults.closeAfterBytes) {
        size = static_cast<std::size_t>(
            std::min<std::uint64_t>(size, *itsFaults.closeAfterBytes - itsReadBytes));
    }
    const ssize_t got = recv(descriptor(), scratch, size, 0);
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) return;
    if (got <= 0) {
        ended(got == 0 ? "closed by the other side" : std::strerror(errno));
        return;
    }
    itsNextRead = now + std::chrono::milliseconds(itsFaults.readPauseMs);
    itsReadBytes += static_cast<std::uint64_t>(got);
    itsState.events.count(
        [&](Counters& counters) { counters.bytes += static_cast<std::uint64_t>(got); });
    consume({scratch, static_cast<std::size_t>(got)});
    if (isOpen() && itsFaults.closeAfterBytes && itsReadBytes >= *itsFaults.closeAfterBytes) {
        close(itsFaults.closeByReset);
    }
}

void PeerConnection::consume(Bytes bytes) {
    while (isOpen() && bytes.size > 0) {
        if (itsPhase == Phase::Handshake) {
            handshake(bytes);
            itsPosition = itsReadBytes - bytes.size;
            continue;
        }
        Bytes allowed = bytes;
        if (itsFaults.closeAfterEventBytes) {
            allowed.size = static_cast<std::size_t>(std::min<std::uint64_t>(
                bytes.size, *itsFaults.closeAfterEventBytes - itsBehindHandshake));
        }
        const std::size_t before = allowed.size;
        if (before > 0 && itsPhase == Phase::FirstByte) {
            firstByte(allowed);
        } else if (before > 0 && itsPhase == Phase::Events) {
            eventBytes(allowed);
        } else if (before > 0) {
            subscription(allowed);
        }
        const std::size_t used = before - allowed.size;
        itsBehindHandshake += used;
        itsPosition += used;
        bytes.data += used;
        bytes.size -= used;
        if (isOpen() && itsFaults.closeAfterEventBytes &&
            itsBehindHandshake >= *itsFaults.closeAfterEventBytes) {
            close(itsFaults.closeByReset);
        }
    }
}

void PeerConnection::handshake(Bytes& bytes) {
    switch (itsHandshake.feed(bytes)) {
        case Handshake::Step::More:
            return;
        case Handshake::Step::Hello:
            answerHello();
            return;
        case Handshake::Step::Complete:
            itsPhase = Phase::FirstByte;
            answerComplete();
            if (itsFaults.closeAfterEventBytes == 0u) close(itsFaults.closeByReset);
            return;
        case Handshake::Step::Failed:
            itsState.events.count([](Counters& counters) { ++counters.failedHandshakes; });
            ended("refused: " + itsHandshake.reason());
    }
}

void PeerConnection::answerHello() {
    if (itsFaults.silentId) return;
    std::string block;
    appendBlock(block, itsFaults.emptyId ? std::string() : itsState.agentId);
    send(itsFaults.garbage.empty() ? block : itsFaults.garbage);
}

void PeerConnection::answerComplete() {
    if (itsFaults.silentAccept) return;
    const int accept = itsFaults.acceptByte.value_or(1);
    if (accept == 1) itsState.events.count([](Counters& counters) { ++counters.handshakes; });
    send(std::string(1, static_cast<char>(accept)));
}

void PeerConnection::firstByte(Bytes& bytes) {
    if (*bytes.data == kSubscription[0]) {
        itsRole = Role::Watcher;
        itsPhase = Phase::Subscription;
    } else if (*bytes.data == kEventMessage) {
        itsRole = Role::EventStream;
        itsPhase = Phase::Events;
        itsMessages = MessageReader(itsPosition, itsState.blockLimit);
        itsState.events.count([](Counters& counters) { ++counters.eventStreams; });
    } else {
        malformed({itsPosition, std::nullopt,
                   "first byte behind the handshake is " + std::to_string(*bytes.data) +
                       " and neither 1 nor 5"});
    }
}

void PeerConnection::subscription(Bytes& bytes) {
    const std::uint64_t at = itsPosition;
    const unsigned char byte = bytes.next();
    if (itsPhase == Phase::Watching) {
        malformed({at, std::nullopt, "a subscriber has nothing more to send"});
        return;
    }
    if (byte != kSubscription[itsSubscriptionBytes]) {
        malformed({at, std::nullopt,
                   "byte " + std::to_string(itsSubscriptionBytes) + " of the subscription is " +
                       std::to_string(byte)});
        return;
    }
    if (++itsSubscriptionBytes < sizeof kSubscription) return;
    itsPhase = Phase::Watching;
    if (!itsFaults.withholdConfig) {
        std::string message(1, kConfigMessage);
        appendBlock(message, itsState.config);
        send(message);
    }
    itsState.events.note("connection " + std::to_string(itsNumber) + " subscribed");
    itsState.events.count([](Counters& counters) { ++counters.subscriptions; });
}

void PeerConnection::eventBytes(Bytes& bytes) {
    const bool good = itsMessages.feed(bytes.data, bytes.size, [this](Message& message) {
        itsState.events.add(itsNumber, message);
    });
    bytes.data += bytes.size;
    bytes.size = 0;
    if (!good) {
        malformed(itsMessages.malformed());
        return;
    }
    holds(itsMessages.held());
    if (itsState.buffered > itsState.bufferLimit) {
        malformed({itsReadBytes, std::nullopt, "unfinished messages hold too many bytes"});
    }
}

void PeerConnection::malformed(const Malformed& what) {
    itsState.events.add({itsNumber, what.offset, what.inEvent, what.reason});
    close();
}

void PeerConnection::ended(const std::string& how) {
    if (itsMessages.isInsideMessage())
        itsState.events.count([](Counters& counters) { ++counters.cut; });
    const char* const inside = itsMessages.isInsideMessage() ? ", inside a message" : "";
    itsState.events.note("connection " + std::to_string(itsNumber) + " " + how + inside + ", " +
                         std::to_string(itsReadBytes) + " bytes read");
    close();
}

}  // namespace QZAgent
