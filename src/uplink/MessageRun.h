#pragma once

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "uplink/AsyncBinaryUplink.h"
#include "util/ByteArray.h"

namespace Quenvale::Interceptor::SDK {

/// @cond

/// Messages as they go on the wire, one behind the other for one send, and where each ends: a full
/// queue holds some hundred.
class QZ_LOCAL AsyncBinaryUplink::MessageRun {
public:
    /// One event where it stands in a queue: what copyEventAndPayload() wrote.
    struct Record {
        explicit Record(unsigned char* at) {
            event = Util::ByteArray(at + sizeof(int), lengthAt(at), false);
            at = event.data + event.length;
            end = at + sizeof(int);
            const int payloadLength = lengthAt(at);
            if (payloadLength <= 0) return;
            contentTypeCode = *end++;
            payload = Util::ByteArray(end, payloadLength, false);
            end += payloadLength;
        }
        static int lengthAt(const unsigned char* at) {
            int length = 0;
            std::memcpy(&length, at, sizeof length);
            return length;
        }

        Util::ByteArray event;
        Util::ByteArray payload;
        unsigned char contentTypeCode = 0;
        unsigned char* end;  // Of the record.
    };

    /// For the messages of so many bytes of records, or for as many as one send is to take.
    explicit MessageRun(int records);

    /// Starts anew with the records from `position` on, up to the first that has no room. Returns
    /// where that one stands, or `length`. It stays at `position` for one too long for any run.
    int fill(const Util::ByteArray& records, int position, int length);

    const unsigned char* bytes() const { return itsBytes.get(); }
    int length() const { return itsEnds.empty() ? 0 : itsEnds.back(); }
    int count() const { return static_cast<int>(itsEnds.size()); }
    int beginOf(int message) const { return message == 0 ? 0 : endOf(message - 1); }
    int endOf(int message) const { return itsEnds[static_cast<std::size_t>(message)]; }
    /// How many lie whole within the first so many bytes.
    int countUpTo(int bytes) const {
        const auto behind = std::upper_bound(itsEnds.begin(), itsEnds.end(), bytes);
        return static_cast<int>(behind - itsEnds.begin());
    }

private:
    const int itsRoom;  // bytes
    const std::unique_ptr<unsigned char[]> itsBytes;
    std::vector<int> itsEnds;
};

/// @endcond

}  // namespace Quenvale::Interceptor::SDK
