/**
 * The filter bank over a run of hops at once: the same split and merge as in dsp/filter_bank.h. The
 * recursions come first, one step after the other, the branches of all channels side by side; then
 * all that only depends on their values goes in vectors.
 */
#ifndef KORVANE_DSP_FILTER_BANK_SIMD_H
#define KORVANE_DSP_FILTER_BANK_SIMD_H

#include "dsp/filter_bank.h"
#include "dsp/filter_bank_coefficients.h"
#include "dsp/simd.h"

namespace korvane::KORVANE_ISA {

inline constexpr int kRunSize = 2 * kBandSize;  ///< samples of one band in two hops

/** A branch's internal values: those of the two steps before, then one per step. */
struct BranchHistory {
    int32_t u[2 + kRunSize];

    void load_state(const int32_t* state) {
        u[0] = state[1];
        u[1] = state[0];
    }
    void save_state(int32_t* state) const {
        state[0] = u[kRunSize + 1];
        state[1] = u[kRunSize];
    }
    template <Section kSection>
    KORVANE_INLINE void step(int m, int32_t g) {
        u[m + 2] = allpass_recursion<kSection>(g, u[m + 1], u[m]);
    }
    /** The section's outputs of steps m, m + 1, ... */
    template <Section kSection>
    [[nodiscard]] KORVANE_INLINE Wide output(int m) const {
        return allpass_output<kSection>(Wide::load(u + m + 2), Wide::load(u + m + 1),
                                        Wide::load(u + m));
    }
};

/** The bands of one channel over two hops, hop after hop. */
struct Bands {
    int16_t low[kRunSize];
    int16_t high[kRunSize];
};

/**
 * Splits two hops of one or two channels.
 *
 * @param in       [channel] [0..575] int16 samples
 * @param state    [channel] [0..3] split memory, advanced
 * @param history  [channel] [even branch, odd branch] scratch
 * @param bands    [channel] written
 */
template <int kChannels>
void split_bands(const int16_t* const* in, int32_t* const* state, BranchHistory (*history)[2],
                 Bands* bands) {
    for (int c = 0; c < kChannels; ++c) {
        history[c][0].load_state(state[c]);
        history[c][1].load_state(state[c] + 2);
    }
    for (int m = 0; m < kRunSize; ++m) {
        for (int c = 0; c < kChannels; ++c) {
            history[c][0].step<kBranchA>(m, in[c][2 * m]);
            history[c][1].step<kBranchB>(m, in[c][2 * m + 1]);
        }
    }
    for (int c = 0; c < kChannels; ++c) {
        history[c][0].save_state(state[c]);
        history[c][1].save_state(state[c] + 2);
        for (int m = 0; m < kRunSize; m += Wide::kLanes) {
            const Wide even = history[c][0].output<kBranchA>(m);
            const Wide odd = history[c][1].output<kBranchB>(m);
            store_saturated(bands[c].low + m, asr<5>(add_wrap(even, odd)));
            store_saturated(bands[c].high + m, asr<5>(sub_wrap(even, odd)));
        }
    }
}

/**
 * Merges two hops of one or two channels.
 *
 * @param bands    [channel] only read
 * @param state    [channel] [0..3] merge memory, advanced
 * @param history  [channel] [even branch, odd branch] scratch
 * @param out      [channel] [0..575] int16 samples, saturated
 */
template <int kChannels>
void merge_bands(const Bands* bands, int32_t* const* state, BranchHistory (*history)[2],
                 int16_t* const* out) {
    for (int c = 0; c < kChannels; ++c) {
        history[c][0].load_state(state[c]);
        history[c][1].load_state(state[c] + 2);
    }
    for (int m = 0; m < kRunSize; ++m) {
        for (int c = 0; c < kChannels; ++c) {
            const int32_t low = bands[c].low[m];
            const int32_t high = bands[c].high[m];
            history[c][0].step<kBranchB>(m, low + high);
            history[c][1].step<kBranchA>(m, low - high);
        }
    }
    for (int c = 0; c < kChannels; ++c) {
        history[c][0].save_state(state[c]);
        history[c][1].save_state(state[c] + 2);
        for (int m = 0; m < kRunSize; m += Wide::kLanes) {
            store_interleaved(out[c] + 2 * m, asr<4>(history[c][0].output<kBranchB>(m)),
                              asr<4>(history[c][1].output<kBranchA>(m)));
        }
    }
}

}  // namespace korvane::KORVANE_ISA

#endif
