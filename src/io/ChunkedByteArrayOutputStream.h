#pragma once

#include <memory>

#include "io/OutputStream.h"
#include "util/ByteArray.h"
#include "util/Vector.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Collects what is written in memory and never moves what it already holds: a full buffer is
/// followed by a further one, twice as long or as long as the write that asks for it, and the
/// buffers are joined only when the content is asked for.
///
/// Ownership: the stream owns its buffers. What toByteArray() and transferContent() hand out
///            belongs to the caller.
class QZ_API ChunkedByteArrayOutputStream final : public OutputStream {
public:
    /// With a first buffer of `size` bytes; 0 takes none until something is written. A negative
    /// size is an IllegalArgumentException.
    explicit ChunkedByteArrayOutputStream(int size);
    /// Closes the stream.
    ~ChunkedByteArrayOutputStream() { closeStream(); }
    ChunkedByteArrayOutputStream(const ChunkedByteArrayOutputStream&) = delete;
    ChunkedByteArrayOutputStream& operator=(const ChunkedByteArrayOutputStream&) = delete;

    void writeByte(int value) override;
    /// Nothing for a length below 1. An APIException for a null buffer, an IOException for more
    /// than 2 GiB in all.
    void write(unsigned char* buffer, int offset, int length) override;
    /// Does nothing.
    void flush() override {}
    /// Drops the content.
    void closeStream() override;

    /// A copy of the content; without any, a block of no bytes. The stream stays usable.
    Util::ByteArray toByteArray();
    /// Hands the content over and closes the stream. A single buffer goes without a copy, but only
    /// one that is exactly full: while part of it is free the result is empty, and who wants those
    /// bytes asks toByteArray().
    Util::ByteArray transferContent();

private:
    int position() const { return itsTotal - itsBefore; }
    void nextBuffer(int minimum);
    void checkOpen() const;

    bool itIsTransferred = false;  // The single buffer's bytes are the caller's.
    std::unique_ptr<Util::Vector<Util::ByteArray*>> itsBuffers;  // Null once closed.
    int itsBefore = 0;                                           // bytes in the buffers before
    int itsIndex = 0;                                            // of the current buffer
    Util::ByteArray* itsCurrent = nullptr;
    int itsTotal = 0;  // bytes written
};

}  // namespace Quenvale::Interceptor::SDK::IO
