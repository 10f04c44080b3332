// The sockets: the sends, how a slot is had, what the agent says on it, how a socket is made, and
// the end of their use.
#include <sys/socket.h>

#include <cxxabi.h>

#include "config/InterceptorConfig.h"
#include "uplink/SocketUplink.h"
#include "util/Clock.h"
#include "util/exceptions.h"
#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK {

namespace {

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
class QZ_LOCAL SocketUplink::Lease {
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
    chooseHost(host);
    std::unique_ptr<Util::Socket> socket = connectTo(host.c_str(), port);
    if (socket) SetSendBufferSize(socket->itsDescriptor, itsSettings.bufferSize);
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
