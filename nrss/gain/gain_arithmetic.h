/**
 * The arithmetic of the gain engine for one bin, written for a value type V: int32_t for one bin at
 * a time, or a vector (dsp/simd.h) for as many as it has lanes. Every input has a defined result,
 * also powers that have wrapped to negative values.
 */
#ifndef KORVANE_NRSS_GAIN_GAIN_ARITHMETIC_H
#define KORVANE_NRSS_GAIN_GAIN_ARITHMETIC_H

#include "dsp/fixed_point.h"
#include "nrss/gain/tables.h"

namespace korvane {

inline constexpr int32_t kOneQ30 = 0x3FFFFFFF;
inline constexpr int32_t kOneQ15 = 32767;

/** A constant in every lane. */
template <class V>
KORVANE_INLINE V constant(int32_t a) {
    if constexpr (kLanesOf<V> == 1) {
        return a;
    } else {
        return V::broadcast(a);
    }
}

/**
 * One step of a recursive average, alpha*old + (1 - alpha)*next, formed as next + alpha*(old -
 * next) with one added against the truncation.
 *
 * @param alpha  Q15, 0..32767
 * @param next   the new value; the average rests one above it
 */
template <class V>
KORVANE_INLINE V average(V old, V next, V alpha) {
    const V difference = sub_wrap(old, next);
    const V step = mul_half_positive(add_wrap(difference, difference), alpha);
    return add_wrap(add_wrap(next, constant<V>(1)), step);
}

// Powers are positive unless they have wrapped, which takes a tone at full scale that stops. For
// the usual case there are shorter forms of what follows: kWrapped false means that no argument is
// negative.

/**
 * noise / power in Q30, without a division: the power is normalised by its leading zeros and its
 * reciprocal taken from a quadratic that is exact at both ends of the octave and at most 1/27 too
 * large between them. 0x3FFFFFFF (1.0) where the noise is not below the power.
 */
template <class V, bool kWrapped>
KORVANE_INLINE V ratio_q30(V noise, V power) {
    const V e = kWrapped ? leading_zeros(power) : leading_zeros_positive(power);
    V s = lsr<2>(shl_each(power, e));  // power * 2^(e - 2): 2^29..2^30-1 for a positive power
    if constexpr (kWrapped) {
        // A negative power has no leading zeros, and the shift right by two keeps its sign.
        s = bit_or(s, bit_and(asr<31>(power), constant<V>(-0x40000000)));
    }
    const V largest = constant<V>(0x7FFFFFFF);
    const V d = sub_wrap(largest, add_wrap(s, s));
    const V square = kWrapped ? mul_half_upper(d, d) : mul_half_upper_positive(d, d);
    const V q = add_wrap(sub_wrap(largest, s), add_wrap(square, square));
    // q >> 16 is 2^14 / (s/2^30). A power of zero, above a negative noise, has e = 32 and leaves 0.
    const V product = kWrapped ? mul_half_upper(noise, q) : mul_half_upper_positive(noise, q);
    return select(greater(power, noise), shl_each(product, e), constant<V>(kOneQ30));
}

/**
 * Square root in Q15 of a ratio in Q30, at most 32767: normalisation by leading zeros, then the
 * series 1 + z/2 - z^2/8 + z^3/16 (relative error at most 1.7 %).
 */
template <class V, bool kWrapped>
KORVANE_INLINE V sqrt_q15(V ratio) {
    const V zero = constant<V>(0);
    const V one = constant<V>(kOneQ30);
    V e = sub_wrap(leading_zeros(ratio), constant<V>(1));  // zeros below the sign bit
    if constexpr (kWrapped) {
        // A negative ratio has no leading zeros. The even shift is then two to the right, below,
        // and the root's exponent (e - 1)/2 counts as 0.
        e = maximum(e, zero);
    }
    V m = shl_each(ratio,
                   bit_and(e, constant<V>(~1)));  // an even shift, so that it halves in the root
    if constexpr (kWrapped) {
        m = select(greater(zero, ratio), asr<2>(ratio), m);
    }
    const V z = sub_wrap(m, one);  // Q30
    const V h = asr<1>(z);
    const V square = mul_half_upper(h, h);  // z^2/16, at most 2^27.2
    // 2*square times (z >> 17), >> 14, two lowest bits cleared: z^3/16. 8*square still fits 32
    // bits.
    const V cube = bit_and(mul_half_upper(shl<3>(square), h), constant<V>(~3));
    const V v = add_wrap(sub_wrap(add_wrap(one, h), add_wrap(square, square)), cube);
    return minimum(asr_each(v, add_wrap(lsr<1>(e), constant<V>(15))), constant<V>(kOneQ15));
}

/** The over-subtraction curve of a level in two pieces; coefficients as in tables.h. */
template <class V>
struct OsubCurve {
    V c[6];

    KORVANE_INLINE explicit OsubCurve(const int32_t* coef) {
        for (int i = 0; i < 6; ++i) {
            c[i] = constant<V>(coef[i]);
        }
    }

    /** Target factor, Q14, for a noise-to-power ratio in Q30; ratios below 1/16 count as 1/16. */
    KORVANE_INLINE V target(V ratio) const {
        const V limit = constant<V>(kOneQ30);
        const V x = maximum(asr<15>(minimum(ratio, limit)), constant<V>(2048));
        const V lower = greater(constant<V>(kOsubBreakpoint), x);
        const V square = mul_half_positive(select(lower, c[0], c[3]), x);
        const V slope = add_wrap(add_wrap(square, square), select(lower, c[1], c[4]));
        const V linear = mul_half_positive(slope, x);
        return add_wrap(select(lower, c[2], c[5]), add_wrap(linear, linear));
    }
};

/**
 * 1 - weight * factor * root, not below the floor; Q15, in 32 bits.
 *
 * @param weight  Q15, 16384..32767
 * @param factor  over-subtraction factor, Q14; an average of curve targets, 0..65600
 * @param root    square root of the noise-to-power ratio, Q15, below 32768; from wrapped powers it
 *                may be negative
 */
template <class V, bool kWrapped>
KORVANE_INLINE V gain_q15(V weight, V factor, V root, V floor) {
    // (weight * factor) >> 13 with its two lowest bits cleared, Q16; 8*factor fits 32 bits.
    const V a = bit_and(mul_half_positive(shl<3>(factor), weight), constant<V>(~3));
    const V cut = kWrapped ? mul_half_q15(a, root) : mul_half_positive(a, root);
    return maximum(sub_wrap(constant<V>(kOneQ15), cut), floor);
}

}  // namespace korvane

#endif
