/**
 * The network's weights, learnt by bench/accuracy/train.py.
 */
#ifndef KORVANE_SPEECH_WEIGHTS_H
#define KORVANE_SPEECH_WEIGHTS_H

#include <cstddef>
#include <cstdint>

#include "speech/speech_score.h"

namespace korvane {

inline constexpr int kSecondUnits = 8;  ///< of the second layer

/** Weights Q12, biases Q22: what is in Q10 times a weight is in Q22. The weights of the units lie as pairs
 * of what comes in meet them. */
template <size_t kIn, size_t kUnits>
struct SpeechLayer {
    int16_t weight[kIn / 2][kUnits][2];
    int32_t bias[kUnits];
};

inline constexpr struct {
    SpeechLayer<kSpeechInputs, kSpeechUnits> first;
    SpeechLayer<kSpeechUnits, kSecondUnits> second;
    int16_t score[kSecondUnits];
    int32_t score_bias;
} kSpeechWeights = {
#include "speech/weights.inc"
};

namespace speech_detail {
constexpr int64_t magnitude(int64_t x) { return x < 0 ? -x : x; }
/** Whether no unit's sum can leave 32 bits, with `largest` coming in. */
template <size_t kIn, size_t kUnits>
constexpr bool layer_fits(const SpeechLayer<kIn, kUnits>& layer, int64_t largest) {
    for (size_t unit = 0; unit < kUnits; ++unit) {
        int64_t sum = magnitude(layer.bias[unit]);
        for (const auto& pair : layer.weight) {
            sum += largest * (magnitude(pair[unit][0]) + magnitude(pair[unit][1]));
        }
        if (sum > INT32_MAX) {
            return false;
        }
    }
    return true;
}
constexpr bool score_fits() {
    int64_t up = magnitude(kSpeechWeights.score_bias);  // units are never negative
    int64_t down = up;
    for (const int16_t weight : kSpeechWeights.score) {
        (weight > 0 ? up : down) += 32767 * magnitude(weight);
    }
    return up <= INT32_MAX && down <= INT32_MAX;
}
static_assert(layer_fits(kSpeechWeights.first, 15 * 1024));
static_assert(layer_fits(kSpeechWeights.second, 32767));
static_assert(score_fits());
}  // namespace speech_detail

}  // namespace korvane

#endif
