#pragma once

#include "io/InputStream.h"
#include "util/String.h"

namespace Quenvale::Interceptor::SDK::IO {

/// The reading side of the agent protocol's typed layer; DataOutputStream has the encodings.
///
/// A text, and a block with all its pieces, may have up to 64 MiB. What claims to be longer is
/// refused before memory is taken for it. However a block is cut into pieces, reading it takes no
/// more than a small multiple of its size.
///
/// Threads:   one at a time; there is no lock.
/// Ownership: the source is borrowed; closeStream() closes it, nothing here deletes it.
/// Units:     lengths are bytes.
/// Errors:    EOFException where the source ends inside a value; a source that delivers 0 bytes
///            where some are due counts as ended. IOException for what can't be a value. Either
///            way part of the value is gone, so the caller drops the connection.
class QZ_API DataInputStream final : public InputStream {
public:
    /// A piece of a block while the block is read. It does not own the bytes.
    struct ChunkData {
        /// Keeps both.
        ChunkData(int size, unsigned char* bytes) : length(size), data(bytes) {}
        ~ChunkData() {
            length = 0;
            data = nullptr;
        }
        ChunkData(const ChunkData&) = delete;
        ChunkData& operator=(const ChunkData&) = delete;

        int length;           // bytes
        unsigned char* data;  // Borrowed.
    };

    /// Not null.
    explicit DataInputStream(InputStream* in) : itsSource(in) {}

    using InputStream::read;
    int read(unsigned char* buffer, int offset, int length) override;
    /// Closes the source too, whose failure is swallowed.
    void closeStream() override;
    int available() override;

    /// Any number of bytes is taken; from the sixth on they fold over the low ones, and more than
    /// 31 bits make the value negative.
    int readUnsignedInt();
    /// NIL and the empty text are told apart. A text ends at a zero byte within it.
    Util::String readUTF();
    /// A block from new[] that the caller owns. Null for the null block, and then `size` is left as
    /// it was; a block of no bytes is not null.
    unsigned char* readBytes(int& size);

private:
    InputStream* source() const;
    void readFully(unsigned char* buffer, int length);

    InputStream* itsSource;  // Borrowed; null once closed.
};

}  // namespace Quenvale::Interceptor::SDK::IO
