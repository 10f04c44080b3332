#pragma once

#include <memory>

#include "io/InputStream.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Reads a block of memory. Past its end, and once closed, a read gives 0 and never -1.
class QZ_API ByteInputStream final : public InputStream {
public:
    /// Takes over `data`, a block from new[], unless it throws.
    ByteInputStream(unsigned char* data, int length) { initBuffer(data, length); }

    /// Starts anew on a further block, which it takes over in place of the former one. An
    /// APIException for null and for a length below 1, an IOException once closed.
    void initBuffer(unsigned char* data, int length);

    using InputStream::read;
    /// An APIException for a null buffer.
    int read(unsigned char* buffer, int offset, int length) override;
    /// Releases the block.
    void closeStream() override;
    int available() override;

private:
    std::unique_ptr<unsigned char[]> itsData;
    int itsSize = 0;
    int itsPosition = 0;
    int itsLimit = 0;  // No more than this many bytes are available at a time.
};

}  // namespace Quenvale::Interceptor::SDK::IO
