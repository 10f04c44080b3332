#pragma once

#include <string>
#include <vector>

#include "io/OutputStream.h"

namespace Quenvale::Interceptor::SDK::IO {

/// A sink for tests of what writes to streams: keeps what came, call by call, and fails where it is
/// told to. Its fields may be set at any time.
class QZ_API TestOutputStream final : public OutputStream {
public:
    /// A write that would pass `itsFailAt` leaves the bytes before it.
    void write(unsigned char* buffer, int offset, int length) override;
    /// Noted among the calls.
    void flush() override;
    /// Noted among the calls. Closed once it has not failed.
    void closeStream() override;

    std::string itsBytes;               // all that was written
    std::vector<std::string> itsCalls;  // each write's bytes, "<flush>" and "<close>", in order
    int itsFailAt = -1;                 // the byte whose write is an IOException; -1 for none
    bool itFailsToClose = false;        // closing is an IOException, and the stream stays open
    bool itHasFailed = false;           // a write has met `itsFailAt`
};

}  // namespace Quenvale::Interceptor::SDK::IO
