// How a socket to the agent is made, and how one is had from the pool.
#include <cxxabi.h>

#include "config/InterceptorConfig.h"
#include "uplink/AsyncBinaryUplink.h"
#include "uplink/SocketStreams.h"
#include "util/diagnostics.h"
#include "util/sockutil.h"

namespace Quenvale::Interceptor::SDK {

int AsyncBinaryUplink::acquire() {
    for (;;) {
        const int slot = acquireInternal();
        if (slot < 0) return slot;
        const Util::Socket* socket = socketOf(slot);
        if (socket != nullptr && socket->itsDescriptor > 0) return slot;
        release(slot, true);
    }
}

std::unique_ptr<Util::Socket> AsyncBinaryUplink::newSocketFromUplinkCfg() {
    if (!getAlive()) return nullptr;
    Util::String host;
    int port = 0;
    InterceptorConfig::itsCurrent.agentAddress(host, port);
    chooseHost(host);
    std::unique_ptr<SocketStreams> streams;
    std::unique_ptr<Util::Socket> socket = createAndTestSocket(host.c_str(), port, streams);
    if (!socket && debugOn())
        forcedMsg(1, "Failed to create socket from agent at host %s, port %d\n.",
                  host.empty() ? "" : host.c_str(), port);
    return socket;
}

std::unique_ptr<Util::Socket> AsyncBinaryUplink::createAndTestSocket(
    const char* host, int port, std::unique_ptr<SocketStreams>& streams) {
    try {
        std::unique_ptr<Util::Socket> socket = connectTo(host, port);
        if (!socket) return nullptr;
        SetSendBufferSize(socket->itsDescriptor, itsSettings.bufferSize);
        streams = std::make_unique<SocketStreams>(socket.get(), false);
        if (doConnectionHandshaking(socket.get(), streams.get())) return socket;
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        streams.reset();
        return nullptr;
    }
    streams.reset();
    return nullptr;
}

}  // namespace Quenvale::Interceptor::SDK
