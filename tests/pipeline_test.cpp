// Framing, the full-band step, and the block pipeline on both its paths.
#include "nrss/pipeline/block_pipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "dsp/gain_mul.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/gain/tables.h"
#include "nrss/pipeline/framing.h"
#include "nrss/pipeline/full_band.h"
#include "numeric_models.h"

namespace korvane {
namespace {

using test::Random;
using test::Reals;
using test::Samples;

constexpr size_t kHop = kHopSize;
constexpr int kFullBandRate = 16000;
constexpr int kTwoBandRate = 48000;

NrssState& s = nrss_state;

// How far may a frame be off, as root mean square, that the transforms, the shift and open gains
// have passed? On each spectral word the shift takes less than 1 and the gain at most 1 either way;
// with what the forward transform lost (22/128 after the shift) that is sqrt(8) + 0.2 per bin, and
// sqrt(143/2) as much per sample: 25.4. The inverse transform loses 42.9 (fft288_test.cpp), the
// truncated window 1.2: 69.5 in all. Overlap-add sums two such, under windows of power one, and
// truncates twice: sqrt(2) * 69.5 + 2 = 100.3. The constants of both transforms add 6.6 of 32768.
// On the two-band path the bands bring 1.3 of their own, 1.125 times, the high band 1.3 + 5, and
// the merge 2.3: 111.
constexpr double kFullBandRms = 100.3;
constexpr double kTwoBandRms = 111;
constexpr double kConstants = 6.6 / 32768;

// The framing in double precision, the frame between the windows times `gain`, with or without its
// mean and alternating component.
Reals reframed(const Reals& x, double gain, bool clears_dc) {
    Reals out(x.size());
    Reals frame(2 * kHop), tail(kHop);
    for (size_t start = 0; start + kHop <= x.size(); start += kHop) {
        double mean = 0;
        double alternating = 0;
        for (size_t k = 0; k < 2 * kHop; ++k) {
            const double w = kWindow[k < kHop ? k : 2 * kHop - 1 - k] / 32768.0;
            frame[k] = start + k < kHop ? 0 : w * x[start + k - kHop];
            mean += frame[k] / (2 * kHop);
            alternating += (k % 2 == 0 ? frame[k] : -frame[k]) / (2 * kHop);
        }
        for (size_t k = 0; k < 2 * kHop; ++k) {
            frame[k] -= clears_dc ? mean + (k % 2 == 0 ? alternating : -alternating) : 0;
        }
        for (size_t k = 0; k < kHop; ++k) {
            out[start + k] =
                gain * (kWindow[k] * frame[k] + kWindow[kHop - 1 - k] * tail[k]) / 32768;
            tail[k] = frame[kHop + k];
        }
    }
    return out;
}

template <class Signal>
Reals reals(const Signal& x) {
    return {x.begin(), x.end()};
}

// Starts as the library does when it is loaded, then initialises.
void start_fresh(int level, int rate) {
    s = {};
    for (auto* frame : {&ch0_high_a, &ch0_high_b, &ch1_high_a, &ch1_high_b}) {
        std::fill(std::begin(*frame), std::end(*frame), 0);
    }
    Tolu_NRSS_Init(level, rate);
}

// Runs whole signals through the pipeline, in place, block by block.
void clean(Samples& ch0, Samples& ch1) {
    for (size_t start = 0; start < ch0.size(); start += 576) {
        Tolu_NRSS_Nonintlvd(ch0.data() + start, ch1.data() + start, 576);
    }
}

Samples cleaned(Samples x) {
    clean(x, x);
    return x;
}

Samples operator+(Samples a, const Samples& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Samples last_of(const Samples& x, size_t n) {
    return {x.end() - static_cast<ptrdiff_t>(n), x.end()};
}

// ---- Framing ------------------------------------------------------------------------------------

TEST(Framing, ReturnsUnprocessedFramesOneHopLate) {
    start_fresh(9, kFullBandRate);
    Random random(30);
    int32_t frames[2][kFrameWords] = {};
    Samples last(kHop);
    for (size_t hop = 0; hop < 40; ++hop) {
        Samples x = random.noise(kHop, hop % 2 == 0 ? 32767 : 20);
        x[hop] = -32768;
        int32_t* const cur = frames[hop % 2];
        int32_t* const oth = frames[1 - hop % 2];
        const Samples in = x;
        NRSS_WindowFrame(x.data(), cur, oth);
        EXPECT_EQ(x, in);
        NRSS_OverlapAdd(cur, oth, x.data());
        for (size_t k = 0; k < kHop; ++k) {
            ASSERT_GE(x[k], last[k] - 4);
            ASSERT_LE(x[k], std::min(last[k] + 1, 32767));
        }
        last = in;
        EXPECT_EQ(cur[288], 0);
        EXPECT_EQ(oth[289], 0);
    }
}

TEST(Framing, WritesOnlyItsHalvesAndSaturates) {
    start_fresh(9, kFullBandRate);
    int32_t cur[kFrameWords], oth[kFrameWords];
    std::fill(cur, cur + kFrameWords, 7777777);
    std::fill(oth, oth + kFrameWords, 7777777);
    const Samples x(kHop, -32768);
    NRSS_WindowFrame(x.data(), cur, oth);
    EXPECT_EQ(std::count(cur, cur + kHop, 7777777), kHopSize);
    EXPECT_EQ(std::count(oth + kHop, oth + kFrameWords, 7777777), kHopSize + 2);
    EXPECT_EQ(oth[143], -32767);
    EXPECT_EQ(cur[144], -32767);
    EXPECT_EQ(oth[0], -6);
    EXPECT_EQ(cur[287], -6);

    for (const int sign : {1, -1}) {  // truncation is toward minus infinity: 1 vanishes, -1 stays
        NRSS_WindowFrame(Samples(kHop, static_cast<int16_t>(sign)).data(), cur, oth);
        EXPECT_EQ(std::count(cur + kHop, cur + kFrameSize, sign < 0 ? -1 : 0), kHopSize);
        EXPECT_EQ(std::count(oth, oth + kHop, sign < 0 ? -1 : 0), kHopSize);
    }

    Samples out(kHop);
    for (const int32_t value : {40000, -40000, (1 << 30) - 1, -(1 << 30), 1 << 30}) {
        std::fill(cur, cur + kHop, value);
        std::fill(oth + kHop, oth + kFrameSize, value);
        NRSS_OverlapAdd(cur, oth, out.data());
        const bool wrapped = value == 1 << 30;  // doubling it gives -2^31
        EXPECT_EQ(std::count(out.begin(), out.end(), value > 0 && !wrapped ? 32767 : -32768),
                  kHopSize)
            << value;
    }
}

// ---- Full-band step -----------------------------------------------------------------------------

TEST(FullBand, WeightsEveryBinAndComputesGainsOnlyWhenAsked) {
    start_fresh(9, kFullBandRate);
    Random random(37);
    int32_t frame[kFrameWords], expected[kFrameWords];
    for (int16_t& gain : s.gain) {
        gain = random.sample(32767);
    }
    for (int32_t& value : frame) {
        value = random.sample(32767);
    }
    const NrssState before = s;
    std::copy(frame, frame + kFrameWords, expected);  // words 288 and 289 stay
    real_fft288(expected, frame);
    for (int i = 0; i < kFrameSize; ++i) {
        const double shifted = std::floor(expected[i] / 256.0);
        expected[i] = i < 2 ? 0 : NRSS_GainMul(s.gain[i / 2], static_cast<int32_t>(shifted));
    }
    real_ifft288(expected, expected);
    NRSS_ProcessFullBand(frame, false);
    EXPECT_TRUE(std::equal(frame, frame + kFrameWords, expected));
    EXPECT_EQ(0, std::memcmp(&before, &s, sizeof s));  // channel 1 never reaches the gain engine
    NRSS_ProcessFullBand(frame, true);
    EXPECT_EQ(s.frame_count, 1);
}

// ---- Both paths with open gains -----------------------------------------------------------------

TEST(Pipeline, TonesTakeTheLevelAndDelayOfTheirPath) {
    constexpr size_t kSize = 576 * 10;  // 40 hops, within the start-up of every class
    start_fresh(9, kFullBandRate);
    for (const double f : {0.05, 0.13, 0.31, 0.43}) {
        start_fresh(9, kFullBandRate);
        const Samples x = test::tone(kSize, 20000, f);
        const Samples out = cleaned(x);
        Reals expected(kHop);
        for (size_t n = 0; n + kHop < kSize; ++n) {
            expected.push_back(0.5625 * x[n]);
        }
        EXPECT_LE(test::rms_difference(out, expected, 2 * kHop),
                  kFullBandRms + kConstants * test::rms(expected))
            << f;
    }
    for (const double hertz : {3000.0, 9000.0, 13000.0, 20000.0}) {
        start_fresh(9, kTwoBandRate);
        const Samples x = test::tone(kSize, 15000, hertz / kTwoBandRate);
        const Samples out = cleaned(x);
        const double expected = (hertz < 12000 ? 1.125 : 1.0) * 15000 / std::numbers::sqrt2;
        // The other band holds -51 dB at most, and its gain differs by an eighth.
        EXPECT_NEAR(
            test::rms(last_of(out, 4800)), expected,
            kTwoBandRms + 2 * kConstants * expected + std::pow(10, -51 / 20.0) / 8 * expected);
    }
}

TEST(Pipeline, OpenGainsGiveTheFramingOfEachPath) {
    constexpr size_t kSize = 576 * 10;
    Random random(31);
    Samples alternating(kSize);
    for (size_t i = 0; i < kSize; ++i) {
        alternating[i] = i % 2 == 0 ? 10000 : -10000;
    }
    // A constant is weakened, not removed: each frame loses only its mean.
    const Samples signals[] = {Samples(kSize, 10000), alternating, random.noise(kSize, 12000),
                               test::tone(kSize, 12000, 0.27)};
    for (const Samples& x : signals) {
        start_fresh(9, kFullBandRate);
        const Samples full = cleaned(x);
        const Reals full_expected = reframed(reals(x), 0.5625, true);
        EXPECT_LE(test::rms_difference(full, full_expected, 0),
                  kFullBandRms + kConstants * test::rms(full_expected));

        start_fresh(9, kTwoBandRate);
        const Samples two = cleaned(x);
        test::Bands bands = test::split(x);
        bands = {reframed(bands.low, 1.125, true), reframed(bands.high, 1, false)};
        const Reals two_expected = test::merge(bands);
        EXPECT_LE(test::rms_difference(two, two_expected, 0),
                  kTwoBandRms + 2 * kConstants * test::rms(two_expected));
    }
}

// ---- Channels -----------------------------------------------------------------------------------

class Paths : public ::testing::TestWithParam<int> {
  protected:
    Paths() : rate(GetParam()), random(static_cast<uint32_t>(rate)) { start_fresh(9, rate); }

    // Long enough for 280 hops: gains are computed, and the rows of the estimate have turned.
    Samples noise(int32_t level = 6000) {
        return random.noise((rate == kTwoBandRate ? 140 : 70) * 576, level);
    }

    int rate;
    Random random;
};

TEST_P(Paths, OneChannelIsChannelZeroOfTwo) {
    const Samples x = noise();
    const Samples one = cleaned(x);
    start_fresh(9, rate);
    Samples ch0 = x;
    Samples ch1 = noise();
    clean(ch0, ch1);
    EXPECT_EQ(ch0, one);
    EXPECT_LT(test::rms(last_of(one, 5760)), test::rms(one) / 4);  // gains were at work

    start_fresh(9, rate);
    Samples same0 = x;
    Samples same1 = x;
    clean(same0, same1);
    EXPECT_EQ(same0, one);
    EXPECT_EQ(same1, one);
}

TEST_P(Paths, ChannelOneTakesTheGainsOfChannelZero) {
    // Silence on channel 0 leaves every gain open, so that noise passes channel 1 as it would at
    // first.
    const Samples x = noise();
    Samples silent(x.size());
    Samples beside = x;
    clean(silent, beside);
    EXPECT_EQ(silent, Samples(x.size()));
    constexpr size_t kOpen = 576 * 10;
    start_fresh(9, rate);
    const Samples alone = cleaned(x);
    EXPECT_TRUE(std::equal(alone.begin(), alone.begin() + kOpen, beside.begin()));
    EXPECT_GT(test::rms(last_of(beside, kOpen)), 4 * test::rms(last_of(alone, kOpen)));
    // Noise on channel 0 closes the gains, and the same samples on channel 1 sink with them.
    start_fresh(9, rate);
    Samples loud = noise();
    Samples quiet = x;
    clean(loud, quiet);
    EXPECT_LT(test::rms(last_of(quiet, kOpen)), test::rms(last_of(beside, kOpen)) / 4);
}

TEST_P(Paths, OneChannelCallsLeaveChannelOneAlone) {
    const Samples first = random.noise(576, 9000);
    const Samples second = random.noise(576, 9000);
    const auto run = [&](bool between) {
        start_fresh(9, rate);
        Samples ch0 = random.noise(576, 9000);
        Samples a = first;
        clean(ch0, a);
        if (between) {
            cleaned(random.noise(1152, 9000));
        }
        Samples b = second;
        clean(ch0, b);
        return a + b;
    };
    EXPECT_EQ(run(true), run(false));  // the gains are open all the while
}

TEST_P(Paths, OnlyWholeSubBlocksAreTouched) {
    const size_t sub_block = static_cast<size_t>(s.frame_len);
    const Samples x = random.noise(1300, 9000);
    Samples whole = x;
    Tolu_NRSS_Nonintlvd(whole.data(), whole.data(), 1152);
    for (const int n : {600, 1151, 1152, 1300}) {
        start_fresh(9, rate);
        Samples ch0 = x;
        Samples ch1 = x;
        Tolu_NRSS_Nonintlvd(ch0.data(), ch1.data(), n);
        const auto done = static_cast<ptrdiff_t>(static_cast<size_t>(n) / sub_block * sub_block);
        EXPECT_TRUE(std::equal(ch0.begin(), ch0.begin() + done, whole.begin())) << n;
        EXPECT_TRUE(std::equal(ch0.begin() + done, ch0.end(), x.begin() + done)) << n;
        EXPECT_EQ(ch0, ch1) << n;
    }
    Samples ch0 = x;
    Samples ch1 = x;
    const auto expect_untouched = [&](int n) {
        const NrssState before = s;
        Tolu_NRSS_Nonintlvd(ch0.data(), ch1.data(), n);
        EXPECT_EQ(ch0, x) << n;
        EXPECT_EQ(ch1, x) << n;
        EXPECT_EQ(0, std::memcmp(&before, &s, sizeof s)) << n;
    };
    for (const int n : {0, 1, s.frame_len - 1, -1, -576, INT32_MIN}) {
        expect_untouched(n);
    }
    Tolu_NRSS_Init(0, rate);
    expect_untouched(1152);
}

INSTANTIATE_TEST_SUITE_P(Rates, Paths, ::testing::Values(8000, kFullBandRate, 22050, kTwoBandRate));

// ---- Levels and initialisation ------------------------------------------------------------------

TEST(Pipeline, EveryLevelRemovesMoreThanTheOneBelow) {
    for (const int rate : {kFullBandRate, kTwoBandRate}) {
        const Samples x = Random(32).noise(576 * 200, 6000);
        double below = 1e9;
        for (int level = 1; level <= 9; ++level) {
            start_fresh(level, rate);
            const double left = test::rms(last_of(cleaned(x), 57600));
            EXPECT_LT(left, below) << level;
            below = left;
        }
    }
}

// What lies between: another rate, two channels, gains at work.
void leave_history(int rate) {
    Random random(33);
    start_fresh(5, rate);
    Samples ch0 = random.noise(576 * 150, 15000);
    Samples ch1 = random.noise(576 * 150, 15000);
    clean(ch0, ch1);
}

TEST(Pipeline, ReinitialisedEqualsFreshOnTheFullBandPath) {
    Random random(34);
    const Samples x0 = random.noise(576 * 60, 9000);
    const Samples x1 = random.noise(576 * 60, 9000);
    Samples fresh0 = x0;
    Samples fresh1 = x1;
    start_fresh(9, kFullBandRate);
    clean(fresh0, fresh1);
    for (const int rate : {8000, kFullBandRate, kTwoBandRate}) {
        leave_history(rate);
        Tolu_NRSS_Init(9, kFullBandRate);
        Samples again0 = x0;
        Samples again1 = x1;
        clean(again0, again1);
        EXPECT_EQ(again0, fresh0) << rate;
        EXPECT_EQ(again1, fresh1) << rate;
    }
}

// The frames of the high band outlive an initialisation whole: the tail of the last processed frame
// and the windowed input of the last hop. After whole sub-blocks both stand in the A frame's first
// half (input) and the B frame's second (tail).
TEST(Pipeline, HighBandFramesSurviveInitialisation) {
    Random random(35);
    const Samples x0 = random.noise(576 * 140, 9000);
    const Samples x1 = random.noise(576 * 140, 9000);
    leave_history(kTwoBandRate);
    const std::array frames = {&ch0_high_a, &ch0_high_b, &ch1_high_a, &ch1_high_b};
    std::array<std::array<int32_t, kFrameWords>, 4> kept;
    for (size_t i = 0; i < 4; ++i) {
        std::copy(std::begin(*frames[i]), std::end(*frames[i]), kept[i].begin());
    }
    using Channels = std::array<Samples, 2>;
    const auto clean_both = [&] {
        Channels channels{x0, x1};
        clean(channels[0], channels[1]);
        return channels;
    };
    const auto fresh_with = [&](bool input, bool tail) {
        start_fresh(9, kTwoBandRate);
        for (size_t i = 0; i < 4; ++i) {
            if (i % 2 == 0 ? input : tail) {
                std::copy(kept[i].begin(), kept[i].end(), *frames[i]);
            }
        }
        return clean_both();
    };
    Tolu_NRSS_Init(9, kTwoBandRate);
    const Channels again = clean_both();
    EXPECT_EQ(again, fresh_with(true, true));
    for (const auto& [input, tail] : {std::pair{true, false}, {false, true}, {false, false}}) {
        const Channels other = fresh_with(input, tail);
        for (size_t channel = 0; channel < 2; ++channel) {
            EXPECT_FALSE(std::equal(again[channel].begin(), again[channel].begin() + 288,
                                    other[channel].begin()));
        }
    }
    // A detour over the full-band path and level 0 does not touch them either.
    leave_history(kTwoBandRate);
    Tolu_NRSS_Init(9, kFullBandRate);
    cleaned(x0);
    Tolu_NRSS_Init(0, kTwoBandRate);
    Tolu_NRSS_Init(9, kTwoBandRate);
    EXPECT_EQ(clean_both(), again);
}

TEST(Pipeline, HostileInputIsDefined) {  // for the sanitizers
    Random random(36);
    for (const int rate : {kFullBandRate, kTwoBandRate}) {
        start_fresh(9, rate);
        for (int block = 0; block < 150; ++block) {
            Samples ch0(576), ch1(576);
            for (int16_t& v : ch0) {
                v = static_cast<int16_t>(random.between(0, 1) * 65535 - 32768);
            }
            for (size_t i = 0; i < 576; ++i) {
                ch1[i] = i / (static_cast<size_t>(block) + 1) % 2 == 0 ? 32767 : -32768;
            }
            clean(ch0, ch1);
        }
    }
}

}  // namespace
}  // namespace korvane
