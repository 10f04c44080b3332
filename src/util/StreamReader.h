#pragma once

#include "util/String.h"
#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// Text, line by line. Lines are cut at 255 bytes: the rest of a longer one comes as the next.
///
/// Threads: one at a time; there is no lock.
class QZ_API StreamReader {
public:
    StreamReader(const StreamReader&) = delete;
    StreamReader& operator=(const StreamReader&) = delete;

    /// Closes the source; nothing a second time.
    virtual void closeReader() = 0;
    /// True when the source can be read.
    virtual explicit operator bool() const = 0;
    /// The next line without its line feed, a carriage return included. At the end the empty text,
    /// NIL where there is no source.
    virtual String ReadLine() = 0;

protected:
    StreamReader() = default;
    ~StreamReader() = default;
};

}  // namespace Quenvale::Interceptor::SDK::Util
