#pragma once

#include <memory>

#include "io/OutputStream.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Collects what is written in one block, which doubles as often as it takes.
class QZ_API ByteOutputStream final : public OutputStream {
public:
    explicit ByteOutputStream(int size) { initBuffer(size); }

    /// Starts anew with a zeroed block.
    void initBuffer(int size);

    void write(unsigned char* buffer, int offset, int length) override;
    void flush() override {}
    void closeStream() override;

    /// The block, which a write may replace and closeStream() releases; null once closed.
    const unsigned char* getBuffer() const { return itsBuffer.get(); }
    int getSize() const { return itsSize; }
    int getCount() const { return itsCount; }

private:
    void grow(int needed);

    std::unique_ptr<unsigned char[]> itsBuffer;
    int itsSize = 0;
    int itsCount = 0;  // bytes written
};

}  // namespace Quenvale::Interceptor::SDK::IO
