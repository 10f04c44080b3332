#pragma once

#include <memory>

#include "io/OutputStream.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Collects what is written in one block, which doubles as often as it takes.
class QZ_API ByteOutputStream final : public OutputStream {
public:
    /// As initBuffer().
    explicit ByteOutputStream(int size) { initBuffer(size); }

    /// Starts anew with a zeroed block. An APIException for a size below 1, a RuntimeException once
    /// closed.
    void initBuffer(int size);

    /// An APIException for a null buffer, an IOException once closed and where the block would
    /// double past 2 GiB; nothing for a length below 1.
    void write(unsigned char* buffer, int offset, int length) override;
    /// Does nothing.
    void flush() override {}
    /// Releases the block.
    void closeStream() override;

    /// The block, which a write may replace and closeStream() releases; null once closed.
    const unsigned char* getBuffer() const { return itsBuffer.get(); }
    /// The block's size.
    int getSize() const { return itsSize; }
    /// Bytes written.
    int getCount() const { return itsCount; }

private:
    void grow(int needed);

    std::unique_ptr<unsigned char[]> itsBuffer;
    int itsSize = 0;
    int itsCount = 0;  // bytes written
};

}  // namespace Quenvale::Interceptor::SDK::IO
