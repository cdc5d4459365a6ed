#include "dsp/band_processor.h"

#include "dsp/fft288.h"
#include "dsp/fixed_point.h"
#include "dsp/gain_mul.h"

namespace korvane {

namespace {

/** Energy of a frame of n values, each square divided by 65536: with samples of 16 bits the sum
 * stays below 2^23. It is the 145th power that the gain engine sees. */
int32_t high_band_energy(const int32_t* frame, int n) {
    int32_t energy = 0;
    for (int i = 0; i < n; ++i) {
        energy = add_wrap(energy, mul_shr(frame[i], frame[i], 16));
    }
    return energy;
}

}  // namespace

void NRSS_ProcessBand(GainStep gain_step, void* gain_state, int32_t* frame, int32_t* high_frame,
                      int compute, int n) {
    real_fft288_plain(frame, frame);
    for (int i = 0; i < 2 * n; ++i) {
        frame[i] >>= 7;  // one bit less than in the full band, so that the bins keep one bit more
    }
    frame[2 * n] = high_band_energy(high_frame, 2 * n);
    frame[2 * n + 1] = 0;
    const int16_t* const gain = gain_step(gain_state, compute != 0 ? frame : nullptr, n);
    for (int k = 0; k < n; ++k) {
        frame[2 * k] = NRSS_GainMul(gain[k], frame[2 * k]);
        frame[2 * k + 1] = NRSS_GainMul(gain[k], frame[2 * k + 1]);
    }
    frame[0] = 0;  // DC
    frame[1] = 0;  // Nyquist
    for (int i = 0; i < 2 * n; ++i) {
        high_frame[i] = mul_q15(high_frame[i], gain[n]);
    }
    real_ifft288_plain(frame, frame);
}

}  // namespace korvane
