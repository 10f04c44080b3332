#pragma once

#include <memory>

#include "io/OutputStream.h"
#include "util/String.h"

namespace Quenvale::Interceptor::SDK::IO {

/// The writing side of the agent protocol's typed layer: unsigned integers, texts and byte blocks.
///
///     unsigned   7 bits to a byte, low group first, bit 7 set on every byte but the last
///     text       0 for NIL; otherwise the length plus one, and the bytes
///     block      0 for null, 1 for no bytes; otherwise the first piece's length plus one, its
///                bytes, further pieces (length, bytes), and 0
///
/// A stream is in plain mode until writeBytes() hands out a Chunk, and again once that Chunk is
/// closed. In between, every other write and flush() is refused.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: the sink is borrowed; closeStream() closes it, nothing here deletes it.
/// Units:     lengths and counts are bytes.
/// Errors:    a refusal comes before the first byte; a failure of the sink passes through and can
///            leave half a value on the wire, so the caller drops the connection.
class QZ_API DataOutputStream final : public OutputStream {
public:
    /// Writes one block in pieces, without knowing its size in advance. The stream that handed it
    /// out must outlive it. Once closed, it refuses everything.
    class QZ_API Chunk final : public OutputStream {
    public:
        /// Stages small writes. A long one goes out as one piece with what is staged.
        void write(unsigned char* buffer, int offset, int length) override;
        /// Sends what is staged as a piece; the sink is not flushed.
        void flush() override;
        /// Ends the block. Nothing written at all makes it a null block.
        void closeStream() override;
        /// One piece of what is staged and, unless null, `extra`. An empty piece is not sent.
        void flushChunk(unsigned char* extra, int offset, int length);

    private:
        friend class DataOutputStream;
        explicit Chunk(DataOutputStream* parent);
        void checkOpen() const;

        DataOutputStream* itsParent;
        unsigned char* itsStaging;  // The parent's.
        bool itIsFirst = true;      // No piece has gone out yet.
        int itsBuffered = 0;        // bytes staged
        int itsPosition = 0;        // where in the staging block the next byte goes
        int itsCapacity;
    };

    explicit DataOutputStream(OutputStream* out);  // Not null.

    /// @{
    /// Passes on to the sink, without any encoding.
    void writeByte(int value) override {
        checkPlain();
        sink()->writeByte(value);
    }
    void write(unsigned char* buffer, int offset, int length) override;
    void flush() override;
    /// @}
    /// Closes the sink too; a failure of that leaves this stream open. Nothing is flushed.
    void closeStream() override;

    /// One to five bytes. A negative value is an IOException "Invalid unsigned value: ".
    void writeUnsignedInt(int value);
    /// The same, to any stream.
    static void writeUnsignedInt(OutputStream* stream, int value);
    /// A text. It is not converted: its bytes go out as they stand.
    void writeUTF(const Util::String& text);
    /// The whole block in one piece; null is the null block, and a negative length an IOException.
    void writeBytes(unsigned char* data, int length);
    /// Opens a block of unknown size. The caller closes and deletes the Chunk.
    Chunk* writeBytes();

private:
    void checkPlain() const {
        if (itIsChunkOpen) refuseForChunk();
    }
    OutputStream* sink() const {
        if (closed) refuseClosed();
        return itsSink;
    }
    [[noreturn]] static void refuseForChunk();
    [[noreturn]] static void refuseClosed();

    OutputStream* itsSink;                        // Borrowed; null once closed.
    std::unique_ptr<unsigned char[]> itsScratch;  // Part of the object; no encoding needs it.
    std::unique_ptr<unsigned char[]> itsStaging;  // From the first Chunk on.
    int itsStagingSize = 0;
    bool itIsChunkOpen = false;
};

}  // namespace Quenvale::Interceptor::SDK::IO
