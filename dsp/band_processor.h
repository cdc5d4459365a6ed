/**
 * Band processor of the two-band path: suppresses the noise of a batch of hops in both half-rate bands,
 * the low one bin by bin, the high one by a single gain. The high band is never transformed; all that the
 * gain engine learns of it is its energy.
 */
#ifndef KORVANE_DSP_BAND_PROCESSOR_H
#define KORVANE_DSP_BAND_PROCESSOR_H

#include "dsp/spectrum.h"

namespace korvane::KORVANE_ISA {

/** Energy of a windowed frame, [0..287]: each square divided by 65536, so that with samples of 16 bits the
 * sum stays below 2^23. */
template <class V>
KORVANE_INLINE int32_t high_band_energy(const int32_t* frame) {
    V energy = constant<V>(0);
    for (int k = 0; k < kFrameSize; k += kLanesOf<V>) {
        const V x = load_lanes<V>(frame + k);
        energy = add_wrap(energy, asr<16>(mul_narrow(x, x)));
    }
    return sum_lanes(energy);
}
/** Weights a frame, [0..287], with the high band's one gain, Q15. Unlike a bin, a negative value gets no
 * step toward zero. */
template <class V>
KORVANE_INLINE void weight_high_band(int32_t* frame, int16_t gain) {
    for (int k = 0; k < kFrameSize; k += kLanesOf<V>) {
        store(frame + k, asr<15>(mul_narrow(load_lanes<V>(frame + k), constant<V>(gain))));
    }
}

/**
 * @param low        [0..143] the windowed frames of the low band where entry puts them; on return, where
 *                   result finds them, 1.125 times the frames with their bins weighted, without DC and
 *                   Nyquist
 * @param high       [kFrames] [0..287] the windowed frames of the high band, weighted on return
 * @param hops       the gains of channel 0's hops
 * @param compute    whether the batch holds channel 0; otherwise the gains are there
 * @param gain_step  called with hops once powers and energies are there; computes the gains
 */
template <int kHops, int kFrames, class GainStep>
KORVANE_INLINE void NRSS_ProcessBand(Lanes<2 * kFrames>* low, int32_t (*high)[kFrameSize],
                                     HopGains& hops, bool compute, const GainStep& gain_step) {
    using V = I32<kNativeLanes>;
    for (int hop = 0; compute && hop < kHops; ++hop) {
        hops.power[hop][kBins] = high_band_energy<V>(high[hop]);
    }
    process_spectra<kLowBandShift, kHops, kFrames>(low, hops, compute, gain_step);
    for (int l = 0; l < kFrames; ++l) {
        weight_high_band<V>(high[l], hops.gain[l % kHops][kBins]);
    }
}

}  // namespace korvane::KORVANE_ISA

#endif
