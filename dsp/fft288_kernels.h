/**
 * The butterflies of the 144-point complex transform (prime-factor algorithm, 9 rows by 16 columns),
 * for both directions.
 *
 * Values are int32 and every sum wraps. Products truncate toward minus infinity, so a sign is not
 * free to move: mul_q15(-a, s) differs from -mul_q15(a, s), and the order below is part of the result.
 */
#ifndef KORVANE_DSP_FFT288_KERNELS_H
#define KORVANE_DSP_FFT288_KERNELS_H

#include "dsp/fixed_point.h"

namespace korvane {

struct Complex {
    int32_t re;
    int32_t im;
};

enum class Direction { kForward, kInverse };

/** A twiddle factor c - i*s, Q15; the inverse transform uses its conjugate c + i*s. */
struct Twiddle {
    int16_t c;
    int16_t s;
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
inline constexpr int16_t kSin60 = 28378;  // sin(pi/3), Q15

constexpr Complex add(Complex a, Complex b) {
    return {add_wrap(a.re, b.re), add_wrap(a.im, b.im)};
}

constexpr Complex sub(Complex a, Complex b) {
    return {sub_wrap(a.re, b.re), sub_wrap(a.im, b.im)};
}

/** A quarter turn, exact: times -i forward, times i inverse. */
template <Direction kDirection>
constexpr Complex quarter_turn(Complex a) {
    if constexpr (kDirection == Direction::kForward) {
        return {a.im, neg_wrap(a.re)};
    } else {
        return {neg_wrap(a.im), a.re};
    }
}

/** a times the twiddle factor (forward) or its conjugate (inverse). */
template <Direction kDirection>
constexpr Complex twist(Complex a, Twiddle w) {
    if constexpr (kDirection == Direction::kForward) {
        return {add_wrap(mul_q15(a.re, w.c), mul_q15(a.im, w.s)),
                add_wrap(mul_q15(a.im, w.c), mul_q15(neg_wrap(a.re), w.s))};
    } else {
        return {add_wrap(mul_q15(a.re, w.c), mul_q15(neg_wrap(a.im), w.s)),
                add_wrap(mul_q15(a.im, w.c), mul_q15(a.re, w.s))};
    }
}

/** 3-point DFT of x[0..2], in place. */
template <Direction kDirection>
constexpr void radix3(Complex& x0, Complex& x1, Complex& x2) {
    const Complex s = add(x1, x2);
    const Complex d = sub(x1, x2);
    const Complex h = {sub_wrap(x0.re, s.re >> 1), sub_wrap(x0.im, s.im >> 1)};
    const Complex up = {mul_q15(d.im, kSin60), mul_q15(d.re, kSin60)};
    const Complex down = {mul_q15(d.im, -kSin60), mul_q15(d.re, -kSin60)};
    const Complex clockwise = {add_wrap(h.re, up.re), add_wrap(h.im, down.im)};
    const Complex counter = {add_wrap(h.re, down.re), add_wrap(h.im, up.im)};
    x0 = add(x0, s);
    x1 = kDirection == Direction::kForward ? clockwise : counter;
    x2 = kDirection == Direction::kForward ? counter : clockwise;
}

/** 4-point DFT of a0..a3, in place; exact but for wrapping. */
template <Direction kDirection>
constexpr void radix4(Complex& a0, Complex& a1, Complex& a2, Complex& a3) {
    const Complex s02 = add(a0, a2);
    const Complex d02 = sub(a0, a2);
    const Complex s13 = add(a1, a3);
    const Complex turned = quarter_turn<kDirection>(sub(a1, a3));
    a0 = add(s02, s13);
    a1 = add(d02, turned);
    a2 = sub(s02, s13);
    a3 = sub(d02, turned);
}

/**
 * 16-point DFT as 4 x 4.
 *
 * @param a  [0..15] in natural order; on return spectral line k + 4p stands at [4k + p]
 */
template <Direction kDirection>
constexpr void dft16(Complex* a) {
    for (int n = 0; n < 4; ++n) {
        radix4<kDirection>(a[n], a[n + 4], a[n + 8], a[n + 12]);
    }
    // After the first pass output k of butterfly n stands at [n + 4k] and takes W16^(n*k).
    a[5] = twist<kDirection>(a[5], kW16_1);
    a[6] = twist<kDirection>(a[6], kW16_2);
    a[7] = twist<kDirection>(a[7], kW16_3);
    a[9] = twist<kDirection>(a[9], kW16_2);
    a[10] = quarter_turn<kDirection>(a[10]);
    a[11] = twist<kDirection>(a[11], kW16_6);
    a[13] = twist<kDirection>(a[13], kW16_3);
    a[14] = twist<kDirection>(a[14], kW16_6);
    a[15] = twist<kDirection>(a[15], kW16_9);
    for (int k = 0; k < 4; ++k) {
        radix4<kDirection>(a[4 * k], a[4 * k + 1], a[4 * k + 2], a[4 * k + 3]);
    }
}

/**
 * 9-point DFT as 3 x 3.
 *
 * @param e  [0..8] in natural order; on return position 3b + a holds line b + 3a (digit reversed)
 */
template <Direction kDirection>
constexpr void dft9(Complex* e) {
    for (int a = 0; a < 3; ++a) {
        radix3<kDirection>(e[a], e[a + 3], e[a + 6]);
    }
    // Output b of butterfly a stands at [a + 3b] and takes W9^(a*b).
    e[4] = twist<kDirection>(e[4], kW9_1);
    e[5] = twist<kDirection>(e[5], kW9_2);
    e[7] = twist<kDirection>(e[7], kW9_2);
    e[8] = twist<kDirection>(e[8], kW9_4);
    for (int b = 0; b < 3; ++b) {
        radix3<kDirection>(e[3 * b], e[3 * b + 1], e[3 * b + 2]);
    }
}

}  // namespace korvane

#endif
