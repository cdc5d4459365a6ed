/**
 * The gain engine on the powers of one frame, in passes over the bins. Written for a value type V,
 * as its arithmetic is. The passes are short, so that the processor can work on several bins at
 * once.
 *
 * Bins 0..143 go through V; on the two-band path the high band's entry, number 144, follows alone.
 */
#ifndef KORVANE_NRSS_GAIN_GAIN_ENGINE_H
#define KORVANE_NRSS_GAIN_GAIN_ENGINE_H

#include "nrss/gain/gain_arithmetic.h"
#include "nrss/gain/nrss_state.h"

namespace korvane {

// The passes, over bins first..last-1; a whole number of vectors.

/** Updates both power averages and returns the sum of power / 128, modulo 2^32. */
template <class V>
KORVANE_INLINE int32_t track_power(NrssState& s, const int32_t* power, int32_t first,
                                   int32_t last) {
    const V alpha_fast = constant<V>(s.alpha_fast);
    const V alpha_slow = constant<V>(s.alpha_slow);
    V energy = constant<V>(0);
    for (int32_t k = first; k < last; k += kLanesOf<V>) {
        const V p = load_lanes<V>(power + k);
        store(s.psd_fast + k, average(load_lanes<V>(s.psd_fast + k), p, alpha_fast));
        store(s.psd_slow + k, average(load_lanes<V>(s.psd_slow + k), p, alpha_slow));
        energy = add_wrap(energy, lsr<7>(p));
    }
    return sum_lanes(energy);
}

/** Lowers the current row of the minimum search to psd_slow, or starts it from there. */
template <class V>
KORVANE_INLINE void track_minimum(NrssState& s, bool start, int32_t first, int32_t last) {
    int32_t* const row = s.min_win[s.min_win_row];
    for (int32_t k = first; k < last; k += kLanesOf<V>) {
        const V slow = load_lanes<V>(s.psd_slow + k);
        store(row + k, start ? slow : minimum(load_lanes<V>(row + k), slow));
    }
}

/** Noise power: the minimum over all sub-windows, times 1.15, since a minimum lies below the mean.
 * The factor is 18841/16384; for it the minimum is taken four times, and wraps from 2^29 on.
 * Returns whether any noise or power has wrapped to a negative value. */
template <class V>
KORVANE_INLINE bool estimate_noise(NrssState& s, int32_t first, int32_t last) {
    V signs = constant<V>(0);
    for (int32_t k = first; k < last; k += kLanesOf<V>) {
        const V first_two =
            minimum(load_lanes<V>(s.min_win[0] + k), load_lanes<V>(s.min_win[1] + k));
        const V last_two =
            minimum(load_lanes<V>(s.min_win[2] + k), load_lanes<V>(s.min_win[3] + k));
        const V noise = mul_half_by<18841>(shl<2>(minimum(first_two, last_two)));
        store(s.noise + k, noise);
        const V powers = bit_or(load_lanes<V>(s.psd_slow + k), load_lanes<V>(s.psd_fast + k));
        signs = bit_or(signs, bit_or(noise, powers));
    }
    return any_negative(signs);
}

/** gain_scratch = noise / power, Q30. */
template <class V, bool kWrapped>
KORVANE_INLINE void compute_ratios(NrssState& s, const int32_t* power, int32_t first,
                                   int32_t last) {
    for (int32_t k = first; k < last; k += kLanesOf<V>) {
        store(s.gain_scratch + k,
              ratio_q30<V, kWrapped>(load_lanes<V>(s.noise + k), load_lanes<V>(power + k)));
    }
}

/** Over-subtraction factors from the ratios: the lower a bin's signal-to-noise ratio, the more is
 * subtracted. */
template <class V>
KORVANE_INLINE void update_oversubtraction(NrssState& s, int32_t first, int32_t last) {
    const OsubCurve<V> curve(s.osub_coef);
    const V alpha = constant<V>(s.alpha_osub);
    for (int32_t k = first; k < last; k += kLanesOf<V>) {
        const V target = curve.target(load_lanes<V>(s.gain_scratch + k));
        store(s.osub + k, average(load_lanes<V>(s.osub + k), target, alpha));
    }
}

/** Square roots of the ratios in place, Q15. */
template <class V, bool kWrapped>
KORVANE_INLINE void take_roots(NrssState& s, int32_t first, int32_t last) {
    for (int32_t k = first; k < last; k += kLanesOf<V>) {
        store(s.gain_scratch + k, sqrt_q15<V, kWrapped>(load_lanes<V>(s.gain_scratch + k)));
    }
}

/** gain_scratch = 1 - weight * factor * root, not below the floor, in place of the roots. The floor
 * holds in 32 bits; only then is the gain cut to 16. */
template <class V, bool kWrapped>
KORVANE_INLINE void compute_gains(NrssState& s, int32_t first, int32_t last) {
    const int16_t* const weight = s.osf;
    const V floor = constant<V>(s.gain_floor);
    for (int32_t k = first; k < last; k += kLanesOf<V>) {
        const V gain = gain_q15<V, kWrapped>(load_lanes<V>(weight + k), load_lanes<V>(s.osub + k),
                                             load_lanes<V>(s.gain_scratch + k), floor);
        // Only a negative root makes a gain above 1.
        store(s.gain_scratch + k, kWrapped ? asr<16>(shl<16>(gain)) : gain);
    }
}

/** From the noise estimate to the gains, before smoothing. */
template <class V, bool kWrapped>
KORVANE_INLINE void subtract_noise(NrssState& s, int32_t first, int32_t last) {
    compute_ratios<V, kWrapped>(s, s.psd_slow, first, last);
    update_oversubtraction<V>(s, first, last);
    compute_ratios<V, kWrapped>(s, s.psd_fast, first, last);
    take_roots<V, kWrapped>(s, first, last);
    compute_gains<V, kWrapped>(s, first, last);
}

/** The gains of bins kFirst..kLast: means of gain_scratch over kReach neighbours on either side. */
template <class V, int kFirst, int kLast, int kReach>
KORVANE_INLINE void smooth_run(NrssState& s) {
    constexpr int kWidth = 2 * kReach + 1;
    static_assert((kLast - kFirst + 1) % kLanesOf<V> == 0);
    for (int k = kFirst; k <= kLast; k += kLanesOf<V>) {
        V sum = load_lanes<V>(s.gain_scratch + k - kReach);
        for (int i = 1; i < kWidth; ++i) {
            sum = add_wrap(sum, load_lanes<V>(s.gain_scratch + k - kReach + i));
        }
        // times 1/width in Q16, truncated; a mean of 16-bit values, which fits 16 bits
        store(s.gain + k, mul_half_by<65536 / kWidth>(sum));
    }
}

/** The gains from gain_scratch, averaged over neighbouring bins: over more of them at higher
 * frequencies, which hearing resolves less finely. The two lowest bins and those from 130 on stay
 * as they are. */
template <class V>
KORVANE_INLINE void smooth_gains(NrssState& s, int32_t bins) {
    const auto keep = [&](int32_t k) { s.gain[k] = static_cast<int16_t>(s.gain_scratch[k]); };
    keep(0);
    keep(1);
    smooth_run<V, 2, 33, 1>(s);
    smooth_run<V, 34, 65, 2>(s);
    smooth_run<V, 66, 129, 3>(s);
    for (int32_t k = 130; k < bins; ++k) {
        keep(k);
    }
}

/**
 * Updates the noise estimate with the powers of one frame and computes the gains for it.
 *
 * @param power       [0..143] re*re + im*im + 2 of each bin, modulo 2^32; the 2 keeps a silent bin
 *                    above zero. [144] with an extra bin: its power.
 * @param extra_bins  0 or 1
 */
template <class V>
// Inlined into the hop schedule, SSE2 code ran 1.5 % slower.
[[gnu::noinline]] void NRSS_SpectralGain(NrssState& s, const int32_t* power, int32_t extra_bins) {
    static_assert(kBins % kLanesOf<V> == 0);
    const bool extra = extra_bins != 0;
    const int32_t bins = kBins + extra_bins;

    s.subwin_count = add_wrap(s.subwin_count, 1);
    // Only the start-up asks for this count. It stops at its largest value: wrapping, after 2^31
    // frames (223 days at 16 kHz), would send a running suppressor back into its start-up.
    s.frame_count += s.frame_count < INT32_MAX ? 1 : 0;

    int32_t energy = track_power<V>(s, power, 0, kBins);
    if (extra) {
        track_power<int32_t>(s, power, kBins, bins);
        energy = add_wrap(energy, asr<7>(power[kBins]));
    }
    if (s.frame_count < s.startup_frames) {
        return;
    }

    if (energy >= 1) {  // a silent frame must not pull the minimum down
        // When a sub-window is full, the next one takes the place of the oldest.
        const bool rotate = s.subwin_count >= s.subwin_len;
        if (rotate) {
            s.min_win_row = (s.min_win_row + 1) % kSubWindows;
            s.subwin_count = 0;
            s.noise_ready = 1;
        }
        track_minimum<V>(s, rotate, 0, kBins);
        if (extra) {
            track_minimum<int32_t>(s, rotate, kBins, bins);
        }
    }

    [[maybe_unused]] const bool wrapped = estimate_noise<V>(s, 0, kBins);
    if (extra) {
        estimate_noise<int32_t>(s, kBins, bins);
    }
    if (s.noise_ready != 1) {
        return;
    }

    if constexpr (kHasPositiveForms<V>) {
        if (wrapped) {
            subtract_noise<V, true>(s, 0, kBins);
        } else {
            subtract_noise<V, false>(s, 0, kBins);
        }
    } else {
        subtract_noise<V, true>(s, 0, kBins);
    }
    if (extra) {
        subtract_noise<int32_t, true>(s, kBins, bins);
    }
    smooth_gains<V>(s, bins);
}

}  // namespace korvane

#endif
