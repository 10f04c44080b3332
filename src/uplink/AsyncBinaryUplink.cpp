#include "uplink/AsyncBinaryUplink.h"

#include <algorithm>
#include <climits>
#include <csignal>

#include <cxxabi.h>

#include "uplink/AgentAliveWatcher.h"
#include "uplink/BootstrapConfig.h"
#include "uplink/SocketQueue.h"
#include "util/Clock.h"
#include "util/diagnostics.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// Bounds what an environment variable can make the library take.
constexpr int kMostSlots = 1024;
constexpr int kMostQueues = 1024;

}  // namespace

AsyncBinaryUplink::AsyncBinaryUplink() : AsyncBinaryUplink(itsParams) {
    std::signal(SIGPIPE, SIG_IGN);
    bootstrap()->search();
    startThreads();
}

// All that the threads touch is there before the first of them starts, and all that can fail is
// over: the object must not go while a thread runs in it.
AsyncBinaryUplink::AsyncBinaryUplink(const UplinkParameters::Values& params)
    : itsSettings(params),
      itsPoolSize(std::clamp(params.poolSize, 1, kMostSlots)),
      itsQueueCount(std::clamp(params.queueCount, 1, kMostQueues)),
      itsSockets(static_cast<std::size_t>(itsPoolSize)),
      itsSocketStates(static_cast<std::size_t>(itsPoolSize), kEmpty),
      itsThread(this, "qz-flusher"),
      itsWatcher(std::make_unique<AgentAliveWatcher>(this)),
      itsBootstrap(std::make_shared<BootstrapConfig>()),
      itsQueues(new SocketQueue[static_cast<std::size_t>(itsQueueCount)]) {
    for (int i = 0; i < itsQueueCount; ++i) itsQueues[i].init(itsSettings.bufferSize);
}

AsyncBinaryUplink::~AsyncBinaryUplink() = default;

void AsyncBinaryUplink::startThreads() {
    if (!itsWatcher->start()) itsWatcher->connectAndListenFinally();
    if (itsThread.start()) itsThread.detach();
}

bool AsyncBinaryUplink::debugOn() {
    return canLog(4) || itsParams.asyncDebug;
}

bool AsyncBinaryUplink::getAlive() {
    if (itsOpenSockets != 0) return true;
    itsWatcher->waitForInitialConfig();
    return itsAgentAlive;
}

void AsyncBinaryUplink::shutdown() {
    itsRunning = false;
    itsWatcher->shutdown();
    Util::MutexGuard guard(itsBootstrapLock);
    itsBootstrap.reset();
}

std::shared_ptr<AsyncBinaryUplink::BootstrapConfig> AsyncBinaryUplink::bootstrap() {
    Util::MutexGuard guard(itsBootstrapLock);
    return itsBootstrap;
}

void AsyncBinaryUplink::rest(long long milliseconds) {
    qzthread::sleep(static_cast<int>(std::clamp<long long>(milliseconds, 1, INT_MAX)));
}

void AsyncBinaryUplink::run() {
    while (itsRunning) {
        rest(itsSettings.flushInterval);
        if (!itsRunning) break;
        try {
            flushAged();
        } catch (abi::__forced_unwind&) {
            throw;
        } catch (...) {
            continue;
        }
    }
}

void AsyncBinaryUplink::flushAged() {
    // With the next pass a flush interval away, an event goes out before it reaches maxAge.
    const long long limit = static_cast<long long>(itsSettings.maxAge) - itsSettings.flushInterval;
    bool quiet = true;
    for (int i = 0; i < itsQueueCount; ++i) {
        // Read for each queue, since the send of the one before can have taken long.
        if (!isDue(&itsQueues[i], Util::Clock::_currentTimeMillis(), limit)) continue;
        quiet = false;
        flushQueue(&itsQueues[i]);
    }
    if (!quiet || itsOpenSockets < 1) return;
    const int slot = acquire();
    if (slot >= 0) release(slot, false);
}

bool AsyncBinaryUplink::isDue(SocketQueue* queue, long long now, long long limit) {
    Util::MutexGuard guard(queue->itsDataLock);
    if (queue->itsUsed == 0) return false;
    // An event from ahead of the clock stays until the clock is there: what is compared then is
    // below 0. Unsigned, because an interceptor may have set any time.
    const auto clock = static_cast<unsigned long long>(now);
    const auto first = static_cast<unsigned long long>(queue->itsFirstEventTime);
    const auto age = now < queue->itsFirstEventTime ? 0 - clock - first : clock - first;
    return static_cast<long long>(age) >= limit;
}

}  // namespace Quenvale::Interceptor::SDK
