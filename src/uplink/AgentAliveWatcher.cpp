#include "uplink/AgentAliveWatcher.h"

#include <cxxabi.h>

#include "config/InterceptorConfig.h"
#include "io/BufferedInputStream.h"
#include "io/ByteArrayInputStream.h"
#include "uplink/BootstrapConfig.h"
#include "uplink/SocketStreams.h"
#include "util/ByteStreamReader.h"
#include "util/diagnostics.h"
#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr unsigned long kForever = ~0UL;
constexpr int kReconnectPause = 50;  // ms
constexpr int kConfigBuffer = 2048;
constexpr int kSubscription[] = {5, 3, 0, 0};
constexpr char kLocalHost[] = "127.0.0.1";
constexpr int kMostStabilizers = 1 << 20;
constexpr long long kMostStabilizerBytes = 1 << 26;

enum MessageType { kConfiguration = 4, kResetStabilizers = 6, kUpdateStabilizers = 7 };

void checkCount(int count, long long bytes = 0) {
    if (count < 0 || count > kMostStabilizers || bytes > kMostStabilizerBytes)
        Util::raise<Util::IOException>("Invalid number of stabilizers");
}

int readCount(IO::DataInputStream* in) {
    const int count = in->readUnsignedInt();
    checkCount(count);
    return count;
}

// The set is bounded too: many messages must not fill what one may not.
void readStabilizers(IO::DataInputStream* in, Util::Map<Util::String>& names) {
    long long bytes = 0;
    for (auto* node = names.getEntryList()->getHead(); node != nullptr; node = node->next)
        bytes += node->data->key.length();
    for (int count = readCount(in); count > 0; --count) {
        const Util::String name = in->readUTF();
        bytes += name.length();
        names.put(name, "TRUE");
        checkCount(names.size(), bytes);
    }
}

}  // namespace

/// A thread that is counted as waiting for the start.
struct AsyncBinaryUplink::AgentAliveWatcher::StartWait {
    explicit StartWait(AgentAliveWatcher& watcher) : itsWatcher(watcher) {
        Util::MutexGuard guard(itsWatcher.itsWaiterLock);
        ++itsWatcher.itsWaiters;
    }
    ~StartWait() {
        Util::MutexGuard guard(itsWatcher.itsWaiterLock);
        --itsWatcher.itsWaiters;
    }
    StartWait(const StartWait&) = delete;
    StartWait& operator=(const StartWait&) = delete;

    AgentAliveWatcher& itsWatcher;
};

AsyncBinaryUplink::AgentAliveWatcher::AgentAliveWatcher(AsyncBinaryUplink* uplink)
    : itsThread(this, "qz-watcher"), itsUplink(uplink) {}

bool AsyncBinaryUplink::AgentAliveWatcher::start() {
    if (!itsThread.start()) return false;
    itsThread.detach();
    return true;
}

void AsyncBinaryUplink::AgentAliveWatcher::run() {
    do {
        try {
            if (connectandListen()) {
                // So that a quick restart of the agent is met at once.
                rest(kReconnectPause);
                connectandListen();
            }
            doRunFinally();
            rest(itsUplink->itsTestFreq);
        } catch (abi::__forced_unwind&) {
            throw;
        } catch (...) {
            doRunFinally();
            errorMsg("AgentAliveWather::run(): Unexpected exception.\n");
        }
    } while (itKeepsRunning);
    if (debugOn()) forcedMsg(4, "AgentAliveWatcher shutting down.\n");
}

bool AsyncBinaryUplink::AgentAliveWatcher::connectandListen() {
    const std::shared_ptr<BootstrapConfig> config = itsUplink->bootstrap();
    std::unique_ptr<Util::Socket> socket;
    std::unique_ptr<SocketStreams> streams;
    const char* host = kLocalHost;
    int port = 0;
    try {
        // After a shutdown there is no address to go to.
        if (config) {
            config->settle();
            if (!config->itsAddr.empty()) host = config->itsAddr.c_str();
            port = config->itsPort;
            socket = itsUplink->createAndTestSocket(host, port, streams);
        }
        if (socket) meet(socket.get(), streams.get());
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        if (debugOn())
            forcedMsg(1, "AgentAliveWatcher::connectandListen() unexpected exception.\n");
    }
    // Waiters must not hang on a first attempt that failed.
    connectAndListenFinally();
    if (!socket) {
        reportNoContact(host, port);
        return false;
    }
    if (debugOn())
        forcedMsg(4, "Lost connection to agent at %s on port %d\n", socket->itsHost,
                  socket->itsDescriptor);
    socket->closeSocket();
    return true;
}

void AsyncBinaryUplink::AgentAliveWatcher::meet(Util::Socket* socket,
                                                const SocketStreams* streams) {
    itHasReportedFailure = false;
    itsUplink->itsAgentAlive = true;
    if (debugOn())
        forcedMsg(4, "Found agent listening for events at %s on port %d\n", socket->itsHost,
                  socket->itsDescriptor);
    listenAgentNotifications(streams);
}

void AsyncBinaryUplink::AgentAliveWatcher::reportNoContact(const char* host, int port) {
    if (!debugOn() || itHasReportedFailure) return;
    forcedMsg(1, "Unable to contact agent at %s on port %d\n", host, port);
    itHasReportedFailure = true;
}

void AsyncBinaryUplink::AgentAliveWatcher::listenAgentNotifications(const SocketStreams* streams) {
    IO::DataOutputStream* out = streams->itsDataOut.get();
    IO::DataInputStream* in = streams->itsDataIn.get();
    for (const int byte : kSubscription) out->writeByte(byte);
    out->flush();
    for (;;) {
        const int type = in->read();
        switch (type) {
            case -1:
                return;
            case kConfiguration:
                if (debugOn())
                    forcedMsg(4,
                              "AgentAliveWatcher::listenAgentNotifications:receiving new config: "
                              "resetting all sockets.\n");
                try {
                    itsUplink->closeAll();
                    receiveNewConfiguration(out, in);
                } catch (...) {
                    setStartMonitorFinally();
                    throw;
                }
                setStartMonitorFinally();
                break;
            case kResetStabilizers:
                if (debugOn())
                    forcedMsg(4,
                              "AgentAliveWatcher::listenAgentNotifications: resetting "
                              "stabilizers.\n");
                resetStabilizers(out, in);
                break;
            case kUpdateStabilizers:
                if (debugOn())
                    forcedMsg(4,
                              "AgentAliveWatcher::listenAgentNotifications: updating "
                              "stabilizers.\n");
                updateStabilizers(out, in);
                break;
            default:
                errorMsg("unexpected message type: %d. Closing connection.\n", type);
                return;
        }
    }
}

void AsyncBinaryUplink::AgentAliveWatcher::receiveNewConfiguration(IO::DataOutputStream* /*out*/,
                                                                   IO::DataInputStream* in) {
    int length = 0;
    const std::unique_ptr<unsigned char[]> block(in->readBytes(length));
    IO::ByteArrayInputStream bytes(Util::ByteArray(block.get(), length, false));
    IO::BufferedInputStream buffered(&bytes, kConfigBuffer);
    Util::ByteStreamReader reader(&buffered);
    try {
        InterceptorConfig::itsCurrent.load(reader);
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        errorMsg("AgentAliveWatcher::receiveNewConfiguration: unexpected error.");
    }
    reader.closeReader();
}

void AsyncBinaryUplink::AgentAliveWatcher::resetStabilizers(IO::DataOutputStream* /*out*/,
                                                            IO::DataInputStream* in) {
    // The old set stays when the stream ends in the middle.
    auto fresh = std::make_unique<Util::Map<Util::String>>(2, 0, 0);
    readStabilizers(in, *fresh);
    itsStabilizers = std::move(fresh);
}

void AsyncBinaryUplink::AgentAliveWatcher::updateStabilizers(IO::DataOutputStream* /*out*/,
                                                             IO::DataInputStream* in) {
    if (!itsStabilizers) itsStabilizers = std::make_unique<Util::Map<Util::String>>(2, 0, 0);
    readStabilizers(in, *itsStabilizers);
    for (int count = readCount(in); count > 0; --count) itsStabilizers->erase(in->readUTF());
}

void AsyncBinaryUplink::AgentAliveWatcher::waitForStart() {
    {
        const StartWait counted(*this);
        try {
            // From here on the end of the start signals; it may have come just before.
            if (!itHasStarted) itsStarted.wait(kForever);
        } catch (abi::__forced_unwind&) {
            throw;
        } catch (...) {
            if (debugOn())
                forcedMsg(1, "AgentAliveWatcher::waitForInitialConfig: unknown exception.\n");
        }
    }
    if (debugOn()) forcedMsg(4, "AgentAliveWatcher::waitForInitialConfig:: wait over.\n");
}

// True for the one call that found the start going on.
bool AsyncBinaryUplink::AgentAliveWatcher::markStarted() {
    {
        Util::MutexGuard guard(itsStartLock);
        if (itHasStarted) return false;
        itHasStarted = true;
    }
    Util::MutexGuard guard(itsWaiterLock);
    if (itsWaiters > 0) itsStarted.signal();
    return true;
}

void AsyncBinaryUplink::AgentAliveWatcher::setStartMonitorFinally() {
    if (markStarted() && debugOn())
        forcedMsg(4, "AgentAliveWatcher::listenAgentNotifications: signal others wait is over.\n");
}

void AsyncBinaryUplink::AgentAliveWatcher::connectAndListenFinally() {
    markStarted();
}

void AsyncBinaryUplink::AgentAliveWatcher::doRunFinally() {
    itsUplink->itsAgentAlive = false;
}

void AsyncBinaryUplink::AgentAliveWatcher::shutdown() {
    itKeepsRunning = false;
}

}  // namespace Quenvale::Interceptor::SDK
