/**
 * The network's weights, learnt by bench/accuracy/train.py.
 */
#ifndef KORVANE_SPEECH_WEIGHTS_H
#define KORVANE_SPEECH_WEIGHTS_H

#include <cstdint>

#include "speech/speech_score.h"

namespace korvane {

inline constexpr int kSpeechUnits = 16;

// Weights Q12, biases Q22: an input in Q10 times a weight is in Q22. The units' weights lie as pairs of
// inputs meet them.
inline constexpr struct {
    int16_t unit[kSpeechInputs / 2][kSpeechUnits][2];
    int32_t unit_bias[kSpeechUnits];
    int16_t score[kSpeechUnits];
    int32_t score_bias;
} kSpeechWeights = {
#include "speech/weights.inc"
};

namespace speech_detail {
constexpr int64_t magnitude(int64_t x) { return x < 0 ? -x : x; }
/** The largest sums that units and score can reach, with inputs of at most 15 times 1024. */
constexpr bool sums_fit() {
    int64_t up = magnitude(kSpeechWeights.score_bias);  // units are never negative
    int64_t down = up;
    for (int unit = 0; unit < kSpeechUnits; ++unit) {
        int64_t sum = magnitude(kSpeechWeights.unit_bias[unit]);
        for (const auto& pair : kSpeechWeights.unit) {
            sum += 15 * 1024 * (magnitude(pair[unit][0]) + magnitude(pair[unit][1]));
        }
        if (sum > INT32_MAX) {
            return false;
        }
        (kSpeechWeights.score[unit] > 0 ? up : down) +=
            32767 * magnitude(kSpeechWeights.score[unit]);
    }
    return up <= INT32_MAX && down <= INT32_MAX;
}
}  // namespace speech_detail
static_assert(speech_detail::sums_fit(), "no sum of the network may leave 32 bits");

}  // namespace korvane

#endif
