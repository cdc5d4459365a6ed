/**
 * What the network gets of a hop. Inputs are logarithms to base 2 of power in Q10: 1024 is 3 dB.
 */
#ifndef KORVANE_SPEECH_INPUTS_H
#define KORVANE_SPEECH_INPUTS_H

#include <algorithm>
#include <cstdlib>

#include "dsp/lanes.h"
#include "speech/speech_score.h"

namespace korvane::KORVANE_ISA {

/** Bands next to each other. Registers of four leave no lane over. */
inline constexpr int kBandLanes = kNativeLanes < 4 ? kNativeLanes : 4;
static_assert(kSpeechBands % kBandLanes == 0);
using Bands = I32<kBandLanes>;

/** Q10 logarithm of power + 4, power below 2^31 - 4. The 4 lies below what rounding leaves in a band of
 * silence. */
template <class V>
KORVANE_INLINE V level_q10(V power) {
    const V straight = straight_log2(add_wrap(power, constant<V>(4)));
    const V f = bit_and(straight, constant<V>(32767));  // the octave's part, Q15
    // f + 0.343 f (1 - f), at most 0.008 off
    const V arch = asr<15>(mul_samples(f, sub_wrap(constant<V>(32767), f)));
    const V bend = asr<15>(mul_samples(arch, constant<V>(11243)));
    return asr<5>(add_wrap(straight, bend));
}

template <class V>
KORVANE_INLINE V clamp(V x, int32_t low, int32_t high) {
    return maximum(minimum(x, constant<V>(high)), constant<V>(low));
}
template <class V>
KORVANE_INLINE V distance(V a, V b) {
    const V d = sub_wrap(a, b);
    return maximum(d, neg_wrap(d));
}

/** A step, Q15, of an average towards x; the average then. */
template <class V>
KORVANE_INLINE V follow(int32_t* average, V x, V step) {
    const V now = load_lanes<V>(average);
    const V half = mul_half_positive(sub_wrap(x, now), step);
    const V next = add_wrap(now, add_wrap(half, half));
    store(average, next);
    return next;
}
/** The same of an average in Q20 towards x, Q10, as the averages of levels are. */
template <class V>
KORVANE_INLINE V follow_level(int32_t* average, V x, V step) {
    return asr<10>(follow(average, shl<10>(x), step));
}

/** The mean over the bands of a sum over them. */
KORVANE_INLINE int32_t band_mean(Bands sum) {
    return mul_shr(sum_lanes(sum), 65536 / kSpeechBands, 16);
}

/** One step of a floor in Q20: a quarter of the step up where x, Q10, lies above it, else three down. In
 * the long run it has a quarter of the values below it. */
template <class V>
KORVANE_INLINE V follow_floor(int32_t* floor, V x, int32_t quarter_step) {
    const V now = load_lanes<V>(floor);
    const V next = add_wrap(now, select(greater(shl<10>(x), now), constant<V>(quarter_step),
                                        constant<V>(-3 * quarter_step)));
    store(floor, next);
    return asr<10>(next);
}

/** Notes the powers of a channel's bins, [0..143], in hop `hop` of a batch: channel 0's, and then, where
 * there are two, channel 1's, which are added. A frame's energy bounds the sum over its bins: 2^28.3 in
 * the full band, four times that in the low one before its shift. */
KORVANE_INLINE void hear_hop(SpeechScore& s, int hop, int channel, const int32_t* power) {
    for (int band = 0; band < kSpeechBands; ++band) {
        int32_t sum = 0;
        for (int k = s.edges[band]; k < s.edges[band + 1]; ++k) {
            sum += power[k];
        }
        sum >>= s.power_shift;
        s.power[hop][band] = channel == 1 ? s.power[hop][band] + sum : sum;
    }
}

/** Where the averages begin. */
KORVANE_INLINE void start_inputs(SpeechScore& s, const int32_t* power) {
    s.started = 1;
    auto sum = constant<Bands>(0);
    auto loudness_power = constant<Bands>(0);
    for (int band = 0; band < kSpeechBands; band += kBandLanes) {
        const auto now = load_lanes<Bands>(power + band);
        const Bands level = level_q10(now);
        store(s.smooth_power + band, now);
        store(s.floor + band, shl<10>(level));
        store(s.level_40 + band, shl<10>(level));
        sum = add_wrap(sum, level);
        loudness_power = add_wrap(loudness_power, asr<4>(now));
    }
    const int32_t mean = sum_lanes(sum) / kSpeechBands;
    for (int band = 0; band < kSpeechBands; ++band) {
        s.shape_60[band] = s.level_40[band] - mean * 1024;
    }
    const int32_t loudness = level_q10<int32_t>(sum_lanes(loudness_power)) + 4 * 1024;
    s.loudness_100 = s.loudness_floor = s.loudness_peak = loudness * 1024;
}

/** Inputs about all bands together. */
struct Whole {
    int32_t power;       ///< a sixteenth of it
    int32_t above;       ///< mean level above the floors, Q10
    int32_t flux;        ///< mean movement of the levels, Q10
    int32_t shape_flux;  ///< mean movement of the levels against each other, Q10
};

/** How all bands have moved, and how loud they are beside the loudest of the last seconds: what is far below that is
 * in the background. */
KORVANE_INLINE void take_whole(SpeechScore& s, int16_t* inputs, const Whole& whole,
                               int32_t quarter_step) {
    constexpr int32_t kK = 1024;
    using Four = Lanes<4>;
    const Four slow = follow_level(s.above_slow, constant<Four>(whole.above),
                                   load_lanes<Four>(s.steps.above_slow));
    int32_t means[4];
    store(means, slow);
    const int32_t moves[4] = {distance(whole.above, means[2]), distance(whole.above, means[3]),
                              whole.flux, whole.shape_flux};
    const Four moved =
        clamp(follow_level(s.moved, load_lanes<Four>(moves), load_lanes<Four>(s.steps.moved)), 0,
              10 * kK);
    const int32_t loudness = level_q10(std::max<int32_t>(whole.power, 0)) + 4 * kK;
    const int32_t lasting = follow_level(&s.loudness_100, loudness, s.steps.ms100);
    s.loudness_peak = std::max<int32_t>(s.loudness_peak - s.peak_step, lasting * kK);
    const int32_t loudness_floor = follow_floor(&s.loudness_floor, loudness, quarter_step);
    store(inputs, moved);
    inputs[4] = static_cast<int16_t>(means[1]);
    inputs[5] = static_cast<int16_t>(whole.above - means[0]);
    inputs[6] = static_cast<int16_t>(clamp(loudness - (s.loudness_peak >> 10), -10 * kK, 5 * kK));
    inputs[7] =
        static_cast<int16_t>(std::min<int32_t>((s.loudness_peak >> 10) - loudness_floor, 15 * kK));
}

/** The inputs of hop `hop`. */
KORVANE_INLINE void take_inputs(SpeechScore& s, int hop) {
    int16_t* const input = s.inputs[hop];
    constexpr int kRegisters = kSpeechBands / kBandLanes;
    constexpr int32_t kK = 1024;
    if (s.started == 0) {
        start_inputs(s, s.power[hop]);
    }
    // The floors hurry at the start.
    const int32_t quarter_step = mul_shr(s.floor_step, kK + s.hurry, 12);
    s.hurry = mul_shr(s.hurry, s.hurry_decay, 15);

    Bands level[kRegisters];
    auto loudness_power = constant<Bands>(0);
    auto level_sum = constant<Bands>(0);
    auto above_sum = constant<Bands>(0);
    auto flux = constant<Bands>(0);
    for (int i = 0; i < kRegisters; ++i) {
        const int band = i * kBandLanes;
        const Bands power = follow(s.smooth_power + band, load_lanes<Bands>(s.power[hop] + band),
                                   constant<Bands>(s.steps.ms20));
        loudness_power = add_wrap(loudness_power, asr<4>(power));  // of all together, 32 bits
        level[i] = level_q10(power);
        level_sum = add_wrap(level_sum, level[i]);
        const auto lately =
            follow_level(s.level_40 + band, level[i], constant<Bands>(s.steps.ms40));
        flux = add_wrap(flux, distance(level[i], lately));
        // Above the floors.
        const Bands floor = follow_floor(s.floor + band, level[i], quarter_step);
        const Bands above = clamp(sub_wrap(level[i], floor), -3 * kK, 10 * kK);
        above_sum = add_wrap(above_sum, above);
        store(input + band, above);
    }
    // Against each other.
    const auto mean = constant<Bands>(band_mean(level_sum));
    auto shape_flux = constant<Bands>(0);
    for (int i = 0; i < kRegisters; ++i) {
        const int band = i * kBandLanes;
        const Bands shape = sub_wrap(level[i], mean);
        const auto lately = follow_level(s.shape_60 + band, shape, constant<Bands>(s.steps.ms60));
        shape_flux = add_wrap(shape_flux, distance(shape, lately));
        store(input + kSpeechBands + band, clamp(shape, -10 * kK, 10 * kK));
    }

    const Whole whole = {sum_lanes(loudness_power), band_mean(above_sum), band_mean(flux),
                         band_mean(shape_flux)};
    take_whole(s, input + 2 * kSpeechBands, whole, quarter_step);
}

}  // namespace korvane::KORVANE_ISA

#endif
