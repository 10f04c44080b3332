#pragma once

#include "util/blocks.h"
#include "util/dispose.h"

namespace Quenvale::Interceptor::SDK::Util {

/// An entry of a Map.
template <class T>
struct Pair : Pooled {
    /// Copies both.
    Pair(const char* k, const T& v, int mode) : key(k), value(v), freeMode(mode) {}
    virtual ~Pair() { Free<T>(freeMode, value); }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    String key;    // NIL for a null key.
    T value;       // A copy.
    int freeMode;  // What happens to the value when the entry goes.

    /// @{
    /// The map's own: the hash of the key, and the next entry's node in the same bucket.
    unsigned long hash = 0;
    void* nextInBucket = nullptr;
    /// @}
};

}  // namespace Quenvale::Interceptor::SDK::Util
