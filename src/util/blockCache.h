#pragma once

#include <cstddef>
#include <cstdint>

/// The short way to the cache of blocks.h, for the few sources that take and give back a call's
/// many blocks. What it doesn't serve is for allocate() and releaseBlock().
namespace Quenvale::Interceptor::SDK::Util {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QZ_PLAIN_BLOCKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define QZ_PLAIN_BLOCKS 1
#endif
#endif

/// Finds out whether caches can be had. Runs while the library loads, before any block is given
/// back, since it asks the loader: a thread that came to that in a call could wait for another's
/// dlopen, which waits for the thread. The result is for an initialiser and says nothing.
bool prepareBlocks();

#ifdef QZ_PLAIN_BLOCKS

// A sanitizer sees each use, and each block as large as it was asked for.
inline void* popBlock(std::size_t /*bytes*/) {
    return nullptr;
}

inline bool pushBlock(void* /*block*/, std::size_t /*bytes*/) {
    return false;
}

#else

/// Two nulls, never written. Not const: a compiler that knows them for nulls might take whatever is
/// read at a distance from them for null.
extern void* ourNoPlaces[2] __attribute__((visibility("hidden")));

/// Classes of blocks that hold 16, 32, ... 256 bytes, for texts, records and nodes, and then 320,
/// 384, ... 1024. What is larger is too rare to keep.
struct BlockCache {
    static constexpr std::size_t kFineStep = 16;
    static constexpr std::size_t kFine = 16;  // Classes.
    static constexpr std::size_t kFineLimit = kFine * kFineStep;
    static constexpr std::size_t kCoarseStep = 64;
    static constexpr std::size_t kLimit = 1024;
    static constexpr std::size_t kSkipped = kFine - kFineLimit / kCoarseStep;
    static constexpr std::size_t kClasses = kLimit / kCoarseStep + kSkipped;

    // The idle blocks of each class, the newest on top. Below the first and above the last place
    // stands a null, and the places between always hold something else, be it long gone: one test
    // of what is read anyway tells that there is no block, or no place for another one.
    // Zero-initialised, a class has neither.
    void* pop(std::size_t number) {
        void* const block = *topOf(number);
        if (__builtin_expect(block != nullptr, 1)) tops[number] -= sizeof(void*);
        return block;
    }
    bool push(std::size_t number, void* block) {
        void** const next = topOf(number) + 1;
        if (__builtin_expect(*next == nullptr, 0)) return false;
        *next = block;
        tops[number] += sizeof(void*);
        return true;
    }
    void** topOf(std::size_t number) { return reinterpret_cast<void**>(nowhere() + tops[number]); }
    void setTop(std::size_t number, void** place) {
        tops[number] = reinterpret_cast<std::uintptr_t>(place) - nowhere();
    }
    static std::uintptr_t nowhere() { return reinterpret_cast<std::uintptr_t>(ourNoPlaces); }

    std::uintptr_t tops[kClasses];  // As distances from nowhere().
    void** places;                  // Of all classes; null as long as the cache is closed.
    bool isAsked;                   // It was opened once, or that failed; it isn't again.
};

// Zero-initialised, so that a thread's first use needs no guard.
extern __thread BlockCache ourBlocks __attribute__((visibility("hidden")));

/// A block for so many bytes if the cache has one of a fine class, else null.
inline void* popBlock(std::size_t bytes) {
    const std::size_t fine = (bytes - 1) / BlockCache::kFineStep;
    return __builtin_expect(fine < BlockCache::kFine, 1) ? ourBlocks.pop(fine) : nullptr;
}

/// Whether the cache took the block, which was asked for with so many bytes, into a fine class.
inline bool pushBlock(void* block, std::size_t bytes) {
    const std::size_t fine = (bytes - 1) / BlockCache::kFineStep;
    return __builtin_expect(fine < BlockCache::kFine, 1) && ourBlocks.push(fine, block);
}

#endif

}  // namespace Quenvale::Interceptor::SDK::Util
