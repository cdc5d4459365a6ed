#include "dsp/filter_bank.h"

#include "dsp/fixed_point.h"

namespace korvane {

constinit int16_t low_band[kBandSize] = {};
constinit int16_t high_band[kBandSize] = {};

namespace {

/** Denominator 1 + c1*z^-1 + c2*z^-2 of a second-order allpass section, Q14. */
struct Section {
    int16_t c1;
    int16_t c2;
};

constexpr Section kBranchA{21353, 5967};  // first-order coefficients 0.89749 and 0.40580
constexpr Section kBranchB{13202, 1414};  // 0.67861 and 0.12718

/**
 * One step of a section in direct form II. The memory holds u = 64*g/D(z); with products of Q14
 * coefficients shifted by 16, p and q are a quarter of their value, and u restores the factor 4.
 *
 * @param state  [0] u of the step before, [1] of two steps before; advanced
 * @param g      input, within +-65536
 * @return       -16 times the allpass output
 */
int32_t allpass_step(Section section, int32_t* state, int32_t g) {
    const int32_t p = mul_shr(state[0], -section.c1, 16);
    const int32_t q = mul_shr(state[1], -section.c2, 16);
    const int32_t u = shl_wrap(add_wrap(add_wrap(shl_wrap(g, 4), p), q), 2);
    const int32_t y = add_wrap(add_wrap(p, neg_wrap(state[1]) >> 2), mul_shr(u, -section.c2, 16));
    state[1] = state[0];
    state[0] = u;
    return y;
}

}  // namespace

void NRSS_SplitBands(const int16_t* in, int32_t* state, int count) {
    for (int m = 0; m < count / 2; ++m) {
        const int32_t even = allpass_step(kBranchA, state, in[2 * m]);
        const int32_t odd = allpass_step(kBranchB, state + 2, in[2 * m + 1]);
        // 16 from the sections, 2 for the mean of the branches.
        low_band[m] = saturate16(add_wrap(even, odd) >> 5);
        high_band[m] = saturate16(sub_wrap(even, odd) >> 5);
    }
}

void NRSS_MergeBands(int16_t* out, int32_t* state, int count) {
    for (int m = 0; m < count / 2; ++m) {
        const int32_t low = low_band[m];
        const int32_t high = high_band[m];
        // Each sample passes the section it has not seen yet, so both take the same allpass A*B.
        const int32_t even = allpass_step(kBranchB, state, low + high);
        const int32_t odd = allpass_step(kBranchA, state + 2, low - high);
        out[2 * m] = saturate16(even >> 4);
        out[2 * m + 1] = saturate16(odd >> 4);
    }
}

}  // namespace korvane
