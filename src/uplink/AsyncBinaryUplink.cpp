#include "uplink/AsyncBinaryUplink.h"

#include <algorithm>
#include <climits>
#include <csignal>

#include "uplink/AgentAliveWatcher.h"
#include "uplink/BootstrapConfig.h"
#include "util/diagnostics.h"

namespace Quenvale::Interceptor::SDK {

AsyncBinaryUplink::AsyncBinaryUplink() : AsyncBinaryUplink(itsParams) {
    std::signal(SIGPIPE, SIG_IGN);
    bootstrap()->search();
    startThreads();
}

AsyncBinaryUplink::AsyncBinaryUplink(const UplinkParameters::Values& params)
    : PooledUplink(Params::of(params), "qz-flusher"),
      itsTestFreq(params.asyncTestFreq),
      itsWatcher(std::make_unique<AgentAliveWatcher>(this)),
      itsBootstrap(std::make_shared<BootstrapConfig>()) {}

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

void AsyncBinaryUplink::rest() {
    rest(itsSettings.flushInterval);
}

}  // namespace Quenvale::Interceptor::SDK
