/**
 * The speech score: a number for each hop that grows with the evidence for speech in it.
 *
 * It hears what the suppressor works with anyway, the powers of a hop's bins and the noise estimate, as
 * logarithms in bands up to 3.9 kHz. What it looks at (speech/inputs.h) are levels above the noise, above a
 * floor of its own and among each other, and how they have moved during the last seconds. A small network
 * with trained weights (speech/network.h) makes the score of these. All of it is in integers, so that a
 * sound has the same scores on every machine, and times are in milliseconds, so that it has much the same
 * scores at every rate.
 */
#ifndef KORVANE_SPEECH_SPEECH_SCORE_H
#define KORVANE_SPEECH_SPEECH_SCORE_H

#include <cstdint>

#include "dsp/gain_mul.h"

namespace korvane {

inline constexpr int kSpeechBands = 12;
inline constexpr int kSpeechInputs = 56;  ///< of the network
inline constexpr int kMinimumRows = 4;    ///< stretches of time in a search for a minimum
inline constexpr int kMaxHopScores = 32;  ///< as many as 4096 samples and a started block have

/** The scores since they were read last. Who reads them sets count to 0. */
struct HopScores {
    int32_t count;
    int16_t score[kMaxHopScores];  ///< Q15, 0..32767, the oldest first; at 16384 misses and false
                                   ///< alarms weigh 3 to 1
};

/** How far something goes in a hop towards what it follows, Q15, by its time constant. */
struct HopSteps {
    int32_t ms20, ms40, ms45, ms60, ms100, ms300, ms400, ms500, ms2000;
};

/** All that the score remembers of a stream. Nothing in it points into it. Levels are logarithms to base
 * 2 of power: in Q10 where they come in, in Q20 where they are averaged. */
struct SpeechScore {
    // By the rate.
    int16_t edges[kSpeechBands + 1];  ///< the first bin of each band; the end of the last
    int16_t power_shift;              ///< by which the powers of a half-rate band are larger, bits
    HopSteps steps;
    int32_t minimum_hops;  ///< of a stretch
    int32_t floor_step;    ///< the floors' way in a hop, Q20
    int32_t peak_step;     ///< what the peak falls in a hop, Q20
    int32_t hurry_decay;   ///< Q15

    // Of the hops of a batch, which the scores wait for.
    int64_t power[kMaxHops][kSpeechBands];
    int64_t noise[kMaxHops];  ///< power in the band that the hop has asked for
    int32_t noise_band[kMaxHops];
    int16_t inputs[kMaxHops][kSpeechInputs];

    // From hop to hop.
    int32_t noise_level[kSpeechBands];  ///< Q10; 0 as long as there is none
    int32_t next_band;                  ///< whose noise is asked for next
    int32_t started;                    ///< 0 before the first hop
    int32_t hurry;                      ///< how much faster the floors go yet, Q10, at the start
    int64_t smooth_power[kSpeechBands];
    int32_t floor[kSpeechBands];
    int32_t above_floor_100[kSpeechBands];
    int32_t level_40[kSpeechBands];
    int32_t shape_60[kSpeechBands];
    int32_t above_400, above_500, above_2000;  ///< means over the bands
    int32_t moved_500, moved_2000;             ///< distances from the last two
    int32_t flux_100, shape_flux_300;
    int32_t loudness_100, loudness_floor, loudness_peak;

    // Noise of channel 1, which has no estimate of the suppressor's.
    alignas(32) int32_t other_smooth[kBins];
    alignas(32) int32_t other_minimum[kMinimumRows][kBins];  ///< of stretches of time
    int32_t other_row;                                       ///< the one that goes on
    int32_t other_count;  ///< hops in that row; 0 before the first

    HopScores hops;
};

/**
 * A fresh score.
 *
 * @param rate  Hz, the suppressor's; below 8000 the upper bands have no sound, and the score means little
 */
void speech_init(SpeechScore& s, int32_t rate);

}  // namespace korvane

#endif
