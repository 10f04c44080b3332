#pragma once

#include "io/InputStream.h"
#include "util/ByteArray.h"

namespace Quenvale::Interceptor::SDK::IO {

/// Reads a ByteArray, which is copied as a record: the bytes are shared with the caller's record
/// until closeStream() releases them, if they are owned. Destruction alone releases nothing.
class QZ_API ByteArrayInputStream final : public InputStream {
public:
    /// The bytes must stay until the stream is done with.
    explicit ByteArrayInputStream(Util::ByteArray content)
        : itsContent(content), itsCount(content.length) {}

    using InputStream::read;
    /// An APIException for a null buffer or a negative number.
    int read(unsigned char* buffer, int offset, int length) override;
    /// Releases the bytes if the record owns them.
    void closeStream() override;
    int available() override;

private:
    Util::ByteArray itsContent;
    int itsPosition = 0;
    int itsCount;
};

}  // namespace Quenvale::Interceptor::SDK::IO
