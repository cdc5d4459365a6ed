#include "dsp/instruction_set.h"

#include <atomic>

#if defined(KORVANE_SIMD) && defined(__x86_64__)
#include <cpuid.h>

#include <cstdint>
#endif

namespace korvane {

namespace {

// Whichever thread asks first; all get the same answer.
constinit std::atomic<InstructionSet> chosen = InstructionSet::kUnknown;

#if defined(KORVANE_SIMD) && defined(__x86_64__)

/** Whether the processor has AVX2 and the operating system saves its registers. */
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

InstructionSet detect() { return has_avx2() ? InstructionSet::kAvx2 : InstructionSet::kSse2; }

#elif defined(KORVANE_SIMD) && defined(__aarch64__)

InstructionSet detect() { return InstructionSet::kNeon; }

#else

InstructionSet detect() { return InstructionSet::kPlain; }

#endif

}  // namespace

InstructionSet instruction_set() {
    InstructionSet set = chosen.load(std::memory_order_relaxed);
    if (set == InstructionSet::kUnknown) {
        set = detect();
        chosen.store(set, std::memory_order_relaxed);
    }
    return set;
}

void force_instruction_set(InstructionSet set) { chosen.store(set, std::memory_order_relaxed); }

}  // namespace korvane
