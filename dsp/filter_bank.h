/**
 * Two-band allpass filter bank: a critically sampled quadrature-mirror pair of two polyphase
 * branches, each one second-order allpass section (P. P. Vaidyanathan, "Multirate Systems and
 * Filter Banks", 1993, ch. 5; R. Ansari, B. Liu 1983). Split followed by merge is the allpass
 * A(z^2)*B(z^2): the magnitude spectrum comes back, the phase changes.
 *
 * The bands cross at a quarter of the sampling rate (-3 dB each), are flat to within 0.1 dB up to
 * 0.24 of it, and reject the other band by 51 dB or more beyond 0.28 of it. Both bands come out
 * inverted in sign; the merge inverts them back.
 */
#ifndef KORVANE_DSP_FILTER_BANK_H
#define KORVANE_DSP_FILTER_BANK_H

#include <cstdint>

namespace korvane {

inline constexpr int kBandSize = 144;   ///< samples of one band in a hop
inline constexpr int kBranchState = 4;  ///< words of filter memory: [0] u[m-1] and [1] u[m-2] of
                                        ///< the even branch, [2] and [3] the same of the odd branch

/** The bands of one hop of one channel, int16 samples at half the rate. */
struct BandPair {
    int16_t low[kBandSize];
    int16_t high[kBandSize];
};

/**
 * Splits count samples into the bands, count/2 samples each.
 *
 * @param in     [0..count-1] int16 samples
 * @param state  [0..3] filter memory, int32, over 1000 times the samples; advanced by count/2 steps
 * @param bands  written
 * @param count  even, 2..288
 */
void NRSS_SplitBands(const int16_t* in, int32_t* state, BandPair& bands, int count);

/**
 * Merges count/2 samples of each band into count samples.
 *
 * @param bands  only read
 * @param out    [0..count-1] int16 samples, saturated
 * @param state  [0..3] filter memory, as above but of the merge
 * @param count  even, 2..288
 */
void NRSS_MergeBands(const BandPair& bands, int16_t* out, int32_t* state, int count);

}  // namespace korvane

#endif
