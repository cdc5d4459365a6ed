/**
 * Vectors of N int32 lanes over the compilers' own vector types: dsp/lanes.h without its operations.
 */
#ifndef KORVANE_DSP_LANES_TYPES_H
#define KORVANE_DSP_LANES_TYPES_H

#ifndef KORVANE_ISA
#define KORVANE_ISA plain
#define KORVANE_LANES 1
#endif

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>
#include <utility>

#include "dsp/fixed_point.h"

namespace korvane::KORVANE_ISA {

// Of plain numbers.
using korvane::add_half_negative, korvane::add_wrap, korvane::any_negative, korvane::asr,
    korvane::asr_each, korvane::bit_and, korvane::bit_or, korvane::greater, korvane::leading_zeros,
    korvane::lsr, korvane::maximum, korvane::minimum, korvane::mul_add_pairs,
    korvane::mul_half_both, korvane::mul_half_by, korvane::mul_half_negative,
    korvane::mul_half_positive, korvane::mul_half_q15, korvane::mul_half_upper,
    korvane::mul_half_upper_positive, korvane::mul_narrow, korvane::mul_q15, korvane::mul_samples,
    korvane::mul_wrap, korvane::neg_wrap, korvane::reverse, korvane::select, korvane::shl,
    korvane::shl_each, korvane::store, korvane::straight_log2, korvane::sub_wrap,
    korvane::sum_lanes;

inline constexpr int kNativeLanes = KORVANE_LANES;
/** Whether there are operations for values that are not negative that save instructions. */
#if KORVANE_LANES > 1 && (defined(__SSE2__) || defined(__wasm_simd128__))
inline constexpr bool kSpecialPositiveForms = true;
#else
inline constexpr bool kSpecialPositiveForms = false;
#endif
/** Lanes for long chains of operations that wait for each other: two registers side by side fill each
 * other's gaps, where an instruction set has them and the special forms are short. */
inline constexpr int kChainLanes = kSpecialPositiveForms ? 2 * kNativeLanes : kNativeLanes;

template <int N>
struct Lanes;
template <int N>
using I32 = std::conditional_t<N == 1, int32_t, Lanes<N>>;

template <int N>
concept OneRegister = N <= kNativeLanes;
/** Of 128 bits and more, as the special forms want them. */
template <int N>
concept FullRegister = OneRegister<N> && N >= 4;

/** The compilers' vectors of N lanes, spelled out: gcc forgets the size of one that depends on N. */
template <int N>
struct Vectors;
#define KORVANE_VECTORS(lanes)                                               \
    template <>                                                              \
    struct Vectors<lanes> {                                                  \
        typedef int32_t Signed __attribute__((vector_size(4 * (lanes))));    \
        typedef uint32_t Unsigned __attribute__((vector_size(4 * (lanes)))); \
        typedef float Floats __attribute__((vector_size(4 * (lanes))));      \
        typedef int64_t Pairs __attribute__((vector_size(4 * (lanes))));     \
        typedef int16_t Samples __attribute__((vector_size(2 * (lanes))));   \
    };
KORVANE_VECTORS(2)
KORVANE_VECTORS(4)
KORVANE_VECTORS(8)
#undef KORVANE_VECTORS

typedef int64_t PairInMemory __attribute__((aligned(4), may_alias));

template <class To, class From>
KORVANE_INLINE To convert(From a) {
    return __builtin_convertvector(a, To);
}

/** More lanes than a register has. */
template <int N>
// NOLINTNEXTLINE(*-special-member-functions): nothing is owned
struct Lanes {
    using Half = I32<N / 2>;
    static constexpr int kLanes = N;
    static constexpr bool kHasPositiveForms = kSpecialPositiveForms;
    Half lower;
    Half upper;

    Lanes() = default;
    KORVANE_INLINE Lanes(Half a, Half b) : lower(a), upper(b) {}
    // Spelled out, since gcc copies two registers as a whole in smaller pieces, by way of memory.
    KORVANE_INLINE Lanes(const Lanes& a) : lower(a.lower), upper(a.upper) {}
    // NOLINTNEXTLINE(cert-oop54-cpp): of itself it is the same
    KORVANE_INLINE Lanes& operator=(const Lanes& a) {
        lower = a.lower;
        upper = a.upper;
        return *this;
    }

    template <class T>
    KORVANE_INLINE static Lanes load(const T* p) {
        return {load_lanes<Half>(p), load_lanes<Half>(p + N / 2)};
    }
    KORVANE_INLINE static Lanes broadcast(int32_t a) {
        return {constant<Half>(a), constant<Half>(a)};
    }
};

/** One register. */
template <int N>
requires(OneRegister<N>) struct Lanes<N> {
    using Register = typename Vectors<N>::Signed;
    using Unsigned = typename Vectors<N>::Unsigned;
    using Samples = typename Vectors<N>::Samples;
    // As they lie in memory. Copied with memcpy instead, AVX2 code took two to four times as long.
    typedef Register InMemory __attribute__((aligned(2), may_alias));
    typedef Samples SamplesInMemory __attribute__((aligned(2), may_alias));
    static constexpr int kLanes = N;
    static constexpr bool kHasPositiveForms = kSpecialPositiveForms;
    Register v;

    [[nodiscard]] KORVANE_INLINE Unsigned bits() const { return reinterpret_cast<Unsigned>(v); }
    KORVANE_INLINE static Lanes of_bits(Unsigned bits) {
        return {reinterpret_cast<Register>(bits)};
    }
    KORVANE_INLINE static Lanes load(const int32_t* p) {
        return {*reinterpret_cast<const InMemory*>(p)};
    }
    /** Samples, sign-extended. */
    KORVANE_INLINE static Lanes load(const int16_t* p) {
        const Samples x = *reinterpret_cast<const SamplesInMemory*>(p);
        return {convert<Register>(x)};
    }
    /** Words of two samples each. */
    KORVANE_INLINE static Lanes load_words(const int16_t* p) {
        return {*reinterpret_cast<const InMemory*>(p)};
    }
    /** Two lanes from a, two from b. */
    KORVANE_INLINE static Lanes load_two(const int32_t* a, const int32_t* b) requires(N == 4) {
        return {reinterpret_cast<Register>(typename Vectors<N>::Pairs{
            *reinterpret_cast<const PairInMemory*>(a), *reinterpret_cast<const PairInMemory*>(b)})};
    }
    KORVANE_INLINE static Lanes broadcast(int32_t a) { return {a - Register{}}; }
};

/** The highest power of two in each value, as the bits of a float. The bit below the highest one is cleared
 * first, which keeps the conversion from rounding up to the next power. */
template <int N>
KORVANE_INLINE Lanes<N> float_of_highest(Lanes<N> a) {
    const auto highest =
        convert<typename Vectors<N>::Floats>(a.v & ~Lanes<N>::of_bits(a.bits() >> 1).v);
    return {reinterpret_cast<typename Lanes<N>::Register>(highest)};
}

}  // namespace korvane::KORVANE_ISA

#endif
