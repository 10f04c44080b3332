#pragma once

#include "util/blocks.h"
#include "util/dispose.h"

namespace Quenvale::Interceptor::SDK::Util {

/// An entry of a Map.
template <class T>
struct Pair : Pooled {
    Pair(const char* k, const T& v, int mode) : key(k), value(v), freeMode(mode) {}
    virtual ~Pair() { Free<T>(freeMode, value); }
    Pair(const Pair&) = delete;
    Pair& operator=(const Pair&) = delete;

    String key;
    T value;
    int freeMode;

    /// The map's own: the hash of the key, and the next entry's node in the same bucket.
    unsigned long hash = 0;
    void* nextInBucket = nullptr;
};

}  // namespace Quenvale::Interceptor::SDK::Util
