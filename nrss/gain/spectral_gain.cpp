#include "nrss/gain/spectral_gain.h"

#include "nrss/gain/gain_engine.h"

namespace korvane {

int32_t ratio_q30(int32_t noise, int32_t power) { return ratio_q30<int32_t, true>(noise, power); }

int32_t sqrt_q15(int32_t ratio) { return sqrt_q15<int32_t, true>(ratio); }

void NRSS_SpectralGain(NrssState& s, const int32_t* spectrum, int32_t n, int32_t extra_bins) {
    int32_t power[kGains] = {};
    for (int32_t k = 0; k < n; ++k) {
        // The sum of two squares may need the 32nd bit, so it is formed without a sign.
        const auto re = static_cast<uint32_t>(spectrum[2 * k]);
        const auto im = static_cast<uint32_t>(spectrum[2 * k + 1]);
        power[k] = static_cast<int32_t>(re * re + im * im + 2);
    }
    for (int32_t k = n; k < n + extra_bins; ++k) {
        power[k] = spectrum[2 * k];
    }
    run_gain_engine<int32_t>(s, power, extra_bins);
}

}  // namespace korvane
