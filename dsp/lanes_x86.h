/**
 * Operations on lanes for which x86-64 has better instructions than the compilers find. SSE2 and AVX2
 * share them and differ in the width of their registers.
 *
 * SSE2 multiplies no 32-bit lanes, and AVX2 lacks the upper half of such a product. Both have 16-bit
 * multipliers: with a = 65536*h + l (h signed, l unsigned) and c of 16 bits,
 *     floor(a*c / 65536) = h*c + floor(l*c / 65536),
 * pmaddwd for h*c and pmulhuw for the rest. That one reads c as unsigned, so a negative c leaves l too
 * much.
 */
#ifndef KORVANE_DSP_LANES_X86_H
#define KORVANE_DSP_LANES_X86_H

#include "dsp/lanes_types.h"

#if KORVANE_LANES > 1 && defined(__SSE2__)

#include <immintrin.h>

// NOLINTBEGIN(google-readability-casting,cppcoreguidelines-pro-type-cstyle-cast): between the compilers' vectors and
// the processor's own types the short form of a cast is the readable one
namespace korvane::KORVANE_ISA {

// ---- Instructions -------------------------------------------------------------------------------

/** An instruction on a and b, by their width. */
#define KORVANE_X86(name, on128, on256)                                              \
    template <int N>                                                                 \
    requires(FullRegister<N>) KORVANE_INLINE Lanes<N> name(Lanes<N> a, Lanes<N> b) { \
        if constexpr (N == 4) {                                                      \
            return {(Vectors<4>::Signed)on128((__m128i)a.v, (__m128i)b.v)};          \
        } else {                                                                     \
            return {(Vectors<8>::Signed)on256((__m256i)a.v, (__m256i)b.v)};          \
        }                                                                            \
    }
// In each lane the product of the upper 16-bit halves plus that of the lower ones.
KORVANE_X86(multiply_add_halves, _mm_madd_epi16, _mm256_madd_epi16)
// In each 16-bit half of a lane the upper half of the unsigned product.
KORVANE_X86(multiply_high_halves, _mm_mulhi_epu16, _mm256_mulhi_epu16)
// In each 128 bits the lanes of a, then those of b, saturated to 16 bits.
KORVANE_X86(saturate_halves, _mm_packs_epi32, _mm256_packs_epi32)
// In each 128 bits the lower 64 of a and b, 16-bit halves in turns.
KORVANE_X86(zip_halves, _mm_unpacklo_epi16, _mm256_unpacklo_epi16)
#if defined(__AVX2__)
// a shifted by the lanes of b; 32 and more leave nothing.
KORVANE_X86(shift_left, _mm_sllv_epi32, _mm256_sllv_epi32)
KORVANE_X86(shift_right, _mm_srlv_epi32, _mm256_srlv_epi32)
#endif
#undef KORVANE_X86

// ---- Moving data --------------------------------------------------------------------------------

#if defined(__AVX2__)
// gcc makes three instructions of each of these by itself.
template <>
KORVANE_INLINE Lanes<8> Lanes<8>::load(const int16_t* p) {
    return {(Register)_mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)))};
}
KORVANE_INLINE Lanes<8> join(Lanes<4> a, Lanes<4> b) {
    return {(Vectors<8>::Signed)_mm256_set_m128i((__m128i)b.v, (__m128i)a.v)};
}
KORVANE_INLINE void store(int16_t* p, Lanes<8> a) {
    store_words(p, saturate_halves(lower(a), upper(a)));
}
/** One instruction in place of two. */
KORVANE_INLINE Lanes<8> negate_lower(Lanes<8> a) {
    return {(Vectors<8>::Signed)_mm256_sign_epi32((__m256i)a.v,
                                                  _mm256_setr_epi32(-1, -1, -1, -1, 1, 1, 1, 1))};
}
KORVANE_INLINE Lanes<8> negate_upper(Lanes<8> a) {
    return {(Vectors<8>::Signed)_mm256_sign_epi32((__m256i)a.v,
                                                  _mm256_setr_epi32(1, 1, 1, 1, -1, -1, -1, -1))};
}
#endif
KORVANE_INLINE void store(int16_t* p, Lanes<4> a) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), (__m128i)saturate_halves(a, a).v);
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> saturated_pairs(Lanes<N> low, Lanes<N> high) {
    return zip_halves(saturate_halves(low, low), saturate_halves(high, high));
}

// ---- Products -----------------------------------------------------------------------------------

template <int N>
KORVANE_INLINE Lanes<N> lower_bits(Lanes<N> a) {
    return bit_and(a, Lanes<N>::broadcast(0xFFFF));
}
/** What is too much where c, negative, was read as unsigned: l. */
template <int N>
KORVANE_INLINE Lanes<N> excess(Lanes<N> a, Lanes<N> c) {
    return bit_and(a, lsr<16>(asr<31>(c)));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_half_positive(Lanes<N> a, Lanes<N> c) {
    return add_wrap(multiply_add_halves(a, shl<16>(c)), multiply_high_halves(a, c));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_half_q15(Lanes<N> a, Lanes<N> c) {
    return sub_wrap(mul_half_positive(a, lower_bits(c)), excess(a, c));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_half_negative(Lanes<N> a, Lanes<N> c) {
    return sub_wrap(mul_half_positive(a, lower_bits(c)), lower_bits(a));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> add_half_negative(Lanes<N> sum, Lanes<N> a,
                                                                    Lanes<N> c) {
    // In a recursion a comes last; all that it enters is one addition away from the result.
    return add_wrap(sub_wrap(sum, lower_bits(a)), mul_half_positive(a, lower_bits(c)));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_half_upper_positive(Lanes<N> a, Lanes<N> b) {
    const Lanes<N> high_half = bit_and(b, Lanes<N>::broadcast(-65536));
    return add_wrap(multiply_add_halves(a, high_half), multiply_high_halves(a, lsr<16>(b)));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_half_upper(Lanes<N> a, Lanes<N> b) {
    return sub_wrap(mul_half_upper_positive(a, b), excess(a, b));
}
template <int kC, int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_half_by(Lanes<N> a) {
    static_assert(kC >= -32768 && kC <= 32767);
    const Lanes<N> product = mul_half_positive(a, Lanes<N>::broadcast(kC & 0xFFFF));
    return kC >= 0 ? product : sub_wrap(product, lower_bits(a));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_samples(Lanes<N> a, Lanes<N> b) {
    return multiply_add_halves(a, b);
}

template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_add_pairs(Lanes<N> a, Lanes<N> b) {
    return multiply_add_halves(a, b);
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_narrow(Lanes<N> a, Lanes<N> b) {
    return multiply_add_halves(a, lower_bits(b));
}

// ---- Scaling ------------------------------------------------------------------------------------

// Values that are not negative are normalised by way of the exponent that they have as a float. n is the
// number of bits that a value's highest one stands below the sign's neighbour, 30 for 1, and h is
// floor(n / 2). A value of 0 stays 0 when scaled up.

#if defined(__AVX2__)
/** n, for scale_up. */
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> normalising_scale(Lanes<N> a) {
    return sub_wrap(Lanes<N>::broadcast(157), lsr<23>(float_of_highest(a)));
}
/** a * 2^n */
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> scale_up(Lanes<N> a, Lanes<N> scale) {
    return shift_left(a, scale);
}
/** h, for the two functions below. */
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> root_scale(Lanes<N> a) {
    return sub_wrap(Lanes<N>::broadcast(78), lsr<24>(float_of_highest(a)));
}
/** a * 2^(2h) */
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> root_scale_up(Lanes<N> a, Lanes<N> scale) {
    return shift_left(a, add_wrap(scale, scale));
}
/** floor(a / 2^(15+h)), a not negative. */
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> root_scale_down(Lanes<N> a, Lanes<N> scale) {
    return shift_right(a, add_wrap(scale, Lanes<N>::broadcast(15)));
}
#else
// SSE2 shifts all lanes alike. Products with powers of two stand in, which take shape in the exponent of
// a float.

/** The integer that the float of these bits is; 0 where it is below 1 or negative. */
KORVANE_INLINE Lanes<4> power_of_two(Lanes<4> bits) {
    return {(Vectors<4>::Signed)_mm_cvttps_epi32((__m128)bits.v)};
}
template <class V>
KORVANE_INLINE V exponent_bits(uint32_t exponent) {
    return V::broadcast(static_cast<int32_t>(exponent << 23));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> normalising_scale(Lanes<N> a) {
    const auto exponent = bit_and(float_of_highest(a), exponent_bits<Lanes<N> >(255));
    return power_of_two(sub_wrap(exponent_bits<Lanes<N> >(284), exponent));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> scale_up(Lanes<N> a, Lanes<N> scale) {
    return mul_wrap(a, scale);
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> root_scale(Lanes<N> a) {
    return bit_and(float_of_highest(a), exponent_bits<Lanes<N> >(254));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> root_scale_up(Lanes<N> a, Lanes<N> scale) {
    return mul_wrap(a, power_of_two(sub_wrap(exponent_bits<Lanes<N> >(283), scale)));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> root_scale_down(Lanes<N> a, Lanes<N> scale) {
    // 2^(16-h) does not fit the multiplier where it is 2^16; there the value stays as it is.
    const Lanes<N> value = lsr<15>(a);
    const Lanes<N> power = power_of_two(add_wrap(lsr<1>(scale), exponent_bits<Lanes<N> >(65)));
    const Lanes<N> unscaled = {power.v == 1 << 16};
    return bit_or(multiply_high_halves(value, power), bit_and(value, unscaled));
}
#endif

}  // namespace korvane::KORVANE_ISA
// NOLINTEND(google-readability-casting,cppcoreguidelines-pro-type-cstyle-cast)

#endif

#endif
