// The suppressor's initialisation and tables, the gain engine, and its two arithmetic routines.
#include "nrss/gain/spectral_gain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "nrss/gain/gain_arithmetic.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/gain/tables.h"
#include "numeric_models.h"

namespace korvane {
namespace {

using test::Random;
using test::Reals;
using Spectrum = std::array<int32_t, kFrameWords>;

NrssState& s = nrss_state;

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
Range ratio_range(int32_t noise, int32_t power, double excess = 1.0 / 27) {
    const double exact = std::ldexp(1.0, 30) * noise / power;
    const double unit = std::ldexp(1.0, std::countl_zero(static_cast<uint32_t>(power)));
    const double near = exact * (1 - 2.0 / 16384);
    const double far = exact * (1 + excess);
    return {std::min(near, far) - unit, std::max(near, far)};
}

void check_ratio(int32_t noise, int32_t power) {
    EXPECT_TRUE(within(ratio_q30(noise, power), ratio_range(noise, power)))
        << noise << " / " << power;
}

TEST(Ratio, IsWithinItsErrorOfTheQuotient) {
    Random random(20);
    for (int bit = 0; bit < 31; ++bit) {
        for (const int64_t step : {-1, 0, 1}) {
            const int64_t power = std::min((int64_t{1} << bit) + step, int64_t{INT32_MAX});
            for (int64_t noise = power - 1; noise > 0; noise = noise * 3 / 4) {
                check_ratio(static_cast<int32_t>(noise), static_cast<int32_t>(power));
                check_ratio(static_cast<int32_t>(-noise), static_cast<int32_t>(power));
            }
        }
    }
    for (int i = 0; i < 200000; ++i) {
        const int32_t power = std::max(random.between(1, INT32_MAX) >> random.between(0, 30), 1);
        check_ratio(random.between(0, power - 1), power);
    }
    // Powers of two and of nearly twice as much: the error is that of truncation alone.
    EXPECT_NEAR(ratio_q30(1 << 29, 1 << 30), 1 << 29, (1 << 29) * 2.0 / 16384);
    EXPECT_NEAR(ratio_q30(1 << 29, INT32_MAX), 1 << 28, (1 << 28) * 2.0 / 16384);
    // A reciprocal of 2^44 / 0x20008001 = 32766.00006, of which nothing but the fraction is cut.
    EXPECT_EQ(ratio_q30(1 << 30, 2 * 0x20008001), 32766 << 15);

    const int32_t corners[] = {INT32_MIN, INT32_MIN + 1, -65536,        -2,       -1, 0, 1,
                               2,         65535,         INT32_MAX - 1, INT32_MAX};
    for (const int32_t power : corners) {
        for (const int32_t noise : corners) {
            const int32_t ratio = ratio_q30(noise, power);  // defined, say the sanitizers
            EXPECT_TRUE(noise < power || ratio == 0x3FFFFFFF);
            EXPECT_LE(ratio, 0x3FFFFFFF);
            EXPECT_TRUE(noise >= power || power != 0 || ratio == 0);
        }
    }
    // A negative power is taken by its quarter, u = power/2^32. At -1 the quadratic's d wraps to
    // -1, so q = 1 + 1 wraps to just below 0, and the reciprocal is -1 unit: noise/-65536.
    EXPECT_EQ(ratio_q30(INT32_MIN, -1), 32768);
    EXPECT_EQ(ratio_q30(-3, -2), 0);
}

// The series is never below the root and at most 1.4375/sqrt(2) of it; truncation of the 13-bit z
// and of the last shift takes less than two units, rounding of the argument's one adds less than 1.
Range root_range(const Range& ratio) {
    const double low = 32768 * std::sqrt(std::ldexp(std::max(ratio.low, 0.0), -30)) - 2;
    const double high = std::sqrt(std::ldexp(ratio.high, -30) / 2) * 1.4375 * 32768 + 1;
    return {std::min(low, 32767.0), std::min(high, 32767.0)};
}

TEST(SquareRoot, IsWithinItsErrorOfTheRoot) {
    const auto check = [](int32_t ratio) {
        EXPECT_TRUE(within(sqrt_q15(ratio), root_range({double(ratio), double(ratio)}))) << ratio;
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
        EXPECT_EQ(kWindow[144 + k], 0);
    }
}

// ---- Initialisation -----------------------------------------------------------------------------

TEST(Initialisation, ChoosesByLevelAndRate) {
    const struct {
        int32_t level, rate;
        std::array<int32_t, 8> numbers;
        const int16_t* weights;
        size_t curve;
    } rows[] = {{9, 8000, {288, 0, 1638, 14723, 26828, 27922, 63, 13}, kOsfLowRate, 2},
                {9, 16000, {288, 1, 1638, 14723, 26828, 27922, 63, 13}, kOsfMidRate, 2},
                {9, 22050, {288, 2, 1638, 14723, 26828, 27922, 86, 18}, kOsfHighRate, 2},
                {9, 48000, {576, 3, 1638, 21965, 29650, 30249, 125, 25}, kOsfHighRate, 2},
                {7, 48000, {576, 3, 4686, 21965, 29650, 30249, 125, 25}, kOsfHighRate, 2},
                {6, 48000, {576, 3, 6554, 23794, 29650, 30249, 125, 25}, kOsfHighRate, 1},
                {4, 16000, {288, 1, 10813, 17279, 26828, 27922, 63, 13}, kOsfMidRate, 1},
                {4, 22050, {288, 2, 10813, 17279, 26828, 27922, 86, 18}, kOsfHighRate, 1},
                {4, 48000, {576, 3, 10813, 23794, 29650, 30249, 125, 25}, kOsfHighRate, 1},
                {3, 48000, {576, 3, 13107, 25098, 29650, 30249, 125, 25}, kOsfHighRate, 0},
                {1, 8000, {288, 0, 22938, 19222, 26828, 27922, 63, 13}, kOsfLowRate, 0},
                {1, 48000, {576, 3, 22938, 25098, 29650, 30249, 125, 25}, kOsfHighRate, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << "level " << row.level << " at " << row.rate);
        Tolu_NRSS_Init(row.level, row.rate);
        const std::array<int32_t, 8> got = {s.frame_len,  s.rate_class,    s.gain_floor,
                                            s.alpha_fast, s.alpha_slow,    s.alpha_osub,
                                            s.subwin_len, s.startup_frames};
        EXPECT_EQ(got, row.numbers);
        EXPECT_EQ(osf, row.weights);
        EXPECT_EQ(s.osub_coef, kOsubCurves[row.curve]);
    }
}

TEST(Initialisation, SettlesEveryFieldFromAnyState) {
    constexpr double kFloors[] = {0.70, 0.50, 0.40, 0.33, 0.25, 0.20, 0.143, 0.10, 0.05};
    const auto init = [](int32_t byte, int32_t level, int32_t rate) {
        std::memset(static_cast<void*>(&s), byte, sizeof s);
        Tolu_NRSS_Init(level, rate);
        std::memset(s.noise, 0, sizeof s.noise);  // these two stay; they are set before their use
        std::memset(s.gain_scratch, 0, sizeof s.gain_scratch);
        return s;
    };
    for (const int32_t rate : {INT32_MIN, 9999, 10000, 19999, 20000, 24999, 25000, 49999}) {
        for (int32_t level = 1; level <= 12; ++level) {
            const NrssState zeroed = init(0, level, rate);
            const NrssState filled = init(0x3B, level, rate);
            const char* const a = reinterpret_cast<const char*>(&zeroed);
            const char* const b = reinterpret_cast<const char*>(&filled);
            for (size_t i = 0; i < sizeof s; ++i) {  // what differs is padding, never written
                ASSERT_TRUE(a[i] == b[i] || (a[i] == 0 && b[i] == 0x3B)) << i;
            }
            EXPECT_EQ(s.level, std::min(level, 9));
            EXPECT_NEAR(s.gain_floor, 32768 * kFloors[s.level - 1], 0.5);
            EXPECT_EQ(std::count(s.gain, s.gain + kGains, 32767), kGains);
        }
    }
}

TEST(Initialisation, HighRatesKeepTheClassAndLevelZeroKeepsTheRest) {
    s = {};
    Tolu_NRSS_Init(9, 50000);
    EXPECT_EQ(s.rate_class, 0);  // none was ever chosen
    for (const int32_t rate : {16000, 44100}) {
        Tolu_NRSS_Init(9, rate);
        const NrssState chosen = s;
        for (const int32_t high : {50000, 96000, INT32_MAX}) {
            Tolu_NRSS_Init(9, high);
            EXPECT_EQ(0, std::memcmp(&s, &chosen, sizeof s)) << high;
        }
    }
    std::fill_n(s.gain, kGains, int16_t{77});
    for (const int32_t level : {0, -3, INT32_MIN}) {
        NrssState expected = s;
        expected.level = 0;
        expected.rate_class = 2;
        const int16_t* const weights = osf;
        Tolu_NRSS_Init(level, 22050);
        EXPECT_EQ(0, std::memcmp(&s, &expected, sizeof s));
        EXPECT_EQ(osf, weights);
        s.level = 9;
    }
}

// ---- Gain engine --------------------------------------------------------------------------------

// Every bin (re, im) the same, the extra power as given.
Spectrum flat(int32_t re, int32_t im, int32_t extra_power) {
    Spectrum spectrum;
    for (size_t i = 0; i < kFrameSize; ++i) {
        spectrum[i] = i % 2 == 0 ? re : im;
    }
    spectrum[288] = extra_power;
    spectrum[289] = 0x7EADBEEF;  // never read
    return spectrum;
}

Spectrum random_spectrum(Random& random, int32_t level) {
    Spectrum spectrum = flat(0, 0, random.between(0, level * level));
    for (size_t i = 0; i < kFrameSize; ++i) {
        spectrum[i] = random.between(-level, level);
    }
    return spectrum;
}

void compute(const Spectrum& spectrum, int32_t extra) {
    const Spectrum kept = spectrum;
    NRSS_SpectralGain(spectrum.data(), kBins, extra);
    ASSERT_EQ(spectrum, kept);
}

bool all_open() { return std::count(s.gain, s.gain + kGains, 32767) == kGains; }

// The whole life of the estimate: nothing for startup_frames - 1 calls, minima until the first full
// sub-window, gains from then on; and at every call the noise is 1.15 times the smallest slow
// average of the last three full sub-windows and the running one.
TEST(GainEngine, EstimatesNoiseAsTheMinimumOverFourSubWindows) {
    for (const int32_t rate : {8000, 22050, 48000}) {
        SCOPED_TRACE(rate);
        Tolu_NRSS_Init(9, rate);
        const int32_t extra = rate == 48000 ? 1 : 0;
        const auto bins = static_cast<size_t>(rate == 48000 ? kGains : kBins);
        const int startup = s.startup_frames;
        const int length = s.subwin_len;
        Random random(23);
        Reals slow(kGains), fast(kGains);
        std::vector<std::array<int32_t, kGains>> history(1);  // [call], from 1
        std::fill(std::begin(s.noise), std::end(s.noise), -7);
        for (int call = 1; call < 7 * length + 20; ++call) {
            const int32_t level = 100 << random.between(0, 5) * (call / 30 % 2);
            const Spectrum spectrum = random_spectrum(random, level);
            compute(spectrum, extra);
            for (size_t k = 0; k < bins; ++k) {
                const double re = spectrum[2 * k];
                const double im = spectrum[2 * k + 1];
                const double power = k < kBins ? re * re + im * im + 2 : re;
                const auto check = [&](double& average, int32_t alpha, int32_t got) {
                    const double a = alpha / 32768.0;
                    average = a * average + (1 - a) * power;
                    // One is added and less than one truncated in every step.
                    ASSERT_GE(got, average - 1e-3) << k;
                    ASSERT_LE(got, average + 1 / (1 - a) + 1e-3) << k;
                };
                check(slow[k], s.alpha_slow, s.psd_slow[k]);
                check(fast[k], s.alpha_fast, s.psd_fast[k]);
            }
            history.emplace_back();
            std::copy(s.psd_slow, s.psd_slow + kGains, history.back().begin());
            ASSERT_EQ(all_open(), call < length) << call;
            ASSERT_EQ(s.noise_ready, call < length ? 0 : 1) << call;
            ASSERT_EQ(s.subwin_count, call % length) << call;
            if (call < startup) {
                ASSERT_EQ(s.noise[0], -7);
                ASSERT_EQ(std::count(s.min_win[0], s.min_win[0] + kGains, kNoMinimum), kGains);
                continue;
            }
            const int first = std::max(startup, (call / length - 3) * length);
            for (size_t k = 0; k < bins; ++k) {
                int64_t minimum = INT32_MAX;
                for (int i = first; i <= call; ++i) {
                    minimum = std::min<int64_t>(minimum, history[static_cast<size_t>(i)][k]);
                }
                ASSERT_EQ(s.noise[k], minimum * 18841 / 16384) << call << ' ' << k;
            }
        }
        EXPECT_EQ(s.gain[144] == 32767, extra == 0);  // entry 144 is for the two-band path
    }
}

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
            for (int call = 1; call <= 140; ++call) {
                compute(skipped, 1);
            }
            EXPECT_EQ(s.noise_ready, 0);
            EXPECT_EQ(s.subwin_count, 140);
            EXPECT_TRUE(all_open());
            EXPECT_EQ(s.min_win[0][5], kNoMinimum);
            compute(tracked, 1);  // overdue: the sub-window closes at once
            EXPECT_EQ(s.noise_ready, 1);
            EXPECT_EQ(s.subwin_count, 0);
        }
    }
}

TEST(GainEngine, GoesOnPastTheLastFrameCount) {
    Tolu_NRSS_Init(9, 16000);
    s.frame_count = INT32_MAX - 1;
    for (int call = 1; call <= 63; ++call) {
        compute(flat(100, 100, 0), 0);
    }
    EXPECT_FALSE(all_open());
}

int reach(int k) { return k < 2 || k > 129 ? 0 : k < 34 ? 1 : k < 66 ? 2 : 3; }

using Minima = std::array<int32_t, kGains>;

void set_minima(const Minima& minima) {
    for (auto& row : s.min_win) {
        std::copy(minima.begin(), minima.end(), row);
    }
}

// A steady spectrum, with the given minima as soon as there is an estimate. Two sub-windows more
// replace two rows of four; the averages, which rise, then rest exactly one above their input.
void settle(int32_t level, const Spectrum& spectrum, const Minima& minima) {
    Tolu_NRSS_Init(level, 48000);
    const int length = s.subwin_len;
    for (int call = 0; call < 3 * length; ++call) {
        if (call == length) {
            set_minima(minima);
        }
        compute(spectrum, 1);
    }
}

// Target factors at x = 1/16, 1/8, 1/4 and 1/4, 1/2, 1: each three settle one parabola.
double target_factor(size_t set, double x) {
    constexpr double kX[5] = {0.0625, 0.125, 0.25, 0.5, 1.0};
    constexpr double kFactors[3][5] = {{1.409, 1.709, 1.998, 2.222, 2.449},
                                       {1.407, 1.835, 2.234, 2.530, 2.828},
                                       {1.990, 2.596, 3.159, 3.578, 4.000}};
    x = std::clamp(x, kX[0], kX[4]);
    const size_t first = x < kX[2] ? 0 : 2;
    double sum = 0;
    for (size_t i = first; i < first + 3; ++i) {
        double term = kFactors[set][i];
        for (size_t j = first; j < first + 3; ++j) {
            term *= j == i ? 1 : (x - kX[j]) / (kX[i] - kX[j]);
        }
        sum += term;
    }
    return sum;
}

// The last bits tell the pieces apart. For one unit below a quarter the lower one gives -453237*x +
// 243815 = 130517, times x 16312, and 19131 + 2*16312; at a quarter, -18250*x + 41184 = 36620, times x
// 4577, and 42602 + 2*4577.
TEST(OverSubtraction, TakesTheUpperPieceFromAQuarterOn) {
    const OsubCurve<int32_t> curve(kOsubCurves[2]);
    EXPECT_EQ(curve.target(8191 << 15), 51755);
    EXPECT_EQ(curve.target(8192 << 15), 51756);
}

// Target of a bin, Q14. Points rounded to 0.001 put a parabola off by at most 5/3 of half of that.
// The last bits of x are cut, and truncation takes 2 in the slope and 2 in the product.
Range target_range(size_t set, size_t k, double excess) {
    const Range ratio = ratio_range(s.noise[k], s.psd_slow[k], excess);
    const double low = std::min(std::ldexp(ratio.low, -30), 1.0) - 1.0 / 32768;
    const double rounding = 0.0005 * 16384 * 5 / 3;
    return {16384 * target_factor(set, low) - rounding - 4,
            16384 * target_factor(set, std::ldexp(ratio.high, -30)) + rounding};
}

// 1 - weight * factor * root, before smoothing. The product of the first two, Q16, loses less than
// 4 with its lowest bits, the cut less than one.
Range gain_range(size_t k, double excess) {
    const Range root = root_range(ratio_range(s.noise[k], s.psd_fast[k], excess));
    const double a = osf[k] * double(s.osub[k]) / 8192;
    const double floor = s.gain_floor;
    return {std::max(32767 - a * root.high / 65536, floor),
            std::max(32768 - (a - 4) * root.low / 65536, floor)};
}

TEST(GainEngine, SubtractsByTheCurveOfTheLevel) {
    // The averages rest at 2^20, where the reciprocal is not too large.
    const Spectrum steady = flat(422, 933, (1 << 20) - 1);
    Minima minima;
    for (size_t k = 0; k < kGains; ++k) {  // neighbours apart, noise from 1/32 of the power to all
        const auto step = static_cast<double>(k * 37 % kGains);
        minima[k] = static_cast<int32_t>(std::exp2(20 - 5.2 + 5.2 * step / (kGains - 1)));
    }
    for (size_t set = 0; set < 3; ++set) {
        SCOPED_TRACE(set);
        settle(static_cast<int32_t>(3 * set + 3), steady, minima);
        Reals low(kGains), high(kGains);
        for (size_t k = 0; k < kGains; ++k) {
            ASSERT_EQ(s.psd_slow[k], 1 << 20);
            ASSERT_EQ(s.psd_fast[k], 1 << 20);
            ASSERT_NEAR(s.noise[k], minima[k] * 1.15, minima[k] * 1e-4 + 1);
            EXPECT_TRUE(within(s.osub[k] - 1, target_range(set, k, 0))) << k;
            const Range range = gain_range(k, 0);
            low[k] = range.low;
            high[k] = range.high;
        }
        for (int k = 0; k < kGains; ++k) {
            const int r = reach(k);
            double least = 0, most = 0;
            for (int i = k - r; i <= k + r; ++i) {
                least += low[static_cast<size_t>(i)] / (2 * r + 1);
                most += high[static_cast<size_t>(i)] / (2 * r + 1);
            }
            // The truncated 1/7 takes less than one more.
            EXPECT_GE(s.gain[k], least - (r == 0 ? 0 : 2)) << k;
            EXPECT_LE(s.gain[k], most + 1e-6) << k;
        }
    }
}

TEST(GainEngine, OneOpenBinSpreadsOverThreeFiveAndSevenBins) {
    const Spectrum steady = flat(300, -400, 250000);
    Minima minima;
    minima.fill(kNoMinimum);
    settle(9, steady, minima);
    for (int open = 0; open < kGains; ++open) {
        minima.fill(kNoMinimum);
        minima[static_cast<size_t>(open)] = 0;
        set_minima(minima);
        compute(steady, 1);
        for (int k = 0; k < kGains; ++k) {
            const int width = 2 * reach(k) + 1;
            const int sum = width * 1638 + (std::abs(k - open) <= reach(k) ? 32767 - 1638 : 0);
            const int mean = width == 1 ? sum : sum * (65536 / width) >> 16;
            ASSERT_EQ(s.gain[k], mean) << k << " with bin " << open << " open";
        }
    }
}

// Noise alone, then 16 times the power: the fast average goes further than the slow one.
TEST(GainEngine, FactorsFollowTheSlowPowerAndGainsTheFast) {
    Minima none;
    none.fill(kNoMinimum);
    settle(9, flat(64, 0, 1 << 12), none);
    const double before = s.osub[0];
    compute(flat(256, 0, 1 << 16), 1);
    const double alpha = s.alpha_osub / 32768.0;
    for (size_t k = 0; k < kGains; ++k) {
        const Range target = target_range(2, k, 1.0 / 27);  // one is added, less than one cut off
        EXPECT_GE(s.osub[k], alpha * before + (1 - alpha) * target.low) << k;
        EXPECT_LE(s.osub[k], alpha * before + (1 - alpha) * target.high + 1) << k;
        if (reach(static_cast<int>(k)) == 0) {
            EXPECT_TRUE(within(s.gain[k], gain_range(k, 1.0 / 27))) << k;
        }
    }
}

TEST(GainEngine, HostileSpectraAreDefined) {
    Minima none;
    none.fill(kNoMinimum);
    settle(9, flat(300, -400, 250000), none);
    Random random(25);
    for (int call = 0; call < 300; ++call) {  // for the sanitizers
        compute(random_spectrum(random, call % 3 == 0 ? 46340 : 2000), 1);
        Spectrum wild = flat(call % 2 == 0 ? INT32_MIN : INT32_MAX, 1, INT32_MIN);
        std::generate_n(wild.begin(), 100, [&] { return random.between(INT32_MIN, INT32_MAX); });
        compute(wild, 1);
    }
}

}  // namespace
}  // namespace korvane
