#include "counted_allocations.h"

#include <cstddef>

namespace korvane::test {
std::atomic<long> allocations{0};
}

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define KORVANE_SANITIZED
#endif
#endif

#ifndef KORVANE_SANITIZED
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
