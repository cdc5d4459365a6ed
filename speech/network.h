/**
 * From a hop's inputs to its score: units that pass what is positive, averages of them over times from
 * some hops to a second and a half, a second layer of units for these averages, and a logistic curve.
 */
#ifndef KORVANE_SPEECH_NETWORK_H
#define KORVANE_SPEECH_NETWORK_H

#include "dsp/lanes.h"
#include "speech/inputs.h"
#include "speech/weights.h"

namespace korvane::KORVANE_ISA {

/** The logistic curve in Q15, 0..32767, of x in Q10. */
KORVANE_INLINE int16_t logistic_q15(int32_t x) {
    // 2^-y with y = |x| log2(e): between powers of two the parabola 1 - 0.656 f + 0.156 f^2, which
    // meets them at both ends.
    const int32_t y = mul_shr(std::min<int32_t>(std::abs(x), 16 * 1024), 47274, 15);
    const int32_t f = (y & 1023) << 5;
    const int32_t power = (32768 - mul_shr(f, 21508 - mul_shr(f, 5124, 15), 15)) >> (y >> 10);
    const int32_t high = (32768 * 32768) / (32768 + power);  // 16384..32768
    return static_cast<int16_t>(std::min<int32_t>(x >= 0 ? high : 32768 - high, 32767));
}

/** Units of a layer, Q10, 0..32767.
 *
 * @param x     [0..kIn-1] Q10
 * @param unit  [0..kUnits/lanes-1] */
template <class V, size_t kIn, size_t kUnits>
KORVANE_INLINE void pass_layer(const int16_t* x, const SpeechLayer<kIn, kUnits>& layer, V* unit) {
    constexpr int kRegisters = static_cast<int>(kUnits) / kLanesOf<V>;
    for (int r = 0; r < kRegisters; ++r) {
        unit[r] = load_lanes<V>(layer.bias + r * kLanesOf<V>);
    }
    for (size_t pair = 0; pair < kIn / 2; ++pair) {
        const auto both = constant<V>(load_word(x + 2 * pair));
        for (int r = 0; r < kRegisters; ++r) {
            const auto weights = load_words<V>(layer.weight[pair][r * kLanesOf<V>]);
            unit[r] = add_wrap(unit[r], mul_add_pairs(both, weights));
        }
    }
    for (int r = 0; r < kRegisters; ++r) {
        unit[r] = clamp(asr<12>(unit[r]), 0, 32767);
    }
}

/** The score of a hop's inputs. */
KORVANE_INLINE int16_t network_score(SpeechScore& s, const int16_t* input) {
    constexpr int kLanes = kNativeLanes < kSecondUnits ? kNativeLanes : kSecondUnits;
    using V = I32<kLanes>;
    V first[kSpeechUnits / kLanes];
    pass_layer(input, kSpeechWeights.first, first);
    int16_t lately[kSpeechUnits];
    for (int unit = 0; unit < kSpeechUnits; unit += kLanes) {
        store(lately + unit, follow_level(s.units + unit, first[unit / kLanes],
                                          load_lanes<V>(s.steps.units + unit)));
    }
    V second[kSecondUnits / kLanes];
    pass_layer(lately, kSpeechWeights.second, second);
    auto sum = constant<V>(0);
    for (int r = 0; r < kSecondUnits / kLanes; ++r) {
        const auto weight = load_lanes<V>(kSpeechWeights.score + r * kLanes);
        sum = add_wrap(sum, mul_narrow(second[r], weight));
    }
    return logistic_q15((sum_lanes(sum) + kSpeechWeights.score_bias) >> 12);
}

/** Appends the scores of a batch's hops, which have been heard. */
template <int kHops>
void score_hops(SpeechScore& s) {
    for (int hop = 0; hop < kHops; ++hop) {
        take_inputs(s, hop);
        const int16_t score = network_score(s, s.inputs[hop]);
        if (s.hops.count < kMaxHopScores) {
            s.hops.score[s.hops.count++] = score;
        }
    }
}

}  // namespace korvane::KORVANE_ISA

#endif
