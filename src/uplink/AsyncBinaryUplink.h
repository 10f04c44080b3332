#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "uplink/Uplink.h"
#include "uplink/UplinkParameters.h"
#include "util/ByteArray.h"
#include "util/Runnable.h"
#include "util/Socket.h"
#include "util/String.h"
#include "util/qzevent.h"
#include "util/qzmutex.h"
#include "util/qzthread.h"

namespace Quenvale::Interceptor::SDK {

namespace IO {
class DataOutputStream;
}

/// The uplink that the library makes, one for the process.
///
/// A report is serialised, appended to one of a fixed set of memory queues, and done. A queue goes
/// out when it is full, when its oldest event grows old, or on flushAllQueues(), on the thread that
/// met the condition. Sends use a small pool of sockets, opened when first needed. Apart from
/// those, a watcher keeps one connection to the agent: while it is up the agent counts as alive,
/// and over it come configurations. Nothing is kept for an agent that isn't there.
///
/// Threads:   application threads report, flush and send. The flusher runs run(), the watcher
///            AgentAliveWatcher::run(). Neither is joined; both go on while the process exits.
/// Ownership: one object, from `new`, that is never deleted.
/// Units:     times are milliseconds, sizes are bytes.
/// Errors:    a caller never hears of a failure to deliver; events are dropped. An exception from
///            the accessors of the interaction passes through notifyAgent().
/// Locks:     a queue's itsDataLock, its itsSendLock, itsPoolLock, then itsAgentIDLock or
///            itsBootstrapLock. itsWaiterLock is held alone.
class QZ_API AsyncBinaryUplink : public Uplink, public Runnable {
public:
    class AgentAliveWatcher;
    class BootstrapConfig;
    class SocketQueue;
    class SocketQueueRef;
    class SocketStreams;

    /// Read from the environment when the library loads.
    static const UplinkParameters::Values& itsParams;

    /// The bytes that open every connection, the terminating zero included.
    static Util::ByteArray& itsProtocolHandshaking;

    /// Starts both threads. One that can't be had is done without: with no watcher the agent never
    /// counts as alive, with no flusher only full queues and flushAllQueues() send.
    AsyncBinaryUplink();

    /// True while a pool socket is open or the watcher has its connection. Blocks until the
    /// watcher's first attempt is over or has brought a configuration; after that it is two loads.
    bool getAlive() override;

    /// Queues the present stage of the interaction, or drops it without an agent. A call's reply
    /// takes the queue of its request, so that the two stay in order.
    void notifyAgent(Interaction* interaction) override;

    /// Sends all queues on the calling thread, and waits for the sends that are under way.
    void flushAllQueues() override;

    /// Ends both threads, each after its present sleep or connection. Sockets stay open, and what
    /// is queued stays unsent.
    void shutdown() override;

    /// The flusher's body.
    void run() override;

    /// Whether the uplink's diagnostics go out, at whatever level each of them has.
    static bool debugOn();

    /// @cond
protected:
    /// Everything but the threads. `params` is borrowed for the life of the object.
    explicit AsyncBinaryUplink(const UplinkParameters::Values& params);
    ~AsyncBinaryUplink();

    // Queues.

    /// A new attachment to the queue with the fewest of them.
    UplinkData* pick();

    /// An event without data only sends what is queued. `time` belongs to the event.
    void queueEvent(SocketQueue* queue, long long time, const Util::ByteArray& event,
                    bool flushAllowed, const Util::ByteArray& payload,
                    const Util::String& contentType);

    /// What the event takes in a queue; 0 for one without data.
    static int computeEventLength(const Util::ByteArray& event, const Util::ByteArray& payload);

    /// Appends a record and returns the position behind it. Records never leave the process: event
    /// length, event, payload length and, with a payload, a zero byte that stands for its content
    /// type and the payload; lengths are native ints.
    static int copyEventAndPayload(unsigned char* buffer, int position,
                                   const Util::ByteArray& event, const Util::ByteArray& payload,
                                   const Util::String& contentType);

    /// Sends what is queued, once a send of this queue that is under way is over.
    void flushQueue(SocketQueue* queue);
    /// Sends the queues that are due; with none, gives a dead socket the chance to go. Runs on:
    /// flusher.
    void flushAged();
    /// Whether the queue holds an event that would be too old at the next pass.
    static bool isDue(SocketQueue* queue, long long now, long long limit);

    // Sends, on any thread. Each message gets a second socket when the first fails it, once.

    class Delivery;
    class MessageRun;
    void sendEvents(const Util::ByteArray& records, int length);
    void sendEvent(const Util::ByteArray& event, const Util::ByteArray& payload,
                   const Util::String& contentType);
    static bool writeEventUsingStreams(SocketStreams& streams, const Util::ByteArray& event,
                                       const Util::ByteArray& payload,
                                       const unsigned char& contentTypeCode);
    /// The message itself; what the stream throws passes through.
    static void writeMessage(IO::DataOutputStream& out, const Util::ByteArray& event,
                             const Util::ByteArray& payload, unsigned char contentTypeCode);

    // The pool. A slot in use belongs to one thread, which uses its socket without a lock.

    enum SlotState { kEmpty = 0, kIdle = 1, kInUse = 2, kInUseToBeClosed = 3 };

    /// A slot with an open socket, for the caller to release(); negative without one. Waits while
    /// all are in use, and for the connect and handshake of a new one.
    int acquire();
    int acquireInternal();
    void release(int slot, bool discard);
    /// Ends the use of all present sockets, those in use at their release. Runs on: watcher.
    void closeAll();
    Util::Socket* socketOf(int slot) QZ_NO_THREAD_SAFETY_ANALYSIS { return itsSockets[slot].get(); }

    /// To the address in the configuration; null without a live agent.
    std::unique_ptr<Util::Socket> newSocketFromUplinkCfg();
    /// Connects and shakes hands; null, and no streams, if either fails. Lets no exception out.
    std::unique_ptr<Util::Socket> createAndTestSocket(const char* host, int port,
                                                      std::unique_ptr<SocketStreams>& streams);
    bool doConnectionHandshaking(const Util::Socket* socket, const SocketStreams* streams);

    /// Null after shutdown().
    std::shared_ptr<BootstrapConfig> bootstrap();

    const UplinkParameters::Values& itsSettings;  // itsParams, other than in tests.
    const int itsPoolSize;
    const int itsQueueCount;

    std::vector<std::unique_ptr<Util::Socket>> itsSockets QZ_GUARDED_BY(itsPoolLock);
    std::vector<SlotState> itsSocketStates QZ_GUARDED_BY(itsPoolLock);
    std::atomic<int> itsOpenSockets{0};  // Changed under itsPoolLock.
    qzthread itsThread;
    Util::qzevent itsSocketFreed{false, false};  // A slot may have come free.
    Util::qzmutex itsBootstrapLock;
    std::atomic<bool> itsRunning{true};
    // What the first handshake of the process brought; it never changes again.
    std::unique_ptr<unsigned char[]> itsAgentID QZ_GUARDED_BY(itsAgentIDLock);
    int itsAgentIDLength QZ_GUARDED_BY(itsAgentIDLock) = 0;
    Util::qzmutex itsAgentIDLock;
    std::unique_ptr<AgentAliveWatcher> itsWatcher;
    std::atomic<bool> itsAgentAlive{false};
    // Shared, so that shutdown() takes it from under no one who is reading it.
    std::shared_ptr<BootstrapConfig> itsBootstrap QZ_GUARDED_BY(itsBootstrapLock);
    Util::qzmutex itsPoolLock;
    Util::qzmutex itsWaiterLock;
    int itsWaiters QZ_GUARDED_BY(itsWaiterLock) = 0;  // threads that wait for a slot
    std::unique_ptr<SocketQueue[]> itsQueues;

private:
    struct SlotWait;

    /// At least 1 ms, so that no setting makes a thread spin.
    static void rest(long long milliseconds);
    void startThreads();
    void sendQueued(SocketQueue* queue, Util::MutexGuard& data) QZ_NO_THREAD_SAFETY_ANALYSIS;
    int takeSlot(bool& isFull);
    bool hasFreeSlot();
    void signalIfAwaited();
    static std::unique_ptr<Util::Socket> connectTo(const char* host, int port);
    void keepAgentID(const unsigned char* bytes, int length);
    void writeCredentials(IO::DataOutputStream& out, const unsigned char* id, int length);
    void writeAgentID(IO::DataOutputStream& out, int length);
    /// @endcond
};

}  // namespace Quenvale::Interceptor::SDK
