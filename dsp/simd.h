/**
 * The operations of one instruction set, by name: the only place where instruction sets differ.
 *
 * A source built for an instruction set is compiled once per set with KORVANE_ISA naming it;
 * everything here lives in a namespace of that name, so that templates over these types never mix
 * between sets.
 *
 *     Quad   four int32 lanes, in every set
 *     Duo    two: the lower half of a Quad
 *     Wide   the widest vector of the set: Quad on SSE2 and NEON, eight lanes on AVX2
 *     Braid  two Wides in step where that pays: each operation on the one, then on the other, so
 *            that long chains of operations that wait for each other leave no gaps
 *
 * All sums and shifts wrap, all products are those of dsp/fixed_point.h, lane by lane and bit by
 * bit. A Wide of eight lanes is two groups of four; operations that move data between lanes (cycle,
 * load_samples, store_samples) do so within each group.
 */
#ifndef KORVANE_DSP_SIMD_H
#define KORVANE_DSP_SIMD_H

#include <cstdint>

#include "dsp/fixed_point.h"

#if defined(__SSE2__)
#include <immintrin.h>
#elif defined(__ARM_NEON)
#include <arm_neon.h>
#endif

namespace korvane::KORVANE_ISA {

#if defined(__SSE2__)

struct Quad {
    __m128i v;
    static constexpr int kLanes = 4;
    static constexpr bool kShortPositiveForms = true;  // the _positive operations save instructions

    KORVANE_INLINE static Quad load(const int32_t* p) {
        return {_mm_loadu_si128(reinterpret_cast<const __m128i*>(p))};
    }
    KORVANE_INLINE static Quad broadcast(int32_t a) { return {_mm_set1_epi32(a)}; }
    KORVANE_INLINE static Quad of(int32_t a, int32_t b, int32_t c, int32_t d) {
        return {_mm_setr_epi32(a, b, c, d)};
    }
    /** a in the lanes of the lower half, b in those of the upper. */
    KORVANE_INLINE static Quad broadcast_halves(int32_t a, int32_t b) {
        const __m128i both = _mm_unpacklo_epi32(_mm_cvtsi32_si128(a), _mm_cvtsi32_si128(b));
        return {_mm_shuffle_epi32(both, 0x50)};
    }
    /** Consecutive samples, sign-extended. */
    KORVANE_INLINE static Quad extend(const int16_t* p) {
        const __m128i x = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(p));
        return {_mm_srai_epi32(_mm_unpacklo_epi16(x, x), 16)};
    }
};

KORVANE_INLINE void store(int32_t* p, Quad a) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), a.v);
}
/** a in lane 0, zero elsewhere. */
KORVANE_INLINE Quad single4(int32_t a) { return {_mm_cvtsi32_si128(a)}; }
KORVANE_INLINE Quad add_wrap(Quad a, Quad b) { return {_mm_add_epi32(a.v, b.v)}; }
KORVANE_INLINE Quad sub_wrap(Quad a, Quad b) { return {_mm_sub_epi32(a.v, b.v)}; }
KORVANE_INLINE Quad bit_and(Quad a, Quad b) { return {_mm_and_si128(a.v, b.v)}; }
KORVANE_INLINE Quad bit_or(Quad a, Quad b) { return {_mm_or_si128(a.v, b.v)}; }
template <int kBits>
KORVANE_INLINE Quad shl(Quad a) {
    return {_mm_slli_epi32(a.v, kBits)};
}
template <int kBits>
KORVANE_INLINE Quad asr(Quad a) {
    return {_mm_srai_epi32(a.v, kBits)};
}
template <int kBits>
KORVANE_INLINE Quad lsr(Quad a) {
    return {_mm_srli_epi32(a.v, kBits)};
}
/** All ones where a > b. */
KORVANE_INLINE Quad greater(Quad a, Quad b) { return {_mm_cmpgt_epi32(a.v, b.v)}; }
/** a where the mask is all ones, b where it is zero. */
KORVANE_INLINE Quad select(Quad mask, Quad a, Quad b) {
#if defined(__AVX2__)
    return {_mm_blendv_epi8(b.v, a.v, mask.v)};
#else
    return {_mm_or_si128(_mm_and_si128(mask.v, a.v), _mm_andnot_si128(mask.v, b.v))};
#endif
}
KORVANE_INLINE Quad minimum(Quad a, Quad b) {
#if defined(__AVX2__)
    return {_mm_min_epi32(a.v, b.v)};
#else
    return select(greater(a, b), b, a);
#endif
}
KORVANE_INLINE Quad maximum(Quad a, Quad b) {
#if defined(__AVX2__)
    return {_mm_max_epi32(a.v, b.v)};
#else
    return select(greater(a, b), a, b);
#endif
}
/** The low 32 bits of a * b. */
KORVANE_INLINE Quad mul_low(Quad a, Quad b) {
#if defined(__AVX2__)
    return {_mm_mullo_epi32(a.v, b.v)};
#else
    const __m128i even = _mm_mul_epu32(a.v, b.v);
    const __m128i odd = _mm_mul_epu32(_mm_srli_epi64(a.v, 32), _mm_srli_epi64(b.v, 32));
    return {_mm_unpacklo_epi32(_mm_shuffle_epi32(even, 0x08), _mm_shuffle_epi32(odd, 0x08))};
#endif
}
// With a = 65536*h + l (h signed, l unsigned) and c of 16 bits,
//     floor(a*c / 65536) = h*c + floor(l*c / 65536),
// and both products fit the 16-bit multipliers: pmaddwd for h*c, pmulhuw for the other. That one
// reads c as unsigned, so a negative c leaves l too much.
template <int kC>
KORVANE_INLINE Quad mul_half_q15(Quad a) {
    static_assert(kC >= -32768 && kC <= 32767);
    const __m128i high =
        _mm_madd_epi16(a.v, _mm_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(kC) << 16)));
    const __m128i low = _mm_mulhi_epu16(a.v, _mm_set1_epi32(kC & 0xFFFF));
    const __m128i sum = _mm_add_epi32(high, low);
    if constexpr (kC >= 0) {
        return {sum};
    } else {
        return {_mm_sub_epi32(sum, _mm_and_si128(a.v, _mm_set1_epi32(0xFFFF)))};
    }
}
/** The least power of two whose multiples make a*c a multiple of 65536; 65536 at the most. */
template <int kC>
inline constexpr int kExactFrom = 65536 / (kC & -kC);
// floor(-x) is -floor(x) - 1 unless x is a whole number, and a mask of all ones is that -1.
template <int kC>
KORVANE_INLINE OppositeSums<Quad> add_half_both(Quad a, Quad b) {
    const Quad product = mul_half_q15<kC>(b);
    // cppcheck-suppress compareBoolExpressionWithInt; it takes the template's brackets for comparisons
    const __m128i rest = _mm_and_si128(b.v, _mm_set1_epi32(kExactFrom<kC> - 1));
    const __m128i inexact = _mm_cmpgt_epi32(rest, _mm_setzero_si128());
    return {add_wrap(a, product), {_mm_add_epi32(sub_wrap(a, product).v, inexact)}};
}
/** floor(a*c / 65536) with c in 0..32767. */
KORVANE_INLINE Quad mul_half_positive(Quad a, Quad c) {
    return {_mm_add_epi32(_mm_madd_epi16(a.v, _mm_slli_epi32(c.v, 16)), _mm_mulhi_epu16(a.v, c.v))};
}
/** floor(a*c / 65536) with c in -32768..32767. */
KORVANE_INLINE Quad mul_half_q15(Quad a, Quad c) {
    const __m128i low_c = _mm_and_si128(c.v, _mm_set1_epi32(0xFFFF));
    const __m128i sum =
        _mm_add_epi32(_mm_madd_epi16(a.v, _mm_slli_epi32(c.v, 16)), _mm_mulhi_epu16(a.v, low_c));
    return {_mm_sub_epi32(sum, _mm_and_si128(a.v, _mm_srli_epi32(_mm_srai_epi32(c.v, 31), 16)))};
}
/** floor(a * (b >> 16) / 65536). */
KORVANE_INLINE Quad mul_half_upper(Quad a, Quad b) {
    const __m128i high = _mm_madd_epi16(a.v, _mm_and_si128(b.v, _mm_set1_epi32(-65536)));
    const __m128i low = _mm_mulhi_epu16(a.v, _mm_srli_epi32(b.v, 16));
    const __m128i excess = _mm_and_si128(a.v, _mm_srli_epi32(_mm_srai_epi32(b.v, 31), 16));
    return {_mm_sub_epi32(_mm_add_epi32(high, low), excess)};
}
/** The same, b not negative. */
KORVANE_INLINE Quad mul_half_upper_positive(Quad a, Quad b) {
    return {_mm_add_epi32(_mm_madd_epi16(a.v, _mm_and_si128(b.v, _mm_set1_epi32(-65536))),
                          _mm_mulhi_epu16(a.v, _mm_srli_epi32(b.v, 16)))};
}
/** floor(a*c / 65536) with c in -32768..-1. */
KORVANE_INLINE Quad mul_half_negative(Quad a, Quad c) {
    const __m128i low_mask = _mm_set1_epi32(0xFFFF);
    const __m128i sum = _mm_add_epi32(_mm_madd_epi16(a.v, _mm_slli_epi32(c.v, 16)),
                                      _mm_mulhi_epu16(a.v, _mm_and_si128(c.v, low_mask)));
    return {_mm_sub_epi32(sum, _mm_and_si128(a.v, low_mask))};
}
/** sum + mul_half_negative(a, c), summed so that a is waited for as short as can be. */
KORVANE_INLINE Quad add_half_negative(Quad sum, Quad a, Quad c) {
    const __m128i low_mask = _mm_set1_epi32(0xFFFF);
    const __m128i rest = _mm_sub_epi32(sum.v, _mm_and_si128(a.v, low_mask));
    return {_mm_add_epi32(rest, _mm_add_epi32(_mm_madd_epi16(a.v, _mm_slli_epi32(c.v, 16)),
                                              _mm_mulhi_epu16(a.v, _mm_and_si128(c.v, low_mask))))};
}
/** a * b, exact, with a in -32768..32767 and b in 0..32767. */
KORVANE_INLINE Quad mul_samples(Quad a, Quad b) { return {_mm_madd_epi16(a.v, b.v)}; }
/** Zero bits above the highest set one, 0..32. */
KORVANE_INLINE Quad leading_zeros(Quad a) {
    // The float exponent of a value tells its highest bit; clearing the bit below it first keeps
    // the conversion from rounding up to the next power. Negative values come out below 0, zero
    // above 32.
    const __m128i highest = _mm_andnot_si128(_mm_srli_epi32(a.v, 1), a.v);
    const __m128i exponent = _mm_srli_epi32(_mm_castps_si128(_mm_cvtepi32_ps(highest)), 23);
    const __m128i zeros = _mm_sub_epi32(_mm_set1_epi32(158), exponent);
    return {_mm_max_epi16(_mm_min_epi16(zeros, _mm_set1_epi32(32)), _mm_setzero_si128())};
}
/** a * 2^n, n in 0..255; 32 and more leave nothing. */
KORVANE_INLINE Quad shl_each(Quad a, Quad n) {
#if defined(__AVX2__)
    return {_mm_sllv_epi32(a.v, n.v)};
#else
    // 2^n by way of a float's exponent; 2^31 converts to the bits it should, 2^32 must be cleared.
    const __m128i bits = _mm_slli_epi32(_mm_add_epi32(n.v, _mm_set1_epi32(127)), 23);
    const __m128i power = _mm_cvttps_epi32(_mm_castsi128_ps(bits));
    const __m128i valid = _mm_cmpgt_epi32(_mm_set1_epi32(32), n.v);
    return mul_low(a, {_mm_and_si128(power, valid)});
#endif
}
/** floor(a / 2^n), n in 0..31; for n in 32..127 the result is that of some shift by 16 or more. */
KORVANE_INLINE Quad asr_each(Quad a, Quad n) {
#if defined(__AVX2__)
    return {_mm_srav_epi32(a.v, n.v)};
#else
    const auto step = [&](Quad value, int bit, Quad shifted) {
        const __m128i flag = _mm_and_si128(n.v, _mm_set1_epi32(bit));
        return select({_mm_cmpeq_epi32(flag, _mm_setzero_si128())}, value, shifted);
    };
    a = step(a, 16, asr<16>(a));
    a = step(a, 8, asr<8>(a));
    a = step(a, 4, asr<4>(a));
    a = step(a, 2, asr<2>(a));
    return step(a, 1, asr<1>(a));
#endif
}
#if !defined(__AVX2__)
// Values are normalised by products with a power of two, which takes shape in a float's exponent.

/** The exponent bits of each value, none negative, as a float. */
KORVANE_INLINE __m128i float_exponent(Quad a) {
    const __m128i highest = _mm_andnot_si128(_mm_srli_epi32(a.v, 1), a.v);
    return _mm_and_si128(_mm_castps_si128(_mm_cvtepi32_ps(highest)), _mm_set1_epi32(255 << 23));
}
/** The integer that the float of these exponent bits is; 0 where it is below 1 or negative. */
KORVANE_INLINE __m128i power_of_two(__m128i exponent) {
    return _mm_cvttps_epi32(_mm_castsi128_ps(exponent));
}
/** 2^n, n the bits that a value's highest one stands below the sign's neighbour: 2^30 for 1. */
struct Scale {
    __m128i power;
};
/** For a in 0..2^31-1; a value of 0 stays 0 when scaled. */
KORVANE_INLINE Scale normalising_scale(Quad a) {
    const __m128i sum = _mm_set1_epi32(static_cast<int32_t>(284U << 23));
    return {power_of_two(_mm_sub_epi32(sum, float_exponent(a)))};
}
KORVANE_INLINE Quad scale_up(Quad a, Scale scale) { return mul_low(a, {scale.power}); }
/** 2^(2h) and 2^(16-h), h = floor(n / 2). */
struct RootScale {
    __m128i up;
    __m128i down;
};
KORVANE_INLINE RootScale root_scale(Quad a) {
    const __m128i even = _mm_and_si128(float_exponent(a), _mm_set1_epi32(254 << 23));
    const __m128i sum = _mm_set1_epi32(static_cast<int32_t>(283U << 23));
    return {power_of_two(_mm_sub_epi32(sum, even)),
            power_of_two(_mm_add_epi32(_mm_srli_epi32(even, 1), _mm_set1_epi32(65 << 23)))};
}
KORVANE_INLINE Quad scale_up(Quad a, RootScale scale) { return mul_low(a, {scale.up}); }
/** floor(a / 2^(15+h)), a not negative. */
KORVANE_INLINE Quad scale_down(Quad a, RootScale scale) {
    // 2^16 does not fit the multiplier; there the value stays as it is.
    const __m128i value = _mm_srli_epi32(a.v, 15);
    const __m128i unscaled = _mm_cmpeq_epi32(scale.down, _mm_set1_epi32(1 << 16));
    return {_mm_or_si128(_mm_mulhi_epu16(value, scale.down), _mm_and_si128(value, unscaled))};
}
#endif
/** The sum of the lanes, wrapping. */
KORVANE_INLINE int32_t sum_lanes(Quad a) {
    const __m128i pair = _mm_add_epi32(a.v, _mm_shuffle_epi32(a.v, 0x4E));
    return _mm_cvtsi128_si32(_mm_add_epi32(pair, _mm_shuffle_epi32(pair, 0xB1)));
}
KORVANE_INLINE bool any_negative(Quad a) { return _mm_movemask_ps(_mm_castsi128_ps(a.v)) != 0; }
KORVANE_INLINE int32_t lane0(Quad a) { return _mm_cvtsi128_si32(a.v); }
KORVANE_INLINE int32_t lane2(Quad a) { return _mm_cvtsi128_si32(_mm_shuffle_epi32(a.v, 0xEE)); }
/** a in lane 0, b in lane 2. */
KORVANE_INLINE Quad pair4(int32_t a, int32_t b) {
    return {_mm_unpacklo_epi64(_mm_cvtsi32_si128(a), _mm_cvtsi32_si128(b))};
}
/** Moves each lane to the next within cycles of 4 or of 2 lanes; the last of a cycle comes first.
 */
template <int kCycle>
KORVANE_INLINE Quad cycle(Quad a) {
    static_assert(kCycle == 4 || kCycle == 2);
    return {_mm_shuffle_epi32(a.v, kCycle == 4 ? 0x93 : 0xB1)};
}
/** The first lane of each cycle from a, the others from b. */
template <int kCycle>
KORVANE_INLINE Quad first_of_cycle(Quad a, Quad b) {
#if defined(__AVX2__)
    return {_mm_blend_epi32(b.v, a.v, kCycle == 4 ? 0x1 : 0x5)};
#else
    if constexpr (kCycle == 4) {
        return {_mm_castps_si128(_mm_move_ss(_mm_castsi128_ps(b.v), _mm_castsi128_ps(a.v)))};
    } else {
        return select({_mm_setr_epi32(-1, 0, -1, 0)}, a, b);
    }
#endif
}
KORVANE_INLINE void transpose(Quad& a, Quad& b, Quad& c, Quad& d) {
    const __m128i ab_low = _mm_unpacklo_epi32(a.v, b.v);
    const __m128i ab_high = _mm_unpackhi_epi32(a.v, b.v);
    const __m128i cd_low = _mm_unpacklo_epi32(c.v, d.v);
    const __m128i cd_high = _mm_unpackhi_epi32(c.v, d.v);
    a.v = _mm_unpacklo_epi64(ab_low, cd_low);
    b.v = _mm_unpackhi_epi64(ab_low, cd_low);
    c.v = _mm_unpacklo_epi64(ab_high, cd_high);
    d.v = _mm_unpackhi_epi64(ab_high, cd_high);
}
/** Eight samples of each of four signals: out[i] holds sample 2i of each, then sample 2i + 1. */
KORVANE_INLINE void transpose_samples(const int16_t* const* lane, __m128i* out) {
    __m128i x[4];
    for (int l = 0; l < 4; ++l) {
        x[l] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lane[l]));
    }
    // A matrix of 4 signals by 8 samples, transposed in two rounds of interleaving.
    const __m128i a = _mm_unpacklo_epi16(x[0], x[2]);
    const __m128i b = _mm_unpacklo_epi16(x[1], x[3]);
    const __m128i c = _mm_unpackhi_epi16(x[0], x[2]);
    const __m128i d = _mm_unpackhi_epi16(x[1], x[3]);
    out[0] = _mm_unpacklo_epi16(a, b);
    out[1] = _mm_unpackhi_epi16(a, b);
    out[2] = _mm_unpacklo_epi16(c, d);
    out[3] = _mm_unpackhi_epi16(c, d);
}
/** Eight samples of each lane's signal, sign-extended: out[i] holds sample i of every lane. */
KORVANE_INLINE void load_samples(const int16_t* const* lane, Quad* out) {
    __m128i pairs[4];
    transpose_samples(lane, pairs);
    for (int i = 0; i < 4; ++i) {
        out[2 * i].v = _mm_srai_epi32(_mm_unpacklo_epi16(pairs[i], pairs[i]), 16);
        out[2 * i + 1].v = _mm_srai_epi32(_mm_unpackhi_epi16(pairs[i], pairs[i]), 16);
    }
}
/** Eight samples of each of two signals, sign-extended: out[i] holds sample 2i of both signals in
 * its lower half, sample 2i + 1 of both in the upper. */
KORVANE_INLINE void load_sample_pairs(const int16_t* const* lane, Quad* out) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lane[0]));
    const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i*>(lane[1]));
    const __m128i early = _mm_unpacklo_epi16(x, y);
    const __m128i late = _mm_unpackhi_epi16(x, y);
    out[0].v = _mm_srai_epi32(_mm_unpacklo_epi16(early, early), 16);
    out[1].v = _mm_srai_epi32(_mm_unpackhi_epi16(early, early), 16);
    out[2].v = _mm_srai_epi32(_mm_unpacklo_epi16(late, late), 16);
    out[3].v = _mm_srai_epi32(_mm_unpackhi_epi16(late, late), 16);
}
/** The reverse, saturated to 16 bits. */
KORVANE_INLINE void store_sample_pairs(const Quad* in, int16_t* const* lane) {
    // The signals are told apart in three rounds: samples that are 4, 2, then 1 apart come together.
    const __m128i early = _mm_packs_epi32(in[0].v, in[1].v);
    const __m128i late = _mm_packs_epi32(in[2].v, in[3].v);
    const __m128i a = _mm_unpacklo_epi16(early, late);
    const __m128i b = _mm_unpackhi_epi16(early, late);
    const __m128i even = _mm_unpacklo_epi16(a, b);
    const __m128i odd = _mm_unpackhi_epi16(a, b);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(lane[0]), _mm_unpacklo_epi16(even, odd));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(lane[1]), _mm_unpackhi_epi16(even, odd));
}
/** The reverse of load_samples: saturates in[i] to 16 bits and stores eight samples of each lane's
 * signal. */
KORVANE_INLINE void store_samples(const Quad* in, int16_t* const* lane) {
    const __m128i a = _mm_packs_epi32(in[0].v, in[1].v);
    const __m128i b = _mm_packs_epi32(in[2].v, in[3].v);
    const __m128i c = _mm_packs_epi32(in[4].v, in[5].v);
    const __m128i d = _mm_packs_epi32(in[6].v, in[7].v);
    const __m128i even0 = _mm_unpacklo_epi16(a, _mm_unpackhi_epi64(a, a));
    const __m128i even1 = _mm_unpacklo_epi16(b, _mm_unpackhi_epi64(b, b));
    const __m128i even2 = _mm_unpacklo_epi16(c, _mm_unpackhi_epi64(c, c));
    const __m128i even3 = _mm_unpacklo_epi16(d, _mm_unpackhi_epi64(d, d));
    // evenN: samples 2N and 2N + 1 of lanes 0..3, as 32-bit pairs.
    const __m128i low01 = _mm_unpacklo_epi32(even0, even1);
    const __m128i high01 = _mm_unpackhi_epi32(even0, even1);
    const __m128i low23 = _mm_unpacklo_epi32(even2, even3);
    const __m128i high23 = _mm_unpackhi_epi32(even2, even3);
    const __m128i rows[4] = {_mm_unpacklo_epi64(low01, low23), _mm_unpackhi_epi64(low01, low23),
                             _mm_unpacklo_epi64(high01, high23),
                             _mm_unpackhi_epi64(high01, high23)};
    for (int l = 0; l < 4; ++l) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(lane[l]), rows[l]);
    }
}
/** Saturates to 16 bits and stores four consecutive samples. */
KORVANE_INLINE void store_saturated(int16_t* p, Quad a) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(p), _mm_packs_epi32(a.v, a.v));
}
KORVANE_INLINE Quad reverse(Quad a) { return {_mm_shuffle_epi32(a.v, 0x1B)}; }
/** Exchanges the lower and the upper half of the lanes. */
KORVANE_INLINE Quad swap_halves(Quad a) { return {_mm_shuffle_epi32(a.v, 0x4E)}; }
/** Negates, wrapping, the lanes where the mask is all ones. */
KORVANE_INLINE Quad negate_where(Quad mask, Quad a) {
    return {_mm_sub_epi32(_mm_xor_si128(a.v, mask.v), mask.v)};
}
KORVANE_INLINE Quad negate_lower(Quad a) { return negate_where({_mm_setr_epi32(-1, -1, 0, 0)}, a); }
KORVANE_INLINE Quad negate_upper(Quad a) { return negate_where({_mm_setr_epi32(0, 0, -1, -1)}, a); }
/** a[0], a[1], b[2], b[3]. */
KORVANE_INLINE Quad blend_halves(Quad a, Quad b) {
#if defined(__AVX2__)
    return {_mm_blend_epi32(a.v, b.v, 0xC)};
#else
    return {_mm_castpd_si128(_mm_move_sd(_mm_castsi128_pd(b.v), _mm_castsi128_pd(a.v)))};
#endif
}
/** The lower half of a, then that of b. */
KORVANE_INLINE Quad lower_halves(Quad a, Quad b) { return {_mm_unpacklo_epi64(a.v, b.v)}; }
/** The upper half of a, then that of b. */
KORVANE_INLINE Quad upper_halves(Quad a, Quad b) { return {_mm_unpackhi_epi64(a.v, b.v)}; }
/** a[0], a[2], b[0], b[2]. */
KORVANE_INLINE Quad even_lanes(Quad a, Quad b) {
    return {_mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a.v), _mm_castsi128_ps(b.v), 0x88))};
}
/** a[1], a[3], b[1], b[3]. */
KORVANE_INLINE Quad odd_lanes(Quad a, Quad b) {
    return {_mm_castps_si128(_mm_shuffle_ps(_mm_castsi128_ps(a.v), _mm_castsi128_ps(b.v), 0xDD))};
}
/** a[0], b[0], a[1], b[1]. */
KORVANE_INLINE Quad zip_low(Quad a, Quad b) { return {_mm_unpacklo_epi32(a.v, b.v)}; }
/** a[2], b[2], a[3], b[3]. */
KORVANE_INLINE Quad zip_high(Quad a, Quad b) { return {_mm_unpackhi_epi32(a.v, b.v)}; }
/** a[0], a[1], b[0], b[1]. */
KORVANE_INLINE Quad load_two_pairs(const int32_t* a, const int32_t* b) {
    const __m128i low = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(a));
    return {
        _mm_castps_si128(_mm_loadh_pi(_mm_castsi128_ps(low), reinterpret_cast<const __m64*>(b)))};
}
KORVANE_INLINE void store_two_pairs(int32_t* a, int32_t* b, Quad v) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(a), v.v);
    _mm_storeh_pi(reinterpret_cast<__m64*>(b), _mm_castsi128_ps(v.v));
}

#elif defined(__ARM_NEON)

struct Quad {
    int32x4_t v;
    static constexpr int kLanes = 4;
    static constexpr bool kShortPositiveForms = false;

    KORVANE_INLINE static Quad load(const int32_t* p) { return {vld1q_s32(p)}; }
    KORVANE_INLINE static Quad broadcast(int32_t a) { return {vdupq_n_s32(a)}; }
    KORVANE_INLINE static Quad of(int32_t a, int32_t b, int32_t c, int32_t d) {
        const int32_t lanes[4] = {a, b, c, d};
        return load(lanes);
    }
    KORVANE_INLINE static Quad broadcast_halves(int32_t a, int32_t b) {
        return {vcombine_s32(vdup_n_s32(a), vdup_n_s32(b))};
    }
    KORVANE_INLINE static Quad extend(const int16_t* p) { return {vmovl_s16(vld1_s16(p))}; }
};

KORVANE_INLINE void store(int32_t* p, Quad a) { vst1q_s32(p, a.v); }
KORVANE_INLINE Quad single4(int32_t a) { return {vsetq_lane_s32(a, vdupq_n_s32(0), 0)}; }
KORVANE_INLINE Quad add_wrap(Quad a, Quad b) { return {vaddq_s32(a.v, b.v)}; }
KORVANE_INLINE Quad sub_wrap(Quad a, Quad b) { return {vsubq_s32(a.v, b.v)}; }
KORVANE_INLINE Quad bit_and(Quad a, Quad b) { return {vandq_s32(a.v, b.v)}; }
KORVANE_INLINE Quad bit_or(Quad a, Quad b) { return {vorrq_s32(a.v, b.v)}; }
template <int kBits>
KORVANE_INLINE Quad shl(Quad a) {
    return {vshlq_n_s32(a.v, kBits)};
}
template <int kBits>
KORVANE_INLINE Quad asr(Quad a) {
    return {vshrq_n_s32(a.v, kBits)};
}
template <int kBits>
KORVANE_INLINE Quad lsr(Quad a) {
    return {vreinterpretq_s32_u32(vshrq_n_u32(vreinterpretq_u32_s32(a.v), kBits))};
}
KORVANE_INLINE Quad greater(Quad a, Quad b) { return {vreinterpretq_s32_u32(vcgtq_s32(a.v, b.v))}; }
KORVANE_INLINE Quad select(Quad mask, Quad a, Quad b) {
    return {vbslq_s32(vreinterpretq_u32_s32(mask.v), a.v, b.v)};
}
KORVANE_INLINE Quad minimum(Quad a, Quad b) { return {vminq_s32(a.v, b.v)}; }
KORVANE_INLINE Quad maximum(Quad a, Quad b) { return {vmaxq_s32(a.v, b.v)}; }
KORVANE_INLINE Quad mul_low(Quad a, Quad b) { return {vmulq_s32(a.v, b.v)}; }
// sqdmulh gives the high half of 2*a*b: with b = c * 2^15 that is floor(a*c / 65536). Only -2^31
// squared would saturate, and b never is that.
template <int kC>
KORVANE_INLINE Quad mul_half_q15(Quad a) {
    static_assert(kC >= -32768 && kC <= 32767);
    return {vqdmulhq_s32(a.v, vdupq_n_s32(kC * 32768))};
}
KORVANE_INLINE Quad mul_half_q15(Quad a, Quad c) {
    return {vqdmulhq_s32(a.v, vshlq_n_s32(c.v, 15))};
}
template <int kC>
KORVANE_INLINE OppositeSums<Quad> add_half_both(Quad a, Quad b) {
    return {add_wrap(a, mul_half_q15<kC>(b)), add_wrap(a, mul_half_q15<-kC>(b))};
}
KORVANE_INLINE Quad mul_half_positive(Quad a, Quad c) { return mul_half_q15(a, c); }
KORVANE_INLINE Quad mul_half_negative(Quad a, Quad c) { return mul_half_q15(a, c); }
KORVANE_INLINE Quad add_half_negative(Quad sum, Quad a, Quad c) {
    return add_wrap(sum, mul_half_q15(a, c));
}
KORVANE_INLINE Quad mul_half_upper(Quad a, Quad b) { return mul_half_q15(a, asr<16>(b)); }
KORVANE_INLINE Quad mul_half_upper_positive(Quad a, Quad b) { return mul_half_upper(a, b); }
KORVANE_INLINE Quad mul_samples(Quad a, Quad b) { return mul_low(a, b); }
KORVANE_INLINE Quad leading_zeros(Quad a) { return {vclzq_s32(a.v)}; }
KORVANE_INLINE Quad shl_each(Quad a, Quad n) { return {vshlq_s32(a.v, n.v)}; }
KORVANE_INLINE Quad asr_each(Quad a, Quad n) { return {vshlq_s32(a.v, vnegq_s32(n.v))}; }
KORVANE_INLINE int32_t sum_lanes(Quad a) { return vaddvq_s32(a.v); }
KORVANE_INLINE bool any_negative(Quad a) { return vminvq_s32(a.v) < 0; }
KORVANE_INLINE int32_t lane0(Quad a) { return vgetq_lane_s32(a.v, 0); }
KORVANE_INLINE int32_t lane2(Quad a) { return vgetq_lane_s32(a.v, 2); }
KORVANE_INLINE Quad pair4(int32_t a, int32_t b) { return {vsetq_lane_s32(b, single4(a).v, 2)}; }
template <int kCycle>
KORVANE_INLINE Quad cycle(Quad a) {
    static_assert(kCycle == 4 || kCycle == 2);
    if constexpr (kCycle == 4) {
        return {vextq_s32(a.v, a.v, 3)};
    } else {
        return {vrev64q_s32(a.v)};
    }
}
template <int kCycle>
KORVANE_INLINE Quad first_of_cycle(Quad a, Quad b) {
    if constexpr (kCycle == 4) {
        return {vcopyq_laneq_s32(b.v, 0, a.v, 0)};
    } else {
        return {vtrn2q_s32(vrev64q_s32(a.v), b.v)};
    }
}
KORVANE_INLINE void transpose(Quad& a, Quad& b, Quad& c, Quad& d) {
    const int32x4_t ab_even = vtrn1q_s32(a.v, b.v);
    const int32x4_t ab_odd = vtrn2q_s32(a.v, b.v);
    const int32x4_t cd_even = vtrn1q_s32(c.v, d.v);
    const int32x4_t cd_odd = vtrn2q_s32(c.v, d.v);
    const auto low = [](int32x4_t x, int32x4_t y) {
        return vreinterpretq_s32_s64(
            vtrn1q_s64(vreinterpretq_s64_s32(x), vreinterpretq_s64_s32(y)));
    };
    const auto high = [](int32x4_t x, int32x4_t y) {
        return vreinterpretq_s32_s64(
            vtrn2q_s64(vreinterpretq_s64_s32(x), vreinterpretq_s64_s32(y)));
    };
    a.v = low(ab_even, cd_even);
    b.v = low(ab_odd, cd_odd);
    c.v = high(ab_even, cd_even);
    d.v = high(ab_odd, cd_odd);
}
KORVANE_INLINE void load_samples(const int16_t* const* lane, Quad* out) {
    int16x8_t x[4];
    for (int l = 0; l < 4; ++l) {
        x[l] = vld1q_s16(lane[l]);
    }
    const int16x8_t a = vzip1q_s16(x[0], x[2]);
    const int16x8_t b = vzip1q_s16(x[1], x[3]);
    const int16x8_t c = vzip2q_s16(x[0], x[2]);
    const int16x8_t d = vzip2q_s16(x[1], x[3]);
    const int16x8_t quads[4] = {vzip1q_s16(a, b), vzip2q_s16(a, b), vzip1q_s16(c, d),
                                vzip2q_s16(c, d)};
    for (int i = 0; i < 4; ++i) {
        out[2 * i].v = vmovl_s16(vget_low_s16(quads[i]));
        out[2 * i + 1].v = vmovl_high_s16(quads[i]);
    }
}
KORVANE_INLINE void store_samples(const Quad* in, int16_t* const* lane) {
    int16x8_t x[4];
    for (int i = 0; i < 4; ++i) {
        x[i] = vqmovn_high_s32(vqmovn_s32(in[i].v), in[i + 4].v);
    }
    // x[i]: sample i of lanes 0..3, then sample i + 4 of lanes 0..3.
    const int16x8_t a = vzip1q_s16(x[0], x[2]);
    const int16x8_t b = vzip1q_s16(x[1], x[3]);
    const int16x8_t c = vzip2q_s16(x[0], x[2]);
    const int16x8_t d = vzip2q_s16(x[1], x[3]);
    const int16x8_t early01 = vzip1q_s16(a, b);
    const int16x8_t early23 = vzip2q_s16(a, b);
    const int16x8_t late01 = vzip1q_s16(c, d);
    const int16x8_t late23 = vzip2q_s16(c, d);
    vst1q_s16(lane[0], vcombine_s16(vget_low_s16(early01), vget_low_s16(late01)));
    vst1q_s16(lane[1], vcombine_s16(vget_high_s16(early01), vget_high_s16(late01)));
    vst1q_s16(lane[2], vcombine_s16(vget_low_s16(early23), vget_low_s16(late23)));
    vst1q_s16(lane[3], vcombine_s16(vget_high_s16(early23), vget_high_s16(late23)));
}
KORVANE_INLINE void load_sample_pairs(const int16_t* const* lane, Quad* out) {
    const int16x8_t x = vld1q_s16(lane[0]);
    const int16x8_t y = vld1q_s16(lane[1]);
    const int16x8_t early = vzip1q_s16(x, y);
    const int16x8_t late = vzip2q_s16(x, y);
    out[0].v = vmovl_s16(vget_low_s16(early));
    out[1].v = vmovl_high_s16(early);
    out[2].v = vmovl_s16(vget_low_s16(late));
    out[3].v = vmovl_high_s16(late);
}
KORVANE_INLINE void store_sample_pairs(const Quad* in, int16_t* const* lane) {
    const int16x8_t early = vqmovn_high_s32(vqmovn_s32(in[0].v), in[1].v);
    const int16x8_t late = vqmovn_high_s32(vqmovn_s32(in[2].v), in[3].v);
    vst1q_s16(lane[0], vuzp1q_s16(early, late));
    vst1q_s16(lane[1], vuzp2q_s16(early, late));
}
KORVANE_INLINE void store_saturated(int16_t* p, Quad a) { vst1_s16(p, vqmovn_s32(a.v)); }
KORVANE_INLINE Quad reverse(Quad a) {
    const int32x4_t pairs = vrev64q_s32(a.v);
    return {vextq_s32(pairs, pairs, 2)};
}
KORVANE_INLINE Quad swap_halves(Quad a) { return {vextq_s32(a.v, a.v, 2)}; }
KORVANE_INLINE Quad lower_halves(Quad a, Quad b) {
    return {vcombine_s32(vget_low_s32(a.v), vget_low_s32(b.v))};
}
KORVANE_INLINE Quad upper_halves(Quad a, Quad b) {
    return {vcombine_s32(vget_high_s32(a.v), vget_high_s32(b.v))};
}
KORVANE_INLINE Quad negate_where(Quad mask, Quad a) {
    return {vsubq_s32(veorq_s32(a.v, mask.v), mask.v)};
}
KORVANE_INLINE Quad negate_lower(Quad a) {
    return {vcombine_s32(vneg_s32(vget_low_s32(a.v)), vget_high_s32(a.v))};
}
KORVANE_INLINE Quad negate_upper(Quad a) {
    return {vcombine_s32(vget_low_s32(a.v), vneg_s32(vget_high_s32(a.v)))};
}
KORVANE_INLINE Quad blend_halves(Quad a, Quad b) {
    return {vcombine_s32(vget_low_s32(a.v), vget_high_s32(b.v))};
}
KORVANE_INLINE Quad even_lanes(Quad a, Quad b) { return {vuzp1q_s32(a.v, b.v)}; }
KORVANE_INLINE Quad odd_lanes(Quad a, Quad b) { return {vuzp2q_s32(a.v, b.v)}; }
KORVANE_INLINE Quad zip_low(Quad a, Quad b) { return {vzip1q_s32(a.v, b.v)}; }
KORVANE_INLINE Quad zip_high(Quad a, Quad b) { return {vzip2q_s32(a.v, b.v)}; }
KORVANE_INLINE Quad load_two_pairs(const int32_t* a, const int32_t* b) {
    return {vcombine_s32(vld1_s32(a), vld1_s32(b))};
}
KORVANE_INLINE void store_two_pairs(int32_t* a, int32_t* b, Quad v) {
    vst1_s32(a, vget_low_s32(v.v));
    vst1_s32(b, vget_high_s32(v.v));
}

#endif

/** Two lanes: the lower half of a Quad, whose upper half means nothing. Operations are Quad's. */
struct Duo : Quad {
    // cppcheck-suppress duplInheritedMember; a Duo is a narrower Quad
    static constexpr int kLanes = 2;

    Duo() = default;
    // cppcheck-suppress noExplicitConstructor
    // NOLINTNEXTLINE(google-explicit-constructor,hicpp-explicit-conversions): what Quad's operations return is a Duo again
    KORVANE_INLINE Duo(Quad q) : Quad(q) {}
};

#if defined(__AVX2__)

struct Wide {
    __m256i v;
    static constexpr int kLanes = 8;
    static constexpr bool kShortPositiveForms = true;

    KORVANE_INLINE static Wide load(const int32_t* p) {
        return {_mm256_loadu_si256(reinterpret_cast<const __m256i*>(p))};
    }
    KORVANE_INLINE static Wide broadcast(int32_t a) { return {_mm256_set1_epi32(a)}; }
    KORVANE_INLINE static Wide extend(const int16_t* p) {
        return {_mm256_cvtepi16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(p)))};
    }
    KORVANE_INLINE static Wide join(Quad a, Quad b) { return {_mm256_set_m128i(b.v, a.v)}; }
    KORVANE_INLINE static Wide broadcast_halves(int32_t a, int32_t b) {
        return {_mm256_blend_epi32(_mm256_set1_epi32(a), _mm256_set1_epi32(b), 0xF0)};
    }
};

KORVANE_INLINE void store(int32_t* p, Wide a) {
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), a.v);
}
KORVANE_INLINE Quad group0(Wide a) { return {_mm256_castsi256_si128(a.v)}; }
KORVANE_INLINE Quad group1(Wide a) { return {_mm256_extracti128_si256(a.v, 1)}; }
KORVANE_INLINE Wide add_wrap(Wide a, Wide b) { return {_mm256_add_epi32(a.v, b.v)}; }
KORVANE_INLINE Wide sub_wrap(Wide a, Wide b) { return {_mm256_sub_epi32(a.v, b.v)}; }
KORVANE_INLINE Wide bit_and(Wide a, Wide b) { return {_mm256_and_si256(a.v, b.v)}; }
KORVANE_INLINE Wide bit_or(Wide a, Wide b) { return {_mm256_or_si256(a.v, b.v)}; }
template <int kBits>
KORVANE_INLINE Wide shl(Wide a) {
    return {_mm256_slli_epi32(a.v, kBits)};
}
template <int kBits>
KORVANE_INLINE Wide asr(Wide a) {
    return {_mm256_srai_epi32(a.v, kBits)};
}
template <int kBits>
KORVANE_INLINE Wide lsr(Wide a) {
    return {_mm256_srli_epi32(a.v, kBits)};
}
KORVANE_INLINE Wide greater(Wide a, Wide b) { return {_mm256_cmpgt_epi32(a.v, b.v)}; }
KORVANE_INLINE Wide select(Wide mask, Wide a, Wide b) {
    // The blend of floats, by the sign bits: it runs on more units than the blend of bytes.
    return {_mm256_castps_si256(_mm256_blendv_ps(_mm256_castsi256_ps(b.v), _mm256_castsi256_ps(a.v),
                                                 _mm256_castsi256_ps(mask.v)))};
}
KORVANE_INLINE Wide minimum(Wide a, Wide b) { return {_mm256_min_epi32(a.v, b.v)}; }
KORVANE_INLINE Wide maximum(Wide a, Wide b) { return {_mm256_max_epi32(a.v, b.v)}; }
KORVANE_INLINE Wide mul_low(Wide a, Wide b) { return {_mm256_mullo_epi32(a.v, b.v)}; }
template <int kC>
KORVANE_INLINE Wide mul_half_q15(Wide a) {
    static_assert(kC >= -32768 && kC <= 32767);
    const __m256i high = _mm256_madd_epi16(
        a.v, _mm256_set1_epi32(static_cast<int32_t>(static_cast<uint32_t>(kC) << 16)));
    const __m256i low = _mm256_mulhi_epu16(a.v, _mm256_set1_epi32(kC & 0xFFFF));
    const __m256i sum = _mm256_add_epi32(high, low);
    if constexpr (kC >= 0) {
        return {sum};
    } else {
        return {_mm256_sub_epi32(sum, _mm256_and_si256(a.v, _mm256_set1_epi32(0xFFFF)))};
    }
}
template <int kC>
KORVANE_INLINE OppositeSums<Wide> add_half_both(Wide a, Wide b) {
    const Wide product = mul_half_q15<kC>(b);
    const __m256i rest = _mm256_and_si256(b.v, _mm256_set1_epi32(kExactFrom<kC> - 1));
    const __m256i inexact = _mm256_cmpgt_epi32(rest, _mm256_setzero_si256());
    return {add_wrap(a, product), {_mm256_add_epi32(sub_wrap(a, product).v, inexact)}};
}
KORVANE_INLINE Wide mul_half_positive(Wide a, Wide c) {
    return {_mm256_add_epi32(_mm256_madd_epi16(a.v, _mm256_slli_epi32(c.v, 16)),
                             _mm256_mulhi_epu16(a.v, c.v))};
}
KORVANE_INLINE Wide mul_half_q15(Wide a, Wide c) {
    const __m256i low_c = _mm256_and_si256(c.v, _mm256_set1_epi32(0xFFFF));
    const __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(a.v, _mm256_slli_epi32(c.v, 16)),
                                         _mm256_mulhi_epu16(a.v, low_c));
    return {_mm256_sub_epi32(
        sum, _mm256_and_si256(a.v, _mm256_srli_epi32(_mm256_srai_epi32(c.v, 31), 16)))};
}
KORVANE_INLINE Wide mul_half_upper(Wide a, Wide b) {
    const __m256i high = _mm256_madd_epi16(a.v, _mm256_and_si256(b.v, _mm256_set1_epi32(-65536)));
    const __m256i low = _mm256_mulhi_epu16(a.v, _mm256_srli_epi32(b.v, 16));
    const __m256i excess = _mm256_and_si256(a.v, _mm256_srli_epi32(_mm256_srai_epi32(b.v, 31), 16));
    return {_mm256_sub_epi32(_mm256_add_epi32(high, low), excess)};
}
KORVANE_INLINE Wide mul_half_upper_positive(Wide a, Wide b) {
    return {
        _mm256_add_epi32(_mm256_madd_epi16(a.v, _mm256_and_si256(b.v, _mm256_set1_epi32(-65536))),
                         _mm256_mulhi_epu16(a.v, _mm256_srli_epi32(b.v, 16)))};
}
KORVANE_INLINE Wide mul_half_negative(Wide a, Wide c) {
    const __m256i low_mask = _mm256_set1_epi32(0xFFFF);
    const __m256i sum = _mm256_add_epi32(_mm256_madd_epi16(a.v, _mm256_slli_epi32(c.v, 16)),
                                         _mm256_mulhi_epu16(a.v, _mm256_and_si256(c.v, low_mask)));
    return {_mm256_sub_epi32(sum, _mm256_and_si256(a.v, low_mask))};
}
KORVANE_INLINE Wide mul_samples(Wide a, Wide b) { return {_mm256_madd_epi16(a.v, b.v)}; }
KORVANE_INLINE Wide leading_zeros(Wide a) {
    const __m256i highest = _mm256_andnot_si256(_mm256_srli_epi32(a.v, 1), a.v);
    const __m256i exponent =
        _mm256_srli_epi32(_mm256_castps_si256(_mm256_cvtepi32_ps(highest)), 23);
    const __m256i zeros = _mm256_sub_epi32(_mm256_set1_epi32(158), exponent);
    return {
        _mm256_max_epi16(_mm256_min_epi16(zeros, _mm256_set1_epi32(32)), _mm256_setzero_si256())};
}
/** The float of the highest bit of each value, none negative. */
KORVANE_INLINE __m256i float_of_highest(Wide a) {
    const __m256i highest = _mm256_andnot_si256(_mm256_srli_epi32(a.v, 1), a.v);
    return _mm256_castps_si256(_mm256_cvtepi32_ps(highest));
}
/** n, the bits that a value's highest one stands below the sign's neighbour: 30 for 1. */
struct Scale {
    __m256i n;
};
/** For a in 0..2^31-1; a value of 0 stays 0 when scaled. */
KORVANE_INLINE Scale normalising_scale(Wide a) {
    return {_mm256_sub_epi32(_mm256_set1_epi32(157), _mm256_srli_epi32(float_of_highest(a), 23))};
}
KORVANE_INLINE Wide scale_up(Wide a, Scale scale) { return {_mm256_sllv_epi32(a.v, scale.n)}; }
/** h = floor(n / 2). */
struct RootScale {
    __m256i h;
};
KORVANE_INLINE RootScale root_scale(Wide a) {
    return {_mm256_sub_epi32(_mm256_set1_epi32(78), _mm256_srli_epi32(float_of_highest(a), 24))};
}
KORVANE_INLINE Wide scale_up(Wide a, RootScale scale) {
    return {_mm256_sllv_epi32(a.v, _mm256_add_epi32(scale.h, scale.h))};
}
/** floor(a / 2^(15+h)), a not negative. */
KORVANE_INLINE Wide scale_down(Wide a, RootScale scale) {
    return {_mm256_srlv_epi32(a.v, _mm256_add_epi32(scale.h, _mm256_set1_epi32(15)))};
}
KORVANE_INLINE Wide shl_each(Wide a, Wide n) { return {_mm256_sllv_epi32(a.v, n.v)}; }
KORVANE_INLINE Wide asr_each(Wide a, Wide n) { return {_mm256_srav_epi32(a.v, n.v)}; }
KORVANE_INLINE bool any_negative(Wide a) {
    return _mm256_movemask_ps(_mm256_castsi256_ps(a.v)) != 0;
}
KORVANE_INLINE int32_t sum_lanes(Wide a) { return sum_lanes(add_wrap(group0(a), group1(a))); }
template <int kCycle>
KORVANE_INLINE Wide cycle(Wide a) {
    static_assert(kCycle == 4 || kCycle == 2);
    return {_mm256_shuffle_epi32(a.v, kCycle == 4 ? 0x93 : 0xB1)};
}
template <int kCycle>
KORVANE_INLINE Wide first_of_cycle(Wide a, Wide b) {
    return {_mm256_blend_epi32(b.v, a.v, kCycle == 4 ? 0x11 : 0x55)};
}
KORVANE_INLINE void load_samples(const int16_t* const* lane, Wide* out) {
    Quad a[8];
    Quad b[8];
    load_samples(lane, a);
    load_samples(lane + 4, b);
    for (int i = 0; i < 8; ++i) {
        out[i] = Wide::join(a[i], b[i]);
    }
}
KORVANE_INLINE void store_samples(const Wide* in, int16_t* const* lane) {
    Quad a[8];
    Quad b[8];
    for (int i = 0; i < 8; ++i) {
        a[i] = group0(in[i]);
        b[i] = group1(in[i]);
    }
    store_samples(a, lane);
    store_samples(b, lane + 4);
}
/** As with two signals and a Quad: here four signals. */
KORVANE_INLINE void load_sample_pairs(const int16_t* const* lane, Wide* out) {
    __m128i pairs[4];
    transpose_samples(lane, pairs);
    for (int i = 0; i < 4; ++i) {
        out[i].v = _mm256_cvtepi16_epi32(pairs[i]);
    }
}
KORVANE_INLINE void store_sample_pairs(const Wide* in, int16_t* const* lane) {
    Quad x[8];
    for (int i = 0; i < 4; ++i) {
        x[2 * i] = group0(in[i]);
        x[2 * i + 1] = group1(in[i]);
    }
    store_samples(x, lane);
}
KORVANE_INLINE void store_saturated(int16_t* p, Wide a) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p), _mm_packs_epi32(group0(a).v, group1(a).v));
}
KORVANE_INLINE Wide swap_halves(Wide a) { return {_mm256_permute4x64_epi64(a.v, 0x4E)}; }
KORVANE_INLINE Wide lower_halves(Wide a, Wide b) { return Wide::join(group0(a), group0(b)); }
KORVANE_INLINE Wide upper_halves(Wide a, Wide b) {
    return {_mm256_blend_epi32(_mm256_castsi128_si256(group1(a).v), b.v, 0xF0)};
}
KORVANE_INLINE Wide negate_lower(Wide a) {
    return {_mm256_sign_epi32(a.v, _mm256_setr_epi32(-1, -1, -1, -1, 1, 1, 1, 1))};
}
KORVANE_INLINE Wide negate_upper(Wide a) {
    return {_mm256_sign_epi32(a.v, _mm256_setr_epi32(1, 1, 1, 1, -1, -1, -1, -1))};
}
KORVANE_INLINE Wide blend_halves(Wide a, Wide b) { return {_mm256_blend_epi32(a.v, b.v, 0xF0)}; }
KORVANE_INLINE Wide reverse(Wide a) {
    return {_mm256_permutevar8x32_epi32(a.v, _mm256_setr_epi32(7, 6, 5, 4, 3, 2, 1, 0))};
}

#else

using Wide = Quad;

#endif

#if defined(__SSE2__)

struct Braid {
    Wide a;
    Wide b;
    static constexpr int kLanes = 2 * Wide::kLanes;
    static constexpr bool kShortPositiveForms = Wide::kShortPositiveForms;

    KORVANE_INLINE static Braid load(const int32_t* p) {
        return {Wide::load(p), Wide::load(p + Wide::kLanes)};
    }
    KORVANE_INLINE static Braid broadcast(int32_t a) {
        return {Wide::broadcast(a), Wide::broadcast(a)};
    }
    KORVANE_INLINE static Braid extend(const int16_t* p) {
        return {Wide::extend(p), Wide::extend(p + Wide::kLanes)};
    }
};

KORVANE_INLINE void store(int32_t* p, Braid x) {
    store(p, x.a);
    store(p + Wide::kLanes, x.b);
}
KORVANE_INLINE void store_saturated(int16_t* p, Braid x) {
    store_saturated(p, x.a);
    store_saturated(p + Wide::kLanes, x.b);
}
KORVANE_INLINE Braid add_wrap(Braid x, Braid y) { return {add_wrap(x.a, y.a), add_wrap(x.b, y.b)}; }
KORVANE_INLINE Braid sub_wrap(Braid x, Braid y) { return {sub_wrap(x.a, y.a), sub_wrap(x.b, y.b)}; }
KORVANE_INLINE Braid bit_and(Braid x, Braid y) { return {bit_and(x.a, y.a), bit_and(x.b, y.b)}; }
KORVANE_INLINE Braid bit_or(Braid x, Braid y) { return {bit_or(x.a, y.a), bit_or(x.b, y.b)}; }
KORVANE_INLINE Braid greater(Braid x, Braid y) { return {greater(x.a, y.a), greater(x.b, y.b)}; }
KORVANE_INLINE Braid minimum(Braid x, Braid y) { return {minimum(x.a, y.a), minimum(x.b, y.b)}; }
KORVANE_INLINE Braid maximum(Braid x, Braid y) { return {maximum(x.a, y.a), maximum(x.b, y.b)}; }
KORVANE_INLINE Braid mul_half_q15(Braid x, Braid y) {
    return {mul_half_q15(x.a, y.a), mul_half_q15(x.b, y.b)};
}
KORVANE_INLINE Braid mul_half_positive(Braid x, Braid y) {
    return {mul_half_positive(x.a, y.a), mul_half_positive(x.b, y.b)};
}
KORVANE_INLINE Braid mul_half_upper(Braid x, Braid y) {
    return {mul_half_upper(x.a, y.a), mul_half_upper(x.b, y.b)};
}
KORVANE_INLINE Braid mul_half_upper_positive(Braid x, Braid y) {
    return {mul_half_upper_positive(x.a, y.a), mul_half_upper_positive(x.b, y.b)};
}
KORVANE_INLINE Braid shl_each(Braid x, Braid y) { return {shl_each(x.a, y.a), shl_each(x.b, y.b)}; }
KORVANE_INLINE Braid asr_each(Braid x, Braid y) { return {asr_each(x.a, y.a), asr_each(x.b, y.b)}; }
KORVANE_INLINE Braid leading_zeros(Braid x) { return {leading_zeros(x.a), leading_zeros(x.b)}; }
KORVANE_INLINE Braid select(Braid mask, Braid x, Braid y) {
    return {select(mask.a, x.a, y.a), select(mask.b, x.b, y.b)};
}
template <int kBits>
KORVANE_INLINE Braid shl(Braid x) {
    return {shl<kBits>(x.a), shl<kBits>(x.b)};
}
template <int kBits>
KORVANE_INLINE Braid asr(Braid x) {
    return {asr<kBits>(x.a), asr<kBits>(x.b)};
}
template <int kBits>
KORVANE_INLINE Braid lsr(Braid x) {
    return {lsr<kBits>(x.a), lsr<kBits>(x.b)};
}
template <int kC>
KORVANE_INLINE Braid mul_half_q15(Braid x) {
    return {mul_half_q15<kC>(x.a), mul_half_q15<kC>(x.b)};
}
KORVANE_INLINE int32_t sum_lanes(Braid x) { return sum_lanes(add_wrap(x.a, x.b)); }
KORVANE_INLINE bool any_negative(Braid x) { return any_negative(bit_or(x.a, x.b)); }

template <class S>
struct BraidScale {
    S a;
    S b;
};
KORVANE_INLINE BraidScale<Scale> normalising_scale(Braid x) {
    return {normalising_scale(x.a), normalising_scale(x.b)};
}
KORVANE_INLINE BraidScale<RootScale> root_scale(Braid x) {
    return {root_scale(x.a), root_scale(x.b)};
}
template <class S>
KORVANE_INLINE Braid scale_up(Braid x, BraidScale<S> scale) {
    return {scale_up(x.a, scale.a), scale_up(x.b, scale.b)};
}
KORVANE_INLINE Braid scale_down(Braid x, BraidScale<RootScale> scale) {
    return {scale_down(x.a, scale.a), scale_down(x.b, scale.b)};
}

#else

using Braid = Wide;

#endif

/** The first four lanes. */
KORVANE_INLINE Quad group0(Quad a) { return a; }

/** -a, wrapping. */
template <class V>
KORVANE_INLINE V neg_wrap(V a) {
    return sub_wrap(V::broadcast(0), a);
}
/** floor(a*c / 32768), c in -32768..32767, the product formed from 2a, which wraps. */
template <class V>
KORVANE_INLINE V mul_q15(V a, V c) {
    return mul_half_q15(add_wrap(a, a), c);
}

}  // namespace korvane::KORVANE_ISA

#endif
