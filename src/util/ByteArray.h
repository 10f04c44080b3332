#pragma once

#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// A buffer and its length, copied and passed as a bare record: a copy shares the buffer with its
/// source, and disposal is an explicit act, Util::nullify or releaseContent.
struct QZ_API ByteArray {
    /// A further heap block, released with free(); its link stands where a ByteArray has `extra`.
    /// The event writer reads such a block as a region of the payload to be hidden.
    struct Region {
        int position;      // index into the payload
        int length;        // bytes
        signed char fill;  // what stands there instead
        Region* extra;     // The next one; null at the end.
    };

    ByteArray() : ByteArray(nullptr, 0, true) {}

    /// Null bytes give length 0 and `owned` true, whatever the other arguments.
    ByteArray(unsigned char* bytes, int size, bool isOwned)
        : data(bytes), length(bytes == nullptr ? 0 : size), owned(bytes == nullptr || isOwned) {}

    /// Releases what is owned and leaves an empty, owning record.
    void releaseContent();

    unsigned char* data;      // Null for none.
    int length;               // bytes
    bool owned;               // `data` goes by delete[]
    Region* extra = nullptr;  // Owned, whatever `owned` says.
};

}  // namespace Quenvale::Interceptor::SDK::Util
