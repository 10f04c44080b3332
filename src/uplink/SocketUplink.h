#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>

#include "uplink/PooledUplink.h"
#include "util/ByteArray.h"

namespace Quenvale::Interceptor::SDK {

class InterceptorConfig;

/// An uplink for a receiver that wants events and nothing else: their bytes go over a raw
/// connection as they stand, one behind the other, each with its payload inside. There is no
/// handshake and no answer. The library itself makes an AsyncBinaryUplink; this one is for users of
/// the classes.
///
/// Queues and pool are like those of AsyncBinaryUplink, but a flush of an empty queue takes a
/// socket too, opening one if need be. There is no watcher: whether an agent is there, and where,
/// stands in the configuration file, which is read again before each connect. Any byte that the
/// agent sends on an event connection means that the file has changed. The process's own
/// configuration is pushed and refuses to be read from the file, so that no connection comes about
/// under it; a derived class hands over one that comes from the file.
///
/// Delivery is looser than it seems: a buffer that fails is sent whole on one other socket, whose
/// outcome nobody looks at, and a buffer for which no socket is to be had is lost. After a failed
/// connect none is tried for a minute.
///
/// Threads:   application threads report, flush and send; the flusher runs run().
/// Ownership: whoever makes it. It goes after the last report to it and after the interactions that
///            reported to it; its destruction waits for the flusher, and for a connect that the
///            flusher is in.
/// Units:     times are milliseconds, sizes are bytes.
/// Errors:    a caller never hears of a failure to deliver. An exception from the accessors of the
///            interaction passes through notifyAgent().
/// Locks:     a queue's itsDataLock, its itsSendLock, itsPoolLock, then the configuration's.
///            itsWaiterLock and itsRestLock are held alone.
class QZ_API SocketUplink : public PooledUplink {
public:
    /// From the environment, as it was when the library loaded.
    static const Params& itsParams;

    /// Ignores SIGPIPE for the process and starts the flusher. Where no thread is to be had, only
    /// full queues and flushAllQueues() send. Not for a derived class: the flusher must not start
    /// in a half made object.
    SocketUplink();
    /// What is queued is lost.
    ~SocketUplink();
    SocketUplink(const SocketUplink&) = delete;
    SocketUplink& operator=(const SocketUplink&) = delete;

    /// True while a socket is open, otherwise what the configuration says of its file.
    bool getAlive() override;

    /// Queues the present stage of the interaction, or drops it without an agent. A call's reply
    /// takes the queue of its request. A call that reports to another uplink first may have its two
    /// events in two queues.
    void notifyAgent(Interaction* interaction) override;

    /// The flusher ends after its present sleep. Sockets stay open, and what is queued stays
    /// unsent.
    void shutdown() override;

protected:
    /// Everything but the flusher. `config` is borrowed for the life of the object.
    SocketUplink(const Params& params, InterceptorConfig& config);

    /// The last step of a derived class's constructor.
    void startFlusher();
    /// Ends the flusher, whatever it is in, and all use of sockets. A class that is derived calls
    /// it first in its own destructor.
    void stop();

    /// @cond
    // Queues.

    /// An event without data only sends what is queued. `time` belongs to the event.
    void queueEvent(SocketQueue* queue, long long time, const Util::ByteArray& event,
                    bool flushAllowed);

    void flushQueue(SocketQueue* queue) override;
    void rest() override;

    /// With up to two sockets, one after the other.
    void send(const unsigned char* bytes, int length);

    // The pool.

    /// What the agent said on the socket has been taken and followed.
    int acquire() override;
    /// To the address in the configuration; null without a live agent and too soon after a failure.
    std::unique_ptr<Util::Socket> newSocket() QZ_REQUIRES(itsPoolLock) override;

    InterceptorConfig& itsConfig;
    std::atomic<long long> itsLastPoll{0};                       // When a socket was last checked.
    long long itsLastConnectTry QZ_GUARDED_BY(itsPoolLock) = 0;  // When a connect last failed.

private:
    class Lease;

    void sendQueued(SocketQueue* queue, int eventLength,
                    Util::LatchGuard& data) QZ_NO_THREAD_SAFETY_ANALYSIS;
    bool isUsable(int slot);
    std::unique_ptr<Util::Socket> connectAsConfigured();

    std::mutex itsRestLock;              // itIsStopping is set under it.
    std::condition_variable itsRestEnd;  // The flusher's sleep is cut short.
    /// @endcond
};

}  // namespace Quenvale::Interceptor::SDK
