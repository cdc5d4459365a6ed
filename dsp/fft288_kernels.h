/**
 * The butterflies of the 144-point complex transform (prime-factor algorithm, 9 rows by 16
 * columns), for both directions.
 *
 * Values are int32 and every sum wraps. Products truncate toward minus infinity, so a sign is not
 * free to move: mul_q15(-a, s) differs from -mul_q15(a, s), and the order below is part of the
 * result.
 */
#ifndef KORVANE_DSP_FFT288_KERNELS_H
#define KORVANE_DSP_FFT288_KERNELS_H

#include "dsp/fixed_point.h"

namespace korvane {

/** V is int32_t, or a vector of them that holds the same value of several transforms. */
template <class V>
struct Complex {
    V re;
    V im;
};

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

template <class V>
KORVANE_INLINE constexpr Complex<V> add(Complex<V> a, Complex<V> b) {
    return {add_wrap(a.re, b.re), add_wrap(a.im, b.im)};
}

template <class V>
KORVANE_INLINE constexpr Complex<V> sub(Complex<V> a, Complex<V> b) {
    return {sub_wrap(a.re, b.re), sub_wrap(a.im, b.im)};
}

/** floor(a / 2) of both parts. */
template <class V>
KORVANE_INLINE constexpr Complex<V> half(Complex<V> a) {
    return {asr<1>(a.re), asr<1>(a.im)};
}

/** A quarter turn, exact: times -i forward, times i inverse. */
template <Direction kDirection, class V>
KORVANE_INLINE constexpr Complex<V> quarter_turn(Complex<V> a) {
    if constexpr (kDirection == Direction::kForward) {
        return {a.im, neg_wrap(a.re)};
    } else {
        return {neg_wrap(a.im), a.re};
    }
}

/** 2a, wrapping: how an operand enters a Q15 product. */
template <class V>
KORVANE_INLINE constexpr Complex<V> twice(Complex<V> a) {
    return {add_wrap(a.re, a.re), add_wrap(a.im, a.im)};
}

/** Half of both parts times the same constant, Q15. */
template <int kC, class V>
KORVANE_INLINE constexpr Complex<V> half_scale(Complex<V> a) {
    return {mul_half_q15<kC>(a.re), mul_half_q15<kC>(a.im)};
}

/** A sum with a value turned by a quarter, either way. */
template <class C>
struct Turns {
    C clockwise;
    C counter;
};
/** a plus half of b times -i*c and a plus half of b times i*c; the sign goes with the constant. */
template <int kC, class V>
KORVANE_INLINE constexpr Turns<Complex<V>> add_half_scaled_turns(Complex<V> a, Complex<V> b) {
    const auto re = add_half_both<kC>(a.re, b.im);
    const auto im = add_half_both<kC>(a.im, b.re);
    return {{re.positive, im.negative}, {re.negative, im.positive}};
}

// The butterflies are written for a complex type C: Complex<V>, or one that keeps both parts in one
// vector and brings its own versions of the functions above.

/** a times the twiddle factor c - i*s (forward) or its conjugate (inverse). */
template <Direction kDirection, Twiddle kW, class C>
KORVANE_INLINE constexpr C twist(C a) {
    const C d = twice(a);
    return add(half_scale<kW.c>(d), half_scale<kW.s>(quarter_turn<kDirection>(d)));
}

/** 3-point DFT of x0, x1, x2, in place. */
template <Direction kDirection, class C>
KORVANE_INLINE constexpr void radix3(C& x0, C& x1, C& x2) {
    const C s = add(x1, x2);
    const C d = twice(sub(x1, x2));
    const C h = sub(x0, half(s));
    x0 = add(x0, s);
    const auto turns = add_half_scaled_turns<kSin60>(h, d);
    x1 = kDirection == Direction::kForward ? turns.clockwise : turns.counter;
    x2 = kDirection == Direction::kForward ? turns.counter : turns.clockwise;
}

/** 4-point DFT of a0..a3, in place; exact but for wrapping. */
template <Direction kDirection, class C>
KORVANE_INLINE constexpr void radix4(C& a0, C& a1, C& a2, C& a3) {
    const C s02 = add(a0, a2);
    const C d02 = sub(a0, a2);
    const C s13 = add(a1, a3);
    const C turned = quarter_turn<kDirection>(sub(a1, a3));
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
template <Direction kDirection, class C>
KORVANE_INLINE constexpr void dft16(C* a) {
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
    for (int k = 0; k < 4; ++k) {
        radix4<kDirection>(a[4 * k], a[4 * k + 1], a[4 * k + 2], a[4 * k + 3]);
    }
}

/**
 * 9-point DFT as 3 x 3.
 *
 * @param e  [0..8] in natural order; on return position 3b + a holds line b + 3a (digit reversed)
 */
template <Direction kDirection, class C>
KORVANE_INLINE constexpr void dft9(C* e) {
    for (int a = 0; a < 3; ++a) {
        radix3<kDirection>(e[a], e[a + 3], e[a + 6]);
    }
    // Output b of butterfly a stands at [a + 3b] and takes W9^(a*b).
    e[4] = twist<kDirection, kW9_1>(e[4]);
    e[5] = twist<kDirection, kW9_2>(e[5]);
    e[7] = twist<kDirection, kW9_2>(e[7]);
    e[8] = twist<kDirection, kW9_4>(e[8]);
    for (int b = 0; b < 3; ++b) {
        radix3<kDirection>(e[3 * b], e[3 * b + 1], e[3 * b + 2]);
    }
}

/**
 * The split: from two mirrored lines a = Z[k] and b = Z[144 - k] of the transform of even samples
 * (real part) and odd samples (imaginary part), the bins X[k] and X[144 - k] of the real spectrum:
 * X = (a + b*)/2 + W*(a - b*)/2i. The products are halved by their shift, as the sums are by
 * theirs.
 *
 * @param c     cosine, the real part of entry 2k of twd576, Q15
 * @param s     minus the sine, its imaginary part, below zero
 * @param sign  negates the lanes in which the arguments stand the other way round, a = Z[144 - k]
 *              and b = Z[k]; the results are X[k] and X[144 - k] in every lane
 */
template <class V, class Sign>
KORVANE_INLINE constexpr void split(Complex<V>& a, Complex<V>& b, V c, V s, Sign sign) {
    const V sr = add_wrap(a.re, b.re);
    const V dr = sign(sub_wrap(a.re, b.re));
    const V si = add_wrap(a.im, b.im);
    const V di = sign(sub_wrap(a.im, b.im));
    const V t = add_wrap(mul_half_negative(dr, s), mul_half_positive(si, c));
    const V u = add_wrap(mul_half_positive(neg_wrap(dr), c), mul_half_negative(si, s));
    const V mean = asr<1>(sr);
    const V im = add_wrap(u, asr<1>(di));
    a = {add_wrap(mean, t), im};
    b = {sub_wrap(mean, t), sub_wrap(im, di)};
}
template <class V>
KORVANE_INLINE constexpr void split(Complex<V>& a, Complex<V>& b, V c, V s) {
    split(a, b, c, s, [](V x) { return x; });
}

/** The split run backwards: from the bins a = X[k] and b = X[144 - k] the lines Z[k] and Z[144 -
 * k]. Parameters as for split, but that here it is the results that sign exchanges. */
template <class V, class Sign>
KORVANE_INLINE constexpr void unsplit(Complex<V>& a, Complex<V>& b, V c, V s, Sign sign) {
    const V sr = add_wrap(a.re, b.re);
    const V dr = sub_wrap(a.re, b.re);
    const V si = add_wrap(a.im, b.im);
    const V di = sub_wrap(a.im, b.im);
    const V v = add_wrap(mul_half_negative(si, s), mul_half_positive(dr, c));
    const V w = sign(add_wrap(mul_half_negative(neg_wrap(dr), s), mul_half_positive(si, c)));
    const V mean = asr<1>(sr);
    a = {sub_wrap(mean, w), add_wrap(v, sign(asr<1>(di)))};
    b = {add_wrap(mean, w), sub_wrap(v, sign(asr<1>(di)))};
}
template <class V>
KORVANE_INLINE constexpr void unsplit(Complex<V>& a, Complex<V>& b, V c, V s) {
    unsplit(a, b, c, s, [](V x) { return x; });
}

}  // namespace korvane

#endif
