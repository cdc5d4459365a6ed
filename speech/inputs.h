/**
 * What the network gets of a hop. Inputs are logarithms to base 2 of power in Q10: 1024 is 3 dB.
 */
#ifndef KORVANE_SPEECH_INPUTS_H
#define KORVANE_SPEECH_INPUTS_H

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "dsp/lanes.h"
#include "speech/speech_score.h"

namespace korvane::KORVANE_ISA {

/** Q10 logarithm of x + 4. The 4 lies below what rounding leaves in a band of silence. */
KORVANE_INLINE int32_t level_q10(int64_t x) {
    const uint64_t power = static_cast<uint64_t>(x) + 4;
    const int zeros = std::countl_zero(power);
    const auto f = static_cast<int32_t>(power << zeros >> 48) - 32768;  // the octave's part, Q15
    // f + 0.343 f (1 - f), at most 0.008 off
    const int32_t bend = mul_q15(mul_q15(f, 32767 - f), 11243);
    return (63 - zeros) * 1024 + ((f + bend) >> 5);
}

/** One step of an average in Q20 towards x, Q10. */
KORVANE_INLINE int32_t follow(int32_t& average, int32_t x, int32_t step) {
    average += mul_shr(x * 1024 - average, step, 15);
    return average >> 10;
}

/** The mean over the bands of a sum over them. */
KORVANE_INLINE int32_t band_mean(int32_t sum) { return mul_shr(sum, 65536 / kSpeechBands, 16); }

/** One step of a floor in Q20: a quarter of the step up where x, Q10, lies above it, else three down. In
 * the long run it has a quarter of the values below it. */
KORVANE_INLINE void follow_floor(int32_t& floor, int32_t x, int32_t quarter_step) {
    floor += x * 1024 > floor ? quarter_step : -3 * quarter_step;
}

/** The power of bins, [0..143], in a band. */
KORVANE_INLINE int64_t band_power(const SpeechScore& s, const int32_t* bins, int band) {
    int64_t sum = 0;
    for (int k = s.edges[band]; k < s.edges[band + 1]; ++k) {
        sum += static_cast<uint32_t>(bins[k]);
    }
    return sum >> s.power_shift;
}

/** Notes the powers of channel 0's bins, [0..143], and the suppressor's noise in hop `hop` of a batch. The
 * noise moves in seconds; so a hop asks for one band of it. */
KORVANE_INLINE void hear_hop(SpeechScore& s, int hop, const int32_t* power, const int32_t* noise) {
    for (int band = 0; band < kSpeechBands; ++band) {
        s.power[hop][band] = band_power(s, power, band);
    }
    s.noise_band[hop] = s.next_band;
    // As long as all frames were silent, the suppressor's estimate is below zero: there is none.
    s.noise[hop] = 0;
    for (int k = s.edges[s.next_band]; k < s.edges[s.next_band + 1]; ++k) {
        s.noise[hop] += std::max<int32_t>(noise[k], 0);
    }
    s.noise[hop] >>= s.power_shift;
    s.next_band = s.next_band + 1 < kSpeechBands ? s.next_band + 1 : 0;
}

/** Adds channel 1 to what has been heard of the hop, power [0..143]. Its noise is searched for as the
 * suppressor does it, bin by bin: the minimum of a whole band is far above that, where a noise moves. */
KORVANE_INLINE void hear_other_channel(SpeechScore& s, int hop, const int32_t* power) {
    using V = I32<kNativeLanes>;
    const bool first = s.other_count == 0;
    bool start = first;
    if (first) {
        std::fill_n(s.other_minimum[0], kMinimumRows * kBins, INT32_MAX);
        std::copy_n(power, kBins, s.other_smooth);
    } else if (s.other_count >= s.minimum_hops) {
        s.other_row = (s.other_row + 1) % kMinimumRows;
        s.other_count = 0;
        start = true;
    }
    ++s.other_count;
    int32_t* const row = s.other_minimum[s.other_row];
    const V keep = constant<V>(32767 - s.steps.ms45);
    for (int k = 0; k < kBins; k += kNativeLanes) {
        const V x = load_lanes<V>(power + k);
        const V half = mul_half_positive(sub_wrap(load_lanes<V>(s.other_smooth + k), x), keep);
        const V smooth = add_wrap(x, add_wrap(half, half));
        store(s.other_smooth + k, smooth);
        store(row + k, start ? smooth : minimum(load_lanes<V>(row + k), smooth));
    }
    for (int band = 0; band < kSpeechBands; ++band) {
        s.power[hop][band] += band_power(s, power, band);
    }
    const int band = s.noise_band[hop];
    int64_t noise = 0;
    for (int k = s.edges[band]; k < s.edges[band + 1]; ++k) {
        const auto& m = s.other_minimum;
        noise += std::max<int32_t>(std::min({m[0][k], m[1][k], m[2][k], m[3][k]}), 0);
    }
    s.noise[hop] += noise * 18841 >> (14 + s.power_shift);  // times 1.15, as the suppressor's
}

/** The inputs of hop `hop`. */
KORVANE_INLINE void take_inputs(SpeechScore& s, int hop) {
    int16_t* input = s.inputs[hop];
    const auto put = [&input](int32_t x, int32_t low, int32_t high) {
        *input++ = static_cast<int16_t>(std::clamp<int32_t>(x, low * 1024, high * 1024));
    };
    const bool first = s.started == 0;
    s.started = 1;
    int32_t level[kSpeechBands];
    int64_t loudness_power = 0;
    for (int band = 0; band < kSpeechBands; ++band) {
        int64_t& smooth = s.smooth_power[band];
        smooth += first ? s.power[hop][band] : (s.power[hop][band] - smooth) * s.steps.ms20 >> 15;
        level[band] = level_q10(smooth);
        loudness_power += smooth;
    }
    const int32_t loudness = level_q10(loudness_power);
    if (first) {
        for (int band = 0; band < kSpeechBands; ++band) {
            s.floor[band] = s.level_40[band] = level[band] * 1024;
        }
        s.loudness_100 = s.loudness_floor = s.loudness_peak = loudness * 1024;
    }

    // Above the suppressor's noise; nothing while there is none.
    s.noise_level[s.noise_band[hop]] = s.noise[hop] != 0 ? level_q10(s.noise[hop]) : 0;
    for (int band = 0; band < kSpeechBands; ++band) {
        const int32_t noise = s.noise_level[band];
        put(noise != 0 ? level[band] - noise : 0, -2, 10);
    }

    // Above the floors, which hurry at the start.
    const int32_t quarter_step = mul_shr(s.floor_step, 1024 + s.hurry, 12);
    s.hurry = mul_shr(s.hurry, s.hurry_decay, 15);
    int32_t above[kSpeechBands];
    int32_t above_sum = 0;
    int32_t above_100_sum = 0;
    int32_t level_sum = 0;
    int32_t flux = 0;
    for (int band = 0; band < kSpeechBands; ++band) {
        follow_floor(s.floor[band], level[band], quarter_step);
        above[band] =
            std::clamp<int32_t>(level[band] - (s.floor[band] >> 10), -3 * 1024, 10 * 1024);
        above_sum += above[band];
        level_sum += level[band];
        flux += std::abs(level[band] - follow(s.level_40[band], level[band], s.steps.ms40));
        put(above[band], -3, 10);
    }
    for (int band = 0; band < kSpeechBands; ++band) {
        const int32_t slow = follow(s.above_floor_100[band], above[band], s.steps.ms100);
        above_100_sum += slow;
        put(slow, -3, 10);
    }

    // Against each other.
    const int32_t mean = band_mean(level_sum);
    int32_t shape_flux = 0;
    for (int band = 0; band < kSpeechBands; ++band) {
        const int32_t shape = level[band] - mean;
        if (first) {
            s.shape_60[band] = shape * 1024;
        }
        shape_flux += std::abs(shape - follow(s.shape_60[band], shape, s.steps.ms60));
        put(shape, -10, 10);
    }

    // How all of them have moved.
    const int32_t above_mean = band_mean(above_sum);
    put(follow(s.above_400, above_mean, s.steps.ms400), -3, 10);
    const int32_t from_500 = std::abs(above_mean - follow(s.above_500, above_mean, s.steps.ms500));
    put(follow(s.moved_500, from_500, s.steps.ms500), 0, 10);
    const int32_t from_2000 =
        std::abs(above_mean - follow(s.above_2000, above_mean, s.steps.ms2000));
    put(follow(s.moved_2000, from_2000, s.steps.ms2000), 0, 10);
    put(above_mean - band_mean(above_100_sum), -10, 10);
    put(follow(s.flux_100, band_mean(flux), s.steps.ms100), 0, 10);
    put(follow(s.shape_flux_300, band_mean(shape_flux), s.steps.ms300), 0, 10);

    // Against the loudest of the last seconds: what is far below it is in the background.
    const int32_t lasting = follow(s.loudness_100, loudness, s.steps.ms100);
    s.loudness_peak = std::max<int32_t>(s.loudness_peak - s.peak_step, lasting * 1024);
    follow_floor(s.loudness_floor, loudness, quarter_step);
    put(loudness - (s.loudness_peak >> 10), -10, 5);
    put((s.loudness_peak - s.loudness_floor) >> 10, 0, 15);
}

}  // namespace korvane::KORVANE_ISA

#endif
