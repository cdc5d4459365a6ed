/**
 * Spectral gain engine: noise power by minimum statistics over four sub-windows (R. Martin 2001),
 * gains by magnitude spectral subtraction with an over-subtraction factor that grows as the bin's
 * signal-to-noise ratio falls (M. Berouti, R. Schwartz, J. Makhoul 1979).
 */
#ifndef KORVANE_NRSS_GAIN_SPECTRAL_GAIN_H
#define KORVANE_NRSS_GAIN_SPECTRAL_GAIN_H

#include "nrss/gain/nrss_state.h"

namespace korvane {

/**
 * noise / power in Q30, without a division: the power is normalised by its leading zeros and its
 * reciprocal taken from a quadratic that is exact at both ends of the octave and at most 1/27 too
 * large between them.
 *
 * @param noise  power of the noise, any value
 * @param power  power of the bin on the same scale, any value
 * @return       0x3FFFFFFF (1.0) where the noise is not below the power
 */
int32_t ratio_q30(int32_t noise, int32_t power);

/**
 * Square root in Q15 of a Q30 value, at most 32767: normalisation by leading zeros, then the series
 * 1 + z/2 - z^2/8 + z^3/16 (relative error at most 1.7 %).
 */
int32_t sqrt_q15(int32_t ratio);

/**
 * Updates the noise estimate from one spectrum and computes the gains for it, s.gain.
 *
 * @param s           initialised
 * @param spectrum    [0..2n-1] n complex bins (re, im), scaled so that re*re + im*im fits 32 bits
 *                    unsigned; then for each extra bin a pair whose first word is a power. Only
 *                    read.
 * @param n           complex bins, 144
 * @param extra_bins  further single powers, 0 or 1
 */
void NRSS_SpectralGain(NrssState& s, const int32_t* spectrum, int32_t n, int32_t extra_bins);

}  // namespace korvane

#endif
