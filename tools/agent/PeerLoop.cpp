#include "agent/PeerLoop.h"

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <utility>

namespace QZAgent {

namespace {

constexpr std::size_t kScratchSize = 65536;  // bytes read from a connection at a time
constexpr std::size_t kListeners = 3;        // the polled entries before those of connections
constexpr std::chrono::milliseconds kAcceptPause(200);  // when descriptors have run out

}  // namespace

PeerLoop::PeerLoop(const PeerSettings& settings, EventStore& store)
    : itsAddress(settings.address),
      itsReceiveBuffer(settings.receiveBuffer),
      itsStore(store),
      itsState(store),
      itsScratch(kScratchSize) {
    itsState.agentId = settings.agentId;
    itsState.blockLimit = settings.blockLimit;
    itsState.bufferLimit = settings.bufferLimit;
}

PeerLoop::~PeerLoop() {
    stop();
}

bool PeerLoop::open(int controlPort, int eventsPort, std::string& error) {
    itsControl.close();
    itsEvents.close();
    itsControl = listenOn(itsAddress, controlPort, itsReceiveBuffer, error);
    if (!itsControl.isOpen()) return false;
    if (eventsPort == 0 || eventsPort != controlPort) {
        itsEvents = listenOn(itsAddress, eventsPort, itsReceiveBuffer, error);
        if (!itsEvents.isOpen()) {
            itsControl.close();
            return false;
        }
    }
    return true;
}

bool PeerLoop::begin(std::string& error) {
    itsWake = Socket(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (itsWake.isOpen() && startThread()) return true;
    error = "can't start the agent's thread";
    itsControl.close();
    itsEvents.close();
    return false;
}

bool PeerLoop::startThread() {
    // The signals of the program that holds the peer are for that program's threads.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    {
        const std::lock_guard<std::mutex> guard(itsWorkLock);
        itIsRunning = true;
    }
    try {
        itsThread = std::thread([this] { loop(); });
        pthread_setname_np(itsThread.native_handle(), "qz-agent-peer");
    } catch (const std::system_error&) {
        const std::lock_guard<std::mutex> guard(itsWorkLock);
        itIsRunning = false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return itsThread.joinable();
}

void PeerLoop::stop() {
    if (!itsThread.joinable()) return;
    {
        const std::lock_guard<std::mutex> guard(itsWorkLock);
        itIsRunning = false;
    }
    wake();
    itsThread.join();
    itsThreadId = std::thread::id();
    itsControl.close();
    itsEvents.close();
    closeConnections(Role::Undecided, false);
    closeConnections(Role::Watcher, false);
    closeConnections(Role::EventStream, false);
    itsWake.close();
}

void PeerLoop::wake() const {
    const std::uint64_t one = 1;
    // Refused only when the counter is full, and then the thread is awake anyway.
    const ssize_t ignored = ::write(itsWake.descriptor(), &one, sizeof one);
    static_cast<void>(ignored);
}

bool PeerLoop::run(const std::function<void()>& work) {
    if (isOnThread()) {
        work();
        return true;
    }
    std::unique_lock<std::mutex> guard(itsWorkLock);
    if (!itIsRunning) return false;
    itsWork.push_back(&work);
    const std::uint64_t ticket = ++itsWorkGiven;
    wake();
    itsWorkDone.wait(guard, [&] { return itsWorkFinished >= ticket; });
    return true;
}

void PeerLoop::runWork() {
    std::unique_lock<std::mutex> guard(itsWorkLock);
    while (!itsWork.empty()) {
        const std::function<void()>* const work = itsWork.front();
        itsWork.pop_front();
        guard.unlock();
        (*work)();
        guard.lock();
        ++itsWorkFinished;
        itsWorkDone.notify_all();
    }
}

void PeerLoop::loop() {
    itsThreadId = std::this_thread::get_id();
    for (;;) {
        runWork();
        dropClosed();
        {
            // Work given before the end was done above or is done here: nobody is left waiting.
            const std::lock_guard<std::mutex> guard(itsWorkLock);
            if (!itIsRunning && itsWork.empty()) return;
        }
        const Time now = std::chrono::steady_clock::now();
        gather(now);
        if (poll(itsPolled.data(), itsPolled.size(), timeout(now)) > 0)
            serve(std::chrono::steady_clock::now());
    }
}

void PeerLoop::gather(Time now) {
    itsPolled.clear();
    const bool accepts = now >= itsNextAccept;
    itsPolled.push_back({itsWake.descriptor(), POLLIN, 0});
    itsPolled.push_back({accepts ? itsControl.descriptor() : -1, POLLIN, 0});
    itsPolled.push_back({accepts ? itsEvents.descriptor() : -1, POLLIN, 0});
    for (const auto& connection : itsConnections) {
        const int events =
            (connection->wantsRead(now) ? POLLIN : 0) | (connection->wantsWrite() ? POLLOUT : 0);
        // Left out entirely when nothing is wanted: an ended connection would be reported on and
        // on.
        itsPolled.push_back(
            {events != 0 ? connection->descriptor() : -1, static_cast<short>(events), 0});
    }
}

int PeerLoop::timeout(Time now) const {
    Time next = Time::max();
    if (itsNextAccept > now) next = itsNextAccept;
    for (const auto& connection : itsConnections) {
        if (!itsState.isPaused && connection->nextRead() > now)
            next = std::min(next, connection->nextRead());
    }
    if (next == Time::max()) return -1;
    return static_cast<int>(
               std::chrono::duration_cast<std::chrono::milliseconds>(next - now).count()) +
           1;
}

void PeerLoop::serve(Time now) {
    if (itsPolled[0].revents != 0) {
        std::uint64_t count = 0;
        const ssize_t ignored = ::read(itsWake.descriptor(), &count, sizeof count);
        static_cast<void>(ignored);
    }
    // Connections first: those that are accepted below have no entry yet.
    const std::size_t polled = itsPolled.size() - kListeners;
    itIsServing = true;
    for (std::size_t i = 0; i < polled; ++i) {
        PeerConnection& connection = *itsConnections[i];
        const short happened = itsPolled[kListeners + i].revents;
        if (happened == 0) continue;
        if ((happened & POLLOUT) != 0) connection.write();
        const bool isReadable = (happened & (POLLIN | POLLHUP | POLLERR)) != 0;
        if (isReadable && connection.isOpen() && connection.wantsRead(now)) {
            connection.read(itsScratch.data(), itsScratch.size(), now);
        }
    }
    itIsServing = false;
    if (itsPolled[1].revents != 0) accept(itsControl, Port::Control, now);
    if (itsPolled[2].revents != 0) accept(itsEvents, Port::Events, now);
}

void PeerLoop::accept(const Socket& listener, Port port, Time now) {
    std::string from;
    Socket accepted = acceptFrom(listener, from);
    if (!accepted.isOpen()) {
        if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM)
            itsNextAccept = now + kAcceptPause;
        return;
    }
    const bool isControl = port == Port::Control;
    const Faults& faults = isControl ? itsControlFaults : itsEventsFaults;
    itsConnections.push_back(std::make_unique<PeerConnection>(std::move(accepted), ++itsNumbers,
                                                              port, faults, itsState));
    itsStore.note("connection " + std::to_string(itsNumbers) + " from " + from + " on the " +
                  (isControl ? "control" : "events") + " port");
    itsStore.count([&](Counters& counters) {
        ++(isControl ? counters.controlConnections : counters.eventConnections);
        ++counters.openConnections;
    });
}

void PeerLoop::dropClosed() {
    const auto isClosed = [](const std::unique_ptr<PeerConnection>& connection) {
        return !connection->isOpen();
    };
    const auto first = std::remove_if(itsConnections.begin(), itsConnections.end(), isClosed);
    const auto dropped = static_cast<int>(itsConnections.end() - first);
    itsConnections.erase(first, itsConnections.end());
    if (dropped > 0)
        itsStore.count([&](Counters& counters) { counters.openConnections -= dropped; });
}

bool PeerLoop::moveEvents(int port, std::string& error) {
    if (port != 0 && port == controlPort()) {
        itsEvents.close();
        return true;
    }
    Socket moved = listenOn(itsAddress, port, itsReceiveBuffer, error);
    if (!moved.isOpen()) return false;
    itsEvents = std::move(moved);
    return true;
}

void PeerLoop::setFaults(const Faults& faults, Port port) {
    if (port != Port::Events) itsControlFaults = faults;
    if (port != Port::Control) itsEventsFaults = faults;
}

int PeerLoop::sendToWatchers(const std::string& bytes) {
    int sent = 0;
    for (const auto& connection : itsConnections) {
        if (!connection->isOpen() || connection->role() != Role::Watcher) continue;
        connection->send(bytes);
        ++sent;
    }
    return sent;
}

int PeerLoop::closeConnections(Role role, bool byReset) {
    int closed = 0;
    for (const auto& connection : itsConnections) {
        if (!connection->isOpen() || connection->role() != role) continue;
        connection->close(byReset);
        ++closed;
    }
    if (!itIsServing) dropClosed();
    return closed;
}

}  // namespace QZAgent
