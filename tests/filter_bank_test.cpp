// The filter bank against double-precision allpasses, and the gain's multiplication.
//
// How far may the fixed-point sections be off? Products, and the quarter of the old memory,
// truncate: a step puts an error in (-8, 0] into the memory (2 products, 4 times) and one in
// (-2.75, 0] into the output, which is 16 times the samples. The memory's error reaches the output
// through an allpass of gain 1/4. So, with L the sum of the allpass's absolute impulse response (1
// when errors are taken as root mean squares, since an allpass keeps energy), a section is off by
// (2.75 + 2 L) / 16 samples.
#include "dsp/filter_bank.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "dsp/gain_mul.h"
#include "numeric_models.h"

namespace korvane {
namespace {

using test::Allpass;
using test::Bands;
using test::Random;
using test::Reals;
using test::Samples;

double absolute_sum(Allpass section) {
    double sum = 0;
    for (int i = 0; i < 400; ++i) {
        sum += std::abs(section.step(i == 0));
    }
    return sum;
}

double section_error(double l) { return (2.75 + 2 * l) / 16; }

const double kSumA = absolute_sum(Bands::branch_a());
const double kSumB = absolute_sum(Bands::branch_b());
// A band is half of two sections and a floor.
const double kBandError = (section_error(kSumA) + section_error(kSumB)) / 2 + 1;
const double kBandRms = section_error(1) + 1;
// Low plus high band (or minus) repeats one section of the split, with two floors; then the other
// section and a floor.
const double kMergedError = std::max((section_error(kSumA) + 2) * kSumB + section_error(kSumB),
                                     (section_error(kSumB) + 2) * kSumA + section_error(kSumA)) +
                            1;
const double kMergedRms = 2 * section_error(1) + 3;

struct Bank {
    Samples low, high, merged;

    // Splits and merges x in calls of `step` samples.
    explicit Bank(const Samples& x, size_t step = 288)
        : low(x.size() / 2), high(x.size() / 2), merged(x) {
        int32_t split_state[4] = {};
        int32_t merge_state[4] = {};
        for (size_t start = 0; start < x.size(); start += step) {
            const auto count = static_cast<int>(std::min(step, x.size() - start));
            const plain::BankChannel channel{&merged[start], &low[start / 2], &high[start / 2],
                                             split_state, merge_state};
            plain::NRSS_SplitBands(&channel, count);
            plain::NRSS_MergeBands(&channel, count);
        }
    }
};

void expect_near(const Samples& got, const Reals& expected, double largest) {
    for (size_t i = 0; i < got.size(); ++i) {
        ASSERT_NEAR(got[i], std::clamp(expected[i], -32768.0, 32767.0), largest) << i;
    }
}

TEST(FilterBank, SplitAndMergeAreTheAllpassPair) {
    Random random(10);
    for (const int32_t level : {3, 200, 10000}) {
        Samples x = random.noise(4000, level);
        x.resize(4800);  // lets the filters ring out, so that all energy has come back
        const Bank bank(x);
        const Bands bands(x);
        expect_near(bank.low, bands.low, kBandError);
        expect_near(bank.high, bands.high, kBandError);
        expect_near(bank.merged, bands.merged(), kMergedError);
        EXPECT_LE(test::rms(bank.low, 0, bands.low), kBandRms);
        EXPECT_LE(test::rms(bank.high, 0, bands.high), kBandRms);
        EXPECT_LE(test::rms(bank.merged, 0, bands.merged()), kMergedRms);
        EXPECT_NEAR(test::rms(bank.merged), test::rms(x), kMergedRms);
        for (const size_t step : {8U, 40U}) {  // the memory carries across calls
            EXPECT_EQ(Bank(x, step).merged, bank.merged);
        }
    }
}

// The +-32767 that drive a section to its highest output at the last of 200 samples.
Samples climb(Allpass section) {
    Samples x(200);
    for (size_t back = 0; back < x.size(); ++back) {
        x[x.size() - 1 - back] = section.step(back == 0) < 0 ? -32767 : 32767;
    }
    return x;
}

TEST(FilterBank, SaturatesInsteadOfWrapping) {
    const Samples a = climb(Bands::branch_a());
    const Samples b = climb(Bands::branch_b());
    for (const int sign : {1, -1}) {
        for (const int odd_sign : {1, -1}) {
            Samples x(2 * a.size());
            for (size_t m = 0; m < a.size(); ++m) {
                x[2 * m] = static_cast<int16_t>(sign * a[m]);
                x[2 * m + 1] = static_cast<int16_t>(sign * odd_sign * b[m]);
            }
            const Bank bank(x);
            EXPECT_EQ((odd_sign > 0 ? bank.low : bank.high).back(), sign > 0 ? -32768 : 32767);
            expect_near(bank.low, Bands(x).low, kBandError);
            expect_near(bank.high, Bands(x).high, kBandError);
        }
        // The merge's even branch sees low + high, its odd one low - high.
        for (const size_t odd : {0U, 1U}) {
            int32_t state[4] = {};
            Samples out(2 * a.size());
            Samples low = odd == 1 ? a : b;
            Samples high = low;
            for (size_t m = 0; m < low.size(); ++m) {
                low[m] = static_cast<int16_t>(sign * low[m]);
                high[m] = static_cast<int16_t>(odd == 1 ? -low[m] : low[m]);
            }
            const plain::BankChannel channel{out.data(), low.data(), high.data(), nullptr, state};
            plain::NRSS_MergeBands(&channel, static_cast<int>(out.size()));
            EXPECT_EQ(out[out.size() - 2 + odd], sign > 0 ? -32768 : 32767);
        }
    }
}

TEST(GainMul, RoundsDownThenOneStepTowardZero) {
    Random random(14);
    for (int i = 0; i < 100000; ++i) {
        const int32_t gain = random.between(-32768, 32767);
        const int32_t value = random.between(-(1 << 30) + 1, (1 << 30) - 1);
        const double floor = std::floor(gain * static_cast<double>(value) / 32768);
        ASSERT_EQ(NRSS_GainMul(gain, value), floor < 0 ? floor + 1 : floor) << gain << ' ' << value;
    }
    EXPECT_EQ(NRSS_GainMul(32767, 1 << 30), -1073709055);  // twice the value has wrapped to -2^31
}

}  // namespace
}  // namespace korvane
