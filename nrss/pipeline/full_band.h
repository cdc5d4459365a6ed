/**
 * Full-band spectral step: the windowed frames of a batch are transformed, weighted bin by bin, and
 * transformed back.
 */
#ifndef KORVANE_NRSS_PIPELINE_FULL_BAND_H
#define KORVANE_NRSS_PIPELINE_FULL_BAND_H

#include "dsp/spectrum.h"

namespace korvane::KORVANE_ISA {

/**
 * @param work       [0..143] the windowed frames where entry puts them; on return, where result finds
 *                   them, 9/16 of the frames with their bins weighted, without DC and Nyquist
 * @param hops       the gains of channel 0's hops
 * @param compute    whether the batch holds channel 0; otherwise the gains are there
 * @param gain_step  called with hops once the powers are there; computes the gains
 */
template <int kHops, int kFrames, class GainStep>
KORVANE_INLINE void NRSS_ProcessFullBand(Lanes<2 * kFrames>* work, HopGains& hops, bool compute,
                                         const GainStep& gain_step) {
    process_spectra<kFullBandShift, kHops, kFrames>(work, hops, compute, gain_step);
}

}  // namespace korvane::KORVANE_ISA

#endif
