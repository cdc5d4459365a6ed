#include "streams/level_score.h"

#include <algorithm>

namespace korvane {

namespace {

constexpr int32_t kHalf = 16384;  // Q15
constexpr int32_t kSlope = 1638;  // 0.05 per dB, Q15
constexpr Level kAboveNoise = 7 * kDecibel;
constexpr Level kStep = kDecibel / 2;

void remember(LevelScore& s, uint8_t step) {
    if (s.held == s.capacity) {
        --s.count[s.step[s.oldest]];
    } else {
        ++s.held;
    }
    s.step[s.oldest] = step;
    ++s.count[step];
    s.oldest = (s.oldest + 1) % s.capacity;
}

/** The lower end of the step that holds the 30th percentile. */
Level percentile(const LevelScore& s) {
    int32_t below = s.held * 3 / 10;
    int step = 0;
    while (below >= s.count[step]) {
        below -= s.count[step];
        ++step;
    }
    return kSilence + step * kStep;
}

}  // namespace

void level_score_start(LevelScore& s, int32_t rate, int32_t frame) {
    s = {};
    s.every = std::max((rate + 100 * frame - 1) / (100 * frame), 1);
    s.capacity = static_cast<int32_t>(
        std::clamp<int64_t>(int64_t{10} * rate / (int64_t{s.every} * frame), 1, kHistory));
}

int32_t level_score(LevelScore& s, Level level, Level floor) {
    if (s.skipped == 0) {
        remember(s,
                 static_cast<uint8_t>(std::clamp((level - kSilence) / kStep, 0, kLevelSteps - 1)));
    }
    s.skipped = (s.skipped + 1) % s.every;
    const Level above = level - std::max(percentile(s) + kAboveNoise, floor);
    return std::clamp(kHalf + above * kSlope / kDecibel, 0, 32767);
}

}  // namespace korvane
