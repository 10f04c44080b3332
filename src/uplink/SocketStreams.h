#pragma once

#include <memory>

#include "io/BufferedInputStream.h"
#include "io/BufferedOutputStream.h"
#include "io/DataInputStream.h"
#include "io/DataOutputStream.h"
#include "io/SocketInputStream.h"
#include "io/SocketOutputStream.h"
#include "uplink/AsyncBinaryUplink.h"

namespace Quenvale::Interceptor::SDK {

/// The streams over one socket for one use of it, typed ones on top. The socket is borrowed and
/// stays open when they go.
class QZ_LOCAL AsyncBinaryUplink::SocketStreams {
public:
    /// A null socket is an APIException. `keepOpen` has no effect: the streams always close.
    SocketStreams(Util::Socket* socket, bool keepOpen);
    ~SocketStreams();
    SocketStreams(const SocketStreams&) = delete;
    SocketStreams& operator=(const SocketStreams&) = delete;

    /// Closes and deletes the streams; what was not flushed is lost.
    void clear();

    std::unique_ptr<IO::DataOutputStream> itsDataOut;
    std::unique_ptr<IO::BufferedOutputStream> itsBufferedOut;
    std::unique_ptr<IO::SocketOutputStream> itsSocketOut;
    std::unique_ptr<IO::DataInputStream> itsDataIn;
    std::unique_ptr<IO::BufferedInputStream> itsBufferedIn;
    std::unique_ptr<IO::SocketInputStream> itsSocketIn;
    bool itsKeepOpen = false;
};

}  // namespace Quenvale::Interceptor::SDK
