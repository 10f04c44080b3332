#include "agent/AgentPeer.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "agent/EventStore.h"
#include "agent/PeerLoop.h"
#include "agent/Wire.h"

namespace QZAgent {

namespace {

std::string configMessage(const std::string& text) {
    std::string message = "\x04";
    appendBlock(message, text);
    return message;
}

void appendNames(std::string& message, const std::vector<std::string>& names) {
    appendUnsigned(message, static_cast<std::uint32_t>(names.size()));
    for (const std::string& name : names) appendText(message, name);
}

}  // namespace

class AgentPeer::Body {
public:
    explicit Body(const PeerSettings& given)
        : settings(given), store(settings), loop(settings, store) {}

    /// Does something to the loop, whether its thread runs or not. A callback is on that thread,
    /// and another caller may hold the lock and wait for it: so it goes past the lock.
    void apply(const std::function<void()>& work) {
        if (loop.isOnThread()) {
            work();
            return;
        }
        const std::lock_guard<std::mutex> guard(lock);
        if (!loop.run(work)) work();
    }

    std::string firstConfig() const {
        const std::string host = settings.address == "0.0.0.0" ? "127.0.0.1" : settings.address;
        return settings.config.value_or(ConfigText::reportAll(host, eventsPort).text());
    }

    void fail(const std::string& text) {
        const std::lock_guard<std::mutex> guard(errorLock);
        error = text;
    }

    const PeerSettings settings;
    EventStore store;
    PeerLoop loop;
    std::mutex lock;  // One operation at a time.
    std::atomic<int> controlPort{0};
    std::atomic<int> eventsPort{0};
    mutable std::mutex errorLock;  // Guards the error alone; no other lock is taken under it.
    std::string error;
};

AgentPeer::AgentPeer(const PeerSettings& settings) : itsBody(std::make_unique<Body>(settings)) {}

AgentPeer::~AgentPeer() {
    stop();
}

bool AgentPeer::start() {
    Body& body = *itsBody;
    const std::lock_guard<std::mutex> guard(body.lock);
    PeerLoop& loop = body.loop;
    const bool isRestart = body.controlPort != 0;
    std::string error;
    if (!loop.open(isRestart ? body.controlPort.load() : body.settings.controlPort,
                   isRestart ? body.eventsPort.load() : body.settings.eventsPort, error)) {
        body.fail(error);
        return false;
    }
    // Before the thread runs: the first subscriber may be waiting at the door.
    body.controlPort = loop.controlPort();
    body.eventsPort = loop.eventsPort();
    if (!isRestart) loop.state().config = body.firstConfig();
    if (!loop.begin(error)) {
        body.fail(error);
        return false;
    }
    return true;
}

void AgentPeer::stop() {
    const std::lock_guard<std::mutex> guard(itsBody->lock);
    itsBody->loop.stop();
}

std::string AgentPeer::error() const {
    const std::lock_guard<std::mutex> guard(itsBody->errorLock);
    return itsBody->error;
}

int AgentPeer::controlPort() const {
    return itsBody->controlPort;
}

int AgentPeer::eventsPort() const {
    return itsBody->eventsPort;
}

std::string AgentPeer::bootstrapUrl() const {
    return "tcp://127.0.0.1:" + std::to_string(controlPort());
}

void AgentPeer::setFaults(const Faults& faults, Port port) {
    itsBody->apply([&] { itsBody->loop.setFaults(faults, port); });
}

void AgentPeer::setAgentId(const std::string& id) {
    itsBody->apply([&] { itsBody->loop.state().agentId = id; });
}

int AgentPeer::pushConfig(const std::string& text) {
    int sent = 0;
    itsBody->apply([&] {
        itsBody->loop.state().config = text;
        sent = itsBody->loop.sendToWatchers(configMessage(text));
    });
    return sent;
}

std::string AgentPeer::config() const {
    std::string text;
    itsBody->apply([&] { text = itsBody->loop.state().config; });
    return text;
}

int AgentPeer::sendStabilizers(const std::vector<std::string>& names) {
    std::string message = "\x06";
    appendNames(message, names);
    return sendRaw(message);
}

int AgentPeer::updateStabilizers(const std::vector<std::string>& added,
                                 const std::vector<std::string>& removed) {
    std::string message = "\x07";
    appendNames(message, added);
    appendNames(message, removed);
    return sendRaw(message);
}

int AgentPeer::sendRaw(const std::string& bytes) {
    int sent = 0;
    itsBody->apply([&] { sent = itsBody->loop.sendToWatchers(bytes); });
    return sent;
}

int AgentPeer::moveEvents(int port) {
    int moved = 0;
    itsBody->apply([&] {
        std::string error;
        if (itsBody->loop.moveEvents(port, error)) {
            moved = itsBody->loop.eventsPort();
            itsBody->eventsPort = moved;
        } else {
            itsBody->fail(error);
        }
    });
    return moved;
}

int AgentPeer::closeConnections(Role role, bool byReset) {
    int closed = 0;
    itsBody->apply([&] { closed = itsBody->loop.closeConnections(role, byReset); });
    return closed;
}

void AgentPeer::pauseReading(bool paused) {
    itsBody->apply([&] { itsBody->loop.state().isPaused = paused; });
}

std::vector<ReceivedEvent> AgentPeer::waitForEvents(std::size_t count, int timeoutMs) {
    return itsBody->store.waitForEvents(count, timeoutMs);
}

std::vector<ReceivedEvent> AgentPeer::events() const {
    return itsBody->store.events();
}

void AgentPeer::forgetEvents() {
    itsBody->store.forgetEvents();
}

std::vector<MalformedReport> AgentPeer::malformed() const {
    return itsBody->store.malformed();
}

Counters AgentPeer::counters() const {
    return itsBody->store.counters();
}

bool AgentPeer::waitForSubscription(int count, int timeoutMs) {
    return waitFor([=](const Counters& counters) { return counters.subscriptions >= count; },
                   timeoutMs);
}

bool AgentPeer::waitFor(const std::function<bool(const Counters&)>& met, int timeoutMs) {
    return itsBody->store.waitFor(met, timeoutMs);
}

}  // namespace QZAgent
