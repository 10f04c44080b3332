#pragma once

#include <atomic>
#include <memory>

#include "io/DataInputStream.h"
#include "io/DataOutputStream.h"
#include "uplink/AsyncBinaryUplink.h"
#include "util/Map.h"

namespace Quenvale::Interceptor::SDK {

/// Keeps one connection to the agent's bootstrap address. The connection being up is what a live
/// agent means to the library; over it the agent pushes configurations and the names of its
/// stabilizers. Nothing but the subscription is written to it, and the end of the stream is how a
/// lost agent shows.
///
/// Threads:   run() and what it calls belong to the watcher thread. Application threads come to
///            waitForInitialConfig() only.
/// Ownership: the uplink owns the watcher.
class QZ_LOCAL AsyncBinaryUplink::AgentAliveWatcher final : public Runnable {
public:
    explicit AgentAliveWatcher(AsyncBinaryUplink* uplink);

    /// False when the thread can't be had.
    bool start();

    void run() override;

    /// One connection from its start to its end. True if one was made.
    bool connectandListen();

    /// Returns when the stream ends or brings a message that isn't known.
    void listenAgentNotifications(const SocketStreams* streams);
    void receiveNewConfiguration(IO::DataOutputStream* out, IO::DataInputStream* in);
    void resetStabilizers(IO::DataOutputStream* out, IO::DataInputStream* in);
    void updateStabilizers(IO::DataOutputStream* out, IO::DataInputStream* in);

    /// Blocks until the first attempt is over or has brought a configuration; one load from then
    /// on. Runs on: application.
    void waitForInitialConfig() {
        if (!itHasStarted) waitForStart();
    }

    // Both mark the end of the start.
    void setStartMonitorFinally();
    void connectAndListenFinally();

    /// The agent counts as not alive.
    void doRunFinally();

    /// The thread ends after its present connection and its next sleep.
    void shutdown();

    /// The names that the agent declared, as keys. Kept because the agent sends them; nothing in
    /// the library reads them. Null until the first message about them.
    std::unique_ptr<Util::Map<Util::String>> itsStabilizers;

private:
    std::atomic<bool> itHasStarted{false};  // Never cleared. Set under itsStartLock.
    bool itHasReportedFailure = false;      // Since the last success.
    std::atomic<bool> itKeepsRunning{true};
    Util::qzmutex itsStartLock;
    Util::qzmutex itsWaiterLock;  // Never held together with itsStartLock.
    int itsWaiters QZ_GUARDED_BY(itsWaiterLock) = 0;
    Util::qzevent itsStarted{true, false};  // Manual reset: it lets every waiter through.
    qzthread itsThread;
    AsyncBinaryUplink* itsUplink;

    struct StartWait;

    void waitForStart();
    bool markStarted();
    void meet(Util::Socket* socket, const SocketStreams* streams);
    void reportNoContact(const char* host, int port);
};

}  // namespace Quenvale::Interceptor::SDK
