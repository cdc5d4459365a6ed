/**
 * What the suppressor remembers of one stream, and its initialisation. A record of zeros is a fresh
 * stream; nothing in it points into it, so it may be copied and moved.
 */
#ifndef KORVANE_NRSS_GAIN_NRSS_STATE_H
#define KORVANE_NRSS_GAIN_NRSS_STATE_H

#include <cstdint>

#include "dsp/gain_mul.h"
#include "korvane_nrss.h"
#include "nrss/gain/window_table.h"

namespace korvane {

struct SpeechScore;

inline constexpr int kBranchState = 4;             ///< words of filter memory (dsp/filter_bank.h)
inline constexpr int kSubWindows = 4;              ///< sub-windows of the minimum search
inline constexpr int16_t kUnityGain = 32767;       ///< Q15
inline constexpr int32_t kNoMinimum = 0x3FFFFFFF;  ///< above any power: a minimum not yet taken
inline constexpr int32_t kTwoBandClass = 3;        ///< the rate class that runs on two bands

/** What a signal's framing keeps from hop to hop (nrss/pipeline/framing.h). */
struct FrameMemory {
    int16_t last_hop[kHopSize];  ///< the samples of the last hop
    int32_t tail[kHopSize];      ///< the second half of the last processed frame
};

/** Initialised by NRSS_Init, but for the frames of the high band and the pointer to the score. */
struct NrssState {
    int16_t frame_len;           ///< samples per sub-block: 288, or 576 on the two-band path
    FrameMemory frames[2];       ///< of the full band or the low one, [channel]
    FrameMemory high_frames[2];  ///< of the high band, two-band path only; no initialisation
                                 ///< clears them
    uint8_t noise_ready;         ///< 1 once a whole sub-window has been tracked
    alignas(32) int32_t min_win[kSubWindows][kRowSize];  ///< minimum of psd_slow, per sub-window
    alignas(32) int16_t gain[kGains];                    ///< Q15
    int32_t level;                                       ///< 0..9, 0 is off
    int32_t rate_class;                                  ///< 0..3
    int32_t gain_floor;                                  ///< lowest gain, Q15
    int32_t alpha_fast;                                  ///< smoothing coefficients, Q15
    int32_t alpha_slow;
    int32_t alpha_osub;
    int32_t subwin_len;        ///< frames per sub-window
    int32_t startup_frames;    ///< frames before minimum tracking begins
    int32_t subwin_count;      ///< frames counted in the current sub-window
    int32_t frame_count;       ///< frames since initialisation; stays at 2^31 - 1
    int32_t min_win_row;       ///< row of min_win being filled; the next one is the oldest
    const int16_t* osf;        ///< [0..144] weight of each bin's noise, Q15
    const int32_t* osub_coef;  ///< [0..5] over-subtraction curve
    int32_t split_state_ch0[kBranchState];
    int32_t merge_state_ch0[kBranchState];
    int32_t split_state_ch1[kBranchState];
    int32_t merge_state_ch1[kBranchState];
    alignas(32) int32_t psd_slow[kGains];  ///< smoothed power per bin, for the minimum search
    alignas(32) int32_t psd_fast[kGains];  ///< smoothed power per bin, for the gain
    alignas(32) int32_t osub[kGains];      ///< smoothed over-subtraction factor, Q14
    alignas(32) int32_t noise[kGains];     ///< noise power estimate, on the scale of psd_slow
    alignas(32) int32_t gain_scratch[kGains];
    SpeechScore* speech;  ///< gets a score for each hop (speech/speech_score.h); null for none
};

/**
 * Sets up a stream, as Tolu_NRSS_Init does (korvane_nrss.h). With level 0 only the level and the rate
 * class change.
 *
 * @param level  0..9, else the nearest; 0 is off
 * @param rate   Hz; from 50000 on the rate class stays as it was
 */
void NRSS_Init(NrssState& s, int32_t level, int32_t rate);

}  // namespace korvane

#endif
