// The suppressor's entry points by sample layout; see korvane_nrss.h.

#include <algorithm>
#include <cstddef>

#include "korvane_nrss.h"
#include "nrss/stream/block_stream.h"

namespace korvane {

namespace {

// Written before every use; carry nothing.
constinit int16_t deinterleave_ch0[kBlockSize] = {};
constinit int16_t deinterleave_ch1[kBlockSize] = {};

}  // namespace

}  // namespace korvane

extern "C" {

void Tolu_NRSS_EXE(int16_t* samples, int n, int mode) {
    using namespace korvane;
    if (mode == 1) {
        Tolu_NRSS_Buffered(samples, samples, n);
        return;
    }
    if (mode != 2) {
        return;
    }
    while (n > 0) {
        const int chunk = std::min(n, static_cast<int>(kBlockSize));
        for (int i = 0; i < chunk; ++i) {
            deinterleave_ch0[i] = samples[2 * i];
            deinterleave_ch1[i] = samples[2 * i + 1];
        }
        Tolu_NRSS_Buffered(deinterleave_ch0, deinterleave_ch1, chunk);
        Tolu_NRSS_Interleave(samples, deinterleave_ch0, deinterleave_ch1, chunk);
        samples += 2 * chunk;
        n -= chunk;
    }
}

void Tolu_NRSS(int16_t* samples, int n) { Tolu_NRSS_EXE(samples, n, 2); }

void Tolu_NRSS_Interleave(int16_t* dst, const int16_t* ch0, const int16_t* ch1, int n) {
    for (std::ptrdiff_t i = 0; i < n; ++i) {  // from 2^30 pairs on, 2i leaves int
        dst[2 * i] = ch0[i];
        dst[2 * i + 1] = ch1[i];
    }
}

}  // extern "C"
