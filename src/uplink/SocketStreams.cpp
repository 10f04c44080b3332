#include "uplink/SocketStreams.h"

#include "util/exceptions.h"

namespace Quenvale::Interceptor::SDK {

namespace {

constexpr int kOutputBuffer = 1024;
constexpr int kInputBuffer = 2048;

}  // namespace

AsyncBinaryUplink::SocketStreams::SocketStreams(Util::Socket* socket, bool /*keepOpen*/) {
    if (socket == nullptr) Util::raise<Util::APIException>("Socket is null.");
    itsSocketOut = std::make_unique<IO::SocketOutputStream>(socket);
    itsBufferedOut = std::make_unique<IO::BufferedOutputStream>(itsSocketOut.get(), kOutputBuffer);
    itsDataOut = std::make_unique<IO::DataOutputStream>(itsBufferedOut.get());
    itsSocketIn = std::make_unique<IO::SocketInputStream>(socket);
    itsBufferedIn = std::make_unique<IO::BufferedInputStream>(itsSocketIn.get(), kInputBuffer);
    itsDataIn = std::make_unique<IO::DataInputStream>(itsBufferedIn.get());
}

AsyncBinaryUplink::SocketStreams::~SocketStreams() {
    clear();
}

void AsyncBinaryUplink::SocketStreams::clear() {
    if (itsKeepOpen) return;
    if (itsDataOut) itsDataOut->closeStream();
    if (itsDataIn) itsDataIn->closeStream();
    itsDataOut.reset();
    itsBufferedOut.reset();
    itsSocketOut.reset();
    itsDataIn.reset();
    itsBufferedIn.reset();
    itsSocketIn.reset();
}

}  // namespace Quenvale::Interceptor::SDK
