// The form of a message, and how the records of a queue take it on.
#include "uplink/MessageRun.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "io/DataOutputStream.h"
#include "uplink/AgentEvent.h"
#include "util/exceptions.h"
#include "util/trap.h"

namespace Quenvale::Interceptor::SDK {

namespace {

// bytes. A queue of the usual size goes out in one send, and malloc need not ask the system for the
// block each time.
constexpr int kLong = 64 * 1024;
constexpr int kMostFrame = 32;  // What stands around event and payload.

// The encodings of IO::DataOutputStream, straight into memory.

inline unsigned char* putUnsigned(unsigned char* at, unsigned value) {
    for (; value > 0x7f; value >>= 7) *at++ = static_cast<unsigned char>(value | 0x80);
    *at++ = static_cast<unsigned char>(value);
    return at;
}

inline unsigned char* putText(unsigned char* at, const void* bytes, int length) {
    at = putUnsigned(at, static_cast<unsigned>(length) + 1);
    std::memcpy(at, bytes, static_cast<std::size_t>(length));
    return at + length;
}

inline unsigned char* putBlock(unsigned char* at, const Util::ByteArray& bytes) {
    if (bytes.data == nullptr) return putUnsigned(at, 0);
    at = putText(at, bytes.data, bytes.length);
    return bytes.length > 0 ? putUnsigned(at, 0) : at;
}

// The one place that knows the form of a message; docs/protocol.md has the bytes. A payload stands
// behind two numbers, its content type and two texts that are not there.
__attribute__((always_inline)) inline unsigned char* putMessage(unsigned char* at,
                                                                const Util::ByteArray& event,
                                                                const Util::ByteArray& payload,
                                                                unsigned char contentTypeCode) {
    if (contentTypeCode != 0 && AsyncBinaryUplink::debugOn()) Util::trap();
    *at++ = 1;
    at = putBlock(at, event);
    if (payload.data != nullptr && payload.length > 0) {
        const Util::String& type = AgentEvent::DEFAULT_PAYLOAD_CONTENT_TYPE;
        for (const unsigned number : {1, 0}) at = putUnsigned(at, number);
        at = putText(at, type.c_str(), static_cast<int>(type.length()));
        for (int texts = 0; texts < 2; ++texts) at = putUnsigned(at, 0);
        at = putBlock(at, payload);
    }
    *at++ = 0;
    return at;
}

// At least what putMessage() writes.
long long mostOf(const Util::ByteArray& event, const Util::ByteArray& payload) {
    return static_cast<long long>(kMostFrame) + event.length + std::max(payload.length, 0);
}

}  // namespace

AsyncBinaryUplink::MessageRun::MessageRun(int records)
    : itsRoom(std::clamp(records, 0, kLong) + kMostFrame),
      itsBytes(new unsigned char[static_cast<std::size_t>(itsRoom)]) {}

int AsyncBinaryUplink::MessageRun::fill(const Util::ByteArray& records, int position, int length) {
    itsEnds.clear();
    unsigned char* out = itsBytes.get();
    const unsigned char* limit = out + itsRoom;
    unsigned char* at = records.data + position;
    for (const unsigned char* end = records.data + length; at < end;) {
        const Record record(at);
        if (mostOf(record.event, record.payload) > limit - out) break;
        out = putMessage(out, record.event, record.payload, record.contentTypeCode);
        itsEnds.push_back(static_cast<int>(out - itsBytes.get()));
        at = record.end;
    }
    return static_cast<int>(at - records.data);
}

void AsyncBinaryUplink::writeMessage(IO::DataOutputStream& out, const Util::ByteArray& event,
                                     const Util::ByteArray& payload,
                                     unsigned char contentTypeCode) {
    const long long most = mostOf(event, payload);
    if (event.length < 0 || most > INT_MAX)
        Util::raise<Util::IOException>("No length of a message");
    const std::unique_ptr<unsigned char[]> bytes(new unsigned char[static_cast<std::size_t>(most)]);
    const unsigned char* end = putMessage(bytes.get(), event, payload, contentTypeCode);
    out.write(bytes.get(), 0, static_cast<int>(end - bytes.get()));
}

}  // namespace Quenvale::Interceptor::SDK
