#pragma once

#include <memory>

#include "io/InputStream.h"
#include "util/qzmutex.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Reads ahead what its source has available, so that small reads need no call below.
///
/// At most one read reaches the source for each call, so fewer bytes than asked for may come; the
/// caller loops. A source that ends there makes the whole result -1, and the bytes that the buffer
/// had given before are lost to the caller.
///
/// The buffer grows to twice the largest request seen and never shrinks. A request counts for at
/// most 1 MiB here: what is on the other side of a socket has no say over more memory than that.
class QZ_API BufferedInputStream final : public InputStream {
public:
    /// As init().
    BufferedInputStream(InputStream* source, int size) { init(source, size); }

    /// Starts anew on `source`, with a buffer of `size` bytes. IllegalArgumentException for a null
    /// source and for a size below 1.
    void init(InputStream* source, int size);

    using InputStream::read;
    /// An APIException for a null buffer or a negative number. Otherwise as InputStream; 0 for 0
    /// bytes.
    int read(unsigned char* buffer, int offset, int length) override;
    /// Closes the source too, whose failure is swallowed.
    void closeStream() override;
    /// What the source has, plus what is buffered.
    int available() override;

    /// As grown so far, in bytes.
    int bufferSize() const { return itsSize; }

private:
    int handOver(unsigned char* to, int length);

    std::unique_ptr<unsigned char[]> itsBuffer;
    InputStream* itsSource = nullptr;  // Borrowed; null once closed.
    int itsCount = 0;                  // valid bytes in the buffer
    int itsPosition = 0;               // the next one to deliver
    int itsSize = 0;
    Util::qzmutex itsMutex;  // Part of the object; a stream has one user, so no operation takes it.
};

}  // namespace Quenvale::Interceptor::SDK::IO
