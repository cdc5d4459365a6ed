/* Android keeps each thread's stack guard in the sixth word from its thread pointer; code built for it
 * reads the guard there. On arm64 Linux two words belong to the loader and a program's thread-local
 * variables follow, so that this one keeps everyone else's off the guard. */
#include <stdint.h>

__attribute__((used)) static __thread volatile uintptr_t slots[8] = {
    0, 0, 0, (uintptr_t)0xc35a96e1d2784b00u};
