#pragma once

#include <condition_variable>
#include <list>
#include <mutex>

#include "harness/loopback.h"

namespace harness {

/// What a connection gets to see. The rows serve one connection each, the last one all others.
struct AgentManners {
    std::string id = "raw-agent";
    int answer = 1;
    int bytesBeforeReset = -1;  // Behind the handshake; negative never resets.
};

/// An agent's event port, written from the protocol's description: it shakes hands and keeps the
/// bytes that come.
///
/// Threads:   one for the listener, one for each connection; all are over when the object is gone.
class RawAgent {
public:
    using Manners = AgentManners;
    struct Connection {
        std::string handshake;  // All that the library sent up to the agent's yes or no.
        std::string bytes;      // And behind it.
        bool isOver = false;
    };

    RawAgent() : RawAgent({Manners()}) {}
    explicit RawAgent(std::vector<Manners> manners);
    ~RawAgent();
    RawAgent(const RawAgent&) = delete;
    RawAgent& operator=(const RawAgent&) = delete;

    int port() const { return itsPort; }

    /// All connections once `isMet` holds of them, or as they are after the limit.
    template <class F>
    std::vector<Connection> waitFor(F isMet) {
        std::unique_lock<std::mutex> guard(itsLock);
        itsChange.wait_for(guard, kLimit, [&] { return isMet(itsConnections); });
        return itsConnections;
    }
    /// The bytes of all connections, in the order of the connections.
    std::string waitForBytes(std::size_t count);

private:
    void listen();
    void serve(RawSocket& socket, std::size_t number, const Manners& manners);
    static void reset(RawSocket& socket);
    void change(std::size_t number, const std::function<void(Connection&)>& change);

    const std::vector<Manners> itsManners;
    const int itsListener;
    const int itsPort;
    std::mutex itsLock;
    std::condition_variable itsChange;
    std::vector<Connection> itsConnections;
    std::list<RawSocket> itsSockets;
    std::list<std::thread> itsThreads;
};

}  // namespace harness
