#include "util/blocks.h"

#include <dlfcn.h>
#include <malloc.h>
#include <pthread.h>

#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <new>

#include "util/copy.h"

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
    struct Class {
        Idle* head;
        unsigned int room;  // How many more blocks it takes.
    };
    Class classes[kClasses];
    bool isOpen;   // The thread's end will empty it.
    bool isAsked;  // Whether it may open was found out.
};

__thread Cache ourCache __attribute__((tls_model("initial-exec")));

pthread_key_t ourKey;
pthread_once_t ourKeyOnce = PTHREAD_ONCE_INIT;
bool ourKeyWorks = false;

void emptyCache(void* argument) {
    auto* cache = static_cast<Cache*>(argument);
    cache->isOpen = false;
    for (Cache::Class& blocks : cache->classes) {
        while (Idle* idle = blocks.head) {
            blocks.head = idle->next;
            std::free(idle);
        }
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
__attribute__((noinline)) bool open() {
    Cache& cache = ourCache;
    if (cache.isAsked) return false;
    cache.isAsked = true;
    pthread_once(&ourKeyOnce, makeKey);
    if (!ourKeyWorks || pthread_setspecific(ourKey, &cache) != 0) return false;
    for (int i = 0; i < kClasses; ++i) cache.classes[i].room = kKept[i];
    cache.isOpen = true;
    return true;
}

inline bool keep(void* block, std::size_t i) {
    Cache::Class& blocks = ourCache.classes[i];
    if (__builtin_expect(blocks.room == 0, 0)) return false;
    --blocks.room;
    auto* idle = static_cast<Idle*>(block);
    idle->next = blocks.head;
    blocks.head = idle;
    return true;
}

inline std::size_t highestBit(std::size_t number) {
    return 63U ^ static_cast<unsigned>(__builtin_clzl(number));
}

// The class whose blocks hold `bytes`: 0 for up to 32, 5 for up to 1024.
inline std::size_t classFor(std::size_t bytes) {
    return bytes <= kSmallest ? 0 : highestBit(bytes - 1) - 4;
}

// The largest class that a block of this usable size can serve.
inline std::size_t classOf(std::size_t usable) {
    return highestBit(usable) - 5;
}

#endif

inline void* take(std::size_t bytes) {
#ifndef QZ_PLAIN_BLOCKS
    if (bytes <= kLargest) {
        const std::size_t i = classFor(bytes);
        Cache::Class& blocks = ourCache.classes[i];
        if (Idle* idle = blocks.head) {
            blocks.head = idle->next;
            ++blocks.room;
            return idle;
        }
        return std::malloc(kSmallest << i);
    }
#endif
    return std::malloc(bytes == 0 ? 1 : bytes);
}

}  // namespace

void* allocate(std::size_t bytes) noexcept {
    return take(bytes);
}

void releaseBlock(void* block) noexcept {
#ifndef QZ_PLAIN_BLOCKS
    if (__builtin_expect(ourCache.isOpen, 1) || open()) {
        const std::size_t usable = malloc_usable_size(block);
        if (usable - kSmallest < kLargest && keep(block, classOf(usable))) return;
    }
#endif
    std::free(block);
}

void releaseBlock(void* block, std::size_t bytes) noexcept {
#ifndef QZ_PLAIN_BLOCKS
    if (bytes <= kLargest && (__builtin_expect(ourCache.isOpen, 1) || open()) &&
        keep(block, classFor(bytes)))
        return;
#else
    static_cast<void>(bytes);
#endif
    std::free(block);
}

char* duplicate(const char* text, std::size_t length) noexcept {
    if (text == nullptr) return nullptr;
    auto* copy = static_cast<char*>(take(length + 1));
    if (__builtin_expect(copy == nullptr, 0)) return nullptr;
    copyText(copy, text, length);
    copy[length] = '\0';
    return copy;
}

void* Pooled::operator new(std::size_t bytes) {
    if (void* block = take(bytes)) return block;
    throw std::bad_alloc();
}

}  // namespace Quenvale::Interceptor::SDK::Util
