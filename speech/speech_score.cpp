#include "speech/speech_score.h"

#include <algorithm>

namespace korvane {

namespace {

constexpr int32_t kTwoBandRate = 25000;  // Hz, from which hops are of a band of half the rate

// Hz. Below, the bins of 48 kHz are too wide for more; above, 8 kHz has no sound. Each band has a bin, up to 50 kHz.
constexpr int32_t kBandEdges[kSpeechBands + 1] = {80,   170,  270,  380,  500,  640, 820,
                                                  1050, 1350, 1750, 2250, 2900, 3900};

constexpr int32_t kFloorSpeed = 8166;  // of the floors in a second, Q10: 24 dB
constexpr int32_t kPeakSpeed = 1021;   // of the peak: 3 dB
constexpr int32_t kFirstHurry = 8 << 10;

constexpr int32_t kUnitTimes[4] = {30, 100, 400, 1500};  // ms, of a quarter of the units each

}  // namespace

void speech_init(SpeechScore& s, int32_t rate) {
    s = {};
    const int32_t clock =
        std::max<int32_t>(rate >= kTwoBandRate ? rate / 2 : rate, 1);  // hops are of 144
    // An average over t goes hop / (t + hop / 2) of the way in a hop.
    const auto step = [clock](int64_t ms) {
        return static_cast<int32_t>(std::min<int64_t>(
            65536 * 1000 * int64_t{kBins} / (2 * clock * ms + 1000 * int64_t{kBins}), 32767));
    };
    const auto per_hop = [clock](int64_t speed) {
        return static_cast<int32_t>(std::min<int64_t>((speed << 10) * kBins / clock, 1 << 24));
    };
    // clock / 2 is the end of bin 143.
    for (int band = 0; band <= kSpeechBands; ++band) {
        const int64_t bin = (int64_t{kBandEdges[band]} * 2 * kBins + clock / 2) / clock;
        const int64_t last = kBins - kSpeechBands + band;  // leaves a bin for each band above
        s.edges[band] = static_cast<int16_t>(std::min(bin, last));
    }
    s.power_shift = rate >= kTwoBandRate ? 2 * (kFullBandShift - kLowBandShift) : 0;
    s.steps = {step(20),
               step(40),
               step(60),
               step(100),
               {step(100), step(400), step(500), step(2000)},
               {step(500), step(2000), step(100), step(300)},
               {}};
    for (int unit = 0; unit < kSpeechUnits; ++unit) {
        s.steps.units[unit] = step(kUnitTimes[unit * 4 / kSpeechUnits]);
    }
    s.floor_step = per_hop(kFloorSpeed);
    s.peak_step = per_hop(kPeakSpeed);
    s.hurry_decay = 32767 - step(1000);
    s.hurry = kFirstHurry;
}

}  // namespace korvane
