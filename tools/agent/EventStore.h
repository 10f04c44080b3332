#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "agent/AgentPeer.h"
#include "agent/MessageReader.h"

namespace QZAgent {

/// Where the peer's thread leaves what came, and where others wait for it. The callbacks of the
/// settings run outside the lock and before the counters move: who has seen the counter can rely on
/// what the callback did.
class EventStore {
public:
    explicit EventStore(const PeerSettings& settings);

    void add(int connection, Message& message);
    void add(const MalformedReport& report);
    void note(const std::string& line);
    void count(const std::function<void(Counters&)>& change);

    Counters counters() const;
    std::vector<ReceivedEvent> events() const;
    void forgetEvents();
    std::vector<MalformedReport> malformed() const;
    std::vector<ReceivedEvent> waitForEvents(std::size_t count, int timeoutMs);
    bool waitFor(const std::function<bool(const Counters&)>& met, int timeoutMs);

private:
    const std::function<void(const ReceivedEvent&)> itsOnEvent;
    const std::function<void(const MalformedReport&)> itsOnMalformed;
    const std::function<void(const std::string&)> itsOnNote;
    std::uint64_t itsArrivals = 0;  // The peer's thread only.

    mutable std::mutex itsLock;  // Guards all that follows.
    std::condition_variable itsChange;
    Counters itsCounters;
    std::vector<ReceivedEvent> itsEvents;
    std::vector<MalformedReport> itsMalformed;
};

}  // namespace QZAgent
