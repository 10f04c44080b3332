/* Linked into a driver of its own: an allocator that a host might bring. Its blocks hold what was
 * asked for, in steps of 8 bytes and no more, and whoever writes beyond ends the process. */
#include <stddef.h>
#include <stdlib.h>
#include <string.h>

#define GUARD "beyond the block"

void* __libc_memalign(size_t alignment, size_t size);
void __libc_free(void* block);

/* Stands right before a block. */
struct Head {
    char* start;
    size_t size;
};

static struct Head* headOf(void* block) {
    return (struct Head*)block - 1;
}

void* aligned_alloc(size_t alignment, size_t size) {
    const size_t lead = alignment < sizeof(struct Head) ? sizeof(struct Head) : alignment;
    const size_t usable = size == 0 ? 8 : (size + 7) / 8 * 8;
    char* start = (char*)__libc_memalign(lead, lead + usable + sizeof GUARD);
    if (start == NULL) return NULL;
    char* block = start + lead;
    *headOf(block) = (struct Head){start, usable};
    memcpy(block + usable, GUARD, sizeof GUARD);
    return block;
}

size_t malloc_usable_size(void* block) {
    if (block == NULL) return 0;
    const size_t size = headOf(block)->size;
    if (memcmp((char*)block + size, GUARD, sizeof GUARD) != 0) abort();
    return size;
}

void* malloc(size_t size) {
    return aligned_alloc(sizeof(struct Head), size);
}

void free(void* block) {
    if (block == NULL) return;
    malloc_usable_size(block);
    __libc_free(headOf(block)->start);
}

/* Filled through a pointer, or the compiler would make a call of calloc of it. */
void* calloc(size_t count, size_t size) {
    static void* (*const volatile fill)(void*, int, size_t) = memset;
    void* block = malloc(count * size);
    return block == NULL ? NULL : fill(block, 0, count * size);
}

void* realloc(void* block, size_t size) {
    void* moved = malloc(size);
    if (block == NULL || moved == NULL) return moved;
    const size_t had = malloc_usable_size(block);
    memcpy(moved, block, had < size ? had : size);
    free(block);
    return moved;
}
