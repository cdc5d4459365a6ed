// What the digests do not reach of the gain engine: its arithmetic on any value against the exact
// quotient and root, its window's formula, frames without energy, counts at their end, and spectra that
// no frame gives.
#include "nrss/gain/gain_engine.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "library_state.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/gain/tables.h"
#include "numeric_models.h"

namespace korvane {
namespace {

using test::Random;
using test::Reals;
using Spectrum = std::array<int32_t, 2 * kGains>;  // bins (re, im), and the high band's power

int32_t ratio_q30(int32_t noise, int32_t power) {
    return korvane::ratio_q30<int32_t, true>(noise, power);
}
int32_t sqrt_q15(int32_t ratio) { return korvane::sqrt_q15<int32_t, true>(ratio); }

struct Range {
    double low, high;
};

testing::AssertionResult within(double x, const Range& range) {
    if (range.low <= x && x <= range.high) {
        return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << x << " not in " << range.low << ".." << range.high << ' ';
}

// The reciprocal inside is at most 1/27 too large; truncation takes less than 2 of its 2^14..2^15
// and less than one unit of the product, which the last shift makes 2^e (4/power of the ratio).
Range ratio_range(int32_t noise, int32_t power) {
    const double exact = std::ldexp(1.0, 30) * noise / power;
    const double unit = std::ldexp(1.0, std::countl_zero(static_cast<uint32_t>(power)));
    const double near = exact * (1 - 2.0 / 16384);
    const double far = exact * (1 + 1.0 / 27);
    return {std::min(near, far) - unit, std::max(near, far)};
}

TEST(Ratio, IsWithinItsErrorOfTheQuotient) {
    const auto check = [](int64_t noise, int64_t power) {
        const auto a = static_cast<int32_t>(noise);
        const auto b = static_cast<int32_t>(power);
        EXPECT_TRUE(within(ratio_q30(a, b), ratio_range(a, b))) << a << " / " << b;
    };
    Random random(20);
    for (int bit = 0; bit < 31; ++bit) {
        for (const int64_t step : {-1, 0, 1}) {
            const int64_t power = std::min((int64_t{1} << bit) + step, int64_t{INT32_MAX});
            for (int64_t noise = power - 1; noise > 0; noise = noise * 3 / 4) {
                check(noise, power);
                check(-noise, power);
            }
        }
    }
    for (int i = 0; i < 200000; ++i) {
        const int32_t power = std::max(random.between(1, INT32_MAX) >> random.between(0, 30), 1);
        check(random.between(0, power - 1), power);
    }
    // Powers of two and of nearly twice as much: the error is that of truncation alone.
    EXPECT_NEAR(ratio_q30(1 << 29, 1 << 30), 1 << 29, (1 << 29) * 2.0 / 16384);
    EXPECT_NEAR(ratio_q30(1 << 29, INT32_MAX), 1 << 28, (1 << 28) * 2.0 / 16384);
    // A reciprocal of 2^44 / 0x20008001 = 32766.00006, of which nothing but the fraction is cut.
    EXPECT_EQ(ratio_q30(1 << 30, 2 * 0x20008001), 32766 << 15);
    // A negative power is taken by its quarter, u = power/2^32. At -1 the quadratic's d wraps to
    // -1, so q = 1 + 1 wraps to just below 0, and the reciprocal is -1 unit: noise/-65536.
    EXPECT_EQ(ratio_q30(INT32_MIN, -1), 32768);
    EXPECT_EQ(ratio_q30(-3, -2), 0);
    constexpr int32_t kCorners[] = {INT32_MIN, -65536, -2, -1, 0, 1, 2, 65535, INT32_MAX};
    for (const int32_t power : kCorners) {
        for (const int32_t noise : kCorners) {
            const int32_t ratio = ratio_q30(noise, power);  // defined, say the sanitizers
            EXPECT_TRUE(noise < power ? ratio <= 0x3FFFFFFF : ratio == 0x3FFFFFFF);
            EXPECT_TRUE(noise >= power || power != 0 || ratio == 0);
        }
    }
}

// The series is never below the root and at most 1.4375/sqrt(2) of it; truncation of the 13-bit z
// and of the last shift takes less than two units, rounding of the argument's one adds less than 1.
TEST(SquareRoot, IsWithinItsErrorOfTheRoot) {
    const auto check = [](int32_t ratio) {
        const double root = 32768 * std::sqrt(std::ldexp(ratio, -30));
        const double high = root * 1.4375 / std::numbers::sqrt2 + 1;
        EXPECT_TRUE(within(sqrt_q15(ratio), {root - 2, std::min(high, 32767.0)})) << ratio;
    };
    Random random(21);
    for (int bit = 0; bit < 30; ++bit) {
        for (const int32_t step : {-1, 0, 1}) {
            check((1 << bit) + step);
        }
    }
    for (int i = 0; i < 400000; ++i) {
        check(random.between(0, 0x3FFFFFFF) >> random.between(0, 29));
    }
    EXPECT_EQ(sqrt_q15(0x3FFFFFFF), 32767);
    EXPECT_EQ(sqrt_q15(1 << 28), 0x3FFFFFFF >> 16);  // where the series is exact
    EXPECT_EQ(sqrt_q15(0), 0);
    // A negative value counts by its quarter: z = -1 and -1.5, where the series gives 0.3125 and
    // -0.2421875.
    EXPECT_EQ(sqrt_q15(-1), 10239);
    EXPECT_EQ(sqrt_q15(INT32_MIN), -7937);
}

// The last bits tell the pieces apart. For one unit below a quarter the lower one gives -453237*x +
// 243815 = 130517, times x 16312, and 19131 + 2*16312; at a quarter, -18250*x + 41184 = 36620, times x
// 4577, and 42602 + 2*4577.
TEST(OverSubtraction, TakesTheUpperPieceFromAQuarterOn) {
    const OsubCurve<int32_t> curve(kOsubCurves[2]);
    EXPECT_EQ(curve.target(8191 << 15), 51755);
    EXPECT_EQ(curve.target(8192 << 15), 51756);
}

TEST(Tables, WindowIsTheKaiserBesselDerived) {
    Reals sums;
    double sum = 0;
    for (int j = 0; j <= 144; ++j) {
        const double t = 2 * j / 144.0 - 1;
        const double x = 5 * std::numbers::pi * std::sqrt(1 - t * t);
        double term = 1;
        for (int i = 1; i < 60; ++i) {  // the series of the Bessel function I0
            sum += term;
            term *= (x / 2 / i) * (x / 2 / i);
        }
        sums.push_back(sum);
    }
    for (size_t k = 0; k < 144; ++k) {
        const long value = std::lround(32768 * std::sqrt(sums[k] / sum));
        EXPECT_EQ(kWindow[k], std::min(value, 32767L)) << k;
    }
}

// Level 0 takes the rate and leaves the rest; a rate of 50000 or more keeps the class chosen last.
TEST(Initialisation, LevelZeroTakesTheRateAlone) {
    for (const int32_t level : {0, -3, INT32_MIN}) {
        Tolu_NRSS_Init(9, 8000);
        const std::string before = test::bytes_of(nrss_state);
        Tolu_NRSS_Init(level, 16000);
        EXPECT_EQ(osf, kOsfLowRate);
        nrss_state.level = 9;
        nrss_state.rate_class = 0;
        EXPECT_EQ(test::bytes_of(nrss_state), before);
        Tolu_NRSS_Init(level, 16000);
        Tolu_NRSS_Init(9, 50000);
        EXPECT_EQ(osf, kOsfMidRate);
    }
}

// Every bin (re, im) the same, the extra power as given.
Spectrum flat(int32_t re, int32_t im, int32_t extra_power) {
    Spectrum spectrum;
    for (size_t i = 0; i < kFrameSize; ++i) {
        spectrum[i] = i % 2 == 0 ? re : im;
    }
    spectrum[288] = extra_power;
    return spectrum;
}

/** So many frames with the high band's power. */
void compute(const Spectrum& spectrum, int frames = 1) {
    int32_t power[kGains];
    for (size_t k = 0; k < kBins; ++k) {
        const int32_t re = spectrum[2 * k];
        const int32_t im = spectrum[2 * k + 1];
        power[k] = add_wrap(add_wrap(mul_wrap(re, re), mul_wrap(im, im)), 2);
    }
    power[kBins] = spectrum[288];
    for (int i = 0; i < frames; ++i) {
        NRSS_SpectralGain<int32_t>(nrss_state, power, 1);
    }
}

bool all_open() { return std::count(nrss_state.gain, nrss_state.gain + kGains, 32767) == kGains; }

TEST(GainEngine, FramesWithoutEnergyDoNotFeedTheMinimum) {
    const Spectrum silent = flat(0, 0, 0);
    Spectrum below = flat(10, 5, 127);  // every power 127 or less
    Spectrum above = below;
    above[200] = 11;  // one of 148
    Spectrum high_only = silent;
    high_only[288] = 128;
    const Spectrum negative = flat(0, 0, -1);        // -1 >> 7 takes one off
    const Spectrum loud = flat(31225, 31225, 0);     // 144 * (1.95e9 >> 7) passes 2^31
    const Spectrum loudest = flat(32768, 32768, 0);  // so does 144 * (2^31 >> 7), no sign in 2^31
    for (const Spectrum& skipped : {silent, below, negative, loud, loudest}) {
        for (const Spectrum& tracked : {above, high_only}) {
            Tolu_NRSS_Init(9, 48000);
            compute(skipped, 140);
            EXPECT_TRUE(all_open());
            compute(tracked);  // overdue: the sub-window closes at once
            EXPECT_FALSE(all_open());
        }
    }
}

TEST(GainEngine, GoesOnPastTheLastFrameCount) {
    Tolu_NRSS_Init(9, 48000);
    nrss_state.frame_count = INT32_MAX - 1;
    compute(flat(100, 100, 0), 125);
    EXPECT_FALSE(all_open());
}

TEST(GainEngine, HostileSpectraAreDefined) {
    Tolu_NRSS_Init(9, 48000);
    compute(flat(300, -400, 250000), 130);
    Random random(25);
    for (int call = 0; call < 600; ++call) {  // for the sanitizers
        Spectrum wild = flat(call % 2 == 0 ? INT32_MIN : INT32_MAX, 1, INT32_MIN);
        const int32_t level = call % 3 == 0 ? INT32_MAX : call % 3 == 1 ? 46340 : 2000;
        std::generate_n(wild.begin(), call % 3 == 0 ? 100 : kFrameSize,
                        [&] { return random.between(-level - 1, level); });
        compute(wild);
    }
}

}  // namespace
}  // namespace korvane
