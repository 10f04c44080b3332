#pragma once

#include <atomic>
#include <memory>

#include "uplink/PooledUplink.h"
#include "util/ByteArray.h"
#include "util/String.h"

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
/// Locks:     a queue's itsDataLock, its itsSendLock, itsPoolLock, then itsAgentIDLock,
///            itsBootstrapLock or the configuration's. itsWaiterLock is held alone.
class QZ_API AsyncBinaryUplink : public PooledUplink {
public:
    class AgentAliveWatcher;
    class BootstrapConfig;
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

    /// Ends both threads, each after its present sleep or connection. Sockets stay open, and what
    /// is queued stays unsent.
    void shutdown() override;

    /// Whether the uplink's diagnostics go out, at whatever level each of them has.
    static bool debugOn();

    /// @cond
protected:
    /// Everything but the threads.
    explicit AsyncBinaryUplink(const UplinkParameters::Values& params);
    ~AsyncBinaryUplink();

    // Queues.

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

    void flushQueue(SocketQueue* queue) override;
    void rest() override;

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

    // The pool.

    /// Waits for the handshake of a new socket too.
    int acquire() override;
    std::unique_ptr<Util::Socket> newSocket() QZ_REQUIRES(itsPoolLock) override {
        return newSocketFromUplinkCfg();
    }
    /// To the address in the configuration; null without a live agent.
    std::unique_ptr<Util::Socket> newSocketFromUplinkCfg();
    /// Connects and shakes hands; null, and no streams, if either fails. Lets no exception out.
    std::unique_ptr<Util::Socket> createAndTestSocket(const char* host, int port,
                                                      std::unique_ptr<SocketStreams>& streams);
    bool doConnectionHandshaking(const Util::Socket* socket, const SocketStreams* streams);

    /// Null after shutdown().
    std::shared_ptr<BootstrapConfig> bootstrap();

    const long itsTestFreq;  // ms between attempts to reach the agent
    Util::qzmutex itsBootstrapLock;
    // What the first handshake of the process brought; it never changes again.
    std::unique_ptr<unsigned char[]> itsAgentID QZ_GUARDED_BY(itsAgentIDLock);
    int itsAgentIDLength QZ_GUARDED_BY(itsAgentIDLock) = 0;
    Util::qzmutex itsAgentIDLock;
    std::unique_ptr<AgentAliveWatcher> itsWatcher;
    std::atomic<bool> itsAgentAlive{false};
    // Shared, so that shutdown() takes it from under no one who is reading it.
    std::shared_ptr<BootstrapConfig> itsBootstrap QZ_GUARDED_BY(itsBootstrapLock);

private:
    /// At least 1 ms, so that no setting makes a thread spin.
    static void rest(long long milliseconds);
    void startThreads();
    void sendQueued(SocketQueue* queue, Util::LatchGuard& data) QZ_NO_THREAD_SAFETY_ANALYSIS;
    void keepAgentID(const unsigned char* bytes, int length);
    void writeCredentials(IO::DataOutputStream& out, const unsigned char* id, int length);
    void writeAgentID(IO::DataOutputStream& out, int length);
    /// @endcond
};

}  // namespace Quenvale::Interceptor::SDK
