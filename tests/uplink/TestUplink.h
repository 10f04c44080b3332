#pragma once

#include "config/InterceptorConfig.h"
#include "uplink/AgentAliveWatcher.h"
#include "uplink/AsyncBinaryUplink.h"
#include "uplink/SocketQueue.h"
#include "uplink/SocketQueueRef.h"
#include "uplink/SocketStreams.h"

namespace Quenvale::Interceptor::SDK {

/// An uplink with its queues and its pool in reach.
template <class Base>
class Exposed : public Base {
public:
    using Base::acquire;
    using Base::Base;
    using Base::closeAll;
    using Base::flushAged;
    using Base::itsOpenSockets;
    using Base::itsQueues;
    using Base::release;
    using typename Base::SlotState;

    SlotState stateOf(int slot) {
        Util::MutexGuard guard(this->itsPoolLock);
        return this->itsSocketStates[static_cast<std::size_t>(slot)];
    }
    static int used(PooledUplink::SocketQueue& queue) {
        Util::LatchGuard guard(queue.itsDataLock);
        return queue.itsUsed;
    }
};

/// The uplink without its threads. The start is over and the agent counts as alive.
class TestUplink : public Exposed<AsyncBinaryUplink> {
public:
    explicit TestUplink(int bufferSize = 1024, int queueCount = 8, int poolSize = 2)
        : Exposed({bufferSize, queueCount, poolSize, 10000, 15000, false, false, 3000}) {
        itsWatcher->connectAndListenFinally();
        itsAgentAlive = true;
    }

    /// Where the pool connects to from now on.
    static void use(int port) { InterceptorConfig::itsCurrent.itsAgentPort = port; }

    int slotWaiters() {
        Util::MutexGuard guard(itsWaiterLock);
        return itsWaiters;
    }

    using AsyncBinaryUplink::bootstrap;
    using AsyncBinaryUplink::computeEventLength;
    using AsyncBinaryUplink::createAndTestSocket;
    using AsyncBinaryUplink::isDue;
    using AsyncBinaryUplink::itsAgentAlive;
    using AsyncBinaryUplink::itsPoolSize;
    using AsyncBinaryUplink::itsQueueCount;
    using AsyncBinaryUplink::itsWatcher;
    using AsyncBinaryUplink::pick;
    using AsyncBinaryUplink::queueEvent;
};

}  // namespace Quenvale::Interceptor::SDK
