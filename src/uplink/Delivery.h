#pragma once

#include <cstring>
#include <memory>
#include <vector>

#include "io/DataOutputStream.h"
#include "uplink/AsyncBinaryUplink.h"
#include "uplink/SocketStreams.h"

namespace Quenvale::Interceptor::SDK {

/// Messages as they go on the wire, and where each ends. One send for many of them: a full queue
/// holds some hundred.
class QZ_LOCAL AsyncBinaryUplink::MessageRun {
public:
    void add(const Util::ByteArray& event, const Util::ByteArray& payload,
             unsigned char contentTypeCode);
    bool isLong() const { return itsSink.count() >= kLong; }

    const unsigned char* bytes() const { return itsSink.bytes(); }
    int count() const { return static_cast<int>(itsEnds.size()); }
    int beginOf(int message) const { return message == 0 ? 0 : itsEnds[index(message - 1)]; }
    int endOf(int message) const { return itsEnds[index(message)]; }

private:
    // bytes. The room beyond is for the message that passes it; all of it stays below what malloc
    // would ask the system for anew each time.
    static constexpr int kLong = 32 * 1024;
    static constexpr int kRoom = kLong + 8 * 1024;
    static std::size_t index(int message) { return static_cast<std::size_t>(message); }

    // What comes is all written over, so the block starts without zeros.
    class Sink final : public IO::OutputStream {
    public:
        void writeByte(int value) override { *reserve(1) = static_cast<unsigned char>(value); }
        void write(unsigned char* buffer, int offset, int length) override {
            if (length > 0)
                std::memcpy(reserve(length), buffer + offset, static_cast<std::size_t>(length));
        }
        void flush() override {}
        void closeStream() override {}

        const unsigned char* bytes() const { return itsBytes.get(); }
        int count() const { return itsCount; }

    private:
        unsigned char* reserve(int length);

        std::unique_ptr<unsigned char[]> itsBytes{new unsigned char[kRoom]};
        int itsSize = kRoom;
        int itsCount = 0;
    };

    Sink itsSink;
    IO::DataOutputStream itsOut{&itsSink};
    std::vector<int> itsEnds;
};

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
