/**
 * The arithmetic of the fixed-point code, by name.
 *
 * Every sum, product and shift that may leave its range goes through one of these functions, so
 * that a reader sees at the call whether a value wraps, truncates or saturates, and so that the
 * result is defined for every input. Signed overflow is undefined in C++, so wrapping goes through
 * unsigned. Conversions to a narrower signed type keep the low bits and a right shift of a signed
 * value is arithmetic (rounds toward minus infinity); C++20 guarantees both.
 */
#ifndef KORVANE_DSP_FIXED_POINT_H
#define KORVANE_DSP_FIXED_POINT_H

#include <bit>
#include <cstdint>

/** Always inlined: the small functions of the inner loops, and all that is compiled for several
 * instruction sets, of which the linker would keep one and call it from code for the others. */
#define KORVANE_INLINE [[gnu::always_inline]] inline

namespace korvane {

/** a + b modulo 2^32. */
KORVANE_INLINE constexpr int32_t add_wrap(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

/** a - b modulo 2^32. */
KORVANE_INLINE constexpr int32_t sub_wrap(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

/** -a modulo 2^32; -(-2^31) is -2^31. */
KORVANE_INLINE constexpr int32_t neg_wrap(int32_t a) { return sub_wrap(0, a); }

/** a * 2^bits modulo 2^32, bits 0..31. */
KORVANE_INLINE constexpr int32_t shl_wrap(int32_t a, int bits) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) << bits);
}

/** floor(a * b / 2^shift), the low 32 bits; the product is exact in 64 bits. */
KORVANE_INLINE constexpr int32_t mul_shr(int32_t a, int32_t b, int shift) {
    return static_cast<int32_t>((static_cast<int64_t>(a) * b) >> shift);
}

/** floor(a * c / 65536). With c in Q15 this is half of a*c: where a sum of two is halved, the shift
 * serves as both. a any format, c Q15 or Q16. */
KORVANE_INLINE constexpr int32_t mul_half_q15(int32_t a, int32_t c) { return mul_shr(a, c, 16); }

/** floor(a * c / 32768) with c in Q15, formed as (2a * c) >> 16; 2a wraps where |a| >= 2^30. */
KORVANE_INLINE constexpr int32_t mul_q15(int32_t a, int32_t c) {
    return mul_shr(shl_wrap(a, 1), c, 16);
}

/** The nearest 16-bit sample: values beyond -32768..32767 saturate. */
KORVANE_INLINE constexpr int16_t saturate16(int32_t a) {
    return static_cast<int16_t>(a < -32768 ? -32768 : (a > 32767 ? 32767 : a));
}

/** Zero bits above the highest set one: 32 for 0, 0 for a negative value. */
KORVANE_INLINE constexpr int leading_zeros(int32_t a) {
    return std::countl_zero(static_cast<uint32_t>(a));
}

// Code that is written for a value type V, where V is int32_t or one of the vectors of dsp/lanes.h,
// calls the functions below: the same operations, with what is known at compile time as an argument
// of the template, and comparisons as masks, all ones or all zero.

template <class V>
inline constexpr int kLanesOf = V::kLanes;
template <>
inline constexpr int kLanesOf<int32_t> = 1;

/** Whether V has scale_up and its like, for values that are not negative, and they save instructions. */
template <class V>
inline constexpr bool kHasPositiveForms = V::kHasPositiveForms;
template <>
inline constexpr bool kHasPositiveForms<int32_t> = false;

/** A constant in every lane. */
template <class V>
KORVANE_INLINE V constant(int32_t a) {
    if constexpr (kLanesOf<V> == 1) {
        return a;
    } else {
        return V::broadcast(a);
    }
}
/** As many consecutive values, int32 or int16, as V has lanes. */
template <class V, class T>
KORVANE_INLINE V load_lanes(const T* p) {
    if constexpr (kLanesOf<V> == 1) {
        return *p;
    } else {
        return V::load(p);
    }
}
KORVANE_INLINE void store(int32_t* p, int32_t a) { *p = a; }
/** Saturates to 16 bits. */
KORVANE_INLINE void store(int16_t* p, int32_t a) { *p = saturate16(a); }

template <int kBits>
KORVANE_INLINE constexpr int32_t shl(int32_t a) {
    return shl_wrap(a, kBits);
}
template <int kBits>
KORVANE_INLINE constexpr int32_t asr(int32_t a) {
    return a >> kBits;
}
/** Logical shift right. */
template <int kBits>
KORVANE_INLINE constexpr int32_t lsr(int32_t a) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) >> kBits);
}
/** a * b modulo 2^32. */
KORVANE_INLINE constexpr int32_t mul_wrap(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
/** a * b, exact, with a in -32768..32767 and b in 0..32767. */
KORVANE_INLINE constexpr int32_t mul_samples(int32_t a, int32_t b) { return a * b; }
/** The same with b in -32768..32767. */
KORVANE_INLINE constexpr int32_t mul_narrow(int32_t a, int32_t b) { return a * b; }
/** Of words of two samples the sum of the first ones' product and the second ones'. Wraps, where all are -32768. */
KORVANE_INLINE constexpr int32_t mul_add_pairs(int32_t a, int32_t b) {
    return add_wrap((a >> 16) * (b >> 16), static_cast<int16_t>(a) * static_cast<int16_t>(b));
}
template <int kC>
KORVANE_INLINE constexpr int32_t mul_half_by(int32_t a) {
    return mul_half_q15(a, kC);
}
/** floor(a * c / 65536), c in 0..32767. */
KORVANE_INLINE constexpr int32_t mul_half_positive(int32_t a, int32_t c) {
    return mul_half_q15(a, c);
}
/** The same, c in -32768..-1. */
KORVANE_INLINE constexpr int32_t mul_half_negative(int32_t a, int32_t c) {
    return mul_half_q15(a, c);
}
/** floor(a * c / 65536) and floor(a * -c / 65536), which is not the first one's negative. */
template <class V>
struct Opposites {
    V positive;
    V negative;
};
template <int kC>
KORVANE_INLINE constexpr Opposites<int32_t> mul_half_both(int32_t a) {
    return {mul_half_by<kC>(a), mul_half_by<-kC>(a)};
}
/** sum + floor(a * c / 65536), c in -32768..-1. */
KORVANE_INLINE constexpr int32_t add_half_negative(int32_t sum, int32_t a, int32_t c) {
    return add_wrap(sum, mul_half_q15(a, c));
}
/** floor(a * (b >> 16) / 65536): times the upper half of another value. */
KORVANE_INLINE constexpr int32_t mul_half_upper(int32_t a, int32_t b) {
    return mul_half_q15(a, b >> 16);
}
/** The same, b not negative. */
KORVANE_INLINE constexpr int32_t mul_half_upper_positive(int32_t a, int32_t b) {
    return mul_half_upper(a, b);
}
KORVANE_INLINE constexpr int32_t bit_and(int32_t a, int32_t b) { return a & b; }
KORVANE_INLINE constexpr int32_t bit_or(int32_t a, int32_t b) { return a | b; }
KORVANE_INLINE constexpr int32_t greater(int32_t a, int32_t b) { return a > b ? -1 : 0; }
KORVANE_INLINE constexpr int32_t select(int32_t mask, int32_t a, int32_t b) {
    return mask != 0 ? a : b;
}
KORVANE_INLINE constexpr int32_t minimum(int32_t a, int32_t b) { return a < b ? a : b; }
KORVANE_INLINE constexpr int32_t maximum(int32_t a, int32_t b) { return a > b ? a : b; }
/** a * 2^n modulo 2^32, n in 0..32. */
KORVANE_INLINE constexpr int32_t shl_each(int32_t a, int32_t n) {
    return n > 31 ? 0 : shl_wrap(a, n);
}
/** floor(a / 2^n), n in 0..31. */
KORVANE_INLINE constexpr int32_t asr_each(int32_t a, int32_t n) { return a >> n; }
/** floor(log2(a)) in Q15 and, below it, how far a is on its way to the next power of two; a above 0. */
KORVANE_INLINE constexpr int32_t straight_log2(int32_t a) {
    const int zeros = leading_zeros(a);
    return ((30 - zeros) << 15) + lsr<16>(shl_wrap(a, zeros));
}
KORVANE_INLINE constexpr int32_t reverse(int32_t a) { return a; }
KORVANE_INLINE constexpr int32_t sum_lanes(int32_t a) { return a; }
KORVANE_INLINE constexpr bool any_negative(int32_t a) { return a < 0; }

// The corners, checked at every build.
static_assert(add_wrap(INT32_MAX, 1) == INT32_MIN);
static_assert(sub_wrap(INT32_MIN, 1) == INT32_MAX);
static_assert(neg_wrap(INT32_MIN) == INT32_MIN);
static_assert(shl_wrap(0x40000000, 1) == INT32_MIN);
static_assert(shl_each(3, 31) == INT32_MIN && shl_each(1, 32) == 0 && lsr<28>(-1) == 15);
static_assert(mul_half_q15(-1, 1) == -1);
static_assert(mul_half_q15(INT32_MIN, -32768) == 0x40000000);
static_assert(mul_q15(1000, 32767) == 999 && mul_q15(-1000, 32767) == -1000);
static_assert(mul_q15(0x40000000, 32767) == -1073709056);  // 2a has wrapped to -2^31
static_assert(saturate16(32768) == 32767 && saturate16(-32769) == -32768);
static_assert(straight_log2(1) == 0 && straight_log2(6) == 2 * 32768 + 16384);
static_assert(leading_zeros(0) == 32 && leading_zeros(1) == 31 && leading_zeros(-1) == 0);

}  // namespace korvane

#endif
