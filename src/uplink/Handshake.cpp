// The conversation that opens every connection to the agent: hello, the agent's id, credentials,
// the echo of the id that the process met first, and one byte for yes or no.
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include "io/ByteOutputStream.h"
#include "uplink/AsyncBinaryUplink.h"
#include "uplink/BootstrapConfig.h"
#include "uplink/SocketStreams.h"
#include "util/diagnostics.h"
#include "util/exceptions.h"
#include "util/uri.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// Bounds each of the three waits for the agent: a silent one must not hold a reporting thread.
constexpr int kAnswerTime = 5000;  // ms

// Room for what stands around the id in a reply without credentials.
constexpr int kReplyFrame = 16;

constexpr int kNoCredentials = 0;
constexpr int kHashed = 2;
constexpr int kEnd = 0;
constexpr int kAccepted = 1;

// False when the agent does not take all of it in time. The reply is as long as the agent made its
// id, so one that stops reading can fill every buffer on the way.
bool sendInTime(int descriptor, const unsigned char* bytes, int length) {
    using std::chrono::milliseconds;
    const auto now = [] { return std::chrono::steady_clock::now(); };
    const auto deadline = now() + milliseconds(kAnswerTime);
    while (length > 0) {
        const ssize_t sent =
            send(descriptor, bytes, static_cast<std::size_t>(length), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            bytes += sent;
            length -= static_cast<int>(sent);
            continue;
        }
        if (sent == 0 || (errno != EAGAIN && errno != EINTR)) return false;
        const auto rest = std::chrono::ceil<milliseconds>(deadline - now()).count();
        if (rest <= 0) return false;
        pollfd wanted = {descriptor, POLLOUT, 0};
        poll(&wanted, 1, static_cast<int>(rest));
    }
    return true;
}

}  // namespace

bool AsyncBinaryUplink::doConnectionHandshaking(const Util::Socket* socket,
                                                const SocketStreams* streams) {
    if (!streams->itsDataOut) Util::raise<Util::APIException>("DataOutputStream is NULL.");
    if (!streams->itsDataIn) Util::raise<Util::APIException>("DataInputStream is NULL.");
    IO::DataOutputStream& out = *streams->itsDataOut;
    IO::DataInputStream& in = *streams->itsDataIn;

    out.write(itsProtocolHandshaking.data, 0, itsProtocolHandshaking.length);
    out.flush();

    streams->itsSocketIn->limitReads(kAnswerTime);
    int length = 0;
    const std::unique_ptr<unsigned char[]> id(in.readBytes(length));
    if (length < 1 || !id) return false;
    keepAgentID(id.get(), length);

    IO::ByteOutputStream bytes(length + kReplyFrame);
    IO::DataOutputStream reply(&bytes);
    writeCredentials(reply, id.get(), length);
    writeAgentID(reply, length);
    reply.writeByte(kEnd);
    if (!sendInTime(socket->itsDescriptor, bytes.getBuffer(), bytes.getCount())) return false;

    streams->itsSocketIn->limitReads(kAnswerTime);
    const bool isAccepted = in.read() == kAccepted;
    streams->itsSocketIn->limitReads(0);
    if (!isAccepted && debugOn())
        forcedMsg(1, "%s %s %s %d .\n",
                  "Authentication failed when connecting to agent listening at ", socket->itsHost,
                  " on port ", socket->itsDescriptor);
    return isAccepted;
}

void AsyncBinaryUplink::keepAgentID(const unsigned char* bytes, int length) {
    Util::MutexGuard guard(itsAgentIDLock);
    if (itsAgentID) return;
    itsAgentID.reset(new unsigned char[static_cast<std::size_t>(length)]);
    std::memcpy(itsAgentID.get(), bytes, static_cast<std::size_t>(length));
    itsAgentIDLength = length;
}

// What is hashed is the id that came with this handshake, up to a zero byte in it, and the
// password.
void AsyncBinaryUplink::writeCredentials(IO::DataOutputStream& out, const unsigned char* id,
                                         int length) {
    const std::shared_ptr<BootstrapConfig> config = bootstrap();
    if (!config || config->itsUsername.empty()) {
        out.writeByte(kNoCredentials);
        return;
    }
    const Util::String text(reinterpret_cast<const char*>(id), static_cast<unsigned int>(length));
    const Util::String hash = Util::URI::md5hash(false, text.c_str(), config->itsPassword.c_str(),
                                                 static_cast<const char*>(nullptr));
    out.writeUTF(config->itsUsername);
    out.writeByte(kHashed);
    out.writeUTF(hash);
}

// The id that the process met first, in the length of the present one: an agent that follows
// another is not told its own.
void AsyncBinaryUplink::writeAgentID(IO::DataOutputStream& out, int length) {
    const auto size = static_cast<std::size_t>(length);
    const std::unique_ptr<unsigned char[]> echo(new unsigned char[size]());
    {
        Util::MutexGuard guard(itsAgentIDLock);
        std::memcpy(echo.get(), itsAgentID.get(),
                    static_cast<std::size_t>(std::min(length, itsAgentIDLength)));
    }
    out.writeBytes(echo.get(), length);
}

}  // namespace Quenvale::Interceptor::SDK
