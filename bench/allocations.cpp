// Counts the calling thread's allocations. Preloaded, so that those of every module count. It
// stands for the whole allocator: the library asks for a block's size only where that and malloc
// come from one place.
#include <dlfcn.h>

#include <cerrno>
#include <cstddef>

extern "C" {

void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);
void* __libc_memalign(std::size_t, std::size_t);
void __libc_free(void*);

static __thread unsigned long ourCount __attribute__((tls_model("initial-exec")));

unsigned long benchAllocations() {
    return ourCount;
}

void* malloc(std::size_t bytes) {
    ++ourCount;
    return __libc_malloc(bytes);
}

void* calloc(std::size_t count, std::size_t bytes) {
    ++ourCount;
    return __libc_calloc(count, bytes);
}

void* realloc(void* block, std::size_t bytes) {
    ++ourCount;
    return __libc_realloc(block, bytes);
}

void* aligned_alloc(std::size_t alignment, std::size_t bytes) {
    ++ourCount;
    return __libc_memalign(alignment, bytes);
}

int posix_memalign(void** block, std::size_t alignment, std::size_t bytes) {
    ++ourCount;
    *block = __libc_memalign(alignment, bytes);
    return *block == nullptr ? ENOMEM : 0;
}

void free(void* block) {
    __libc_free(block);
}

std::size_t malloc_usable_size(void* block) {
    using Function = std::size_t (*)(void*);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "malloc_usable_size"));
    return next(block);
}

}  // extern "C"
