#include "dsp/processor.h"

#if defined(__x86_64__)
#include <cpuid.h>

#include <cstdint>
#endif

namespace korvane {

#if defined(__x86_64__)

bool has_avx2() {
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & bit_OSXSAVE) == 0) {
        return false;
    }
    uint32_t low = 0;
    uint32_t high = 0;
    asm volatile("xgetbv" : "=a"(low), "=d"(high) : "c"(0));
    constexpr uint32_t kXmmAndYmm = 6;
    if ((low & kXmmAndYmm) != kXmmAndYmm) {
        return false;
    }
    return __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 && (b & bit_AVX2) != 0;
}

#else

bool has_avx2() { return false; }

#endif

}  // namespace korvane
