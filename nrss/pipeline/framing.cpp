#include "nrss/pipeline/framing.h"

#include "dsp/fft288.h"
#include "dsp/fixed_point.h"
#include "nrss/gain/window_table.h"

namespace korvane {

void NRSS_WindowFrame(const int16_t* x, int32_t* cur, int32_t* oth) {
    for (int k = 0; k < kHopSize; ++k) {
        cur[kHopSize + k] = (kWindow[kHopSize - 1 - k] * x[k]) >> 15;
        oth[k] = (kWindow[k] * x[k]) >> 15;
    }
}

void NRSS_OverlapAdd(const int32_t* cur, const int32_t* oth, int16_t* out) {
    for (int k = 0; k < kHopSize; ++k) {
        const int32_t head = mul_q15(cur[k], kWindow[k]);
        const int32_t tail = mul_q15(oth[kHopSize + k], kWindow[kHopSize - 1 - k]);
        out[k] = saturate16(add_wrap(head, tail));
    }
}

}  // namespace korvane
