// The pool of event sockets: how a slot is had, given back and emptied, and how a socket is made.
#include <cxxabi.h>

#include "config/InterceptorConfig.h"
#include "uplink/AsyncBinaryUplink.h"
#include "uplink/SocketStreams.h"
#include "util/diagnostics.h"
#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr unsigned long kForever = ~0UL;
constexpr char kLocalHost[] = "127.0.0.1";

}  // namespace

/// A thread that is counted as waiting for a slot. One signal can stand for several slots, and a
/// thread that could not connect, or that an exception or its cancellation takes away, leaves the
/// slot it was woken for: at the end the next in line is told.
struct AsyncBinaryUplink::SlotWait {
    explicit SlotWait(AsyncBinaryUplink& uplink) : itsUplink(uplink) {
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

    AsyncBinaryUplink& itsUplink;
};

int AsyncBinaryUplink::acquire() {
    for (;;) {
        const int slot = acquireInternal();
        if (slot < 0) return slot;
        const Util::Socket* socket = socketOf(slot);
        if (socket != nullptr && socket->itsDescriptor > 0) return slot;
        release(slot, true);
    }
}

int AsyncBinaryUplink::acquireInternal() {
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
int AsyncBinaryUplink::takeSlot(bool& isFull) {
    Util::MutexGuard guard(itsPoolLock);
    int empty = -1;
    for (int i = 0; i < itsPoolSize; ++i) {
        if (itsSocketStates[i] == kIdle) {
            itsSocketStates[i] = kInUse;
            isFull = false;
            return i;
        }
        if (itsSocketStates[i] == kEmpty && empty < 0) empty = i;
    }
    isFull = empty < 0;
    if (isFull) return -1;
    std::unique_ptr<Util::Socket> socket = newSocketFromUplinkCfg();
    if (!socket) return -1;
    itsSockets[empty] = std::move(socket);
    itsSocketStates[empty] = kInUse;
    ++itsOpenSockets;
    return empty;
}

bool AsyncBinaryUplink::hasFreeSlot() {
    Util::MutexGuard guard(itsPoolLock);
    for (const SlotState state : itsSocketStates)
        if (state == kEmpty || state == kIdle) return true;
    return false;
}

void AsyncBinaryUplink::signalIfAwaited() {
    {
        Util::MutexGuard guard(itsWaiterLock);
        if (itsWaiters < 1) return;
    }
    itsSocketFreed.signal();
}

void AsyncBinaryUplink::release(int slot, bool discard) {
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

void AsyncBinaryUplink::closeAll() {
    std::vector<std::unique_ptr<Util::Socket>> closing;
    closing.reserve(static_cast<std::size_t>(itsPoolSize));
    {
        Util::MutexGuard guard(itsPoolLock);
        for (int i = 0; i < itsPoolSize; ++i) {
            if (itsSocketStates[i] == kInUse) itsSocketStates[i] = kInUseToBeClosed;
            if (itsSocketStates[i] != kIdle) continue;
            closing.push_back(std::move(itsSockets[i]));
            itsSocketStates[i] = kEmpty;
            --itsOpenSockets;
        }
    }
    signalIfAwaited();
}

std::unique_ptr<Util::Socket> AsyncBinaryUplink::newSocketFromUplinkCfg() {
    if (!getAlive()) return nullptr;
    Util::String host;
    int port = 0;
    InterceptorConfig::itsCurrent.agentAddress(host, port);
    if (!itsSettings.remoteUplink) host = kLocalHost;
    std::unique_ptr<SocketStreams> streams;
    std::unique_ptr<Util::Socket> socket = createAndTestSocket(host.c_str(), port, streams);
    if (!socket && debugOn())
        forcedMsg(1, "Failed to create socket from agent at host %s, port %d\n.",
                  host.empty() ? "" : host.c_str(), port);
    return socket;
}

std::unique_ptr<Util::Socket> AsyncBinaryUplink::createAndTestSocket(
    const char* host, int port, std::unique_ptr<SocketStreams>& streams) {
    try {
        std::unique_ptr<Util::Socket> socket = connectTo(host, port);
        if (!socket) return nullptr;
        SetSendBufferSize(socket->itsDescriptor, itsSettings.bufferSize);
        streams = std::make_unique<SocketStreams>(socket.get(), false);
        if (doConnectionHandshaking(socket.get(), streams.get())) return socket;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        streams.reset();
        return nullptr;
    }
    streams.reset();
    return nullptr;
}

std::unique_ptr<Util::Socket> AsyncBinaryUplink::connectTo(const char* host, int port) {
    auto socket = std::make_unique<Util::Socket>(-1, host);
    sockaddr_in address;
    if (GetHostInfo(&address, nullptr, host) == 0) return nullptr;
    socket->itsDescriptor = OpenNativePort(&address, port);
    if (socket->itsDescriptor < 1) return nullptr;
    return socket;
}

}  // namespace Quenvale::Interceptor::SDK
