#pragma once

#include <memory>

#include "uplink/AsyncBinaryUplink.h"
#include "uplink/SocketStreams.h"

namespace Quenvale::Interceptor::SDK {

/// One use of a pool socket for one message or several, with the retry rule: a message that fails
/// is written again, from its start, on one other socket. The agent may so see a part of it on the
/// dead connection and the whole on the other.
///
/// A Delivery that goes without finish() takes its socket out of the pool, since part of a message
/// may be on it.
class QZ_LOCAL AsyncBinaryUplink::Delivery {
public:
    /// How the diagnostics name what is going on.
    struct Wording {
        const char* operation;
        const char* all;
        const char* lost;
    };

    Delivery(AsyncBinaryUplink& uplink, const Wording& words);
    ~Delivery();
    Delivery(const Delivery&) = delete;
    Delivery& operator=(const Delivery&) = delete;

    /// False when there is no socket to be had.
    bool open();
    /// False when two sockets failed, or a second one was not to be had; then all is over.
    bool send(const Util::ByteArray& event, const Util::ByteArray& payload,
              unsigned char contentTypeCode);
    /// The same for several messages that stand one behind the other, each by itself: what the
    /// system took of the run counts as sent.
    bool send(const MessageRun& run);
    /// Gives the socket back for the next use.
    void finish();

private:
    bool write(const Util::ByteArray& event, const Util::ByteArray& payload, unsigned char code);
    void noteSuccess() const;
    bool tryAnother();
    void giveUp();
    void giveBack(bool discard);

    AsyncBinaryUplink& itsUplink;
    const Wording& itsWords;
    int itsSlot = -1;  // Negative without a socket.
    std::unique_ptr<SocketStreams> itsStreams;
};

}  // namespace Quenvale::Interceptor::SDK
