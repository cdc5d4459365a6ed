/**
 * A score from the level alone: how far a frame lies above what the last ten seconds were like.
 */
#ifndef KORVANE_STREAMS_LEVEL_SCORE_H
#define KORVANE_STREAMS_LEVEL_SCORE_H

#include <cstdint>

#include "streams/levels.h"

namespace korvane {

inline constexpr int kHistory = 1000;    ///< levels remembered, 10 ms apart or more
inline constexpr int kLevelSteps = 256;  ///< of half a dB, from silence up

/** Of one stream; zeros are a fresh one but for `every`. */
struct LevelScore {
    int32_t every;     ///< frames from one that is remembered to the next
    int32_t skipped;   ///< frames since
    int32_t capacity;  ///< levels that fill ten seconds, at most kHistory
    int32_t held;
    int32_t oldest;
    uint16_t count[kLevelSteps];  ///< of the remembered levels, by step
    uint8_t step[kHistory];       ///< a ring
};

/** @param rate   Hz
 *  @param frame  samples per frame */
void level_score_start(LevelScore& s, int32_t rate, int32_t frame);

/**
 * The score of the next frame, Q15, 0..32767. It is one half where the level is 7 dB above the 30th
 * percentile of the remembered ones or at `floor`, whichever is higher, and 0.05 more for every dB.
 */
int32_t level_score(LevelScore& s, Level level, Level floor);

}  // namespace korvane

#endif
