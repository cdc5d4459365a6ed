/**
 * The one multiplication by which a spectral gain weights a spectral value.
 */
#ifndef KORVANE_DSP_GAIN_MUL_H
#define KORVANE_DSP_GAIN_MUL_H

#include "dsp/fixed_point.h"

namespace korvane {

/**
 * gain * value, rounded down and then one step toward zero where that is negative: the truncation
 * alone would leave a bias of one toward minus infinity, and a gain of 0 would turn nothing into
 * -1.
 *
 * @param gain   Q15
 * @param value  spectral value; 2*value wraps where |value| >= 2^30
 */
constexpr int32_t NRSS_GainMul(int16_t gain, int32_t value) {
    const int32_t product = mul_q15(value, gain);
    return product < 0 ? product + 1 : product;
}

static_assert(NRSS_GainMul(32767, 1000) == 999 && NRSS_GainMul(32767, -1000) == -999);
static_assert(NRSS_GainMul(16384, -2) == 0 && NRSS_GainMul(0, INT32_MIN) == 0);

}  // namespace korvane

#endif
