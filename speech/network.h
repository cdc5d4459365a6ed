/**
 * From a hop's inputs to its score: a layer of units that pass what is positive, and a logistic curve.
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

/** @param input  [0..kSpeechInputs-1] Q10 */
KORVANE_INLINE int16_t network_score(const int16_t* input) {
    using V = I32<kNativeLanes>;
    constexpr int kRegisters = kSpeechUnits / kNativeLanes;
    V unit[kRegisters];  // Q22
    for (int r = 0; r < kRegisters; ++r) {
        unit[r] = load_lanes<V>(kSpeechWeights.unit_bias + r * kNativeLanes);
    }
    for (int pair = 0; pair < kSpeechInputs / 2; ++pair) {
        const auto x = constant<V>(load_word(input + 2 * pair));
        for (int r = 0; r < kRegisters; ++r) {
            const auto weight = load_words<V>(kSpeechWeights.unit[pair][r * kNativeLanes]);
            unit[r] = add_wrap(unit[r], mul_add_pairs(x, weight));
        }
    }
    auto sum = constant<V>(0);
    for (int r = 0; r < kRegisters; ++r) {
        const V positive = clamp(asr<12>(unit[r]), 0, 32767);
        const auto weight = load_lanes<V>(kSpeechWeights.score + r * kNativeLanes);
        sum = add_wrap(sum, mul_narrow(positive, weight));
    }
    return logistic_q15((sum_lanes(sum) + kSpeechWeights.score_bias) >> 12);
}

/** Appends the scores of a batch's hops, which have been heard. */
template <int kHops>
void score_hops(SpeechScore& s) {
    for (int hop = 0; hop < kHops; ++hop) {
        take_inputs(s, hop);
        const int16_t score = network_score(s.inputs[hop]);
        if (s.hops.count < kMaxHopScores) {
            s.hops.score[s.hops.count++] = score;
        }
    }
}

}  // namespace korvane::KORVANE_ISA

#endif
