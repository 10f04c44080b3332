#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "agent/ConfigText.h"
#include "agent/Event.h"
#include "agent/Faults.h"

namespace QZAgent {

/// One event as it came.
struct ReceivedEvent {
    std::uint64_t arrival = 0;  // 0, 1, 2, ... over all connections of the peer
    int connection = 0;         // number of the connection, from 1
    Event event;
    std::string payload;             // embedded or separate; see event.hasPayload()
    std::string contentType;         // of a separate payload
    std::vector<unsigned char> raw;  // the event's bytes, without a separate payload
};

/// Bytes that are no event message.
struct MalformedReport {
    int connection = 0;
    std::uint64_t offset = 0;  // byte of the connection, counted from its first
    std::optional<std::size_t>
        inEvent;  // byte of the event, where an event came whole but is wrong
    std::string reason;
};

struct Counters {
    int controlConnections = 0;  // accepted on the control port, and so on; never reset
    int eventConnections = 0;
    int openConnections = 0;
    int handshakes = 0;  // completed, on either port
    int failedHandshakes = 0;
    int subscriptions = 0;
    int eventStreams = 0;  // connections that sent a first event message
    std::uint64_t events = 0;
    std::uint64_t requests = 0;
    std::uint64_t replies = 0;
    std::uint64_t wholes = 0;
    std::uint64_t malformed = 0;
    std::uint64_t cut = 0;    // connections that ended inside a message
    std::uint64_t bytes = 0;  // read, handshakes included
};

/// Which connections or listeners an operation means. A connection is a watcher or an event stream
/// by the first byte behind its handshake, whatever port it came to.
enum class Port { Control, Events, Both };
enum class Role { Undecided, Watcher, EventStream };

struct PeerSettings {
    std::string address = "127.0.0.1";
    int controlPort = 0;  // 0 is a free port
    int eventsPort = 0;   // 0 is a free port; equal to a controlPort above 0: one listener for both
    std::string agentId = "qz-agent";
    /// Pushed to each subscriber. Without one it is ConfigText::reportAll with the event port.
    std::optional<std::string> config;
    std::size_t blockLimit = std::size_t{64} << 20;  // bytes in one block of a message
    std::size_t bufferLimit = std::size_t{256}
                              << 20;  // bytes of unfinished messages, all connections
    int receiveBuffer = 0;  // bytes asked of the kernel per connection; 0 leaves the default

    /// These run on the peer's thread, one at a time, and must not call stop(). With onEvent set,
    /// no event is kept: waitForEvents() then has nothing to give.
    std::function<void(const ReceivedEvent&)> onEvent;
    std::function<void(const MalformedReport&)> onMalformed;
    std::function<void(const std::string&)>
        onNote;  // a line of text: connections and what became of them
};

/// An agent in this process: it takes connections, answers handshakes, pushes configurations and
/// keeps the events that come. For tests, and the whole of what qz-agent runs.
///
///     AgentPeer agent;                         // free ports on loopback
///     agent.start();
///     setenv("QUENVALE_BOOTSTRAP_URL", agent.bootstrapUrl().c_str(), 1);
///     ... start what reports ...
///     auto events = agent.waitForEvents(2, 20000);
///
/// Threads:   any; operations are done when they return. One thread of its own between start() and
///            stop(). Waits take milliseconds.
/// Ownership: copies go in and out. stop() closes every socket and joins the thread.
/// Restart:   start() after stop() takes the same ports again. Events, counters and the
/// configuration stay. Errors:    nothing throws; a result of false or 0 says that it wasn't done,
/// and error() says why.
class AgentPeer {
public:
    explicit AgentPeer(const PeerSettings& settings = PeerSettings());
    ~AgentPeer();
    AgentPeer(const AgentPeer&) = delete;
    AgentPeer& operator=(const AgentPeer&) = delete;

    bool start();
    void stop();
    std::string error() const;

    int controlPort() const;  // Known from the first start() on, and the same after a restart.
    int eventsPort() const;
    std::string bootstrapUrl() const;  // "tcp://127.0.0.1:PORT"

    /// For connections accepted from now on.
    void setFaults(const Faults& faults, Port port = Port::Both);
    void setAgentId(const std::string& id);

    /// Becomes the configuration for later subscribers too, and goes to each present one. The
    /// result is the number of those.
    int pushConfig(const std::string& text);
    int pushConfig(const ConfigText& config) { return pushConfig(config.text()); }
    std::string config() const;
    int sendStabilizers(const std::vector<std::string>& names);
    int updateStabilizers(const std::vector<std::string>& added,
                          const std::vector<std::string>& removed);
    int sendRaw(const std::string& bytes);  // To each watcher, as they stand.

    /// Event connections go to a new listener from now on; those that are open stay. Gives the new
    /// port. The configuration isn't touched.
    int moveEvents(int port = 0);

    /// Closes the connections of that role, orderly or by a reset. The result is their number.
    int closeConnections(Role role, bool byReset = false);
    /// While paused, nothing is read from connections of either kind; what peers send backs up.
    void pauseReading(bool paused);

    /// Waits until at least that many events are kept, and gives all that are; fewer after the
    /// time.
    std::vector<ReceivedEvent> waitForEvents(std::size_t count, int timeoutMs);
    std::vector<ReceivedEvent> events() const;
    void forgetEvents();                             // arrival goes on counting.
    std::vector<MalformedReport> malformed() const;  // The first 1000.

    Counters counters() const;
    bool waitForSubscription(int count, int timeoutMs);  // That many since the first start().
    /// Asks `met` at each change of a counter.
    bool waitFor(const std::function<bool(const Counters&)>& met, int timeoutMs);

private:
    class Body;
    std::unique_ptr<Body> itsBody;
};

}  // namespace QZAgent
