/**
 * The filter bank over a run of hops at once: the same split and merge as in dsp/filter_bank.h, the
 * branches of all channels side by side. A recursion waits for itself most of the time; everything
 * else fills its gaps.
 */
#ifndef KORVANE_DSP_FILTER_BANK_SIMD_H
#define KORVANE_DSP_FILTER_BANK_SIMD_H

#include "dsp/filter_bank.h"
#include "dsp/filter_bank_coefficients.h"
#include "dsp/simd.h"

namespace korvane::KORVANE_ISA {

inline constexpr int kRunSize = 2 * kBandSize;  ///< samples of one band in two hops

/** The bands of one channel over two hops, hop after hop. */
struct Bands {
    int16_t low[kRunSize];
    int16_t high[kRunSize];
};

/**
 * The internal values of all branches: even and odd branch of channel 0, then of channel 1. With one
 * channel the upper half means nothing.
 */
struct Branches {
    Quad u1;  // of the step before
    Quad u2;  // of two steps before
    Quad p1;  // their products with c2
    Quad p2;
};

/** Both coefficients of all branches, negated. */
template <Section kEven, Section kOdd>
struct BranchCoefficients {
    Quad c1 = Quad::of(-kEven.c1, -kOdd.c1, -kEven.c1, -kOdd.c1);
    Quad c2 = Quad::of(-kEven.c2, -kOdd.c2, -kEven.c2, -kOdd.c2);
};

KORVANE_INLINE Branches load_branches(const int32_t* state0, const int32_t* state1, Quad c2) {
    const Quad s0 = Quad::load(state0);
    const Quad s1 = Quad::load(state1);
    const Quad u1 = even_lanes(s0, s1);
    const Quad u2 = odd_lanes(s0, s1);
    return {u1, u2, mul_half_negative(u1, c2), mul_half_negative(u2, c2)};
}

template <int kChannels>
KORVANE_INLINE void save_branches(const Branches& b, int32_t* const* state) {
    store(state[0], zip_low(b.u1, b.u2));
    if constexpr (kChannels == 2) {
        store(state[1], zip_high(b.u1, b.u2));
    }
}

/** One step of every branch: the recursion and the output of dsp/filter_bank_coefficients.h. */
template <class Coefficients>
KORVANE_INLINE Quad advance(Branches& b, Quad g, const Coefficients& c) {
    const Quad rest = add_wrap(shl<4>(g), b.p2);
    const Quad quarter = add_half_negative(rest, b.u1, c.c1);
    const Quad u = shl<2>(quarter);
    const Quad p = mul_half_negative(u, c.c2);
    const Quad y = add_wrap(add_wrap(sub_wrap(quarter, rest), asr<2>(neg_wrap(b.u2))), p);
    b = {u, b.u1, p, b.p1};
    return y;
}

/**
 * Splits two hops of one or two channels.
 *
 * @param in     [channel] [0..575] int16 samples
 * @param state  [channel] [0..3] split memory, advanced
 * @param bands  [channel] written
 */
template <int kChannels>
void split_bands(const int16_t* const* in, int32_t* const* state, Bands* bands) {
    const BranchCoefficients<kBranchA, kBranchB> c;
    Branches b = load_branches(state[0], state[kChannels - 1], c.c2);
    for (int m = 0; m < kRunSize; m += 4) {
        Quad y[4];
        for (int i = 0; i < 4; i += 2) {
            const Quad x0 = Quad::extend(in[0] + 2 * (m + i));
            const Quad x1 = Quad::extend(in[kChannels - 1] + 2 * (m + i));
            y[i] = advance(b, lower_halves(x0, x1), c);
            y[i + 1] = advance(b, upper_halves(x0, x1), c);
        }
        const auto store_bands = [&](Bands& to, Quad early, Quad late) {
            const Quad even = even_lanes(early, late);
            const Quad odd = odd_lanes(early, late);
            store_saturated(to.low + m, asr<5>(add_wrap(even, odd)));
            store_saturated(to.high + m, asr<5>(sub_wrap(even, odd)));
        };
        store_bands(bands[0], lower_halves(y[0], y[1]), lower_halves(y[2], y[3]));
        if constexpr (kChannels == 2) {
            store_bands(bands[1], upper_halves(y[0], y[1]), upper_halves(y[2], y[3]));
        }
    }
    save_branches<kChannels>(b, state);
}

/**
 * Merges two hops of one or two channels.
 *
 * @param bands  [channel] only read
 * @param state  [channel] [0..3] merge memory, advanced
 * @param out    [channel] [0..575] int16 samples, saturated
 */
template <int kChannels>
void merge_bands(const Bands* bands, int32_t* const* state, int16_t* const* out) {
    const BranchCoefficients<kBranchB, kBranchA> c;
    Branches b = load_branches(state[0], state[kChannels - 1], c.c2);
    for (int m = 0; m < kRunSize; m += 4) {
        Quad early[size_t{kChannels}];  // sums and differences of two steps, in pairs
        Quad late[size_t{kChannels}];
        for (int channel = 0; channel < kChannels; ++channel) {
            const Quad low = Quad::extend(bands[channel].low + m);
            const Quad high = Quad::extend(bands[channel].high + m);
            const Quad sum = add_wrap(low, high);
            const Quad difference = sub_wrap(low, high);
            early[channel] = zip_low(sum, difference);
            late[channel] = zip_high(sum, difference);
        }
        constexpr int kLast = kChannels - 1;
        const Quad y0 = advance(b, lower_halves(early[0], early[kLast]), c);
        const Quad y1 = advance(b, upper_halves(early[0], early[kLast]), c);
        const Quad y2 = advance(b, lower_halves(late[0], late[kLast]), c);
        const Quad y3 = advance(b, upper_halves(late[0], late[kLast]), c);
        store_saturated(out[0] + 2 * m, asr<4>(lower_halves(y0, y1)));
        store_saturated(out[0] + 2 * m + 4, asr<4>(lower_halves(y2, y3)));
        if constexpr (kChannels == 2) {
            store_saturated(out[1] + 2 * m, asr<4>(upper_halves(y0, y1)));
            store_saturated(out[1] + 2 * m + 4, asr<4>(upper_halves(y2, y3)));
        }
    }
    save_branches<kChannels>(b, state);
}

}  // namespace korvane::KORVANE_ISA

#endif
