/* Counts the allocations of a single-threaded program, before which it is loaded. */
#include <stddef.h>

extern void *__libc_malloc(size_t);
extern void *__libc_calloc(size_t, size_t);
extern void *__libc_realloc(void *, size_t);

static unsigned long count, bytes;

__attribute__((visibility("default"))) void allocation_count(unsigned long *pCount, unsigned long *pBytes) {
    *pCount = count;
    *pBytes = bytes;
}

__attribute__((visibility("default"))) void *malloc(size_t size) {
    ++count;
    bytes += size;
    return __libc_malloc(size);
}

__attribute__((visibility("default"))) void *calloc(size_t n, size_t size) {
    ++count;
    bytes += n * size;
    return __libc_calloc(n, size);
}

__attribute__((visibility("default"))) void *realloc(void *p, size_t size) {
    ++count;
    bytes += size;
    return __libc_realloc(p, size);
}
