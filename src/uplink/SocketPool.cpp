// The pool of event sockets: how a slot is had, given back and emptied.
#include "uplink/PooledUplink.h"
#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr unsigned long kForever = ~0UL;
constexpr char kLocalHost[] = "127.0.0.1";

}  // namespace

/// A thread that is counted as waiting for a slot. One signal can stand for several slots, and a
/// thread that could not connect, or that an exception or its cancellation takes away, leaves the
/// slot it was woken for: at the end the next in line is told.
struct QZ_LOCAL PooledUplink::SlotWait {
    explicit SlotWait(PooledUplink& uplink) : itsUplink(uplink) {
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

    PooledUplink& itsUplink;
};

int PooledUplink::acquireInternal() {
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
int PooledUplink::takeSlot(bool& isFull) {
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

bool PooledUplink::hasFreeSlot() {
    Util::MutexGuard guard(itsPoolLock);
    for (const SlotState state : itsSocketStates)
        if (state == kEmpty || state == kIdle) return true;
    return false;
}

void PooledUplink::signalIfAwaited() {
    {
        Util::MutexGuard guard(itsWaiterLock);
        if (itsWaiters < 1) return;
    }
    itsSocketFreed.signal();
}

void PooledUplink::release(int slot, bool discard) {
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

void PooledUplink::closeAll(int exceptSlot) {
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

std::unique_ptr<Util::Socket> PooledUplink::connectTo(const char* host, int port) {
    auto socket = std::make_unique<Util::Socket>(-1, host);
    sockaddr_in address;
    if (GetHostInfo(&address, nullptr, host) == 0) return nullptr;
    socket->itsDescriptor = OpenNativePort(&address, port);
    if (socket->itsDescriptor < 1) return nullptr;
    return socket;
}

void PooledUplink::chooseHost(Util::String& host) const {
    if (!itsSettings.remoteUplink) host = kLocalHost;
}

}  // namespace Quenvale::Interceptor::SDK
