#pragma once

#include <atomic>
#include <mutex>
#include <string>

#include "agent/AgentPeer.h"
#include "agent/FlowTree.h"

namespace QZAgent {

/// What qz-agent writes to its standard output, as text, JSON or trees. Each item is written and
/// flushed as one, so that a reader at the other end of a pipe sees it when it happens.
///
/// Threads: any.
class Printer {
public:
    Printer(bool json, bool quiet, bool tree) : itIsJson(json), itIsQuiet(quiet), itHasTree(tree) {}

    /// What others want to write waits while the result lives: from before the peer's start until
    /// listening() has written the first line.
    std::unique_lock<std::mutex> hold() { return std::unique_lock<std::mutex>(itsLock); }
    /// Under hold().
    void listening(const std::string& address, int controlPort, int eventsPort);
    void event(const ReceivedEvent& received);
    void malformed(const MalformedReport& report);
    void note(const std::string& line);
    /// Draws the flows that are complete by now. To be called now and then.
    void flows();
    /// The last item. What is left of the flows goes out in front of it.
    void summary(const Counters& counters);

    /// The reader at the other end has gone.
    bool isBroken() const { return itIsBroken; }

private:
    void write(const std::string& text);
    void writeHeld(const std::string& text);
    void drawHeld(const std::string& trees);

    const bool itIsJson;
    const bool itIsQuiet;
    const bool itHasTree;
    std::mutex itsLock;  // Keeps items whole, and guards the flows.
    FlowTree itsFlows;
    std::atomic<bool> itIsBroken{false};
};

}  // namespace QZAgent
