// The detector's interface and the level decision.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "detector/level_decision.h"
#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "library_state.h"
#include "numeric_models.h"

namespace korvane::test {
namespace {

VadHandle h;

/** A message as the host received it, and what was stored at that moment. */
struct Message {
    std::string text;
    uint32_t speech;
    VadHandle handle;
};
std::vector<Message> messages;

}  // namespace
}  // namespace korvane::test

// The host's own log function. The library must take it instead of writing to stderr.
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    using namespace korvane::test;
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): va_start has initialised it
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    EXPECT_EQ(priority, 4);
    EXPECT_STREQ(tag, "OLM_VOR_a64");
    messages.push_back({text, korvane::exported_stream.level.speech, h});
    return 1;
}

namespace korvane::test {
namespace {

// ---- Level decision -----------------------------------------------------------------------------

/** A square wave, so that its level is that of its amplitude. */
Samples frame_at(double db, int n) {
    const auto amplitude = static_cast<int16_t>(std::lround(32768.0 * std::pow(10.0, db / 20.0)));
    Samples x(static_cast<size_t>(n), amplitude);
    for (size_t i = 1; i < x.size(); i += 2) {
        x[i] = static_cast<int16_t>(-amplitude);
    }
    return x;
}

/** The decision on a frame; of a negative length, on no samples. */
int decide(double db, int n) { return OLM_VOR(frame_at(db, std::max(n, 0)).data(), nullptr, n); }

TEST(LevelDecision, MeasuresKnownLevels) {
    const Samples silence(4096);
    EXPECT_EQ(level_db(silence.data(), 4096), -140.0);
    EXPECT_EQ(level_db(nullptr, -1), -140.0);
    EXPECT_TRUE(std::isnan(level_db(silence.data(), 0)));
    // 20*log10(1 + e) is 20*e/ln(10) less a second-order term of 4.4e-14 and rounding of 1e-15.
    for (const int n : {1, 8, 4096}) {  // eight squares of 2^30 exceed 32 bits
        EXPECT_NEAR(level_db(Samples(4096, -32768).data(), n), 20e-7 / std::log(10.0), 5e-14);
    }
    // One sample of 2^5 in four: an rms of 2^4, -220*log10(2) dB. The added e = 1e-7 makes it
    // 20/ln(10)*e/rms more, to a second-order term of 10/ln(10)*(e/rms)^2.
    Samples sparse(64);
    for (size_t i = 0; i < 64; i += 4) {
        sparse[i] = i % 8 == 0 ? 32 : -32;
    }
    const double raise = 20e-7 * 2048.0 / std::log(10.0);
    EXPECT_NEAR(level_db(sparse.data(), 64), -220.0 * std::log10(2.0) + raise, 2e-7);
}

/** n samples whose squares sum up to sum. */
Samples frame_of_sum(int n, int64_t sum) {
    constexpr int kSpare = 16;
    const auto base = static_cast<int16_t>(std::sqrt(static_cast<double>(sum) / n));
    Samples x(static_cast<size_t>(n), base);
    int64_t left = sum - int64_t{n - kSpare} * base * base;
    for (auto v = x.end() - kSpare; v != x.end(); ++v) {
        *v = static_cast<int16_t>(std::sqrt(static_cast<double>(left)));
        left -= int64_t{*v} * *v;
    }
    EXPECT_EQ(left, 0);
    return x;
}

TEST(LevelDecision, ComparesStrictly) {
    for (const double threshold : {-45.0, -50.0}) {
        // The shortest frame whose level is the threshold to the last bit. The sum of its squares
        // must hit it to one part in 10^15, which good rational approximations do from some 10^5
        // samples on: longer than both counts, so that one frame settles the decision.
        const double rms = std::pow(10.0, threshold / 20.0) - 1e-7;
        double sum = 0;
        int n = 20000;
        for (; n < 3000000; ++n) {
            const double wanted = n * rms * rms * 1073741824.0;
            sum = std::nearbyint(wanted);
            if (std::abs(sum - wanted) < 1e-4 &&
                20.0 * std::log10(std::sqrt(sum / (n * 1073741824.0)) + 1e-7) == threshold) {
                break;
            }
        }
        const Samples at = frame_of_sum(n, static_cast<int64_t>(sum));
        const Samples above = frame_of_sum(n, static_cast<int64_t>(sum) + 1);
        ASSERT_EQ(level_db(at.data(), n), threshold);
        ASSERT_GT(level_db(above.data(), n), threshold);
        OLM_VOR_Init();
        vor_state.speech = threshold == -50.0 ? 1 : 0;
        EXPECT_EQ(OLM_VOR(above.data(), nullptr, n), 1);
        vor_state.speech = threshold == -50.0 ? 1 : 0;
        EXPECT_EQ(OLM_VOR(at.data(), nullptr, n), 0);
    }
}

TEST(LevelDecision, CountsSamplesOfUninterruptedRuns) {
    // Frames, their length and level, the decision before the last one and at it.
    const std::vector<std::tuple<int, int, double, int, int>> scenes[] = {
        {{3, 160, -40, 0, 1}, {120, 160, -60, 1, 0}, {3, 160, -40, 0, 1}},
        {{1, 479, -40, 0, 0}, {1, 1, -40, 0, 1}, {1, 19199, -60, 1, 1}, {1, 1, -60, 1, 0}},
        // A frame on the other side starts the count again, and so does one that lies between.
        {{2, 160, -40, 0, 0}, {1, 160, -60, 0, 0}, {3, 160, -40, 0, 1}},
        {{2, 160, -40, 0, 0}, {1, 160, -47, 0, 0}, {3, 160, -40, 0, 1}},
        {{3, 160, -40, 0, 1}, {119, 160, -60, 1, 1}, {1, 160, -48, 1, 1}, {120, 160, -60, 1, 0}},
        // What a long frame counts beyond a transition does not shorten the next count.
        {{1, 900, -40, 0, 1}, {1, 19900, -60, 1, 0}, {3, 160, -40, 0, 1}},
        // 0.1 dB to either side of both thresholds; between them the decision stays for good.
        {{9, 160, -45.1, 0, 0}, {3, 160, -44.9, 0, 1}, {200, 160, -49.9, 1, 1}},
        {{480, 1, -40, 0, 1}, {120, 160, -50.1, 1, 0}, {479, 1, -40, 0, 0}},
        // No samples are on neither side; a negative number of them is silence, counted backwards.
        {{1, 479, -40, 0, 0}, {1, 0, -40, 0, 0}, {1, 479, -40, 0, 0}, {1, 1, -40, 0, 1}},
        {{1, 480, -40, 0, 1}, {1, 19199, -60, 1, 1}, {1, 0, -60, 1, 1}, {1, 19199, -60, 1, 1}},
        {{1, 480, -40, 0, 1}, {1, -3, -40, 1, 1}, {1, 19202, -60, 1, 1}, {1, 1, -60, 1, 0}},
        {{1, 480, -40, 0, 1}, {1, INT32_MIN, -40, 1, 0}}};  // 19200 + 2^31 wraps below 1
    for (const bool configure : {false, true}) {  // any rate, at any time: it changes nothing
        for (const auto& scene : scenes) {        // each begins where the one before it ended
            OLM_VOR_Init();
            for (const auto& [frames, n, db, held, last] : scene) {
                for (int i = 1; i <= frames; ++i) {
                    if (configure) {
                        const int rates[] = {8000, 48000, 0, -1, INT32_MAX, INT32_MIN};
                        OLM_VOR_SetFs(rates[i % 6]);
                    }
                    ASSERT_EQ(decide(db, n), i < frames ? held : last) << db << " frame " << i;
                }
            }
        }
    }
}

TEST(LevelDecision, TakesTheLouderChannel) {
    const Samples quiet = frame_at(-47, 480);
    const Samples loud = frame_at(-40, 480);
    for (const auto& [ch0, ch1, expected] :
         {std::tuple{&loud, &quiet, 1},
          {&quiet, &loud, 1},
          {&quiet, &quiet, 0}}) {  // pooled, the last pair would lie at -44 dB
        OLM_VOR_Init();
        EXPECT_EQ(OLM_VOR(ch0->data(), ch1->data(), 480), expected);
    }
}

TEST(LevelDecision, EachThresholdAndTheCountsHaveAnEnableOfTheirOwn) {
    vor_state = {};
    vor_state.enter_enabled = 1;
    EXPECT_EQ(decide(-40, 1), 1);  // no counts yet
    EXPECT_EQ(decide(-40, 1), 0);
    vor_state.enter_enabled = 0;
    vor_state.stay_enabled = 1;
    OLM_VOR_SetFs(16000);
    EXPECT_EQ(decide(-40, 1), 0);
    const int16_t full = -32768;
    EXPECT_EQ(OLM_VOR(&full, nullptr, 1), 1);
    EXPECT_EQ(decide(-40, 1), 1);
    vor_state.rate_enabled = 1;
    OLM_VOR_SetFs(16000);
    EXPECT_EQ(decide(-60, 19199), 1);
}

// ---- Handle and configuration -------------------------------------------------------------------

class Detector : public testing::Test {
  protected:
    Detector() {
        forget_everything();
        h = {};
        messages.clear();
    }
};

/** Makes a call that must return 0 and change one field of the handle, if any, to a value. */
template <class Call, class T = int16_t>
void expect_stores(Call call, T VadHandle::*field = nullptr, T value = {}) {
    VadHandle expected;
    std::memcpy(&expected, &h, sizeof h);
    if (field != nullptr) {
        expected.*field = value;
    }
    EXPECT_EQ(call(), 0);
    EXPECT_EQ(std::memcmp(&h, &expected, sizeof h), 0) << messages.back().text;
}

TEST_F(Detector, ConfigurationStoresOneFieldEach) {
    std::memset(static_cast<void*>(&h), 0x33, sizeof h);
    VoiceActivityDetectionInit();
    // The last lengths lose their upper bits; the mode decides about the halving before that.
    const std::tuple<uint16_t, uint32_t, int16_t> lengths[] = {
        {1, 320, 320},      {0, 320, 160},  {2, 320, 160},        {3, 321, 160},
        {2, 1, 0},          {1, 65535, -1}, {1, 65536, 0},        {1, 40000, -25536},
        {2, 65536, -32768}, {2, 131074, 1}, {3, 0xFFFFFFFFU, -1}, {0x101, 320, 160},
        {1, 0x80000000U, 0}};
    for (const auto& [mode, length, stored] : lengths) {
        h.channel_mode = mode;
        expect_stores([n = length] { return VoiceActivityDetectionFrameLengthConfig(&h, n); },
                      &VadHandle::frame_length, stored);
    }
    const std::pair<int, uint16_t> modes[] = {{1, 1},      {3, 3},      {0, 0},         {65537, 1},
                                              {-1, 65535}, {-65535, 1}, {INT32_MIN, 0}, {77, 77}};
    for (const auto& [mode, stored] : modes) {
        expect_stores([m = mode] { return VoiceActivityDetectionChannelModeConfig(&h, m); },
                      &VadHandle::channel_mode, stored);
    }
    for (const uint32_t rate : {0U, 16000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        expect_stores([=] { return VoiceActivityDetectionSamplingRateConfig(&h, rate); },
                      &VadHandle::sampling_rate, rate);
    }
    int16_t sample = 0;
    expect_stores([&] { return VoiceActivityDetectionInOutConfig(&h, &sample); },
                  &VadHandle::samples, &sample);
    expect_stores([] { return VoiceActivityDetectionParamConfig(&h); });
    expect_stores([] { return VoiceActivityDetectionInit(); });
    EXPECT_EQ(VoiceActivityDetectionParamConfig(nullptr), 0);

    VoiceActivityDetectionChannelModeConfig(&h, 1);
    VoiceActivityDetectionConfigAll(&h, 16000, 320, nullptr, 0x10002);
    EXPECT_TRUE(h.frame_length == 320 && h.channel_mode == 2 && h.samples == nullptr);
    EXPECT_EQ(VoiceActivityDetectionConfigAll(&h, 48000, 320, &sample, 3), 0);
    EXPECT_TRUE(h.frame_length == 160 && h.channel_mode == 3 && h.samples == &sample);
    EXPECT_EQ(h.sampling_rate, 48000U);
}

TEST_F(Detector, OnlyTheFirstRateAfterAnInitReachesTheSuppressor) {
    // First rates, and those whose weights they take: a rate of 50000 or more keeps Init's.
    const std::pair<uint32_t, int> rates[] = {
        {0, 8000},      {9999, 8000},   {10000, 16000},       {19999, 16000},     {20000, 22050},
        {49999, 48000}, {50000, 16000}, {0x7FFFFFFFU, 16000}, {0x80000000U, 8000}};
    for (const auto& [rate, like] : rates) {
        const auto configure = [&, all = rate % 2 == 1](uint32_t hertz) {
            if (all) {
                VoiceActivityDetectionConfigAll(&h, hertz, 160, nullptr, 1);
            } else {
                VoiceActivityDetectionSamplingRateConfig(&h, hertz);
            }
        };
        Tolu_NRSS_Init(9, like);
        const int16_t* const weights = osf;
        VoiceActivityDetectionInit();
        configure(rate);
        EXPECT_EQ(osf, weights) << rate;
        // The next rates do not.
        const std::string state = library_state();
        vor_state.onset_samples = vor_state.hangover_samples = 0;  // the counts are set again
        configure(like == 8000 ? 48000 : 8000);
        EXPECT_EQ(osf, weights) << rate;
        EXPECT_TRUE(library_state() == state) << rate;
    }
}

TEST_F(Detector, MessagesComeInOrderBeforeTheirEffect) {
    Samples frame(961);
    vor_state.speech = 1;
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(&h, 1);
    VoiceActivityDetectionSamplingRateConfig(&h, 16000);
    VoiceActivityDetectionFrameLengthConfig(&h, 160);
    VoiceActivityDetectionConfigAll(&h, 0xFFFFFFFFU, 961, frame.data(), -2);
    VoiceActivityDetectionInOutConfig(&h, frame.data());
    VoiceActivityDetectionParamConfig(&h);
    VoiceActivityDetectionExe(&h);
    EXPECT_STREQ(VoiceActivityDetectionVersion(), "Korvane VAD v3.0 a64 2020.06.22)");
    const char* const expected[] = {"Init() Version Korvane VAD v3.0 a64 2020.06.22)",
                                    "ChannelModeConfig 1",
                                    "SamplingRateConfig 16000",
                                    "FrameLengthConfig 160",
                                    "SamplingRateConfig -1",
                                    "FrameLengthConfig 961",
                                    "ChannelModeConfig -2"};
    ASSERT_EQ(messages.size(), std::size(expected));  // nothing else logs
    for (size_t i = 0; i < messages.size(); ++i) {
        EXPECT_EQ(messages[i].text, std::string("VoiceActivityDetection") + expected[i]);
    }
    // Each message finds the state as it was: the effect follows.
    EXPECT_TRUE(messages[0].speech == 1 && messages[1].handle.channel_mode == 0);
    EXPECT_EQ(messages[2].handle.sampling_rate, 0U);
    EXPECT_EQ(messages[3].handle.frame_length, 0);
    EXPECT_EQ(messages[4].handle.sampling_rate, 16000U);
    EXPECT_EQ(messages[5].handle.sampling_rate, 0xFFFFFFFFU);
    EXPECT_TRUE(messages[5].handle.frame_length == 160 && messages[5].handle.samples == nullptr);
    EXPECT_TRUE(messages[6].handle.frame_length == 961 && messages[6].handle.samples != nullptr);
    EXPECT_EQ(messages[6].handle.channel_mode, 1);
}

// ---- Processing ---------------------------------------------------------------------------------

/** Cleaned channels and the decision of every frame; with interleaved frames what each of them became,
 * too. */
struct Result {
    Samples ch0, ch1, pairs;
    std::vector<int> flags;
    bool operator==(const Result&) const = default;
};

/** Frames of n samples through the detector; what is not a whole frame is left out. */
Result run(const Samples& ch0, const Samples& ch1, int n, int mode) {
    Result result;
    for (auto x0 = ch0.begin(), x1 = ch1.begin(); ch0.end() - x0 >= n; x0 += n, x1 += n) {
        Samples frame(x0, x0 + n);
        frame.insert(frame.end(), x1, x1 + n);
        if (mode == 2) {
            Tolu_NRSS_Interleave(frame.data(), &*x0, &*x1, n);
        }
        VoiceActivityDetectionInOutConfig(&h, frame.data());
        result.flags.push_back(VoiceActivityDetectionExe(&h));
        result.ch0.insert(result.ch0.end(), h.ch0_work, h.ch0_work + n);
        result.ch1.insert(result.ch1.end(), h.ch1_work, h.ch1_work + (mode == 1 ? 0 : n));
        result.pairs.insert(result.pairs.end(), frame.begin(),
                            mode == 2 ? frame.end() : frame.begin());
    }
    return result;
}

TEST_F(Detector, AllModesGiveTheCleanedStreamAndTheDecisionOnIt) {
    constexpr int kTotal = 49152;
    const Samples ch0 = bursts(kTotal, 1);
    const Samples ch1 = bursts(kTotal, 2);
    const std::tuple<int, int, int> cases[] = {{16000, 160, 1}, {16000, 1, 2},    {8000, 577, 3},
                                               {24000, 1, 3},   {48000, 4096, 2}, {48000, 577, 1}};
    for (const auto& [rate, n, mode] : cases) {
        forget_everything();
        Tolu_NRSS_Init(9, rate);
        Tolu_NRSS_BufInit();
        OLM_VOR_Init();
        Result expected{ch0, ch1, Samples(2 * kTotal), {}};
        Tolu_NRSS_Buffered(expected.ch0.data(), expected.ch1.data(), kTotal);
        Tolu_NRSS_Interleave(expected.pairs.data(), expected.ch0.data(), expected.ch1.data(),
                             kTotal);
        const auto size = static_cast<size_t>(n);
        const size_t whole = kTotal / size * size;
        for (size_t at = 0; at < whole; at += size) {
            const int16_t* const second = mode == 1 ? nullptr : &expected.ch1[at];
            expected.flags.push_back(OLM_VOR(&expected.ch0[at], second, n));
        }
        expected.ch0.resize(whole);
        expected.ch1.resize(mode == 1 ? 0 : whole);
        expected.pairs.resize(mode == 2 ? 2 * whole : 0);

        // What was before a start does not matter: another level, an unfinished block, speech.
        forget_everything();
        Tolu_NRSS_Init(2, 8000);
        Tolu_NRSS_BufInit();
        Samples other = bursts(60000, 3);
        Tolu_NRSS_Buffered(other.data(), other.data() + 30000, 30000);
        vor_state.speech = 1;
        VoiceActivityDetectionInit();
        VoiceActivityDetectionChannelModeConfig(&h, mode);
        VoiceActivityDetectionSamplingRateConfig(&h, static_cast<uint32_t>(rate));
        VoiceActivityDetectionFrameLengthConfig(&h, static_cast<uint32_t>(mode == 1 ? n : 2 * n));
        EXPECT_TRUE(run(ch0, ch1, n, mode) == expected) << rate << " " << n << " " << mode;
    }
}

}  // namespace
}  // namespace korvane::test
