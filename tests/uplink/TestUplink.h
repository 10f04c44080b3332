#pragma once

#include "config/InterceptorConfig.h"
#include "uplink/AgentAliveWatcher.h"
#include "uplink/AsyncBinaryUplink.h"
#include "uplink/SocketQueue.h"
#include "uplink/SocketQueueRef.h"
#include "uplink/SocketStreams.h"

namespace Quenvale::Interceptor::SDK {

/// The uplink without its threads, with everything in reach. The start is over and the agent counts
/// as alive.
class TestUplink : public AsyncBinaryUplink {
public:
    explicit TestUplink(int bufferSize = 1024, int queueCount = 8, int poolSize = 2)
        : AsyncBinaryUplink({bufferSize, queueCount, poolSize, 10000, 15000, false, false, 3000}) {
        itsWatcher->connectAndListenFinally();
        itsAgentAlive = true;
    }

    /// Where the pool connects to from now on.
    static void use(int port) { InterceptorConfig::itsCurrent.itsAgentPort = port; }

    SlotState stateOf(int slot) {
        Util::MutexGuard guard(itsPoolLock);
        return itsSocketStates[static_cast<std::size_t>(slot)];
    }
    int slotWaiters() {
        Util::MutexGuard guard(itsWaiterLock);
        return itsWaiters;
    }
    static int used(SocketQueue& queue) {
        Util::LatchGuard guard(queue.itsDataLock);
        return queue.itsUsed;
    }

    using AsyncBinaryUplink::acquire;
    using AsyncBinaryUplink::bootstrap;
    using AsyncBinaryUplink::closeAll;
    using AsyncBinaryUplink::computeEventLength;
    using AsyncBinaryUplink::copyEventAndPayload;
    using AsyncBinaryUplink::createAndTestSocket;
    using AsyncBinaryUplink::flushAged;
    using AsyncBinaryUplink::isDue;
    using AsyncBinaryUplink::itsAgentAlive;
    using AsyncBinaryUplink::itsOpenSockets;
    using AsyncBinaryUplink::itsPoolSize;
    using AsyncBinaryUplink::itsQueueCount;
    using AsyncBinaryUplink::itsQueues;
    using AsyncBinaryUplink::itsWatcher;
    using AsyncBinaryUplink::kEmpty;
    using AsyncBinaryUplink::kIdle;
    using AsyncBinaryUplink::kInUse;
    using AsyncBinaryUplink::kInUseToBeClosed;
    using AsyncBinaryUplink::pick;
    using AsyncBinaryUplink::queueEvent;
    using AsyncBinaryUplink::release;
    using AsyncBinaryUplink::SlotState;
};

}  // namespace Quenvale::Interceptor::SDK
