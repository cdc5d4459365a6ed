#include "nrss/pipeline/full_band.h"

#include "dsp/fft288.h"
#include "dsp/gain_mul.h"
#include "nrss/gain/spectral_gain.h"

namespace korvane {

void NRSS_ProcessFullBand(NrssState& s, int32_t* frame, bool compute) {
    real_fft288_plain(frame, frame);
    // 288 full-scale samples reach 288 * 32767; eight bits less keep re*re + im*im below 2^32.
    for (int i = 0; i < kFrameSize; ++i) {
        frame[i] >>= 8;
    }
    if (compute) {
        NRSS_SpectralGain(s, frame, kBins, 0);
    }
    for (int k = 1; k < kBins; ++k) {
        frame[2 * k] = NRSS_GainMul(s.gain[k], frame[2 * k]);
        frame[2 * k + 1] = NRSS_GainMul(s.gain[k], frame[2 * k + 1]);
    }
    frame[0] = 0;  // DC
    frame[1] = 0;  // Nyquist
    real_ifft288_plain(frame, frame);
}

}  // namespace korvane
