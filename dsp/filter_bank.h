/**
 * Two-band allpass filter bank: a critically sampled quadrature-mirror pair of two polyphase
 * branches, each one second-order allpass section (P. P. Vaidyanathan, "Multirate Systems and
 * Filter Banks", 1993, ch. 5; R. Ansari, B. Liu 1983). Split followed by merge is the allpass
 * A(z^2)*B(z^2): the magnitude spectrum comes back, the phase changes.
 *
 * The bands cross at a quarter of the sampling rate (-3 dB each), are flat to within 0.1 dB up to
 * 0.24 of it, and reject the other band by 51 dB or more beyond 0.28 of it. Both bands come out
 * inverted in sign; the merge inverts them back.
 *
 * The filter memory of a channel is four words, int32, up to about 1050 times the samples: u of the last
 * step and of the one before, of the even branch and then of the odd one.
 *
 * The branches of all channels go side by side, the even ones in the lower half of a vector, the odd ones in
 * the upper. A recursion waits for itself most of the time; everything else fills its gaps.
 */
#ifndef KORVANE_DSP_FILTER_BANK_H
#define KORVANE_DSP_FILTER_BANK_H

#include "dsp/lanes.h"

namespace korvane {

/** Denominator 1 + c1*z^-1 + c2*z^-2 of a second-order allpass section, Q14. */
struct Section {
    int c1;
    int c2;
};

inline constexpr Section kBranchA{21353, 5967};  // first-order coefficients 0.89749 and 0.40580
inline constexpr Section kBranchB{13202, 1414};  // 0.67861 and 0.12718

}  // namespace korvane

namespace korvane::KORVANE_ISA {

/** Channels in a vector. Where it holds two and there is one, that goes through twice. */
inline constexpr int kBankChannels = kNativeLanes >= 4 ? 2 : 1;

/** The signals and memories of one channel. */
struct BankChannel {
    int16_t* samples;      ///< [0..count-1]
    int16_t* low;          ///< [0..count/2-1]
    int16_t* high;         ///< [0..count/2-1]
    int32_t* split_state;  ///< [0..3]
    int32_t* merge_state;  ///< [0..3]
};

/** The internal values u of all branches: of the last step and of the one before, and their products with
 * c2. */
struct Branches {
    using V = Lanes<2 * kBankChannels>;
    V u1;
    V u2;
    V p1;
    V p2;
};

/** Both coefficients of all branches, negated. */
template <Section kEven, Section kOdd, class V = Branches::V>
struct Coefficients {
    V c1 = broadcast_halves<V>(-kEven.c1, -kOdd.c1);
    V c2 = broadcast_halves<V>(-kEven.c2, -kOdd.c2);
};

KORVANE_INLINE Branches load_branches(const BankChannel* channels, int32_t* BankChannel::*state,
                                      const Branches::V& c2) {
    Lanes<4> rows[size_t{kBankChannels}];
    for (int c = 0; c < kBankChannels; ++c) {
        rows[c] = Lanes<4>::load(channels[c].*state);
    }
    Branches::V branches[2];
    transpose<kBankChannels>(rows, branches);
    const auto u1 = lower_halves(branches[0], branches[1]);
    const auto u2 = upper_halves(branches[0], branches[1]);
    return {u1, u2, mul_half_negative(u1, c2), mul_half_negative(u2, c2)};
}
KORVANE_INLINE void save_branches(const Branches& b, const BankChannel* channels,
                                  int32_t* BankChannel::*state) {
    const Branches::V branches[2] = {lower_halves(b.u1, b.u2), upper_halves(b.u1, b.u2)};
    Lanes<4> rows[size_t{kBankChannels}];
    transpose_back<kBankChannels>(branches, rows);
    for (int c = 0; c < kBankChannels; ++c) {
        store(channels[c].*state, rows[c]);
    }
}

/**
 * One step of every branch, a section in direct form II: u = 64*g/D(z) from the two before it, and from
 * those three -16 times the allpass of g, which is returned. With products of Q14 coefficients shifted by
 * 16 a product is a quarter of its value, and the shift by two restores the factor 4.
 *
 * @param g  input, within +-65536
 */
template <class C>
KORVANE_INLINE Branches::V advance(Branches& b, const Branches::V& g, const C& c) {
    const auto rest = add_wrap(shl<4>(g), b.p2);
    const auto quarter = add_half_negative(rest, b.u1, c.c1);
    const auto u = shl<2>(quarter);
    const auto p = mul_half_negative(u, c.c2);
    const auto y = add_wrap(add_wrap(sub_wrap(quarter, rest), asr<2>(neg_wrap(b.u2))), p);
    b = {u, b.u1, p, b.p1};
    return y;
}

/**
 * Splits the samples of kBankChannels channels into bands.
 *
 * @param channels  low and high are written, split_state advances by count / 2 steps
 * @param count     a multiple of 8
 */
inline void NRSS_SplitBands(const BankChannel* channels, int count) {
    const Coefficients<kBranchA, kBranchB> c;
    Branches b = load_branches(channels, &BankChannel::split_state, c.c2);
    const int16_t* samples[size_t{kBankChannels}];
    for (int channel = 0; channel < kBankChannels; ++channel) {
        samples[channel] = channels[channel].samples;
    }
    for (int m = 0; m < count / 2; m += 4) {
        Branches::V y[4];  // of an even and an odd sample of every channel
        load_pairs<kBankChannels>(samples, 2 * m, y);
        for (auto& value : y) {
            value = advance(b, value, c);
        }
        const Branches::V evens[2] = {lower_halves(y[0], y[1]), lower_halves(y[2], y[3])};
        const Branches::V odds[2] = {upper_halves(y[0], y[1]), upper_halves(y[2], y[3])};
        Lanes<4> even[size_t{kBankChannels}];
        Lanes<4> odd[size_t{kBankChannels}];
        transpose_back<kBankChannels>(evens, even);
        transpose_back<kBankChannels>(odds, odd);
        for (int channel = 0; channel < kBankChannels; ++channel) {
            // 16 from the sections, 2 for the mean of the branches.
            store(channels[channel].low + m, asr<5>(add_wrap(even[channel], odd[channel])));
            store(channels[channel].high + m, asr<5>(sub_wrap(even[channel], odd[channel])));
        }
    }
    save_branches(b, channels, &BankChannel::split_state);
}

/**
 * Merges the bands of kBankChannels channels into samples, saturated.
 *
 * @param channels  samples are written, merge_state advances by count / 2 steps
 * @param count     a multiple of 8
 */
inline void NRSS_MergeBands(const BankChannel* channels, int count) {
    // Each sample passes the section it has not seen yet, so both take the same allpass A*B.
    const Coefficients<kBranchB, kBranchA> c;
    Branches b = load_branches(channels, &BankChannel::merge_state, c.c2);
    int16_t* samples[size_t{kBankChannels}];
    for (int channel = 0; channel < kBankChannels; ++channel) {
        samples[channel] = channels[channel].samples;
    }
    for (int m = 0; m < count / 2; m += 4) {
        Lanes<4> even[size_t{kBankChannels}];
        Lanes<4> odd[size_t{kBankChannels}];
        for (int channel = 0; channel < kBankChannels; ++channel) {
            const auto low = Lanes<4>::load(channels[channel].low + m);
            const auto high = Lanes<4>::load(channels[channel].high + m);
            even[channel] = add_wrap(low, high);
            odd[channel] = sub_wrap(low, high);
        }
        Branches::V evens[2];
        Branches::V odds[2];
        transpose<kBankChannels>(even, evens);
        transpose<kBankChannels>(odd, odds);
        Branches::V y[4];
        for (int i = 0; i < 2; ++i) {
            y[2 * i] = asr<4>(advance(b, lower_halves(evens[i], odds[i]), c));
            y[2 * i + 1] = asr<4>(advance(b, upper_halves(evens[i], odds[i]), c));
        }
        store_pairs<kBankChannels>(y, samples, 2 * m);
    }
    save_branches(b, channels, &BankChannel::merge_state);
}

}  // namespace korvane::KORVANE_ISA

#endif
