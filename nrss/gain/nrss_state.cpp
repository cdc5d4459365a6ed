#include "nrss/gain/nrss_state.h"

#include <algorithm>
#include <iterator>

#include "nrss/gain/tables.h"

namespace korvane {

namespace {

/** What a sampling rate settles. The time constants are per frame, so a class whose frames come
 * more often smooths more. */
struct RateClass {
    int16_t frame_len;
    const int16_t* osf;
    int32_t alpha_slow;
    int32_t alpha_osub;
    int32_t subwin_len;
    int32_t startup_frames;
    int32_t alpha_fast[3];  // levels 1-3, 4-6, 7-9
};

constexpr RateClass kRateClasses[] = {
    {288, kOsfLowRate, 26828, 27922, 63, 13, {19222, 17279, 14723}},
    {288, kOsfMidRate, 26828, 27922, 63, 13, {19222, 17279, 14723}},
    {288, kOsfHighRate, 26828, 27922, 86, 18, {19222, 17279, 14723}},
    {576, kOsfHighRate, 29650, 30249, 125, 25, {25098, 23794, 21965}},
};

constexpr int32_t kMaxLevel = 9;

// Gain floors of levels 1..9, Q15: -3.1 to -26 dB.
constexpr int32_t kGainFloors[kMaxLevel] = {22938, 16384, 13107, 10813, 8192,
                                            6554,  4686,  3277,  1638};

/** The rate class of a rate below 50000 Hz. */
int32_t rate_class_of(int32_t rate) {
    return rate < 10000 ? 0 : rate < 20000 ? 1 : rate < 25000 ? 2 : kTwoBandClass;
}

template <class Array>
void zero(Array& array) {
    std::fill(std::begin(array), std::end(array), 0);
}

}  // namespace

void NRSS_Init(NrssState& s, int32_t level, int32_t rate) {
    s.level = std::clamp<int32_t>(level, 0, kMaxLevel);
    if (rate < 50000) {
        s.rate_class = rate_class_of(rate);
    }
    if (s.level == 0) {
        return;
    }

    const RateClass& rates = kRateClasses[s.rate_class];
    const int32_t strength = (s.level - 1) / 3;  // three levels share a curve and a time constant
    s.gain_floor = kGainFloors[s.level - 1];
    s.osub_coef = kOsubCurves[strength];
    s.osf = rates.osf;
    s.frame_len = rates.frame_len;
    s.alpha_fast = rates.alpha_fast[strength];
    s.alpha_slow = rates.alpha_slow;
    s.alpha_osub = rates.alpha_osub;
    s.subwin_len = rates.subwin_len;
    s.startup_frames = rates.startup_frames;

    s.noise_ready = 0;
    s.subwin_count = 0;
    s.frame_count = 0;
    zero(s.psd_slow);
    zero(s.psd_fast);
    zero(s.osub);
    for (FrameMemory& memory : s.frames) {
        memory = {};
    }
    for (auto& row : s.min_win) {
        std::fill(std::begin(row), std::end(row), kNoMinimum);
    }
    s.min_win_row = 0;
    zero(s.split_state_ch0);
    zero(s.merge_state_ch0);
    zero(s.split_state_ch1);
    zero(s.merge_state_ch1);
    std::fill(std::begin(s.gain), std::end(s.gain), kUnityGain);
}

}  // namespace korvane
