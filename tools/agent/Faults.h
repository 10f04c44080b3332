#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace QZAgent {

/// What an agent can do wrong on a connection. All off by default. A connection takes the faults
/// that are in force when it is accepted, and keeps them.
struct Faults {
    bool refuse = false;          // Close straight after the accept, before a byte is read or sent.
    bool silentId = false;        // Never send the id block.
    bool silentAccept = false;    // Never send the accept byte.
    bool emptyId = false;         // Send an id block of no bytes.
    bool withholdConfig = false;  // Take the subscription and push nothing until told to.
    std::optional<int> acceptByte;  // Send this in place of 1, then go on reading.
    std::string garbage;            // Send these bytes in place of the id block.

    std::optional<std::uint64_t> closeAfterBytes;  // Counted from the connection's first byte.
    std::optional<std::uint64_t>
        closeAfterEventBytes;   // Counted from the first byte behind the handshake.
    bool closeByReset = false;  // The two above end with a reset, not an orderly end.

    int readPauseMs = 0;  // Wait this long after each read...
    int readChunk = 0;    // ...of at most this many bytes; 0 is no limit.
};

}  // namespace QZAgent
