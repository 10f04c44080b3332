#pragma once

#include "util/export.h"

namespace Quenvale::Interceptor::SDK::IO {

/// A source of bytes. Its destructor is not virtual: a stream is destroyed through its own type.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: a stream that wraps another borrows it.
/// Units:     offsets, lengths and results are bytes.
/// Errors:    heap pointers, see util/exceptions.h. Use after closeStream() is an IOException, a
///            second closeStream() does nothing.
class QZ_API InputStream {
public:
    InputStream(const InputStream&) = delete;
    InputStream& operator=(const InputStream&) = delete;

    /// The number of bytes put at buffer + offset, which may be less than asked for; -1 at the end.
    virtual int read(unsigned char* buffer, int offset, int length) = 0;
    /// Ends the use of the stream; most streams close what they wrap too, which each of them says.
    virtual void closeStream() = 0;
    /// What can be read without waiting; a negative value when the source is broken.
    virtual int available() = 0;

    /// The next byte as 0 to 255, or -1. A stream that gives nothing counts as ended.
    int read() {
        unsigned char byte = 0;
        return read(&byte, 0, 1) > 0 ? byte : -1;
    }

protected:
    InputStream() = default;
    ~InputStream() = default;

    bool closed = false;  // closeStream() was called.
};

}  // namespace Quenvale::Interceptor::SDK::IO
