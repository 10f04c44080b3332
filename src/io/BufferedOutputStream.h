#pragma once

#include <memory>

#include "io/OutputStream.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Gathers small writes; one that is longer than the buffer passes around it.
///
/// Only flush() promises delivery: closeStream() drops the bytes that wait. When the sink fails
/// they stay waiting, so the caller gives the stream up.
class QZ_API BufferedOutputStream final : public OutputStream {
public:
    /// As init().
    BufferedOutputStream(OutputStream* sink, int size) { init(sink, size); }

    /// Starts anew on `sink`, with an empty buffer of `size` bytes. IllegalArgumentException for a
    /// null sink and for a size below 1.
    void init(OutputStream* sink, int size);

    /// An APIException for a null buffer or a negative number, an IOException once closed.
    void write(unsigned char* buffer, int offset, int length) override;
    /// Writes to the sink even when nothing waits, and flushes it.
    void flush() override;
    /// Closes the sink too; a failure of that leaves this stream open.
    void closeStream() override;

private:
    void sendWaiting();

    std::unique_ptr<unsigned char[]> itsBuffer;
    OutputStream* itsSink = nullptr;  // Borrowed; null once closed.
    int itsCount = 0;                 // bytes waiting
    int itsSize = 0;
};

}  // namespace Quenvale::Interceptor::SDK::IO
