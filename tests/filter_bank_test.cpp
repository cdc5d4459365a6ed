// The filter bank against double-precision allpasses, and the band processor.
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
#include <cstring>

#include "dsp/band_processor.h"
#include "dsp/gain_mul.h"
#include "nrss/gain/nrss_state.h"
#include "numeric_models.h"

namespace korvane {
namespace {

using test::Allpass;
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

const double kSumA = absolute_sum(test::branch_a());
const double kSumB = absolute_sum(test::branch_b());
// A band is half of two sections and a floor.
const double kBandError = (section_error(kSumA) + section_error(kSumB)) / 2 + 1;
const double kBandRms = section_error(1) + 1;
// Low plus high band (or minus) repeats one section of the split, with two floors; then the other
// section and a floor.
const double kMergedError = std::max((section_error(kSumA) + 2) * kSumB + section_error(kSumB),
                                     (section_error(kSumB) + 2) * kSumA + section_error(kSumA)) +
                            1;
const double kMergedRms = 2 * section_error(1) + 3;

struct Memory {
    int32_t split[kBranchState] = {};
    int32_t merge[kBranchState] = {};
};

struct Bank {
    Samples low, high, merged;
};

// Splits and merges x in calls of `step` samples.
Bank run(const Samples& x, size_t step = 2 * kBandSize) {
    Memory memory;
    Bank r;
    r.merged.resize(x.size());
    for (size_t start = 0; start < x.size(); start += step) {
        const size_t count = std::min(step, x.size() - start);
        NRSS_SplitBands(x.data() + start, memory.split, static_cast<int>(count));
        r.low.insert(r.low.end(), low_band, low_band + count / 2);
        r.high.insert(r.high.end(), high_band, high_band + count / 2);
        NRSS_MergeBands(r.merged.data() + start, memory.merge, static_cast<int>(count));
    }
    return r;
}

double largest_difference(const Samples& got, const Reals& expected) {
    double largest = 0;
    for (size_t i = 0; i < got.size(); ++i) {
        largest = std::max(largest, std::abs(got[i] - std::clamp(expected[i], -32768.0, 32767.0)));
    }
    return largest;
}

// The +-32767 that drive a section to its highest output at the last of 200 samples.
Samples climb(Allpass section) {
    Samples x(200);
    for (size_t back = 0; back < x.size(); ++back) {
        x[x.size() - 1 - back] = section.step(back == 0) < 0 ? -32767 : 32767;
    }
    return x;
}

TEST(FilterBank, SplitAndMergeAreTheAllpassPair) {
    Random random(10);
    for (const int32_t level : {3, 200, 10000}) {
        SCOPED_TRACE(level);
        Samples x = random.noise(4000, level);
        x.resize(4800);  // lets the filters ring out, so that all energy has come back
        const Bank r = run(x);
        const test::Bands bands = test::split(x);
        const Reals merged = test::merge(bands);
        EXPECT_LE(largest_difference(r.low, bands.low), kBandError);
        EXPECT_LE(largest_difference(r.high, bands.high), kBandError);
        EXPECT_LE(test::rms_difference(r.low, bands.low, 0), kBandRms);
        EXPECT_LE(test::rms_difference(r.high, bands.high, 0), kBandRms);
        EXPECT_LE(largest_difference(r.merged, merged), kMergedError);
        EXPECT_LE(test::rms_difference(r.merged, merged, 0), kMergedRms);
        EXPECT_NEAR(test::rms(r.merged), test::rms(x), kMergedRms);
    }
}

TEST(FilterBank, RoundsTowardMinusInfinity) {
    // An old memory of 4 alone: the section's output is -4 >> 2 = -1, of 16 to a sample.
    int32_t state[kBranchState] = {0, 4, 0, 4};
    int16_t x[2] = {0, 0};
    NRSS_SplitBands(x, state, 2);
    EXPECT_EQ(low_band[0], -1);
    EXPECT_EQ(high_band[0], 0);
    state[0] = state[2] = 0;
    state[1] = state[3] = 4;
    low_band[0] = 0;
    NRSS_MergeBands(x, state, 2);
    EXPECT_EQ(x[0], -1);
    EXPECT_EQ(x[1], -1);
}

TEST(FilterBank, ConstantAndAlternatingInputReturnExactly) {
    for (const int a : {0, 1, 1000, 32767, -1, -1000, -32767}) {
        SCOPED_TRACE(a);
        Samples constant(1152, static_cast<int16_t>(a));
        Samples alternating(1152);
        for (size_t i = 0; i < alternating.size(); ++i) {
            alternating[i] = static_cast<int16_t>(i % 2 == 0 ? a : -a);
        }
        const Bank c = run(constant);
        const Bank t = run(alternating);
        for (size_t i = 1152 - 288; i < 1152; ++i) {
            ASSERT_EQ(c.merged[i], constant[i]);
            ASSERT_EQ(t.merged[i], alternating[i]);
            ASSERT_EQ(c.low[i / 2], -a);
            ASSERT_EQ(c.high[i / 2], 0);
            ASSERT_EQ(t.low[i / 2], 0);
            ASSERT_EQ(t.high[i / 2], -a);
        }
    }
}

TEST(FilterBank, PassesOneBandAndRejectsTheOther) {
    constexpr size_t kSettled = 300;  // band samples: the slowest pole has fallen to 0.897^300
    constexpr double kIn = 20000 * std::numbers::sqrt2 / 2;
    const double flat = std::pow(10, -0.1 / 20);
    const double rejected = std::pow(10, -51.0 / 20);
    for (int step = 1; step < 50; ++step) {
        const double f = step / 100.0;
        if (step == 25) {
            continue;  // the bands' own Nyquist frequency, where the phase decides what is sampled
        }
        SCOPED_TRACE(f);
        const Bank r = run(test::tone(4000, 20000, f));
        const double low = test::rms(r.low, kSettled);
        const double high = test::rms(r.high, kSettled);
        // A tone's rms over n samples is off by 1/(2 n sin(w)) at most; w is of the band.
        const double unsteady =
            kIn / (2 * 1700 * std::abs(std::sin(4 * std::numbers::pi * f))) + kBandRms;
        EXPECT_NEAR(std::hypot(low, high), kIn, unsteady);  // the pair is power-complementary
        if (f <= 0.24) {
            EXPECT_GE(low, flat * kIn - unsteady);
        }
        if (f >= 0.26) {
            EXPECT_GE(high, flat * kIn - unsteady);
        }
        if (f >= 0.28) {
            EXPECT_LE(low, rejected * kIn + kBandRms);
        }
        if (f <= 0.22) {
            EXPECT_LE(high, rejected * kIn + kBandRms);
        }
    }
}

TEST(FilterBank, MemoryCarriesAcrossCalls) {
    const Samples x = Random(11).noise(1440, 30000);
    const Bank whole = run(x);
    for (const size_t step : {2U, 10U, 96U, 240U}) {
        const Bank pieces = run(x, step);
        EXPECT_EQ(pieces.low, whole.low) << step;
        EXPECT_EQ(pieces.high, whole.high) << step;
        EXPECT_EQ(pieces.merged, whole.merged) << step;
    }
}

TEST(FilterBank, SaturatesInsteadOfWrapping) {
    const Samples a = climb(test::branch_a());
    const Samples b = climb(test::branch_b());
    for (const int sign : {1, -1}) {
        for (const int odd_sign : {1, -1}) {
            Samples x(2 * a.size());
            for (size_t m = 0; m < a.size(); ++m) {
                x[2 * m] = static_cast<int16_t>(sign * a[m]);
                x[2 * m + 1] = static_cast<int16_t>(sign * odd_sign * b[m]);
            }
            const Bank r = run(x);
            EXPECT_EQ((odd_sign > 0 ? r.low : r.high).back(), sign > 0 ? -32768 : 32767);
            EXPECT_LE(largest_difference(r.low, test::split(x).low), kBandError);
            EXPECT_LE(largest_difference(r.high, test::split(x).high), kBandError);
        }
        // The merge's even branch sees low + high, its odd one low - high.
        for (const size_t odd : {0U, 1U}) {
            Memory memory;
            int16_t out[2] = {};
            for (size_t m = 0; m < a.size(); ++m) {
                low_band[0] = static_cast<int16_t>(sign * (odd == 1 ? a : b)[m]);
                high_band[0] = static_cast<int16_t>(odd == 1 ? -low_band[0] : low_band[0]);
                NRSS_MergeBands(out, memory.merge, 2);
            }
            EXPECT_EQ(out[odd], sign > 0 ? -32768 : 32767);
        }
    }
}

class BandProcessor : public ::testing::Test {
  protected:
    void SetUp() override {
        Tolu_NRSS_Init(9, 48000);
        Random random(12);
        for (size_t i = 0; i < kFrameSize; ++i) {
            low[i] = random.between(-9000, 9000);
            high[i] = random.between(-32767, 32767);
            energy += high[i] * static_cast<double>(high[i]) / 65536;
        }
    }

    int32_t low[kFrameWords] = {};
    int32_t high[kFrameSize] = {};
    double energy = 0;
};

TEST_F(BandProcessor, WeightsTheLowBandByItsBinsAndTheHighBandByOneGain) {
    Random random(13);
    for (int16_t& gain : nrss_state.gain) {
        gain = random.sample(32767);
    }
    const NrssState before = nrss_state;
    int32_t expected[kFrameSize];
    real_fft288(expected, low);
    for (int k = 0; k < kFrameSize; ++k) {
        const int32_t scaled = static_cast<int32_t>(std::floor(expected[k] / 128.0));
        expected[k] = k < 2 ? 0 : NRSS_GainMul(nrss_state.gain[k / 2], scaled);
    }
    real_ifft288(expected, expected);
    int32_t scaled_high[kFrameSize];
    std::copy(high, high + kFrameSize, scaled_high);
    low[289] = 1234;

    NRSS_ProcessBand(low, scaled_high, 0, kBins);
    EXPECT_TRUE(std::equal(expected, expected + kFrameSize, low));
    for (size_t i = 0; i < kFrameSize; ++i) {
        EXPECT_EQ(scaled_high[i], std::floor(high[i] * before.gain[144] / 32768.0)) << i;
    }
    // The energy is that of the unscaled frame; each square loses less than 1.
    EXPECT_LE(low[288], energy);
    EXPECT_GT(low[288], energy - kFrameSize);
    EXPECT_EQ(low[289], 0);
    EXPECT_EQ(0, std::memcmp(&before, &nrss_state, sizeof before));  // compute was zero
}

TEST_F(BandProcessor, ComputesGainsOnlyWhenAsked) {
    NRSS_ProcessBand(low, high, 1, kBins);
    EXPECT_EQ(nrss_state.frame_count, 1);
    // From zero: energy + 1 + alpha * (0 - energy), truncated; the energy is a bin of its own.
    EXPECT_NEAR(nrss_state.psd_slow[144], low[288] * (1 - 29650.0 / 32768), 1);
    std::fill(low, low + kFrameWords, 0);
    std::fill(high, high + kFrameSize, 0);
    NRSS_ProcessBand(low, high, 0, kBins);
    EXPECT_EQ(nrss_state.frame_count, 1);
    EXPECT_EQ(std::count(low, low + kFrameWords, 0), kFrameWords);
}

TEST(GainMul, RoundsDownThenOneStepTowardZero) {
    Random random(14);
    for (int i = 0; i < 100000; ++i) {
        const int16_t gain = static_cast<int16_t>(random.between(-32768, 32767));
        const int32_t value = random.between(-(1 << 30) + 1, (1 << 30) - 1);
        const double floor = std::floor(gain * static_cast<double>(value) / 32768);
        ASSERT_EQ(NRSS_GainMul(gain, value), floor < 0 ? floor + 1 : floor) << gain << ' ' << value;
    }
    EXPECT_EQ(NRSS_GainMul(32767, 1000), 999);
    EXPECT_EQ(NRSS_GainMul(32767, -1000), -999);
    EXPECT_EQ(NRSS_GainMul(16384, -2), 0);
    EXPECT_EQ(NRSS_GainMul(0, INT32_MIN), 0);
    EXPECT_EQ(NRSS_GainMul(32767, 1 << 30), -1073709055);  // twice the value has wrapped to -2^31
}

}  // namespace
}  // namespace korvane
