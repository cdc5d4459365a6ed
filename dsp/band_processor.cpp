#include "dsp/band_processor.h"

#include "dsp/fft288.h"
#include "dsp/fixed_point.h"
#include "dsp/gain_mul.h"
#include "dsp/gain_port.h"

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

void NRSS_ProcessBand(int32_t* frame, int32_t* high_frame, int compute, int n) {
    real_fft288(frame, frame);
    for (int i = 0; i < 2 * n; ++i) {
        frame[i] >>= 7;  // half the full band's shift: the bands carry half the samples
    }
    frame[2 * n] = high_band_energy(high_frame, 2 * n);
    frame[2 * n + 1] = 0;
    if (compute != 0) {
        NRSS_SpectralGain(frame, n, 1);
    }

    const int16_t* const gain = NRSS_Gains();
    for (int k = 0; k < n; ++k) {
        frame[2 * k] = NRSS_GainMul(gain[k], frame[2 * k]);
        frame[2 * k + 1] = NRSS_GainMul(gain[k], frame[2 * k + 1]);
    }
    frame[0] = 0;  // DC
    frame[1] = 0;  // Nyquist
    for (int i = 0; i < 2 * n; ++i) {
        high_frame[i] = mul_q15(high_frame[i], gain[n]);
    }
    real_ifft288(frame, frame);
}

}  // namespace korvane
