#pragma once

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <vector>

#include "uplink/AsyncBinaryUplink.h"
#include "uplink/Uplink.h"
#include "uplink/UplinkData.h"
#include "util/ByteArray.h"
#include "util/Runnable.h"
#include "util/Socket.h"
#include "util/blocks.h"
#include "util/qzevent.h"
#include "util/qzmutex.h"
#include "util/qzthread.h"

namespace Quenvale::Interceptor::SDK {

class InterceptorConfig;

/// An uplink for a receiver that wants events and nothing else: their bytes go over a raw
/// connection as they stand, one behind the other, each with its payload inside. There is no
/// handshake and no answer. The library itself makes an AsyncBinaryUplink; this one is for users of
/// the classes.
///
/// Queues and pool are those of AsyncBinaryUplink. There is no watcher: whether an agent is there,
/// and where, stands in the configuration file, which is read again before each connect. Any byte
/// that the agent sends on an event connection means that the file has changed. The process's own
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
class QZ_API SocketUplink : public Uplink, public Runnable {
public:
    using SocketQueue = AsyncBinaryUplink::SocketQueue;  // What events wait in.
    class SocketQueueRef;

    /// What an uplink with queues and a pool is tuned by; UplinkParameters has the names.
    struct Params {
        int bufferSize;     // bytes
        int queueCount;     // Queues; used between 1 and a limit.
        int poolSize;       // Sockets; the same.
        int flushInterval;  // ms
        int maxAge;         // ms
        bool remoteUplink;  // Events go to the configuration's host.

        /// Those of the values that matter here.
        static Params of(const UplinkParameters::Values& values) {
            return {values.bufferSize,    values.queueCount, values.poolSize,
                    values.flushInterval, values.maxAge,     values.remoteUplink};
        }
    };

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
    /// takes the queue of its request. Where another uplink has attached something, that stays, and
    /// each event takes the queue with the fewest attachments. What this one attaches must never
    /// reach an AsyncBinaryUplink, which would take it for its own.
    void notifyAgent(Interaction* interaction) override;

    /// Sends all queues on the calling thread. An empty one takes a socket like any other,
    /// opening one if need be.
    void flushAllQueues() override;

    /// The flusher ends after its present sleep. Sockets stay open, and what is queued stays
    /// unsent.
    void shutdown() override;

    /// The flusher's body.
    void run() override;

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

    /// A new attachment to the queue with the fewest of them.
    UplinkData* pick();

    /// An event without data only sends what is queued. `time` belongs to the event.
    void queueEvent(SocketQueue* queue, long long time, const Util::ByteArray& event,
                    bool flushAllowed);

    /// Sends what is queued, once a send of this queue that is under way is over.
    void flushQueue(SocketQueue* queue);
    /// Sends the queues that are due; with none, looks after one socket. Runs on: flusher.
    void flushAged();
    /// Whether the queue holds an event that would be too old at the next pass.
    static bool isDue(SocketQueue* queue, long long now, long long limit);

    /// With up to two sockets, one after the other.
    void send(const unsigned char* bytes, int length);

    // The pool. A slot in use belongs to one thread, which uses its socket without a lock.

    enum SlotState { kEmpty = 0, kIdle = 1, kInUse = 2, kInUseToBeClosed = 3 };

    /// A slot with an open socket, for the caller to release(); negative without one. Waits while
    /// all are in use, and for the connect of a new one. What the agent said on the socket has
    /// been taken and followed.
    int acquire();
    int acquireInternal();
    void release(int slot, bool discard);
    /// Ends the use of all sockets but one, those in use at their release.
    void closeAll(int exceptSlot);
    Util::Socket* socketOf(int slot) QZ_NO_THREAD_SAFETY_ANALYSIS { return itsSockets[slot].get(); }

    /// To the address in the configuration; null without a live agent and too soon after a failure.
    std::unique_ptr<Util::Socket> newSocket() QZ_REQUIRES(itsPoolLock);

    const Params itsSettings;  // itsParams, other than in tests.
    InterceptorConfig& itsConfig;
    const int itsPoolSize;
    const int itsQueueCount;

    std::vector<std::unique_ptr<Util::Socket>> itsSockets QZ_GUARDED_BY(itsPoolLock);
    std::vector<SlotState> itsSocketStates QZ_GUARDED_BY(itsPoolLock);
    std::atomic<int> itsOpenSockets{0};                          // Changed under itsPoolLock.
    std::atomic<long long> itsLastPoll{0};                       // When a socket was last checked.
    long long itsLastConnectTry QZ_GUARDED_BY(itsPoolLock) = 0;  // When a connect last failed.
    qzthread itsThread;
    Util::qzevent itsSocketFreed{false, false};  // A slot may have come free.
    std::atomic<bool> itsRunning{true};
    Util::qzmutex itsPoolLock;
    Util::qzmutex itsWaiterLock;
    int itsWaiters QZ_GUARDED_BY(itsWaiterLock) = 0;  // threads that wait for a slot
    std::unique_ptr<SocketQueue[]> itsQueues;

private:
    class Lease;
    struct SlotWait;

    void sendQueued(SocketQueue* queue, int eventLength,
                    Util::MutexGuard& data) QZ_NO_THREAD_SAFETY_ANALYSIS;
    SocketQueueRef* attachedTo(Interaction& interaction);
    int takeSlot(bool& isFull);
    bool hasFreeSlot();
    void signalIfAwaited();
    bool isUsable(int slot);
    std::unique_ptr<Util::Socket> connectAsConfigured();
    void rest();

    std::atomic<bool> itIsStopping{false};  // Set under itsRestLock.
    std::mutex itsRestLock;
    std::condition_variable itsRestEnd;  // The flusher's sleep is cut short.
    /// @endcond
};

/// What the uplink attaches to an interaction: the queue that its events go to. The queue's count
/// is a measure of load and nothing else, so an attachment may be deleted without clear().
class SocketUplink::SocketQueueRef final : public UplinkData, public Util::Pooled {
public:
    /// Does not count; whoever makes it does.
    SocketQueueRef(SocketQueue* queue, SocketUplink* uplink) : itsQueue(queue), itsUplink(uplink) {}

    /// A further attachment to the same queue.
    UplinkData* copy() override;
    /// Gives the queue up.
    void clear() override;

    SocketQueue* itsQueue;    // Null after clear().
    SocketUplink* itsUplink;  // Borrowed.
};

}  // namespace Quenvale::Interceptor::SDK
