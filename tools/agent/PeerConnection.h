#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>

#include "agent/AgentPeer.h"
#include "agent/EventStore.h"
#include "agent/Faults.h"
#include "agent/Handshake.h"
#include "agent/MessageReader.h"
#include "agent/Sockets.h"

namespace QZAgent {

/// What the connections of one peer share. The peer's thread only.
struct PeerState {
    explicit PeerState(EventStore& store) : events(store) {}

    EventStore& events;
    std::string agentId;
    std::string config;
    std::size_t blockLimit = 0;   // bytes
    std::size_t bufferLimit = 0;  // bytes
    std::size_t buffered = 0;     // bytes of unfinished messages, all connections
    bool isPaused = false;
};

/// One connection from the accept to the close: handshake, subscription or events, and the faults
/// it was born with.
///
/// Threads: the peer's thread only. After close() isOpen() is false and the owner drops the object.
class PeerConnection {
public:
    using Time = std::chrono::steady_clock::time_point;

    PeerConnection(Socket socket, int number, Port port, const Faults& faults, PeerState& state);
    ~PeerConnection() { close(); }
    PeerConnection(const PeerConnection&) = delete;
    PeerConnection& operator=(const PeerConnection&) = delete;

    int descriptor() const { return itsSocket.descriptor(); }
    bool isOpen() const { return itsSocket.isOpen(); }
    int number() const { return itsNumber; }
    Port port() const { return itsPort; }
    Role role() const { return itsRole; }

    bool wantsRead(Time now) const { return !itsState.isPaused && now >= itsNextRead; }
    Time nextRead() const { return itsNextRead; }
    bool wantsWrite() const { return !itsUnsent.empty(); }

    void read(unsigned char* scratch, std::size_t size, Time now);
    void write();
    void send(const std::string& bytes);
    void close(bool byReset = false);

private:
    enum class Phase { Handshake, FirstByte, Subscription, Watching, Events };

    void consume(Bytes bytes);
    void handshake(Bytes& bytes);
    void firstByte(Bytes& bytes);
    void subscription(Bytes& bytes);
    void eventBytes(Bytes& bytes);
    void answerHello();
    void answerComplete();
    void ended(const std::string& how);
    void malformed(const Malformed& what);
    void holds(std::size_t bytes);

    Socket itsSocket;
    const int itsNumber;
    const Port itsPort;
    const Faults itsFaults;
    PeerState& itsState;
    Phase itsPhase = Phase::Handshake;
    Role itsRole = Role::Undecided;
    Handshake itsHandshake;
    MessageReader itsMessages;
    std::string itsUnsent;
    std::size_t itsSubscriptionBytes = 0;
    std::uint64_t itsReadBytes = 0;
    std::uint64_t itsPosition = 0;         // of the next byte to consume
    std::uint64_t itsBehindHandshake = 0;  // bytes
    std::size_t itsHeld = 0;               // bytes counted in the state's sum
    Time itsNextRead = Time::min();
};

}  // namespace QZAgent
