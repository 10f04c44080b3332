#include "util/blocks.h"

#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>
#include <utility>

#include "util/blockCache.h"
#include "util/copy.h"

namespace Quenvale::Interceptor::SDK::Util {

#ifndef QZ_PLAIN_BLOCKS

void* ourNoPlaces[2];
__thread BlockCache ourBlocks;

namespace {

// How many blocks of a class a thread keeps: many texts, a few of the objects.
constexpr std::size_t keptOf(std::size_t bytes) {
    return bytes <= 64 ? 64 : bytes <= 128 ? 24 : bytes <= BlockCache::kFineLimit ? 12 : 4;
}

std::size_t classFor(std::size_t bytes) {
    return bytes <= BlockCache::kFineLimit
               ? (bytes - 1) / BlockCache::kFineStep
               : (bytes - 1) / BlockCache::kCoarseStep + BlockCache::kSkipped;
}

constexpr std::size_t sizeOf(std::size_t number) {
    return number < BlockCache::kFine
               ? (number + 1) * BlockCache::kFineStep
               : (number + 1 - BlockCache::kSkipped) * BlockCache::kCoarseStep;
}

// The largest class that a block can serve which is larger than the fine ones hold; kClasses for
// one that is too large to keep, or smaller than any class: a host's allocator may give 8 bytes.
std::size_t coarseClassOf(std::size_t usable) {
    constexpr std::size_t kSlack = 2 * sizeof(std::size_t);  // What malloc gives beyond.
    if (usable < BlockCache::kFineStep || usable >= BlockCache::kLimit + kSlack)
        return BlockCache::kClasses;
    const std::size_t coarse = usable / BlockCache::kCoarseStep + BlockCache::kSkipped - 1;
    return coarse < BlockCache::kFine ? BlockCache::kFine - 1 : coarse;
}

pthread_key_t ourKey;
bool ourKeyWorks = false;  // Written at load only.

void emptyCache(void* argument) {
    auto* cache = static_cast<BlockCache*>(argument);
    for (std::size_t i = 0; i < BlockCache::kClasses; ++i) {
        void** place = cache->topOf(i);
        cache->tops[i] = 0;
        for (; *place != nullptr; --place) std::free(*place);
    }
    std::free(std::exchange(cache->places, nullptr));
}

// A host may bring an allocator of its own and leave malloc_usable_size to the C library, which
// then misreads the blocks. A block's size can be asked for only where the answer comes from the
// object that takes blocks back; one that merely watches malloc does no harm.
bool hasOneAllocator() {
    const void* home = nullptr;
    for (const char* name : {"free", "malloc_usable_size"}) {
        Dl_info info;
        void* function = dlsym(RTLD_DEFAULT, name);
        if (function == nullptr || dladdr(function, &info) == 0) return false;
        if (home != nullptr && info.dli_fbase != home) return false;
        home = info.dli_fbase;
    }
    return true;
}

constexpr std::size_t placesOfAll() {
    std::size_t places = 0;
    for (std::size_t i = 0; i < BlockCache::kClasses; ++i) places += keptOf(sizeOf(i)) + 2;
    return places;
}

// Without a hook at its thread's end a cache would leak, so such a thread gets none; nor does one
// that finds no memory for the places.
__attribute__((noinline, cold)) bool open() {
    BlockCache& cache = ourBlocks;
    if (!ourKeyWorks || cache.isAsked) return false;
    cache.isAsked = true;
    auto** place = static_cast<void**>(std::malloc(placesOfAll() * sizeof(void*)));
    if (place == nullptr || pthread_setspecific(ourKey, &cache) != 0) {
        std::free(place);
        return false;
    }
    cache.places = place;
    for (std::size_t i = 0; i < BlockCache::kClasses; ++i) {
        cache.setTop(i, place);
        *place++ = nullptr;
        place = std::fill_n(place, keptOf(sizeOf(i)), &cache);
        *place++ = nullptr;
    }
    return true;
}

inline bool isOpen() {
    return __builtin_expect(ourBlocks.places != nullptr, 1) || open();
}

}  // namespace

#endif

namespace {

// Out of line, so that the short way needs no registers saved.
__attribute__((noinline)) char* copyToNewBlock(const char* text, std::size_t length) {
    auto* copy = static_cast<char*>(allocate(length + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

}  // namespace

bool prepareBlocks() {
#ifndef QZ_PLAIN_BLOCKS
    ourKeyWorks = hasOneAllocator() && pthread_key_create(&ourKey, emptyCache) == 0;
#endif
    return true;
}

void* allocate(std::size_t bytes) noexcept {
#ifndef QZ_PLAIN_BLOCKS
    if (bytes - 1 < BlockCache::kLimit) {
        const std::size_t number = classFor(bytes);
        void* block = ourBlocks.pop(number);
        return block != nullptr ? block : std::malloc(sizeOf(number));
    }
#endif
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void releaseBlock(void* block) noexcept {
    char* const text = static_cast<char*>(block);
    releaseTexts(&text, 1);
}

void releaseBlock(void* block, std::size_t bytes) noexcept {
#ifndef QZ_PLAIN_BLOCKS
    if (bytes - 1 < BlockCache::kLimit && isOpen() && ourBlocks.push(classFor(bytes), block))
        return;
#else
    static_cast<void>(bytes);
#endif
    std::free(block);
}

// Blocks of any origin, so each serves the largest class that it can hold.
void releaseTexts(char* const* first, std::size_t count) noexcept {
#ifndef QZ_PLAIN_BLOCKS
    const bool keeps = isOpen();
#endif
    for (char* const* text = first; text != first + count; ++text) {
        if (*text == nullptr) continue;
#ifndef QZ_PLAIN_BLOCKS
        if (__builtin_expect(keeps, 1)) {
            const std::size_t usable = malloc_usable_size(*text);
            const std::size_t fine = usable / BlockCache::kFineStep - 1;
            const std::size_t number = fine < BlockCache::kFine ? fine : coarseClassOf(usable);
            if (number < BlockCache::kClasses && ourBlocks.push(number, *text)) continue;
        }
#endif
        std::free(*text);
    }
}

char* duplicateText(const char* text, std::size_t length) noexcept {
    auto* copy = static_cast<char*>(popBlock(length + 1));
    if (__builtin_expect(copy == nullptr, 0)) return copyToNewBlock(text, length);
    copy[length] = '\0';
    return static_cast<char*>(copyText(copy, text, length));
}

void* Pooled::operator new(std::size_t bytes) {
    void* block = allocate(bytes);
    if (block == nullptr) throw std::bad_alloc();
    return block;
}

}  // namespace Quenvale::Interceptor::SDK::Util
