#include "util/blocks.h"

#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>

namespace Quenvale::Interceptor::SDK::Util {

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define QZ_PLAIN_BLOCKS 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
#define QZ_PLAIN_BLOCKS 1
#endif
#endif

#ifndef QZ_PLAIN_BLOCKS

// Blocks of 32, 64, ... 1024 bytes; what is larger is too rare to keep.
constexpr int kClasses = 6;
constexpr std::size_t kSmallest = 32;
constexpr std::size_t kLargest = kSmallest << (kClasses - 1);
constexpr unsigned char kKept[kClasses] = {96, 96, 32, 24, 16, 16};

struct Idle {
    Idle* next;
};

// Zero-initialised, so that a thread's first use needs no guard. It lives in the static TLS area:
// one load reaches it, and nothing allocates on the way.
struct Cache {
    Idle* head[kClasses];
    unsigned char count[kClasses];
    bool isRegistered;  // The thread's end will empty it.
    bool isClosed;      // It was emptied: the thread is ending.
};

__thread Cache ourCache __attribute__((tls_model("initial-exec")));

pthread_key_t ourKey;
pthread_once_t ourKeyOnce = PTHREAD_ONCE_INIT;
bool ourKeyWorks = false;

void emptyCache(void* argument) {
    auto* cache = static_cast<Cache*>(argument);
    cache->isClosed = true;
    for (int i = 0; i < kClasses; ++i) {
        while (Idle* idle = cache->head[i]) {
            cache->head[i] = idle->next;
            std::free(idle);
        }
        cache->count[i] = 0;
    }
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

void makeKey() {
    ourKeyWorks = hasOneAllocator() && pthread_key_create(&ourKey, emptyCache) == 0;
}

// Without a hook at its thread's end a cache would leak, so such a thread gets none.
bool registerCache(Cache& cache) {
    pthread_once(&ourKeyOnce, makeKey);
    cache.isRegistered = true;
    cache.isClosed = !ourKeyWorks || pthread_setspecific(ourKey, &cache) != 0;
    return !cache.isClosed;
}

inline bool isOpen(Cache& cache) {
    return !cache.isClosed && (cache.isRegistered || registerCache(cache));
}

inline bool keep(Cache& cache, void* block, int i) {
    if (cache.count[i] >= kKept[i]) return false;
    auto* idle = static_cast<Idle*>(block);
    idle->next = cache.head[i];
    cache.head[i] = idle;
    ++cache.count[i];
    return true;
}

// The class whose blocks hold `bytes`: 0 for up to 32, 5 for up to 1024.
inline int classFor(std::size_t bytes) {
    return bytes <= kSmallest ? 0 : 64 - __builtin_clzl(bytes - 1) - 5;
}

// The largest class that a block of this usable size can serve.
inline int classOf(std::size_t usable) {
    return 63 - __builtin_clzl(usable) - 5;
}

#endif

}  // namespace

void* allocate(std::size_t bytes) noexcept {
#ifndef QZ_PLAIN_BLOCKS
    if (bytes <= kLargest) {
        const int i = classFor(bytes);
        Cache& cache = ourCache;
        if (Idle* idle = cache.head[i]) {
            cache.head[i] = idle->next;
            --cache.count[i];
            return idle;
        }
        return std::malloc(kSmallest << i);
    }
#endif
    return std::malloc(bytes == 0 ? 1 : bytes);
}

void* allocateZeroed(std::size_t bytes) noexcept {
    void* block = allocate(bytes);
    if (block != nullptr) std::memset(block, 0, bytes);
    return block;
}

void releaseBlock(void* block) noexcept {
#ifndef QZ_PLAIN_BLOCKS
    Cache& cache = ourCache;
    if (isOpen(cache)) {
        const std::size_t usable = malloc_usable_size(block);
        if (usable >= kSmallest && usable < kLargest + kSmallest &&
            keep(cache, block, classOf(usable)))
            return;
    }
#endif
    std::free(block);
}

void releaseBlock(void* block, std::size_t bytes) noexcept {
#ifndef QZ_PLAIN_BLOCKS
    Cache& cache = ourCache;
    if (bytes <= kLargest && isOpen(cache) && keep(cache, block, classFor(bytes))) return;
#else
    static_cast<void>(bytes);
#endif
    std::free(block);
}

char* duplicate(const char* text, std::size_t length) noexcept {
    if (text == nullptr) return nullptr;
    auto* copy = static_cast<char*>(allocate(length + 1));
    if (copy == nullptr) return nullptr;
    std::memcpy(copy, text, length);
    copy[length] = '\0';
    return copy;
}

void* Pooled::operator new(std::size_t bytes) {
    if (void* block = allocate(bytes)) return block;
    throw std::bad_alloc();
}

}  // namespace Quenvale::Interceptor::SDK::Util
