// The sockets: how a slot is had, what the agent says on it, how it goes, and the sends.
#include <sys/socket.h>

#include <cxxabi.h>

#include "config/InterceptorConfig.h"
#include "uplink/SocketQueue.h"
#include "uplink/SocketUplink.h"
#include "util/Clock.h"
#include "util/exceptions.h"
#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr unsigned long kForever = ~0UL;
constexpr char kLocalHost[] = "127.0.0.1";
constexpr long long kConnectPause = 60000;  // ms
constexpr int kScratch = 64;                // bytes

// What an agent says is short. One that never stops must not hold a reporting thread for ever: the
// rest is taken at the next use of the socket.
constexpr int kMostReads = 1024;

// False when it throws. A configuration that isn't read from a file refuses each refresh, and that
// exception doesn't stay.
template <class F>
bool succeeds(F action) {
    try {
        action();
        return true;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (Util::APIException* exception) {
        delete exception;
    } catch (...) {
        return false;
    }
    return false;
}

}  // namespace

/// A slot that goes as if its socket had failed, unless it is given back or kept: a thread can be
/// cancelled in the middle of its use.
class SocketUplink::Lease {
public:
    Lease(SocketUplink& uplink, int slot) : itsUplink(uplink), itsSlot(slot) {}
    ~Lease() {
        if (itsSlot >= 0) itsUplink.release(itsSlot, true);
    }
    Lease(const Lease&) = delete;
    Lease& operator=(const Lease&) = delete;

    int slot() const { return itsSlot; }
    int keep() {
        const int slot = itsSlot;
        itsSlot = -1;
        return slot;
    }

private:
    SocketUplink& itsUplink;
    int itsSlot;  // Negative without one.
};

/// A thread that is counted as waiting for a slot. One signal can stand for several slots, and a
/// thread that could not connect, or was cancelled, leaves the slot it was woken for: at the end
/// the next in line is told.
struct SocketUplink::SlotWait {
    explicit SlotWait(SocketUplink& uplink) : itsUplink(uplink) {
        Util::MutexGuard guard(itsUplink.itsWaiterLock);
        ++itsUplink.itsWaiters;
    }
    ~SlotWait() {
        {
            Util::MutexGuard guard(itsUplink.itsWaiterLock);
            --itsUplink.itsWaiters;
        }
        if (itsUplink.hasFreeSlot()) itsUplink.signalIfAwaited();
    }
    SlotWait(const SlotWait&) = delete;
    SlotWait& operator=(const SlotWait&) = delete;

    SocketUplink& itsUplink;
};

void SocketUplink::send(const unsigned char* bytes, int length) {
    for (const bool isRetry : {false, true}) {
        Lease lease(*this, acquire());
        if (lease.slot() < 0) return;
        const bool isSent = SendBytes(socketOf(lease.slot())->itsDescriptor, bytes, length) == 1;
        // How the retry went isn't looked at: its socket goes back either way, and a dead one
        // shows at its next use.
        release(lease.keep(), !isSent && !isRetry);
        if (isSent) return;
    }
}

int SocketUplink::acquire() {
    // Each idle socket may turn out to be of no use, and then a new one. An agent that spoils new
    // ones at once must not keep the thread here.
    for (int left = itsPoolSize; left >= 0; --left) {
        Lease lease(*this, acquireInternal());
        if (lease.slot() < 0 || isUsable(lease.slot())) return lease.keep();
    }
    return -1;
}

// The agent writes on a connection for events only to say that the configuration has changed. What
// it writes doesn't matter.
bool SocketUplink::isUsable(int slot) {
    const int descriptor = socketOf(slot)->itsDescriptor;
    unsigned char scratch[kScratch];
    int count = 0;
    for (int i = 0; i < kMostReads && count >= 0 && BytesAvail(descriptor) != 0; ++i)
        count = ReceiveAvail(descriptor, scratch, kScratch);
    itsLastPoll = Util::Clock::_currentTimeMillis();
    if (count <= 0) return count == 0;
    return succeeds([&] {
        closeAll(slot);
        itsConfig.Refresh(true);
    });
}

int SocketUplink::acquireInternal() {
    bool isFull = false;
    int slot = takeSlot(isFull);
    if (!isFull) return slot;
    // From here on a release signals; the look behind the count finds the slots that came free
    // before that.
    const SlotWait counted(*this);
    for (slot = takeSlot(isFull); isFull; slot = takeSlot(isFull)) itsSocketFreed.wait(kForever);
    return slot;
}

// An idle slot, or an empty one for which a socket could be made. The lock is held through the
// connect, so that the pool grows by one socket at a time.
int SocketUplink::takeSlot(bool& isFull) {
    Util::MutexGuard guard(itsPoolLock);
    isFull = false;
    if (itIsStopping) return -1;
    int empty = -1;
    for (int i = 0; i < itsPoolSize; ++i) {
        if (itsSocketStates[i] == kIdle) {
            itsSocketStates[i] = kInUse;
            return i;
        }
        if (itsSocketStates[i] == kEmpty && empty < 0) empty = i;
    }
    isFull = empty < 0;
    if (isFull) return -1;
    std::unique_ptr<Util::Socket> socket = newSocket();
    if (!socket) return -1;
    itsSockets[empty] = std::move(socket);
    itsSocketStates[empty] = kInUse;
    ++itsOpenSockets;
    return empty;
}

bool SocketUplink::hasFreeSlot() {
    Util::MutexGuard guard(itsPoolLock);
    for (const SlotState state : itsSocketStates)
        if (state == kEmpty || state == kIdle) return true;
    return false;
}

void SocketUplink::signalIfAwaited() {
    {
        Util::MutexGuard guard(itsWaiterLock);
        if (itsWaiters < 1) return;
    }
    itsSocketFreed.signal();
}

void SocketUplink::release(int slot, bool discard) {
    // Closed behind the lock: a lingering close may take a second.
    std::unique_ptr<Util::Socket> closing;
    {
        Util::MutexGuard guard(itsPoolLock);
        if (discard || itsSocketStates[slot] == kInUseToBeClosed) {
            closing = std::move(itsSockets[slot]);
            itsSocketStates[slot] = kEmpty;
            --itsOpenSockets;
        } else {
            itsSocketStates[slot] = kIdle;
        }
    }
    signalIfAwaited();
}

void SocketUplink::closeAll(int exceptSlot) {
    std::vector<std::unique_ptr<Util::Socket>> closing;
    closing.reserve(static_cast<std::size_t>(itsPoolSize));
    {
        Util::MutexGuard guard(itsPoolLock);
        for (int i = 0; i < itsPoolSize; ++i) {
            if (i == exceptSlot) continue;
            if (itsSocketStates[i] == kInUse) itsSocketStates[i] = kInUseToBeClosed;
            if (itsSocketStates[i] != kIdle) continue;
            closing.push_back(std::move(itsSockets[i]));
            itsSocketStates[i] = kEmpty;
            --itsOpenSockets;
        }
    }
    signalIfAwaited();
}

std::unique_ptr<Util::Socket> SocketUplink::newSocket() {
    if (!getAlive()) return nullptr;
    const long long now = Util::Clock::_currentTimeMillis();
    if (now - itsLastConnectTry < kConnectPause) return nullptr;
    std::unique_ptr<Util::Socket> socket;
    succeeds([&] {
        itsConfig.Refresh(true);
        socket = connectAsConfigured();
    });
    if (!socket) itsLastConnectTry = Util::Clock::_currentTimeMillis();
    return socket;
}

std::unique_ptr<Util::Socket> SocketUplink::connectAsConfigured() {
    Util::String host;
    int port = 0;
    itsConfig.agentAddress(host, port);
    if (!itsSettings.remoteUplink) host = kLocalHost;
    sockaddr_in address;
    if (GetHostInfo(&address, nullptr, host.c_str()) == 0) return nullptr;
    auto socket = std::make_unique<Util::Socket>(-1, host.c_str());
    socket->itsDescriptor = OpenNativePort(&address, port);
    if (socket->itsDescriptor < 1) return nullptr;
    SetSendBufferSize(socket->itsDescriptor, itsSettings.bufferSize);
    return socket;
}

// From here on no slot is handed out, so whatever the flusher is in fails it soon.
void SocketUplink::stop() {
    itsRunning = false;
    {
        const std::lock_guard<std::mutex> guard(itsRestLock);
        itIsStopping = true;
    }
    itsRestEnd.notify_all();
    {
        Util::MutexGuard guard(itsPoolLock);
        for (int i = 0; i < itsPoolSize; ++i)
            if (itsSocketStates[i] == kInUse || itsSocketStates[i] == kInUseToBeClosed)
                ::shutdown(itsSockets[i]->itsDescriptor, SHUT_RDWR);
    }
    itsSocketFreed.signal();
    itsThread.join();
}

}  // namespace Quenvale::Interceptor::SDK
