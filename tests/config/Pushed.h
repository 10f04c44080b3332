#pragma once

#include "harness/values.h"
#include "io/BufferedInputStream.h"
#include "io/ByteArrayInputStream.h"
#include "uplink/AsyncBinaryUplink.h"
#include "util/ByteStreamReader.h"

namespace harness {

/// Reads a text as the agent's push is read.
class Pushed {
public:
    explicit Pushed(std::string text)
        : itsText(std::move(text)),
          itsStream({bytesOf(itsText), static_cast<int>(itsText.size()), false}),
          itsBuffer(&itsStream, 2048),
          itsReader(&itsBuffer) {}
    operator SDK::Util::ByteStreamReader&() { return itsReader; }

private:
    std::string itsText;
    SDK::IO::ByteArrayInputStream itsStream;
    SDK::IO::BufferedInputStream itsBuffer;
    SDK::Util::ByteStreamReader itsReader;
};

/// Whether the agent's host counts, which the environment says when the library loads.
inline bool& isRemote() {
    using Uplink = SDK::AsyncBinaryUplink;
    return const_cast<SDK::UplinkParameters::Values&>(Uplink::itsParams).remoteUplink;
}

}  // namespace harness
