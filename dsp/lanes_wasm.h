/**
 * Operations on lanes for which WebAssembly has better instructions than the compilers find. It neither
 * shifts by lane nor counts zeros, and has no upper half of a 32-bit product.
 */
#ifndef KORVANE_DSP_LANES_WASM_H
#define KORVANE_DSP_LANES_WASM_H

#include "dsp/lanes_types.h"

#if KORVANE_LANES > 1 && defined(__wasm_simd128__)

#include <wasm_simd128.h>

namespace korvane::KORVANE_ISA {

KORVANE_INLINE Lanes<4> of_v128(v128_t a) { return {(Vectors<4>::Signed)a}; }

KORVANE_INLINE Lanes<4> saturated_pairs(Lanes<4> low, Lanes<4> high) {
    const v128_t x = wasm_i16x8_narrow_i32x4((v128_t)low.v, (v128_t)high.v);
    return of_v128(wasm_i16x8_shuffle(x, x, 0, 4, 1, 5, 2, 6, 3, 7));
}
KORVANE_INLINE void store(int16_t* p, Lanes<4> a) {
    const v128_t x = wasm_i16x8_narrow_i32x4((v128_t)a.v, (v128_t)a.v);
    wasm_v128_store64_lane(p, x, 0);
}

KORVANE_INLINE Lanes<4> mul_add_pairs(Lanes<4> a, Lanes<4> b) {
    return of_v128(wasm_i32x4_dot_i16x8((v128_t)a.v, (v128_t)b.v));
}

/** 2^n, modulo 2^32: byte i of it is 2^(n - 8i), or 0 where the exponent is not in 0..7. For n below 0 or
 * above 31 the result is 0, for n within -103..159. */
KORVANE_INLINE Lanes<4> power_of_two(Lanes<4> n) {
    const v128_t table = wasm_i8x16_const(1, 2, 4, 8, 16, 32, 64, -128, 0, 0, 0, 0, 0, 0, 0, 0);
    // A block takes 2 % longer with a shuffle. For n below 0 the upper bytes come out one too small.
    const auto everywhere = (v128_t)(n.bits() * 0x01010101);
    const v128_t exponent = wasm_i8x16_sub(everywhere, wasm_i32x4_splat(0x18100800));
    return of_v128(wasm_i8x16_swizzle(table, exponent));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> shl_each(Lanes<N> a, Lanes<N> n) {
    return mul_wrap(a, power_of_two(n));
}
// From the exponent that a value, not negative, has as a float: 127 for 1, 0 for 0.
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> normalising_scale(Lanes<N> a) {
    return power_of_two(sub_wrap(Lanes<N>::broadcast(157), lsr<23>(float_of_highest(a))));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> scale_up(Lanes<N> a, Lanes<N> scale) {
    return mul_wrap(a, scale);
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> root_scale(Lanes<N> a) {
    return sub_wrap(Lanes<N>::broadcast(78), lsr<24>(float_of_highest(a)));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> root_scale_up(Lanes<N> a, Lanes<N> scale) {
    return mul_wrap(a, power_of_two(add_wrap(scale, scale)));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE Lanes<N> root_scale_down(Lanes<N> a, Lanes<N> scale) {
    const Lanes<N> power = power_of_two(sub_wrap(Lanes<N>::broadcast(16), scale));
    return lsr<16>(mul_wrap(lsr<15>(a), power));
}
template <int N>
requires(FullRegister<N>) KORVANE_INLINE bool any_negative(Lanes<N> a) {
    return wasm_i32x4_bitmask((v128_t)a.v) != 0;
}

}  // namespace korvane::KORVANE_ISA

#endif

#endif
