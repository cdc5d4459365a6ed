/**
 * The butterflies of the 144-point complex transform (prime-factor algorithm, 9 rows by 16 columns), for
 * both directions, and the split between it and the real transform of 288 points.
 *
 * A value of type Lanes<2F> holds one complex value of each of F transforms: the real parts in its lower
 * half, the imaginary ones in its upper. Every sum wraps. Products truncate toward minus infinity, so a
 * sign is not free to move: mul_q15(-a, s) differs from -mul_q15(a, s), and the order below is part of
 * the result.
 */
#ifndef KORVANE_DSP_FFT288_KERNELS_H
#define KORVANE_DSP_FFT288_KERNELS_H

#include "dsp/lanes.h"

namespace korvane::KORVANE_ISA {

enum class Direction { kForward, kInverse };

/** A twiddle factor c - i*s, Q15; the inverse transform uses its conjugate c + i*s. */
struct Twiddle {
    int c;
    int s;
};

// W16^m = (cos, sin)(2*pi*m/16), W9^m = (cos, sin)(2*pi*m/9), each round(32768 * value).
inline constexpr Twiddle kW16_1{30274, 12540};
inline constexpr Twiddle kW16_2{23170, 23170};
inline constexpr Twiddle kW16_3{12540, 30274};
inline constexpr Twiddle kW16_6{-23170, 23170};
inline constexpr Twiddle kW16_9{-30274, -12540};
inline constexpr Twiddle kW9_1{25102, 21063};
inline constexpr Twiddle kW9_2{5690, 32270};
inline constexpr Twiddle kW9_4{-30792, 11207};
inline constexpr int kSin60 = 28378;  // sin(pi/3), Q15

/** A quarter turn, exact: times -i forward, times i inverse. */
template <Direction kDirection, class Z>
KORVANE_INLINE Z quarter_turn(Z a) {
    const Z swapped = swap_halves(a);
    return kDirection == Direction::kForward ? negate_upper(swapped) : negate_lower(swapped);
}

/** a times the twiddle factor c - i*s (forward) or its conjugate (inverse). The products are of 2a,
 * which wraps. */
template <Direction kDirection, Twiddle kW, class Z>
KORVANE_INLINE Z twist(Z a) {
    const Z d = add_wrap(a, a);
    return add_wrap(mul_half_by<kW.c>(d), mul_half_by<kW.s>(quarter_turn<kDirection>(d)));
}

/** 3-point DFT of x0, x1, x2, in place. */
template <Direction kDirection, class Z>
KORVANE_INLINE void radix3(Z& x0, Z& x1, Z& x2) {
    const Z s = add_wrap(x1, x2);
    const Z d = sub_wrap(x1, x2);
    const Z h = sub_wrap(x0, asr<1>(s));
    x0 = add_wrap(x0, s);
    // Times -i*sin60 and times i*sin60: the sign goes with the constant.
    const auto turned = mul_half_both<kSin60>(swap_halves(add_wrap(d, d)));
    const Z positive = add_wrap(h, turned.positive);
    const Z negative = add_wrap(h, turned.negative);
    const Z clockwise = blend_halves(positive, negative);
    const Z counter = blend_halves(negative, positive);
    x1 = kDirection == Direction::kForward ? clockwise : counter;
    x2 = kDirection == Direction::kForward ? counter : clockwise;
}

/** 4-point DFT of a0..a3, in place; exact but for wrapping. */
template <Direction kDirection, class Z>
KORVANE_INLINE void radix4(Z& a0, Z& a1, Z& a2, Z& a3) {
    const Z s02 = add_wrap(a0, a2);
    const Z d02 = sub_wrap(a0, a2);
    const Z s13 = add_wrap(a1, a3);
    const Z turned = quarter_turn<kDirection>(sub_wrap(a1, a3));
    a0 = add_wrap(s02, s13);
    a1 = add_wrap(d02, turned);
    a2 = sub_wrap(s02, s13);
    a3 = sub_wrap(d02, turned);
}

/** Lets the values of a pass rest in memory before the next one begins. WebAssembly's engines move each
 * operation to where its result is wanted, but not past a store: without this the values of both passes
 * are alive at once, in many more registers than there are. */
template <class Z>
KORVANE_INLINE void end_pass([[maybe_unused]] Z* values) {
#if defined(__wasm__)
    asm volatile("" : : "r"(values) : "memory");
#endif
}

/**
 * 16-point DFT as 4 x 4.
 *
 * @param a  [0..15] in natural order; on return spectral line k + 4p stands at [4k + p]
 */
template <Direction kDirection, class Z>
KORVANE_INLINE void dft16(Z* a) {
    for (int n = 0; n < 4; ++n) {
        radix4<kDirection>(a[n], a[n + 4], a[n + 8], a[n + 12]);
    }
    // After the first pass output k of butterfly n stands at [n + 4k] and takes W16^(n*k).
    a[5] = twist<kDirection, kW16_1>(a[5]);
    a[6] = twist<kDirection, kW16_2>(a[6]);
    a[7] = twist<kDirection, kW16_3>(a[7]);
    a[9] = twist<kDirection, kW16_2>(a[9]);
    a[10] = quarter_turn<kDirection>(a[10]);
    a[11] = twist<kDirection, kW16_6>(a[11]);
    a[13] = twist<kDirection, kW16_3>(a[13]);
    a[14] = twist<kDirection, kW16_6>(a[14]);
    a[15] = twist<kDirection, kW16_9>(a[15]);
    end_pass(a);
    for (int k = 0; k < 4; ++k) {
        radix4<kDirection>(a[4 * k], a[4 * k + 1], a[4 * k + 2], a[4 * k + 3]);
    }
}
/** Where dft16 leaves a line. */
constexpr int dft16_position(int line) { return 4 * (line % 4) + line / 4; }

/**
 * 9-point DFT as 3 x 3.
 *
 * @param e  [0..8] in natural order; on return position 3b + a holds line b + 3a (digit reversed)
 */
template <Direction kDirection, class Z>
KORVANE_INLINE void dft9(Z* e) {
    for (int a = 0; a < 3; ++a) {
        radix3<kDirection>(e[a], e[a + 3], e[a + 6]);
    }
    // Output b of butterfly a stands at [a + 3b] and takes W9^(a*b).
    e[4] = twist<kDirection, kW9_1>(e[4]);
    e[5] = twist<kDirection, kW9_2>(e[5]);
    e[7] = twist<kDirection, kW9_2>(e[7]);
    e[8] = twist<kDirection, kW9_4>(e[8]);
    end_pass(e);
    for (int b = 0; b < 3; ++b) {
        radix3<kDirection>(e[3 * b], e[3 * b + 1], e[3 * b + 2]);
    }
}
/** Where dft9 leaves a line. */
constexpr int dft9_position(int line) { return 3 * (line % 3) + line / 3; }

/** A complex value with its parts apart, as the split wants them. */
template <class V>
struct Complex {
    V re;
    V im;
};

/**
 * The split: from two mirrored lines a = Z[k] and b = Z[144 - k] of the transform of even samples (real
 * part) and odd samples (imaginary part), the bins X[k] and X[144 - k] of the real spectrum:
 * X = (a + b*)/2 + W*(a - b*)/2i. The products are halved by their shift, as the sums are by theirs.
 *
 * @param w  entry 2k of twd576, Q15: the cosine, not negative, and minus the sine, below zero
 */
template <class V>
KORVANE_INLINE void split(Complex<V>& a, Complex<V>& b, Complex<V> w) {
    const V sr = add_wrap(a.re, b.re);
    const V dr = sub_wrap(a.re, b.re);
    const V si = add_wrap(a.im, b.im);
    const V di = sub_wrap(a.im, b.im);
    const V t = add_wrap(mul_half_negative(dr, w.im), mul_half_positive(si, w.re));
    const V u = add_wrap(mul_half_positive(neg_wrap(dr), w.re), mul_half_negative(si, w.im));
    const V mean = asr<1>(sr);
    const V im = add_wrap(u, asr<1>(di));
    a = {add_wrap(mean, t), im};
    b = {sub_wrap(mean, t), sub_wrap(im, di)};
}

/** The split run backwards: from the bins a = X[k] and b = X[144 - k] the lines Z[k] and Z[144 - k]. */
template <class V>
KORVANE_INLINE void unsplit(Complex<V>& a, Complex<V>& b, Complex<V> w) {
    const V sr = add_wrap(a.re, b.re);
    const V dr = sub_wrap(a.re, b.re);
    const V si = add_wrap(a.im, b.im);
    const V di = sub_wrap(a.im, b.im);
    const V v = add_wrap(mul_half_negative(si, w.im), mul_half_positive(dr, w.re));
    const V t = add_wrap(mul_half_negative(neg_wrap(dr), w.im), mul_half_positive(si, w.re));
    const V mean = asr<1>(sr);
    a = {sub_wrap(mean, t), add_wrap(v, asr<1>(di))};
    b = {add_wrap(mean, t), sub_wrap(v, asr<1>(di))};
}

/** DC and Nyquist, which are real, from line 0; line 0 from them: (re + im, re - im) either way. */
template <class Z>
KORVANE_INLINE Z sum_and_difference(Z a) {
    const Z swapped = swap_halves(a);
    return blend_halves(add_wrap(a, swapped), sub_wrap(swapped, a));
}

}  // namespace korvane::KORVANE_ISA

#endif
