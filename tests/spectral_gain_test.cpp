// The suppressor's initialisation and tables, the gain engine, and its two arithmetic routines.
#include "nrss/gain/spectral_gain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "nrss/gain/nrss_state.h"
#include "nrss/gain/tables.h"
#include "numeric_models.h"

namespace korvane {
namespace {

using test::Random;
using test::Reals;
using Spectrum = std::array<int32_t, kFrameWords>;

NrssState& s = nrss_state;

// ---- Routines -----------------------------------------------------------------------------------

// The reciprocal inside is at most 1/27 too large; truncation takes less than 2 of its 2^14..2^15
// and less than one unit of the product, which the last shift makes 2^e (4/power of the ratio).
void check_ratio(int32_t noise, int32_t power) {
    const double exact = std::ldexp(1.0, 30) * noise / power;
    const double unit = std::ldexp(1.0, std::countl_zero(static_cast<uint32_t>(power)));
    const double near = exact * (1 - 2.0 / 16384);
    const double far = exact * (1 + 1.0 / 27);
    const int32_t got = ratio_q30(noise, power);
    ASSERT_GE(got, std::min(near, far) - unit) << noise << " / " << power;
    ASSERT_LE(got, std::max(near, far)) << noise << " / " << power;
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
    for (int32_t power = 1 << 29; power < (1 << 30); power += 9973) {  // densely over one octave
        check_ratio(power / 3, power);
        check_ratio(power - 1, power);
    }
    for (int i = 0; i < 200000; ++i) {
        const int32_t power = random.between(1, INT32_MAX) >> random.between(0, 30);
        check_ratio(random.between(0, std::max(power - 1, 0)), std::max(power, 1));
    }
    // Powers of two and of nearly twice as much: the error is that of truncation alone.
    EXPECT_NEAR(ratio_q30(1 << 29, 1 << 30), 1 << 29, (1 << 29) * 2.0 / 16384);
    EXPECT_NEAR(ratio_q30(1 << 29, INT32_MAX), 1 << 28, (1 << 28) * 2.0 / 16384);
}

TEST(Ratio, IsDefinedOnEveryInput) {
    const int32_t corners[] = {INT32_MIN, INT32_MIN + 1, -65536,        -2,       -1, 0, 1,
                               2,         65535,         INT32_MAX - 1, INT32_MAX};
    for (const int32_t power : corners) {
        for (const int32_t noise : corners) {
            if (noise >= power) {
                EXPECT_EQ(ratio_q30(noise, power), 0x3FFFFFFF);
            } else if (power == 0) {
                EXPECT_EQ(ratio_q30(noise, power), 0);
            } else {
                ratio_q30(noise, power);  // for the sanitizers
            }
        }
    }
    // A negative power is taken by its quarter, u = power/2^32. At -1 the quadratic's d wraps to
    // -1, so q = 1 + 1 wraps to just below 0, and the reciprocal is -1 unit: noise/-65536.
    EXPECT_EQ(ratio_q30(INT32_MIN, -1), 32768);
    EXPECT_EQ(ratio_q30(-3, -2), 0);
}

// The series is never below the root and at most 1.4375/sqrt(2) of it; truncation of the 13-bit z
// and of the last shift takes less than two units, rounding of the argument's one adds less than
// one.
void check_sqrt(int32_t ratio) {
    const double exact = 32768 * std::sqrt(std::ldexp(ratio, -30));
    const int32_t got = sqrt_q15(ratio);
    ASSERT_GE(got, std::min(exact - 2, 32767.0)) << ratio;
    ASSERT_LE(got, std::min(exact * 1.4375 / std::numbers::sqrt2 + 1, 32767.0)) << ratio;
}

TEST(SquareRoot, IsWithinItsErrorOfTheRoot) {
    Random random(21);
    for (int bit = 0; bit < 31; ++bit) {
        for (const int32_t step : {-1, 0, 1}) {
            check_sqrt((1 << bit) + step);
        }
    }
    for (int32_t ratio = 0; ratio < INT32_MAX - 4999; ratio += 4999) {
        check_sqrt(ratio);
    }
    for (int i = 0; i < 200000; ++i) {
        check_sqrt(random.between(0, INT32_MAX) >> random.between(0, 30));
    }
    EXPECT_EQ(sqrt_q15(0x3FFFFFFF), 32767);
    EXPECT_EQ(sqrt_q15(INT32_MAX), 32767);
    EXPECT_EQ(sqrt_q15(1 << 28), 0x3FFFFFFF >> 16);  // where the series is exact
    EXPECT_EQ(sqrt_q15(0), 0);
    // A negative value counts by its quarter: z = -1 and -1.5, where the series gives 0.3125 and
    // -0.2421875.
    EXPECT_EQ(sqrt_q15(-1), 10239);
    EXPECT_EQ(sqrt_q15(INT32_MIN), -7937);
}

// ---- Tables and initialisation ------------------------------------------------------------------

TEST(Tables, WindowIsTheKaiserBesselDerived) {
    const auto bessel_i0 = [](double x) {
        double term = 1;
        double sum = 1;
        for (int i = 1; i < 60; ++i) {
            term *= (x / 2 / i) * (x / 2 / i);
            sum += term;
        }
        return sum;
    };
    Reals sums;
    double sum = 0;
    for (int j = 0; j <= 144; ++j) {
        const double t = 2 * j / 144.0 - 1;
        sum += bessel_i0(5 * std::numbers::pi * std::sqrt(1 - t * t));
        sums.push_back(sum);
    }
    for (size_t k = 0; k < 144; ++k) {
        const long value = std::lround(32768 * std::sqrt(sums[k] / sum));
        EXPECT_EQ(kWindow[k], std::min(value, 32767L)) << k;
        EXPECT_EQ(kWindow[144 + k], 0);
        const int32_t power = kWindow[k] * kWindow[k] + kWindow[143 - k] * kWindow[143 - k];
        EXPECT_GE(power, 1073676325);
        EXPECT_LE(power, 1073783045);
    }
}

TEST(Tables, WeightsFallEverMoreSlowlyToOneHalf) {
    const auto check = [](const int16_t* weight, size_t size, size_t smooth, size_t settled) {
        EXPECT_EQ(weight[0], 32767);
        for (size_t k = 1; k < smooth; ++k) {  // falling and convex
            EXPECT_GT(weight[k], weight[k + 1]);
            EXPECT_GT(weight[k - 1] - weight[k], weight[k] - weight[k + 1]) << k;
        }
        for (size_t k = smooth + 4; k < settled; ++k) {  // a ripple of 11 where the fall ends
            EXPECT_NEAR(weight[k], 16384, 11);
        }
        EXPECT_TRUE(
            std::all_of(weight + settled, weight + size, [](int16_t w) { return w == 16384; }));
    };
    check(kOsfLowRate, 144, 37, 42);
    check(kOsfMidRate, 288, 37, 42);
    check(kOsfHighRate, 288, 28, 34);
    for (size_t k = 0; k < 144; ++k) {  // the two lower classes share one curve, to their rounding
        EXPECT_NEAR(kOsfLowRate[k], kOsfMidRate[k], 4);
    }
}

double osub_curve(const int32_t* c, double x) { return c[2] + (c[1] + c[0] * x) * x; }

TEST(Tables, OverSubtractionCurvesTakeTheirValuesAndMeet) {
    const double factors[3][4] = {
        {1.409, 1.709, 2.222, 2.449}, {1.407, 1.835, 2.530, 2.828}, {1.990, 2.596, 3.578, 4.000}};
    for (size_t set = 0; set < 3; ++set) {
        const int32_t* const c = kOsubCurves[set];
        EXPECT_NEAR(osub_curve(c, 0.0625) / 16384, factors[set][0], 0.001);
        EXPECT_NEAR(osub_curve(c, 0.125) / 16384, factors[set][1], 0.001);
        EXPECT_NEAR(osub_curve(c + 3, 0.5) / 16384, factors[set][2], 0.001);
        EXPECT_NEAR(osub_curve(c + 3, 1.0) / 16384, factors[set][3], 0.001);
        // Rounding: 1/2 of each coefficient and its share of x, both pieces.
        EXPECT_NEAR(osub_curve(c, 0.25), osub_curve(c + 3, 0.25), 2 * 0.5 * (1 + 0.25 + 0.0625));
    }
    EXPECT_EQ(kOsubBreakpoint, 8192);
}

struct RateClassCase {
    int32_t lowest, highest, frame_len, alpha_slow, alpha_osub, subwin_len, startup_frames;
    const int16_t* weights;
    int32_t alpha_fast[3];
};

const RateClassCase kRateClasses[] = {
    {INT32_MIN, 9999, 288, 26828, 27922, 63, 13, kOsfLowRate, {19222, 17279, 14723}},
    {10000, 19999, 288, 26828, 27922, 63, 13, kOsfMidRate, {19222, 17279, 14723}},
    {20000, 24999, 288, 26828, 27922, 86, 18, kOsfHighRate, {19222, 17279, 14723}},
    {25000, 49999, 576, 29650, 30249, 125, 25, kOsfHighRate, {25098, 23794, 21965}},
};
constexpr double kFloors[] = {0.70, 0.50, 0.40, 0.33, 0.25, 0.20, 0.143, 0.10, 0.05};

TEST(Initialisation, SettlesEveryFieldFromAnyState) {
    for (int32_t i = 0; i < 4 * 2 * 12; ++i) {
        const int32_t rate_class = i / 24;
        const RateClassCase& rates = kRateClasses[rate_class];
        const int32_t rate = i % 2 == 0 ? rates.lowest : rates.highest;
        const int32_t level = i / 2 % 12 + 1;
        const int32_t used = std::min(level, 9);
        SCOPED_TRACE(testing::Message() << rate << " Hz, level " << level);
        std::memset(static_cast<void*>(&s), 0x3B, sizeof s);
        static NrssState expected;
        std::memcpy(static_cast<void*>(&expected), &s, sizeof s);  // noise and scratch stay
        Tolu_NRSS_Init(level, rate);

        EXPECT_EQ(osf, rates.weights);
        EXPECT_NEAR(s.gain_floor, 32768 * kFloors[used - 1], 0.5);
        expected.level = used;
        expected.rate_class = rate_class;
        expected.frame_len = static_cast<int16_t>(rates.frame_len);
        expected.gain_floor = s.gain_floor;
        expected.alpha_fast = rates.alpha_fast[(used - 1) / 3];
        expected.alpha_slow = rates.alpha_slow;
        expected.alpha_osub = rates.alpha_osub;
        expected.subwin_len = rates.subwin_len;
        expected.startup_frames = rates.startup_frames;
        expected.osub_coef = kOsubCurves[(used - 1) / 3];
        expected.window = kWindow;
        expected.noise_ready = 0;
        expected.subwin_count = expected.frame_count = 0;
        for (auto* frame : {&expected.ch0_frame_a, &expected.ch0_frame_b, &expected.ch1_frame_a,
                            &expected.ch1_frame_b}) {
            std::fill(std::begin(*frame), std::end(*frame), 0);
        }
        for (auto* powers : {&expected.psd_slow, &expected.psd_fast, &expected.osub}) {
            std::fill(std::begin(*powers), std::end(*powers), 0);
        }
        for (auto* memory : {&expected.split_state_ch0, &expected.merge_state_ch0,
                             &expected.split_state_ch1, &expected.merge_state_ch1}) {
            std::fill(std::begin(*memory), std::end(*memory), 0);
        }
        for (size_t row = 0; row < kSubWindows; ++row) {
            std::fill(std::begin(expected.min_win[row]), std::end(expected.min_win[row]),
                      0x3FFFFFFF);
            expected.min_win_row[row] = s.min_win[row];
        }
        std::fill(std::begin(expected.gain), std::end(expected.gain), int16_t{32767});
        EXPECT_EQ(0, std::memcmp(&s, &expected, sizeof s));
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
    std::fill(std::begin(s.gain), std::end(s.gain), int16_t{77});
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

int32_t bins_of(int32_t extra) { return kBins + extra; }

// Every bin (re, im) the same, the extra power as given.
Spectrum flat(int32_t re, int32_t im, int32_t extra_power) {
    Spectrum spectrum;
    for (size_t k = 0; k < kBins; ++k) {
        spectrum[2 * k] = re;
        spectrum[2 * k + 1] = im;
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

TEST(GainEngine, AveragesPowersRecursively) {
    for (const int32_t rate : {16000, 48000}) {
        for (const int32_t level : {2, 9}) {
            Tolu_NRSS_Init(level, rate);
            Random random(22);
            Reals slow(kGains), fast(kGains);
            for (int call = 0; call < 100; ++call) {
                const Spectrum spectrum = random_spectrum(random, 20000);
                compute(spectrum, 1);
                for (size_t k = 0; k < kGains; ++k) {
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
            }
        }
    }
}

// The whole life of the estimate: nothing for startup_frames - 1 calls, minima until the first full
// sub-window, gains from then on; and at every call the noise is 1.15 times the smallest slow
// average of the last three full sub-windows and the running one.
TEST(GainEngine, EstimatesNoiseAsTheMinimumOverFourSubWindows) {
    for (const int32_t rate : {8000, 16000, 22050, 48000}) {
        SCOPED_TRACE(rate);
        Tolu_NRSS_Init(9, rate);
        const int32_t extra = rate == 48000 ? 1 : 0;
        const int startup = s.startup_frames;
        const int length = s.subwin_len;
        Random random(23);
        std::vector<std::array<int32_t, kGains>> history(1);  // [call], from 1
        std::fill(std::begin(s.noise), std::end(s.noise), -7);
        for (int call = 1; call < 7 * length + 20; ++call) {
            const int32_t level = 100 << random.between(0, 5) * (call / 30 % 2);
            compute(random_spectrum(random, level), extra);
            history.emplace_back();
            std::copy(s.psd_slow, s.psd_slow + kGains, history.back().begin());
            ASSERT_EQ(all_open(), call < length) << call;
            ASSERT_EQ(s.noise_ready, call < length ? 0 : 1) << call;
            ASSERT_EQ(s.subwin_count, call % length) << call;
            if (call < startup) {
                ASSERT_EQ(s.noise[0], -7);
                for (const auto& row : s.min_win) {
                    ASSERT_EQ(std::count(row, row + kGains, kNoMinimum), kGains);
                }
                continue;
            }
            const int first = std::max(startup, (call / length - 3) * length);
            for (size_t k = 0; k < static_cast<size_t>(bins_of(extra)); ++k) {
                int64_t minimum = INT32_MAX;
                for (int i = first; i <= call; ++i) {
                    minimum = std::min<int64_t>(minimum, history[static_cast<size_t>(i)][k]);
                }
                ASSERT_EQ(s.noise[k], minimum * 18841 / 16384) << call << ' ' << k;
            }
        }
        for (size_t age = 0; age < kSubWindows; ++age) {  // after seven rotations: rows 1, 2, 3, 0
            EXPECT_EQ(s.min_win_row[age], s.min_win[(age + 1) % kSubWindows]);
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
    const Spectrum negative = flat(0, 0, -1);     // -1 >> 7 takes one off
    const Spectrum loud = flat(31225, 31225, 0);  // 144 * (1.95e9 >> 7) passes 2^31
    for (const Spectrum& skipped : {silent, below, negative, loud}) {
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

struct Range {
    double lo;
    double hi;
};

size_t reach(size_t k) { return k < 2 || k > 129 ? 0 : k < 34 ? 1 : k < 66 ? 2 : 3; }

// One call from a made state, bins at every ratio of noise to power, against the formulas in double
// precision. The ratio and the root are taken from their routines, tested above.
TEST(GainEngine, GainsFollowTheSpectralSubtractionFormula) {
    Random random(24);
    int lower = 0;
    int upper = 0;
    int floored = 0;
    for (int round = 0; round < 400; ++round) {
        const int32_t level = round % 9 + 1;
        const int32_t extra = round % 2;
        Tolu_NRSS_Init(level, extra == 1 ? 48000 : round % 4 == 0 ? 8000 : 16000);
        s.frame_count = 100;
        s.noise_ready = 1;
        Reals old_osub(kGains);
        for (size_t k = 0; k < kGains; ++k) {
            s.psd_slow[k] = random.between(1, 1 << 29) >> random.between(0, 10);
            s.psd_fast[k] = random.between(1, 1 << 29) >> random.between(0, 10);
            s.osub[k] = random.between(0, 65536);
            old_osub[k] = s.osub[k];
            s.min_win[round % 4][k] = random.between(1, s.psd_slow[k]) >> random.between(0, 4);
        }
        compute(random_spectrum(random, 5000), extra);

        Range u[kGains];
        const size_t bins = static_cast<size_t>(bins_of(extra));
        for (size_t k = 0; k < bins; ++k) {
            const double x =
                std::clamp(ratio_q30(s.noise[k], s.psd_slow[k]) >> 15, 2048, 32767) / 32768.0;
            (x < 0.25 ? lower : upper) += 1;
            const double target = osub_curve(s.osub_coef + (x < 0.25 ? 0 : 3), x);
            const double alpha = s.alpha_osub / 32768.0;
            // Both products of the curve truncate and are doubled: less than 4 in all. The average
            // adds one and truncates less than one.
            const double smoothed = alpha * old_osub[k] + (1 - alpha) * target;
            ASSERT_GE(s.osub[k], smoothed - (1 - alpha) * 4) << k << ' ' << x;
            ASSERT_LE(s.osub[k], smoothed + 1) << k << ' ' << x;

            const double root = sqrt_q15(ratio_q30(s.noise[k], s.psd_fast[k]));
            const double gain = 32767 - osf[k] / 32768.0 * (s.osub[k] / 16384.0) * root;
            // The factor in Q16 loses less than 4 (its two low bits), its product less than 1.
            u[k] = {std::max<double>(gain, s.gain_floor), std::max<double>(gain + 3, s.gain_floor)};
            floored += gain < s.gain_floor ? 1 : 0;
        }
        for (size_t k = 0; k < bins; ++k) {
            Range mean{0, 0};
            for (size_t i = k - reach(k); i <= k + reach(k); ++i) {
                mean.lo += u[i].lo / static_cast<double>(2 * reach(k) + 1);
                mean.hi += u[i].hi / static_cast<double>(2 * reach(k) + 1);
            }
            // The mean's reciprocal falls short by at most 1/65536 of 7 gains' sum, then truncates.
            ASSERT_GE(s.gain[k], mean.lo - (reach(k) == 0 ? 1e-6 : 2.1)) << k;
            ASSERT_LE(s.gain[k], mean.hi + 1e-6) << k;
        }
        if (extra == 0) {
            ASSERT_EQ(s.gain[144], 32767);
        }
    }
    EXPECT_GT(std::min({lower, upper, floored}), 5000);
}

TEST(GainEngine, SteadyNoiseSinksToTheFloor) {
    for (int32_t level = 1; level <= 9; ++level) {
        Tolu_NRSS_Init(level, 48000);
        for (int call = 0; call < 400; ++call) {
            compute(flat(300, -400, 250000), 1);
        }
        for (size_t k = 0; k < kGains; ++k) {
            // A mean of equal gains may fall one short of them.
            ASSERT_GE(s.gain[k], s.gain_floor - (reach(k) > 0 ? 1 : 0)) << k;
            ASSERT_LE(s.gain[k], s.gain_floor) << k;
        }
        EXPECT_EQ(s.gain[2], s.gain_floor * 3 * 21845 / 65536);
    }
    // Level 9 at x = 32767: 42602 + 2 * floor((41184 - 2 * 9125) * 32767 / 65536) = 65534, and the
    // average rests one above.
    EXPECT_EQ(std::count(s.osub, s.osub + kGains, 65535), kGains);
}

TEST(GainEngine, HostileSpectraAreDefined) {
    Random random(25);
    for (const int32_t rate : {16000, 48000}) {
        Tolu_NRSS_Init(9, rate);
        for (int call = 0; call < 300; ++call) {
            compute(random_spectrum(random, call % 3 == 0 ? 46340 : 2000), rate == 48000 ? 1 : 0);
            Spectrum wild = flat(call % 2 == 0 ? INT32_MIN : INT32_MAX, 1, INT32_MIN);
            for (size_t i = 0; i < 100; ++i) {
                wild[i] = random.between(INT32_MIN, INT32_MAX);
            }
            compute(wild, rate == 48000 ? 1 : 0);
        }
    }
}

}  // namespace
}  // namespace korvane
