/**
 * The speech score: a number for each hop that grows with the evidence for speech in it.
 *
 * It hears what the suppressor works with anyway, the powers of a hop's bins, as logarithms in bands up to
 * 3.9 kHz. What it looks at (speech/inputs.h) are levels above a floor and among each other, and how they
 * have moved during the last seconds. The floor is its own: beside it the suppressor's estimate of the
 * noise was not worth its time. A small network with trained weights (speech/network.h) makes the score of
 * these, and of what it found in them during the last second or two. All of it is in integers, so that a
 * sound has the same scores on every machine, and times are in milliseconds, so that it has much the same
 * scores at every rate.
 */
#ifndef KORVANE_SPEECH_SPEECH_SCORE_H
#define KORVANE_SPEECH_SPEECH_SCORE_H

#include <cstdint>

#include "dsp/gain_mul.h"

namespace korvane {

inline constexpr int kSpeechBands = 12;
inline constexpr int kSpeechInputs = 2 * kSpeechBands + 8;  ///< of the network
inline constexpr int kSpeechUnits = 16;                     ///< of its first layer
inline constexpr int kMaxHopScores = 32;  ///< as many as 4096 samples and a started block have

/** The scores since they were read last. Who reads them sets count to 0. */
struct HopScores {
    int32_t count;
    int16_t score[kMaxHopScores];  ///< Q15, 0..32767, the oldest first; at 16384 misses and false
                                   ///< alarms weigh 3 to 1
};

/** How far something goes in a hop towards what it follows, Q15, by its time constant. */
struct HopSteps {
    int32_t ms20, ms40, ms60, ms100;
    int32_t above_slow[4];  ///< of the averages of the same name
    int32_t moved[4];
    int32_t units[kSpeechUnits];
};

/** All that the score remembers of a stream. Nothing in it points into it. Levels are logarithms to base
 * 2 of power: in Q10 where they come in, in Q20 where they are averaged. */
struct SpeechScore {
    // By the rate.
    int16_t edges[kSpeechBands + 1];  ///< the first bin of each band; the end of the last
    int16_t power_shift;              ///< by which the powers of a half-rate band are larger, bits
    HopSteps steps;
    int32_t floor_step;   ///< the floors' way in a hop, Q20
    int32_t peak_step;    ///< what the peak falls in a hop, Q20
    int32_t hurry_decay;  ///< Q15

    // Of the hops of a batch, which the scores wait for.
    int32_t power[kMaxHops][kSpeechBands];
    int16_t inputs[kMaxHops][kSpeechInputs];

    // From hop to hop.
    int32_t started;  ///< 0 before the first hop
    int32_t hurry;    ///< how much faster the floors go yet, Q10, at the start
    int32_t smooth_power[kSpeechBands];
    int32_t floor[kSpeechBands];
    int32_t level_40[kSpeechBands];
    int32_t shape_60[kSpeechBands];
    int32_t above_slow[4];  ///< means over the bands, over 100, 400, 500 and 2000 ms
    int32_t moved[4];       ///< distances from the last two, flux, flux of the shape
    int32_t loudness_100, loudness_floor, loudness_peak;
    int32_t units[kSpeechUnits];  ///< averages of the first layer's units, Q20

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
