/**
 * Spectra as the gains see them: their scaling, the rows in which powers and gains go to and fro, and the
 * one multiplication by which a gain weights a value.
 */
#ifndef KORVANE_DSP_GAIN_MUL_H
#define KORVANE_DSP_GAIN_MUL_H

#include "dsp/fixed_point.h"

namespace korvane {

inline constexpr int kBins = 144;         ///< complex bins that are weighted
inline constexpr int kGains = kBins + 1;  ///< one gain per bin, and one for the high band
inline constexpr int kRowSize = 152;      ///< a row of gains, up to a whole number of vectors
inline constexpr int kMaxHops = 4;        ///< hops of a batch

// Bits by which a spectrum is shifted right. The window sums to 168.2, so that no bin exceeds 168.2 *
// 32768; seven bits less, re*re + im*im stays below 1.86e9 and fits 31 bits, and with eight it is a
// quarter of that. The inverse transform multiplies by 144: a full band comes back at 144/256 of its
// level, a low band at 144/128.
inline constexpr int kFullBandShift = 8;
inline constexpr int kLowBandShift = 7;

/** Powers and gains of the hops of a batch. */
struct HopGains {
    alignas(32)
        int32_t power[kMaxHops][kRowSize];  ///< re*re + im*im + 2 of every bin, modulo 2^32; [144]
                                            ///< the energy of the high band. Of channel 0 until the
                                            ///< gains are there, then of channel 1 where wanted
    alignas(32) int16_t gain[kMaxHops][kRowSize];  ///< Q15; [144] of the high band
    bool both_channels;                            ///< whether channel 1's powers are wanted too
};

/**
 * gain * value, rounded down and then one step toward zero where that is negative: the truncation alone
 * would leave a bias of one toward minus infinity.
 *
 * @param gain   Q15
 * @param value  spectral value, kNarrow within 16 bits; else 2*value wraps where |value| >= 2^30
 */
template <bool kNarrow = false, class V>
KORVANE_INLINE constexpr V NRSS_GainMul(V gain, V value) {
    const V product = kNarrow ? asr<15>(mul_narrow(value, gain)) : mul_q15(value, gain);
    return add_wrap(product, lsr<31>(product));
}

static_assert(NRSS_GainMul(32767, 1000) == 999 && NRSS_GainMul(32767, -1000) == -999);
static_assert(NRSS_GainMul(16384, -2) == 0 && NRSS_GainMul(int32_t{0}, INT32_MIN) == 0);

}  // namespace korvane

#endif
