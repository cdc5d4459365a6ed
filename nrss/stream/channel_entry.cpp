// Entry by sample layout: one channel, or two interleaved.

#include <algorithm>
#include <cstddef>

#include "nrss/stream/block_stream.h"

namespace korvane {

void NRSS_EXE(NrssStreamState& s, NrssState& suppressor, int16_t* samples, int n, int mode) {
    if (mode == 1) {
        NRSS_Buffered(s, suppressor, samples, samples, n);
        return;
    }
    if (mode != 2) {
        return;
    }
    int16_t ch0[kBlockSize];
    int16_t ch1[kBlockSize];
    while (n > 0) {
        const int chunk = std::min(n, static_cast<int>(kBlockSize));
        for (int i = 0; i < chunk; ++i) {
            ch0[i] = samples[2 * i];
            ch1[i] = samples[2 * i + 1];
        }
        NRSS_Buffered(s, suppressor, ch0, ch1, chunk);
        NRSS_Interleave(samples, ch0, ch1, chunk);
        samples += 2 * chunk;
        n -= chunk;
    }
}

void NRSS_Interleave(int16_t* dst, const int16_t* ch0, const int16_t* ch1, int n) {
    for (std::ptrdiff_t i = 0; i < n; ++i) {  // from 2^30 pairs on, 2i leaves int
        dst[2 * i] = ch0[i];
        dst[2 * i + 1] = ch1[i];
    }
}

}  // namespace korvane
