/**
 * The network's weights, from bench/accuracy/train.
 */
#ifndef KORVANE_SPEECH_WEIGHTS_H
#define KORVANE_SPEECH_WEIGHTS_H

#include <cstdint>

#include "speech/speech_score.h"

namespace korvane {

inline constexpr int kSpeechUnits = 16;

// Weights Q12, biases Q22: an input in Q10 times a weight is in Q22.
inline constexpr struct {
    int16_t unit[kSpeechUnits][kSpeechInputs];
    int32_t unit_bias[kSpeechUnits];
    int16_t score[kSpeechUnits];
    int32_t score_bias;
} kSpeechWeights = {
#include "speech/weights.inc"
};

namespace speech_detail {
/** The largest sum that a row can reach: with its bias, and the inputs at most `largest`. */
constexpr int64_t row_bound(const int16_t* row, int n, int64_t bias, int64_t largest) {
    int64_t sum = bias < 0 ? -bias : bias;
    for (int i = 0; i < n; ++i) {
        sum += largest * (row[i] < 0 ? -row[i] : row[i]);
    }
    return sum;
}
constexpr bool rows_fit() {
    for (int unit = 0; unit < kSpeechUnits; ++unit) {
        if (row_bound(kSpeechWeights.unit[unit], kSpeechInputs, kSpeechWeights.unit_bias[unit],
                      15 * 1024) > INT32_MAX) {
            return false;
        }
    }
    return row_bound(kSpeechWeights.score, kSpeechUnits, kSpeechWeights.score_bias, 32767) <=
           INT32_MAX;
}
}  // namespace speech_detail
static_assert(speech_detail::rows_fit(), "no sum of the network may leave 32 bits");

}  // namespace korvane

#endif
