#pragma once

#include <cstddef>

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

    struct Idle {
        Idle* next;
    };
    struct Class {
        Idle* head;
        std::size_t room;  // How many more blocks it takes; 0 as long as the cache is closed.

        void* pop() {
            Idle* const idle = head;
            if (__builtin_expect(idle != nullptr, 1)) {
                head = idle->next;
                ++room;
            }
            return idle;
        }
        bool push(void* block) {
            if (__builtin_expect(room == 0, 0)) return false;
            --room;
            auto* idle = static_cast<Idle*>(block);
            idle->next = head;
            head = idle;
            return true;
        }
    };

    Class classes[kClasses];
    bool isOpen;   // The thread's end will empty it.
    bool isAsked;  // Whether it may open was found out.
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
