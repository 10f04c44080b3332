#pragma once

#include <cstddef>
#include <cstring>

#include "util/export.h"

namespace Quenvale::Interceptor::SDK::Util {

/// @file
/// Memory for what a report makes and drops again: texts, records, nodes, events. Every block is
/// a plain malloc block of its own, so it may also end in free(), and a block from malloc or
/// strdup may end in release(). In front of malloc stands a small cache for each thread, bounded
/// in count and size (some 80 KiB at most), which goes when its thread ends. There is no cache
/// where the host has put an allocator of its own in part in malloc's place, or seems to: an
/// executable that is linked at a fixed address and takes the address of free. There is none in
/// builds with a sanitizer, so that the sanitizer sees each use; elsewhere a leak checker may take
/// a lost block for a kept one, since a cache keeps addresses of blocks that have left it. A forked
/// child inherits the forking thread's.
///
/// Threads: any. A block may be released on a thread other than the one that took it.

/// At least `bytes` bytes, uninitialised. Null only when malloc has none.
QZ_API void* allocate(std::size_t bytes) noexcept;

/// The same, zeroed.
inline void* allocateZeroed(std::size_t bytes) noexcept {
    void* block = allocate(bytes);
    if (block != nullptr) std::memset(block, 0, bytes);
    return block;
}

/// @{
/// Gives a block back that isn't null. The second form is for one that was asked for with so many
/// bytes, here or, if they are a multiple of 16 up to 256 or one of 64, from malloc. It saves
/// asking the block for its size.
QZ_API void releaseBlock(void* block) noexcept;
QZ_API void releaseBlock(void* block, std::size_t bytes) noexcept;
/// @}

/// Gives a block back. Null does nothing, and most texts of a call are null.
inline void release(void* block) noexcept {
    if (block != nullptr) releaseBlock(block);
}

/// release() for so many texts that stand one behind the other.
void releaseTexts(char* const* first, std::size_t count) noexcept;

/// @{
/// A copy of `length` characters with a terminator; null for a null text, which the first form is
/// never given.
QZ_API char* duplicateText(const char* text, std::size_t length) noexcept;
inline char* duplicate(const char* text, std::size_t length) noexcept {
    return text == nullptr ? nullptr : duplicateText(text, length);
}
/// @}

/// Base of the classes that a report makes: their objects come from allocate().
struct Pooled {
    /// From allocate(); std::bad_alloc where there is no memory.
    QZ_API static void* operator new(std::size_t bytes);
    /// Into memory of the caller's.
    static void* operator new(std::size_t, void* place) noexcept { return place; }
    /// Back to the cache.
    static void operator delete(void* block, std::size_t bytes) noexcept {
        if (block != nullptr) releaseBlock(block, bytes);
    }
};

}  // namespace Quenvale::Interceptor::SDK::Util
