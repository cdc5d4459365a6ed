/**
 * The sections of the two-band allpass filter bank, and the recursion they share.
 */
#ifndef KORVANE_DSP_FILTER_BANK_COEFFICIENTS_H
#define KORVANE_DSP_FILTER_BANK_COEFFICIENTS_H

#include "dsp/fixed_point.h"

namespace korvane {

/** Denominator 1 + c1*z^-1 + c2*z^-2 of a second-order allpass section, Q14. */
struct Section {
    int c1;
    int c2;
};

inline constexpr Section kBranchA{21353, 5967};  // first-order coefficients 0.89749 and 0.40580
inline constexpr Section kBranchB{13202, 1414};  // 0.67861 and 0.12718

/**
 * The recursion of a section in direct form II: u = 64*g/D(z), from the u of one and two steps
 * before. With products of Q14 coefficients shifted by 16, a product is a quarter of its value, and
 * the shift by two restores the factor 4.
 *
 * @param g   input, within +-65536
 * @param s1  u of the step before
 * @param s2  u of two steps before
 */
template <Section kSection>
KORVANE_INLINE constexpr int32_t allpass_recursion(int32_t g, int32_t s1, int32_t s2) {
    const int32_t rest = add_wrap(shl_wrap(g, 4), mul_half_q15<-kSection.c2>(s2));
    return shl_wrap(add_wrap(rest, mul_half_q15<-kSection.c1>(s1)), 2);
}

/** The section's output, -16 times the allpass, from u and the two before it. */
template <Section kSection, class V>
KORVANE_INLINE constexpr V allpass_output(V u, V s1, V s2) {
    return add_wrap(add_wrap(mul_half_q15<-kSection.c1>(s1), asr<2>(neg_wrap(s2))),
                    mul_half_q15<-kSection.c2>(u));
}

}  // namespace korvane

#endif
