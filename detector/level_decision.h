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
 * Level of one frame in dB, full scale 32768: 20*log10(rms + 1e-7). Silence is -140 dB.
 *
 * @param x  [0..n-1] int16 samples
 * @param n  samples; 0 gives NaN, a negative n counts as silence
 */
double level_db(const int16_t* x, int n);

}  // namespace korvane

#endif
