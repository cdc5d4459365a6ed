/**
 * What happens to a batch of frames between window and window, in the full band and in the low one of
 * two: transform, gains, weighting, transform back.
 *
 * A batch holds kHops consecutive hops of one channel or of two, a frame to a lane, the channels one
 * after the other.
 */
#ifndef KORVANE_DSP_SPECTRUM_H
#define KORVANE_DSP_SPECTRUM_H

#include "dsp/fft288_batch.h"
#include "dsp/gain_mul.h"

namespace korvane::KORVANE_ISA {

/** Whether bins fit 16 bits: of a full band none exceeds 21530. */
constexpr bool is_narrow(int shift) { return shift == kFullBandShift; }

/** The powers of the bins of a channel of the batch, the first or the second in it, hop by hop.
 * spectrum [0..143] */
template <int kShift, int kHops, int kFrames, int kChannel>
void channel_powers(const Lanes<2 * kFrames>* spectrum, int32_t (*powers)[kRowSize]) {
    using Z = Lanes<2 * kFrames>;
    const auto square = [](const Z& z) {
        return is_narrow(kShift) ? mul_narrow(z, z) : mul_wrap(z, z);
    };
    for (int k = 0; k < kBins; k += 4) {
        Z power[2];  // of two bins each
        for (int i = 0; i < 2; ++i) {
            const Z even = square(spectrum[k + 2 * i]);
            const Z odd = square(spectrum[k + 2 * i + 1]);
            const Z sum = add_wrap(lower_halves(even, odd), upper_halves(even, odd));
            power[i] = add_wrap(sum, constant<Z>(2));
        }
        Lanes<4> rows[size_t{kFrames}];
        transpose_back<kFrames>(power, rows);
        for (int hop = 0; hop < kHops; ++hop) {
            store(powers[hop] + k, rows[kChannel * kHops + hop]);
        }
    }
}

/** Weights every bin with the gain of its hop and clears DC and Nyquist. spectrum [0..143] */
template <int kShift, int kHops, int kFrames>
void weight_bins(Lanes<2 * kFrames>* spectrum, const HopGains& hops) {
    using Z = Lanes<2 * kFrames>;
    const int16_t* gain[size_t{kFrames}];
    for (int l = 0; l < kFrames; ++l) {
        gain[l] = hops.gain[l % kHops];
    }
    for (int k = 0; k < kBins; k += 8) {
        Z gains[4];  // of two bins each
        load_pairs<kFrames>(gain, k, gains);
        for (int i = 0; i < 4; ++i) {
            Z* const bins = spectrum + k + 2 * i;
            bins[0] = NRSS_GainMul<is_narrow(kShift)>(lower_halves(gains[i], gains[i]), bins[0]);
            bins[1] = NRSS_GainMul<is_narrow(kShift)>(upper_halves(gains[i], gains[i]), bins[1]);
        }
    }
    spectrum[0] = constant<Z>(0);
}

/**
 * @param work       [0..143] windowed frames where entry puts them; on return, where result finds them,
 *                   144 / 2^kShift times the frames with their bins weighted, without DC and Nyquist
 * @param hops       the gains of channel 0's hops
 * @param compute    whether the batch holds channel 0; otherwise the gains are there
 * @param gain_step  called with hops once the powers are there; computes the gains
 */
template <int kShift, int kHops, int kFrames, class GainStep>
KORVANE_INLINE void process_spectra(Lanes<2 * kFrames>* work, HopGains& hops, bool compute,
                                    const GainStep& gain_step) {
    Lanes<2 * kFrames> spectrum[kComplexSize];
    forward_batch<kShift, kFrames>(work, spectrum);
    if (compute) {
        channel_powers<kShift, kHops, kFrames, 0>(spectrum, hops.power);
        gain_step(hops);
    }
    if (hops.both_channels && (kFrames > kHops || !compute)) {
        channel_powers<kShift, kHops, kFrames, kFrames / kHops - 1>(spectrum, hops.power);
    }
    weight_bins<kShift, kHops, kFrames>(spectrum, hops);
    inverse_batch<kFrames>(spectrum, work);
}

}  // namespace korvane::KORVANE_ISA

#endif
