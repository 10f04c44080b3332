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

#ifdef QZ_PLAIN_BLOCKS

// A sanitizer sees each use, and each block as large as it was asked for.
inline void* popBlock(std::size_t /*bytes*/) {
    return nullptr;
}

inline bool pushBlock(void* /*block*/, std::size_t /*bytes*/) {
    return false;
}

#else

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

    // Idle blocks, the newest on top. Below the first and above the last place stands a null, and
    // the places between always hold something else: one test of what is read anyway tells that
    // there is no block, or no place for another one. Zero-initialised, a class has neither.
    struct Class {
        static constexpr void* kNoPlaces[2] = {};

        std::uintptr_t distance;  // From there to the top.

        static std::uintptr_t start() { return reinterpret_cast<std::uintptr_t>(kNoPlaces); }
        void** top() const { return reinterpret_cast<void**>(start() + distance); }
        void setTop(void** place) { distance = reinterpret_cast<std::uintptr_t>(place) - start(); }
        void* pop() {
            void* const block = *top();
            if (__builtin_expect(block != nullptr, 1)) distance -= sizeof(void*);
            return block;
        }
        bool push(void* block) {
            void** const next = top() + 1;
            if (__builtin_expect(*next == nullptr, 0)) return false;
            *next = block;
            distance += sizeof(void*);
            return true;
        }
    };

    Class classes[kClasses];
    void** places;  // Of all classes; null as long as the cache is closed.
    bool isAsked;   // Whether it may open was found out.
};

// Zero-initialised, so that a thread's first use needs no guard.
extern __thread BlockCache ourBlocks __attribute__((visibility("hidden")));

/// A block for so many bytes if the cache has one of a fine class, else null.
inline void* popBlock(std::size_t bytes) {
    const std::size_t fine = (bytes - 1) / BlockCache::kFineStep;
    return __builtin_expect(fine < BlockCache::kFine, 1) ? ourBlocks.classes[fine].pop() : nullptr;
}

/// Whether the cache took the block, which was asked for with so many bytes, into a fine class.
inline bool pushBlock(void* block, std::size_t bytes) {
    const std::size_t fine = (bytes - 1) / BlockCache::kFineStep;
    return __builtin_expect(fine < BlockCache::kFine, 1) && ourBlocks.classes[fine].push(block);
}

#endif

}  // namespace Quenvale::Interceptor::SDK::Util
