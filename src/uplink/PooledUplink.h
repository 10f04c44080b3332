#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "uplink/Uplink.h"
#include "uplink/UplinkParameters.h"
#include "util/Runnable.h"
#include "util/Socket.h"
#include "util/String.h"
#include "util/qzevent.h"
#include "util/qzmutex.h"
#include "util/qzthread.h"

namespace Quenvale::Interceptor::SDK {

/// What the uplinks share: a fixed set of memory queues with a flusher that sends those whose
/// oldest event grows old, and a small pool of sockets, opened when first needed. A derived class
/// says how an event stands in a queue, how a queue is sent, and how a socket is made.
///
/// Threads:   application threads report, flush and send; the flusher runs run().
/// Locks:     a queue's itsDataLock, its itsSendLock, itsPoolLock. itsWaiterLock is held alone.
class QZ_API PooledUplink : public Uplink, public Runnable {
public:
    class SocketQueue;
    class SocketQueueRef;
    class QueueUse;

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

    /// Sends all queues on the calling thread, and waits for the sends that are under way.
    void flushAllQueues() override;

    /// The flusher's body.
    void run() override;

    /// @cond
protected:
    /// The flusher gets its name here and is started by the derived class.
    PooledUplink(const Params& params, const char* flusher);
    ~PooledUplink();

    // Queues.

    /// A new attachment to the queue with the fewest of them.
    UplinkData* pick();
    /// What this uplink has attached to the interaction; null for nothing and for another's.
    SocketQueueRef* attachedTo(const Interaction& interaction) const;
    /// When the interaction's event came about.
    static long long timeOf(const Interaction& interaction);
    /// Serialises the present stage of the interaction and calls append(queue, time, bytes, event),
    /// whose exceptions end here. An event for which there is no memory is dropped.
    template <class Append>
    QZ_LOCAL void report(Interaction* interaction, bool separatePayload, Append append);

    /// Sends what is queued, once a send of this queue that is under way is over.
    virtual void flushQueue(SocketQueue* queue) = 0;
    /// Sends the queues that are due; with none, gives a dead socket the chance to go. Runs on:
    /// flusher.
    void flushAged();
    /// Whether the queue holds an event that would be too old at the next pass.
    static bool isDue(SocketQueue* queue, long long now, long long limit);
    /// The flusher's sleep between two passes.
    virtual void rest() = 0;

    // The pool. A slot in use belongs to one thread, which uses its socket without a lock.

    enum SlotState { kEmpty = 0, kIdle = 1, kInUse = 2, kInUseToBeClosed = 3 };

    /// A slot with an open socket, for the caller to release(); negative without one. Waits while
    /// all are in use, and for the connect of a new one.
    virtual int acquire() = 0;
    int acquireInternal();
    void release(int slot, bool discard);
    /// Ends the use of all present sockets, or of all but one: now if idle, else at the release.
    void closeAll(int exceptSlot = -1);
    Util::Socket* socketOf(int slot) QZ_NO_THREAD_SAFETY_ANALYSIS { return itsSockets[slot].get(); }
    /// One for an empty slot, or null.
    virtual std::unique_ptr<Util::Socket> newSocket() QZ_REQUIRES(itsPoolLock) = 0;
    /// Connected to the port, or null.
    static std::unique_ptr<Util::Socket> connectTo(const char* host, int port);
    /// Leaves the configuration's host with remoteUplink, otherwise puts the local one.
    void chooseHost(Util::String& host) const;

    const Params itsSettings;
    const int itsPoolSize;
    const int itsQueueCount;

    std::vector<std::unique_ptr<Util::Socket>> itsSockets QZ_GUARDED_BY(itsPoolLock);
    std::vector<SlotState> itsSocketStates QZ_GUARDED_BY(itsPoolLock);
    std::atomic<int> itsOpenSockets{0};  // Changed under itsPoolLock.
    qzthread itsThread;
    Util::qzevent itsSocketFreed{false, false};  // A slot may have come free.
    std::atomic<bool> itsRunning{true};
    std::atomic<bool> itIsStopping{false};  // No slot is handed out any more.
    Util::qzmutex itsPoolLock;
    Util::qzmutex itsWaiterLock;
    int itsWaiters QZ_GUARDED_BY(itsWaiterLock) = 0;  // threads that wait for a slot
    std::unique_ptr<SocketQueue[]> itsQueues;

private:
    struct SlotWait;

    int takeSlot(bool& isFull);
    bool hasFreeSlot();
    void signalIfAwaited();
    /// @endcond
};

}  // namespace Quenvale::Interceptor::SDK
