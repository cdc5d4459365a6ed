#include "dsp/instruction_set.h"

#include <atomic>

#if defined(KORVANE_SIMD) && defined(__x86_64__)
#include <cpuid.h>
#endif

namespace korvane {

// The code of each set is compiled with options of its own, into a namespace of its name.
#define KORVANE_CODE(set)                                                     \
    namespace set {                                                           \
    void real_fft288(int32_t* out, const int32_t* in);                        \
    void real_ifft288(int32_t* out, const int32_t* in);                       \
    void process_blocks(NrssState& s, int16_t* ch0, int16_t* ch1, int32_t n); \
    }
KORVANE_CODE(avx2)
KORVANE_CODE(sse2)
KORVANE_CODE(neon)
KORVANE_CODE(wasm)
KORVANE_CODE(plain)
#undef KORVANE_CODE

namespace {

bool always() { return true; }
#if defined(KORVANE_SIMD) && defined(__x86_64__)
/** Whether the processor has AVX2 and the operating system saves its registers. The compilers' own test
 * would bring code that runs when the library is loaded. */
bool has_avx2() {
    unsigned a = 0;
    unsigned b = 0;
    unsigned c = 0;
    unsigned d = 0;
    if (__get_cpuid(1, &a, &b, &c, &d) == 0 || (c & bit_OSXSAVE) == 0) {
        return false;
    }
    asm volatile("xgetbv" : "=a"(a), "=d"(d) : "c"(0));
    constexpr unsigned kXmmAndYmm = 6;
    return (a & kXmmAndYmm) == kXmmAndYmm && __get_cpuid_count(7, 0, &a, &b, &c, &d) != 0 &&
           (b & bit_AVX2) != 0;
}
#endif

#define KORVANE_SET(set, runs_here) \
    { #set, runs_here, set::real_fft288, set::real_ifft288, set::process_blocks }
constexpr InstructionSet kSets[] = {
#if defined(KORVANE_SIMD) && defined(__x86_64__)
    KORVANE_SET(avx2, has_avx2),
    KORVANE_SET(sse2, always),
#elif defined(KORVANE_SIMD) && defined(__aarch64__)
    KORVANE_SET(neon, always),
#elif defined(KORVANE_SIMD) && defined(__wasm__)
    KORVANE_SET(wasm, always),
#else
    KORVANE_SET(plain, always),
#endif
};
#undef KORVANE_SET

constinit std::atomic<const InstructionSet*> in_use = nullptr;

}  // namespace

std::span<const InstructionSet> instruction_sets() { return kSets; }

const InstructionSet& instruction_set() {
    // Several threads may find the same answer at once.
    const InstructionSet* set = in_use.load(std::memory_order_relaxed);
    if (set == nullptr) {
        set = kSets;
        while (!set->runs_here()) {
            ++set;
        }
        in_use.store(set, std::memory_order_relaxed);
    }
    return *set;
}

void use_instruction_set(const InstructionSet* set) {
    in_use.store(set, std::memory_order_relaxed);
}

}  // namespace korvane
