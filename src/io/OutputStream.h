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
    virtual void write(unsigned char* buffer, int offset, int length) = 0;
    virtual void flush() = 0;
    virtual void closeStream() = 0;

protected:
    OutputStream() = default;
    ~OutputStream() = default;

    bool closed = false;
};

}  // namespace Quenvale::Interceptor::SDK::IO
