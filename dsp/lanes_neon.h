/**
 * Operations on lanes for which 64-bit Arm has better instructions than the compilers find; a part of
 * dsp/lanes.h.
 */
#ifndef KORVANE_DSP_LANES_NEON_H
#define KORVANE_DSP_LANES_NEON_H

#include "dsp/lanes_types.h"

#if KORVANE_LANES > 1 && defined(__ARM_NEON)

#include <arm_neon.h>

namespace korvane::KORVANE_ISA {

// sqdmulh gives the upper half of 2*a*b: with b = c * 2^15 that is floor(a*c / 65536). Only -2^31 squared
// would saturate, and b never is that.

KORVANE_INLINE Lanes<4> mul_half_q15(Lanes<4> a, Lanes<4> c) {
    return {vqdmulhq_s32(a.v, vshlq_n_s32(c.v, 15))};
}
KORVANE_INLINE Lanes<4> mul_half_upper(Lanes<4> a, Lanes<4> b) {
    return {vqdmulhq_s32(a.v, vshlq_n_s32(vshrq_n_s32(b.v, 16), 15))};
}
KORVANE_INLINE Lanes<4> mul_add_pairs(Lanes<4> a, Lanes<4> b) {
    const int16x8_t x = vreinterpretq_s16_s32(a.v);
    const int16x8_t y = vreinterpretq_s16_s32(b.v);
    return {vpaddq_s32(vmull_s16(vget_low_s16(x), vget_low_s16(y)), vmull_high_s16(x, y))};
}
template <int kC, int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> mul_half_by(Lanes<N> a) {
    static_assert(kC >= -32768 && kC <= 32767);
    return {vqdmulhq_s32(a.v, vdupq_n_s32(kC * 32768))};
}
template <int kC, int N>
requires(FullRegister<N>) KORVANE_INLINE Opposites<Lanes<N>> mul_half_both(Lanes<N> a) {
    return {mul_half_by<kC>(a), mul_half_by<-kC>(a)};
}
KORVANE_INLINE Lanes<4> leading_zeros(Lanes<4> a) { return {vclzq_s32(a.v)}; }
/** Shifts left by any lane, right where it is negative. */
KORVANE_INLINE Lanes<4> shl_each(Lanes<4> a, Lanes<4> n) { return {vshlq_s32(a.v, n.v)}; }
KORVANE_INLINE Lanes<4> asr_each(Lanes<4> a, Lanes<4> n) {
    return {vshlq_s32(a.v, vnegq_s32(n.v))};
}
KORVANE_INLINE int32_t sum_lanes(Lanes<4> a) { return vaddvq_s32(a.v); }
KORVANE_INLINE bool any_negative(Lanes<4> a) { return vminvq_s32(a.v) < 0; }

KORVANE_INLINE Lanes<4> saturated_pairs(Lanes<4> low, Lanes<4> high) {
    return {vreinterpretq_s32_s16(vzip1q_s16(vcombine_s16(vqmovn_s32(low.v), vdup_n_s16(0)),
                                             vcombine_s16(vqmovn_s32(high.v), vdup_n_s16(0))))};
}
KORVANE_INLINE void store(int16_t* p, Lanes<4> a) { vst1_s16(p, vqmovn_s32(a.v)); }

}  // namespace korvane::KORVANE_ISA

#endif

#endif
