/** Counts what a test takes from the heap, the libraries it uses included. */
#ifndef KORVANE_TESTS_HOSTS_COUNTED_ALLOCATIONS_H
#define KORVANE_TESTS_HOSTS_COUNTED_ALLOCATIONS_H

#include <atomic>

namespace korvane::test {
/** Since the program began, in all threads. Under a sanitizer, which has its own heap, always 1. */
extern std::atomic<long> allocations;
}  // namespace korvane::test

#endif
