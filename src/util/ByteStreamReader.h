#pragma once

#include <memory>

#include "io/InputStream.h"
#include "util/StreamReader.h"

namespace Quenvale::Interceptor::SDK::Util {

/// The lines of a byte stream, which is borrowed; closeReader() closes it.
///
/// A line ends at a line feed, at 255 bytes, and also where one read of the stream ended. A line
/// whose read began with a zero byte counts as NIL.
class QZ_API ByteStreamReader final : public StreamReader {
public:
    /// Null gives a reader without a source.
    explicit ByteStreamReader(IO::InputStream* source) : itsSource(source) {}

    void closeReader() override;
    /// True when the source has bytes; lines that were read ahead don't count.
    explicit operator bool() const override;
    /// NIL without a source and after closeReader(). What the stream throws passes through.
    String ReadLine() override;

private:
    IO::InputStream* itsSource;                    // Borrowed; null once closed.
    std::unique_ptr<unsigned char[]> itsLeftover;  // Read behind the line feed of an earlier line.
    int itsPosition = 0;
    int itsCount = 0;
    bool itIsClosed = false;
};

}  // namespace Quenvale::Interceptor::SDK::Util
