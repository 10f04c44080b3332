#pragma once

#include <poll.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agent/AgentPeer.h"
#include "agent/EventStore.h"
#include "agent/PeerConnection.h"
#include "agent/Sockets.h"

namespace QZAgent {

/// The peer's thread: it alone touches the listeners and connections. Others hand it work with
/// run(), which returns when the work is done, so that no lock is needed on anything it owns.
class PeerLoop {
public:
    PeerLoop(const PeerSettings& settings, EventStore& store);
    ~PeerLoop();
    PeerLoop(const PeerLoop&) = delete;
    PeerLoop& operator=(const PeerLoop&) = delete;

    /// Opens both listeners; then begin() starts the thread. False with `error` set when a port or
    /// the thread can't be had; nothing is left open then.
    bool open(int controlPort, int eventsPort, std::string& error);
    bool begin(std::string& error);
    void stop();

    /// Runs `work` on the thread. False, and nothing run, when the thread isn't there. From the
    /// thread itself, that is from a callback, it runs at once.
    bool run(const std::function<void()>& work);
    bool isOnThread() const { return itsThreadId.load() == std::this_thread::get_id(); }

    // The rest: on the thread, or while it doesn't run.
    PeerState& state() { return itsState; }
    int controlPort() const { return itsControl.isOpen() ? portOf(itsControl) : 0; }
    int eventsPort() const { return itsEvents.isOpen() ? portOf(itsEvents) : controlPort(); }
    bool moveEvents(int port, std::string& error);
    void setFaults(const Faults& faults, Port port);
    int sendToWatchers(const std::string& bytes);
    int closeConnections(Role role, bool byReset);

private:
    using Time = PeerConnection::Time;

    bool startThread();
    void loop();
    void runWork();
    void gather(Time now);
    int timeout(Time now) const;
    void serve(Time now);
    void accept(const Socket& listener, Port port, Time now);
    void dropClosed();
    void wake() const;

    const std::string itsAddress;
    const int itsReceiveBuffer;
    EventStore& itsStore;

    std::mutex itsWorkLock;
    std::condition_variable itsWorkDone;
    std::deque<const std::function<void()>*> itsWork;  // Guarded by itsWorkLock, as the next three.
    std::uint64_t itsWorkGiven = 0;
    std::uint64_t itsWorkFinished = 0;
    bool itIsRunning = false;

    Socket itsWake;  // An eventfd.
    std::thread itsThread;
    std::atomic<std::thread::id> itsThreadId{std::thread::id()};

    PeerState itsState;
    Socket itsControl;
    Socket itsEvents;  // Closed when the control port serves both.
    Faults itsControlFaults;
    Faults itsEventsFaults;
    std::vector<std::unique_ptr<PeerConnection>> itsConnections;
    std::vector<pollfd> itsPolled;
    std::vector<unsigned char> itsScratch;
    Time itsNextAccept = Time::min();
    int itsNumbers = 0;
    bool itIsServing = false;  // The connections are being walked: none may go.
};

}  // namespace QZAgent
