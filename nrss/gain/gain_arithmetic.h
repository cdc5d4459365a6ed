/**
 * The arithmetic of the gain engine for one bin, written for a value type V: int32_t for one bin at
 * a time, or a vector (dsp/lanes.h) for as many as it has lanes. Every input has a defined result,
 * also powers that have wrapped to negative values.
 */
#ifndef KORVANE_NRSS_GAIN_GAIN_ARITHMETIC_H
#define KORVANE_NRSS_GAIN_GAIN_ARITHMETIC_H

#include "dsp/fixed_point.h"
#include "nrss/gain/tables.h"

namespace korvane {

inline constexpr int32_t kOneQ30 = 0x3FFFFFFF;
inline constexpr int32_t kOneQ15 = 32767;

/**
 * One step of a recursive average, alpha*old + (1 - alpha)*next, formed as next + alpha*(old -
 * next) with one added against the truncation.
 *
 * @param alpha  Q15, 0..32767
 * @param next   the new value; held constant, it leaves the average 1 to 1/(1 - alpha) above it
 */
template <class V>
KORVANE_INLINE V average(V old, V next, V alpha) {
    const V difference = sub_wrap(old, next);
    const V step = mul_half_positive(add_wrap(difference, difference), alpha);
    return add_wrap(add_wrap(next, constant<V>(1)), step);
}

// Powers are positive unless they have wrapped: when a tone near full scale stops, the step of an
// average can leave 32 bits. What follows has shorter forms for the usual case: kWrapped false says
// that no argument is negative.

/**
 * The reciprocal of a normalised power, as a quadratic that is exact at both ends of the octave and
 * at most 1/27 too large between them.
 *
 * @param s  Q30, 2^29..2^30-1
 * @return   2^14 / s in its upper 16 bits
 */
template <class V, bool kWrapped>
KORVANE_INLINE V reciprocal(V s) {
    const V largest = constant<V>(0x7FFFFFFF);
    const V d = sub_wrap(largest, add_wrap(s, s));
    const V square = kWrapped ? mul_half_upper(d, d) : mul_half_upper_positive(d, d);
    return add_wrap(sub_wrap(largest, s), add_wrap(square, square));
}

/**
 * noise / power in Q30, without a division: the power is normalised by its leading zeros.
 * 0x3FFFFFFF (1.0) where the noise is not below the power, and never more.
 */
template <class V, bool kWrapped>
KORVANE_INLINE V ratio_q30(V noise, V power) {
    V ratio;
    if constexpr (kWrapped) {
        const V e = leading_zeros(power);
        // A negative power has no leading zeros, and the shift right by two keeps its sign.
        const V sign = bit_and(asr<31>(power), constant<V>(-0x40000000));
        const V s = bit_or(lsr<2>(shl_each(power, e)), sign);
        // A power of zero has e = 32, and 0 is left; only a negative noise lies below it.
        ratio = shl_each(mul_half_upper(noise, reciprocal<V, true>(s)), e);
    } else {
        const V scale = normalising_scale(power);  // e - 1
        const V s = asr<1>(scale_up(power, scale));
        const V product = mul_half_upper_positive(noise, reciprocal<V, false>(s));
        ratio = scale_up(add_wrap(product, product), scale);
    }
    const V one = constant<V>(kOneQ30);
    return minimum(select(greater(power, noise), ratio, one), one);
}

/** Square root in Q30 of m, Q30, 2^29..2^31-1: the series 1 + z/2 - z^2/8 + z^3/16 with z = m - 1,
 * relative error at most 1.7 %. */
template <class V>
KORVANE_INLINE V root_series(V m) {
    const V one = constant<V>(kOneQ30);
    const V h = asr<1>(sub_wrap(m, one));   // z/2
    const V square = mul_half_upper(h, h);  // z^2/16, at most 2^26; 2^27.2 for m < 0
    // 2*square times (z >> 17), >> 14, two lowest bits cleared: z^3/16. 8*square still fits 32
    // bits.
    const V cube = bit_and(mul_half_upper(shl<3>(square), h), constant<V>(~3));
    return add_wrap(sub_wrap(add_wrap(one, h), add_wrap(square, square)), cube);
}

/** Square root in Q15 of a ratio in Q30 that is at most 1.0, by normalisation and a series. */
template <class V, bool kWrapped>
KORVANE_INLINE V sqrt_q15(V ratio) {
    if constexpr (kWrapped) {
        // An even shift, so that it halves in the root. A negative ratio has no leading zeros; it
        // is shifted two to the right, and the root's exponent counts as 0.
        const V zero = constant<V>(0);
        const V below_sign = sub_wrap(leading_zeros(ratio), constant<V>(1));
        const V half_e = lsr<1>(maximum(below_sign, zero));
        const V m =
            select(greater(zero, ratio), asr<2>(ratio), shl_each(ratio, add_wrap(half_e, half_e)));
        return asr_each(root_series(m), add_wrap(half_e, constant<V>(15)));
    } else {
        const V scale = root_scale(ratio);
        return root_scale_down(root_series(root_scale_up(ratio, scale)), scale);
    }
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

    /** Target factor, Q14, for a noise-to-power ratio in Q30, at most 1.0; one below 1/16 counts
     * as 1/16. */
    [[nodiscard]] KORVANE_INLINE V target(V ratio) const {
        const V x = maximum(asr<15>(ratio), constant<V>(2048));
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
