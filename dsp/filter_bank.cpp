#include "dsp/filter_bank.h"

#include "dsp/filter_bank_coefficients.h"

namespace korvane {

namespace {

/** One step of a section; state [0] u of the step before, [1] of two steps before, advanced. */
template <Section kSection>
int32_t allpass_step(int32_t* state, int32_t g) {
    const int32_t u = allpass_recursion<kSection>(g, state[0], state[1]);
    const int32_t y = allpass_output<kSection>(u, state[0], state[1]);
    state[1] = state[0];
    state[0] = u;
    return y;
}

}  // namespace

void NRSS_SplitBands(const int16_t* in, int32_t* state, BandPair& bands, int count) {
    for (int m = 0; m < count / 2; ++m) {
        const int32_t even = allpass_step<kBranchA>(state, in[2 * m]);
        const int32_t odd = allpass_step<kBranchB>(state + 2, in[2 * m + 1]);
        // 16 from the sections, 2 for the mean of the branches.
        bands.low[m] = saturate16(add_wrap(even, odd) >> 5);
        bands.high[m] = saturate16(sub_wrap(even, odd) >> 5);
    }
}

void NRSS_MergeBands(const BandPair& bands, int16_t* out, int32_t* state, int count) {
    for (int m = 0; m < count / 2; ++m) {
        const int32_t low = bands.low[m];
        const int32_t high = bands.high[m];
        // Each sample passes the section it has not seen yet, so both take the same allpass A*B.
        const int32_t even = allpass_step<kBranchB>(state, low + high);
        const int32_t odd = allpass_step<kBranchA>(state + 2, low - high);
        out[2 * m] = saturate16(even >> 4);
        out[2 * m + 1] = saturate16(odd >> 4);
    }
}

}  // namespace korvane
