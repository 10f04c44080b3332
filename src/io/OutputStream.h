#pragma once

#include "util/export.h"

namespace Quenvale::Interceptor::SDK::IO {

/// A sink of bytes. Its destructor is not virtual: a stream is destroyed through its own type.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: a stream that wraps another borrows it. Buffers are read during the call only.
/// Units:     offsets and lengths are bytes.
/// Errors:    heap pointers, see util/exceptions.h.
class QZ_API OutputStream {
public:
    OutputStream(const OutputStream&) = delete;
    OutputStream& operator=(const OutputStream&) = delete;

    /// The low byte of `value`, through write().
    virtual void writeByte(int value);
    /// All `length` bytes from buffer + offset, or an exception; what it wrote until then stays.
    virtual void write(unsigned char* buffer, int offset, int length) = 0;
    /// Hands on what the stream holds back, through all streams below.
    virtual void flush() = 0;
    /// Ends the use of the stream, without a flush; a second call does nothing.
    virtual void closeStream() = 0;

protected:
    OutputStream() = default;
    ~OutputStream() = default;

    bool closed = false;  // closeStream() was called.
};

}  // namespace Quenvale::Interceptor::SDK::IO
