/**
 * What the band processor asks of the gain engine.
 *
 * The band processor is a kernel, but half-way through its work the gains for the spectrum it has
 * just made must be computed, by a stage that lies above the kernels (nrss/gain). So the kernels
 * declare here what they need, and that stage defines it; includes keep running one way.
 */
#ifndef KORVANE_DSP_GAIN_PORT_H
#define KORVANE_DSP_GAIN_PORT_H

#include <cstdint>

namespace korvane {

/**
 * Updates the noise estimate from one spectrum and computes the gains for it.
 *
 * @param spectrum    [0..2n-1] n complex bins (re, im), scaled so that re*re + im*im fits 32 bits
 *                    unsigned; then for each extra bin a pair whose first word is a power. Only
 * read.
 * @param n           complex bins, 144
 * @param extra_bins  further single powers, 0 or 1
 */
void NRSS_SpectralGain(const int32_t* spectrum, int32_t n, int32_t extra_bins);

/** The gains computed last, [0..144] Q15: [k] weights bin k, [144] the high band. All 32767 after
 * an initialisation. */
const int16_t* NRSS_Gains();

}  // namespace korvane

#endif
