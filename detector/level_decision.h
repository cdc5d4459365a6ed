/**
 * Level-based speech decision: frame level against two thresholds (hysteresis), with an onset and a
 * hang-over count.
 */
#ifndef KORVANE_DETECTOR_LEVEL_DECISION_H
#define KORVANE_DETECTOR_LEVEL_DECISION_H

#include <cstdint>

namespace korvane {

/** Of one stream. */
struct VorState {
    uint8_t enter_enabled;     ///< nonzero: speech is entered above -45 dB; zero: above 0 dB
    uint8_t stay_enabled;      ///< nonzero: speech is held above -50 dB; zero: above 0 dB
    uint8_t rate_enabled;      ///< nonzero: the counts derive from 48000 Hz; zero: from 0
    int32_t onset_samples;     ///< samples above the enter threshold before speech is declared
    int32_t hangover_samples;  ///< samples at or below the stay threshold before speech ends
    uint32_t speech;           ///< the current decision, 1 or 0
    int32_t countdown;         ///< samples left of the running onset or hang-over; 0: none runs
};

/** What OLM_VOR_Init, OLM_VOR_SetFs and OLM_VOR do (korvane_vad.h), on one stream. */
void VOR_Init(VorState& s);
void VOR_SetFs(VorState& s);
int VOR_Decide(VorState& s, const int16_t* ch0, const int16_t* ch1, int n);

/**
 * VOR_Decide on a frame of which only the sums of its squares are left.
 *
 * @param squares   [0..channels-1] sum of the squares of a channel's n samples
 * @param channels  1 or 2
 * @param n         samples per channel, 1 or more
 */
int VOR_DecideSquares(VorState& s, const uint64_t* squares, int channels, int n);

/**
 * The counting alone: the next decision where somebody else compares a frame with the threshold.
 *
 * @param above  whether the frame lies above the threshold to enter speech or, while the decision is
 *               speech, above the one to stay
 * @param n      samples in the frame
 * @return       1 speech, 0 no speech
 */
int VOR_Count(VorState& s, bool above, int n);

/**
 * Level of one frame in dB, full scale 32768: 20*log10(rms + 1e-7). Silence is -140 dB.
 *
 * @param x  [0..n-1] int16 samples
 * @param n  samples; 0 gives NaN, a negative n counts as silence
 */
double level_db(const int16_t* x, int n);

}  // namespace korvane

#endif
