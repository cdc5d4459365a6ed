#include "counted_allocations.h"

#include <cstddef>

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KORVANE_SANITIZED
#endif
#endif

#ifdef KORVANE_SANITIZED
std::atomic<long> korvane::test::allocations{1};
#else
std::atomic<long> korvane::test::allocations{0};
extern "C" {
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* memory, size_t size);
void* malloc(size_t size) {
    ++korvane::test::allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    ++korvane::test::allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* memory, size_t size) {
    ++korvane::test::allocations;
    return __libc_realloc(memory, size);
}
}
#endif
