#include "detector/level_decision.h"

#include <algorithm>
#include <cmath>

#include "dsp/fixed_point.h"
#include "korvane_vad.h"

namespace korvane {

constinit VorState vor_state = {};

double level_db(const int16_t* x, int n) {
    uint64_t sum = 0;
    for (int i = 0; i < n; ++i) {
        sum += static_cast<uint32_t>(x[i] * x[i]);
    }
    const double mean_square = static_cast<double>(sum) / (static_cast<double>(n) * 1073741824.0);
    return 20.0 * std::log10(std::sqrt(mean_square) + 1e-7);  // 1e-7 keeps silence finite
}

}  // namespace korvane

extern "C" {

void OLM_VOR_Init(void) { korvane::vor_state = {1, 1, 1, 480, 19200, 0, 0}; }

void OLM_VOR_SetFs(int /*rate*/) {
    korvane::VorState& s = korvane::vor_state;
    // The counts are meant for 48 kHz, 10 ms and 400 ms, and are kept at every rate.
    const double base = s.rate_enabled != 0 ? 48000.0 : 0.0;
    s.onset_samples = static_cast<int32_t>(std::floor(base * 0.01));
    s.hangover_samples = static_cast<int32_t>(std::floor(base * 0.4));
}

int OLM_VOR(const int16_t* ch0, const int16_t* ch1, int n) {
    using namespace korvane;
    VorState& s = vor_state;

    double level = level_db(ch0, n);
    if (ch1 != nullptr) {
        level = std::max(level, level_db(ch1, n));
    }
    const bool speech = s.speech != 0;
    const double threshold =
        speech ? (s.stay_enabled != 0 ? -50.0 : 0.0) : (s.enter_enabled != 0 ? -45.0 : 0.0);

    // A countdown runs only while frames keep to the other side of the threshold. No level at all
    // (n = 0) lies on neither side.
    const bool leaving = speech ? level <= threshold : level > threshold;
    if (!leaving) {
        s.countdown = 0;
        return static_cast<int>(s.speech);
    }
    if (s.countdown == 0) {
        s.countdown = speech ? s.hangover_samples : s.onset_samples;
    }
    s.countdown = sub_wrap(s.countdown, n);
    if (s.countdown < 1) {
        s.speech = speech ? 0 : 1;
        s.countdown = 0;
    }
    return static_cast<int>(s.speech);
}

}  // extern "C"
