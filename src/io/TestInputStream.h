#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "io/InputStream.h"

namespace Quenvale::Interceptor::SDK::IO {

/// A source for tests of what reads streams: gives bytes in portions, as a network would, fails
/// where it is told to, and notes what it was asked for. Its fields may be set at any time.
class QZ_API TestInputStream final : public InputStream {
public:
    /// Gives `bytes`, all in one portion.
    explicit TestInputStream(std::string bytes) : itsBytes(std::move(bytes)) {}

    using InputStream::read;
    /// No more than is left of the present portion.
    int read(unsigned char* buffer, int offset, int length) override;
    /// Closed once it has not failed; every call counts.
    void closeStream() override;
    /// What is left of the present portion, unless `itsReady` says otherwise.
    int available() override;

    std::string itsBytes;          // what it gives
    int itsPosition = 0;           // of the next byte
    std::vector<int> itsPortions;  // bytes; used in turn, and again from the first; none for all
    std::optional<int> itsReady;   // what available() says instead
    int itsEnd = -1;               // what a read gives behind the last byte
    int itsFailAt = -1;            // the byte whose read is an IOException; -1 for none
    bool itFailsToClose = false;   // closing is an IOException, and the stream stays open
    std::vector<int> itsRequests;  // the length that each read asked for
    int itsCloses = 0;             // calls of closeStream()
    bool itHasFailed = false;      // a read has met `itsFailAt`

private:
    int portion();

    unsigned int itsNextPortion = 0;  // index
    int itsLeft = -1;                 // bytes of the present portion; -1 for none
};

}  // namespace Quenvale::Interceptor::SDK::IO
