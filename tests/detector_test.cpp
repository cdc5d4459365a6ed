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
#include "guarded_samples.h"
#include "korvane_nrss.h"
#include "korvane_vad.h"

namespace korvane::test {
namespace {

struct Guarded {
    uint64_t before = 0x5AA5;
    VadHandle handle = {};
    uint64_t after = 0x5AA5;
} guarded;
VadHandle& h = guarded.handle;

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
    messages.push_back({text, korvane::vor_state.speech, h});
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

int decide(double db, int n) { return OLM_VOR(frame_at(db, n).data(), nullptr, n); }

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
        {{480, 1, -40, 0, 1}, {19200, 1, -60, 1, 0}},
        {{1, 480, -40, 0, 1}, {1, 19200, -60, 1, 0}},
        {{1, 479, -40, 0, 0}, {1, 1, -40, 0, 1}, {1, 19199, -60, 1, 1}, {1, 1, -60, 1, 0}},
        // A frame on the other side starts the count again, and so does one that lies between.
        {{2, 160, -40, 0, 0}, {1, 160, -60, 0, 0}, {3, 160, -40, 0, 1}},
        {{2, 160, -40, 0, 0}, {1, 160, -47, 0, 0}, {3, 160, -40, 0, 1}},
        {{3, 160, -40, 0, 1}, {119, 160, -60, 1, 1}, {1, 160, -48, 1, 1}, {120, 160, -60, 1, 0}},
        // What a long frame counts beyond a transition does not shorten the next count.
        {{1, 900, -40, 0, 1}, {120, 160, -60, 1, 0}},
        {{3, 160, -40, 0, 1}, {1, 19900, -60, 1, 0}, {3, 160, -40, 0, 1}},
        // 0.1 dB to either side of both thresholds; between them the decision stays for good.
        {{9, 160, -45.1, 0, 0}, {3, 160, -44.9, 0, 1}},
        {{3, 160, -40, 0, 1}, {200, 160, -49.9, 1, 1}, {120, 160, -50.1, 1, 0}}};
    for (const auto& scene : scenes) {
        OLM_VOR_Init();
        for (const auto& [frames, n, db, held, last] : scene) {
            for (int i = 1; i <= frames; ++i) {
                ASSERT_EQ(decide(db, n), i < frames ? held : last) << db << " frame " << i;
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

TEST(LevelDecision, WithoutSamplesAndWithNegativeCounts) {
    const Samples any(4);
    OLM_VOR_Init();
    for (const int speech : {0, 1}) {
        vor_state.speech = static_cast<uint32_t>(speech);
        vor_state.countdown = 77;
        EXPECT_EQ(OLM_VOR(any.data(), any.data(), 0), speech);
        EXPECT_EQ(vor_state.countdown, 0);
        vor_state.countdown = 77;
        EXPECT_EQ(OLM_VOR(nullptr, nullptr, -3), speech);  // silence: the hang-over runs
        EXPECT_EQ(vor_state.countdown, speech == 0 ? 0 : 80);
    }
    vor_state.countdown = 0;
    EXPECT_EQ(OLM_VOR(nullptr, nullptr, INT32_MIN), 0);  // 19200 + 2^31 wraps below 1
}

TEST(LevelDecision, InitSetsEverythingAndSetFsTheCounts) {
    std::memset(&vor_state, 0x5A, sizeof vor_state);
    OLM_VOR_Init();
    const VorState& s = vor_state;
    EXPECT_TRUE(s.enter_enabled && s.stay_enabled && s.rate_enabled);
    EXPECT_TRUE(s.onset_samples == 480 && s.hangover_samples == 19200);
    EXPECT_TRUE(s.speech == 0 && s.countdown == 0);
    vor_state.speech = 1;
    vor_state.countdown = 55;
    const std::string before = bytes_of(vor_state);
    for (const int rate : {8000, 48000, 0, -1, INT32_MAX, INT32_MIN}) {
        vor_state.onset_samples = vor_state.hangover_samples = 0;
        OLM_VOR_SetFs(rate);
        EXPECT_EQ(bytes_of(vor_state), before);
    }
    // New counts hold from the next run on.
    OLM_VOR_Init();
    decide(-40, 160);
    vor_state.onset_samples = 100000;
    EXPECT_EQ(decide(-40, 320), 1);
    vor_state.speech = 0;
    EXPECT_EQ(decide(-40, 480), 0);
}

TEST(LevelDecision, BeforeInitTheThresholdsAreFullScaleAndTheCountsZero) {
    static const VorState fresh{};
    vor_state = fresh;
    OLM_VOR_SetFs(16000);
    EXPECT_TRUE(bytes_of(vor_state) == bytes_of(fresh));
    const int16_t less = 32767;
    const int16_t full = -32768;
    for (const auto& [x, speech] : {std::pair{&less, 0}, {&full, 1}, {&full, 1}, {&less, 0}}) {
        EXPECT_EQ(OLM_VOR(x, nullptr, 1), speech);
    }
    // Each threshold has an enable of its own, and so have the counts.
    vor_state = {};
    vor_state.enter_enabled = 1;
    EXPECT_EQ(decide(-40, 1), 1);
    EXPECT_EQ(decide(-40, 1), 0);
    vor_state = {};
    vor_state.stay_enabled = 1;
    EXPECT_EQ(decide(-40, 1), 0);
    vor_state.speech = 1;
    EXPECT_EQ(decide(-40, 1), 1);
    vor_state.rate_enabled = 1;
    OLM_VOR_SetFs(16000);
    EXPECT_TRUE(vor_state.onset_samples == 480 && vor_state.hangover_samples == 19200);
}

// ---- Handle and configuration -------------------------------------------------------------------

class Detector : public testing::Test {
  protected:
    Detector() {
        forget_everything();
        guarded = {};
        messages.clear();
    }
    ~Detector() override { EXPECT_TRUE(guarded.before == 0x5AA5 && guarded.after == 0x5AA5); }

    /** A new stream, and the handle configured for it in the documented order. */
    static void start(int rate, int n, int mode) {
        VoiceActivityDetectionInit();
        VoiceActivityDetectionChannelModeConfig(&h, mode);
        VoiceActivityDetectionSamplingRateConfig(&h, static_cast<uint32_t>(rate));
        VoiceActivityDetectionFrameLengthConfig(&h, static_cast<uint32_t>(mode == 1 ? n : 2 * n));
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
    // A first rate, as Init takes it: class 1 where the rate is 50000 or more.
    const std::pair<uint32_t, int> classes[] = {
        {0, 0},     {9999, 0},  {10000, 1},       {19999, 1},       {20000, 2},      {25000, 3},
        {49999, 3}, {50000, 1}, {0x7FFFFFFFU, 1}, {0x80000000U, 0}, {0xFFFFFFFFU, 0}};
    for (const auto& [rate, rate_class] : classes) {
        const auto configure = [&, all = rate % 2 == 1](uint32_t hertz) {
            if (all) {
                VoiceActivityDetectionConfigAll(&h, hertz, 160, nullptr, 1);
            } else {
                VoiceActivityDetectionSamplingRateConfig(&h, hertz);
            }
        };
        const NrssState& s = nrss_state;
        VoiceActivityDetectionInit();
        EXPECT_TRUE(s.rate_class == 1 && s.level == 9);
        nrss_state.frame_count = 5;
        nrss_state.level = 3;
        configure(rate);
        EXPECT_TRUE(s.rate_class == rate_class && s.frame_count == 0 && s.level == 9) << rate;
        // The next rates are stored, set the counts, and go no further.
        nrss_state.frame_count = 5;
        vor_state.onset_samples = 0;
        configure(rate_class == 0 ? 48000 : 8000);
        EXPECT_TRUE(s.rate_class == rate_class && s.frame_count == 5) << rate;
        EXPECT_EQ(vor_state.onset_samples, 480);
    }
}

TEST_F(Detector, MessagesComeInOrderBeforeTheirEffect) {
    Samples frame(961);
    vor_state.speech = 1;
    start(16000, 160, 1);
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

TEST_F(Detector, RefusedFramesTouchNothing) {
    start(16000, 4096, 3);
    Samples buffer = bursts(8192, 1);
    VoiceActivityDetectionInOutConfig(&h, buffer.data());
    VoiceActivityDetectionExe(&h);
    const Samples loud(8192, 20000);
    buffer = loud;
    vor_state.speech = 1;  // so that a stray decision would show as 1
    const std::string state = library_state();
    const auto expect_refused = [](int n, int mode) {
        h.frame_length = static_cast<int16_t>(n);
        h.channel_mode = static_cast<uint16_t>(mode);
        expect_stores([] { return VoiceActivityDetectionExe(&h); });
    };
    for (int n = -32768; n <= 32767; n = n == 0 ? 4097 : n + 1) {
        expect_refused(n, (n + 32769) % 3 + 1);
    }
    for (const int mode : {0, 4, 5, 257, 258, 65535}) {
        expect_refused(160, mode);
    }
    EXPECT_TRUE(library_state() == state);
    EXPECT_EQ(buffer, loud);
}

/** Cleaned channels and the decision of every frame. */
struct Result {
    Samples ch0, ch1;
    std::vector<int> flags;
    bool operator==(const Result&) const = default;
};

/** Frames of n samples through the detector; checks what each mode may and may not write. */
Result run(const Samples& ch0, const Samples& ch1, int n, int mode) {
    Result result;
    std::fill_n(h.ch0_work, KORVANE_VAD_MAX_FRAME, int16_t{0x1111});
    std::fill_n(h.ch1_work, KORVANE_VAD_MAX_FRAME, int16_t{0x2222});
    for (auto x0 = ch0.begin(), x1 = ch1.begin(); ch0.end() - x0 >= n; x0 += n, x1 += n) {
        Samples frame(x0, x0 + n);
        frame.insert(frame.end(), x1, x1 + (mode == 1 ? 0 : n));
        if (mode == 2) {
            Tolu_NRSS_Interleave(frame.data(), &*x0, &*x1, n);
        }
        GuardedSamples buffer(frame);
        VoiceActivityDetectionInOutConfig(&h, buffer.data());
        result.flags.push_back(VoiceActivityDetectionExe(&h));
        EXPECT_TRUE(buffer.intact());
        if (mode == 2) {
            Tolu_NRSS_Interleave(frame.data(), h.ch0_work, h.ch1_work, n);
        }
        EXPECT_EQ(buffer.samples(), frame);
        result.ch0.insert(result.ch0.end(), h.ch0_work, h.ch0_work + n);
        result.ch1.insert(result.ch1.end(), h.ch1_work, h.ch1_work + (mode == 1 ? 0 : n));
    }
    for (int i = mode == 1 ? 0 : n; i < KORVANE_VAD_MAX_FRAME; ++i) {
        EXPECT_TRUE(h.ch1_work[i] == 0x2222 && (i < n || h.ch0_work[i] == 0x1111)) << i;
    }
    return result;
}

TEST_F(Detector, AllModesGiveTheCleanedStreamAndTheDecisionOnIt) {
    const Samples ch0 = bursts(49152, 1);
    const Samples ch1 = bursts(49152, 2);
    const std::tuple<int, int, int> cases[] = {{16000, 160, 1}, {16000, 1, 2},    {8000, 577, 3},
                                               {24000, 1, 3},   {48000, 4096, 2}, {48000, 577, 1}};
    for (const auto& [rate, n, mode] : cases) {
        forget_everything();
        Tolu_NRSS_Init(9, rate);
        Tolu_NRSS_BufInit();
        Result expected{ch0, ch1, {}};
        Tolu_NRSS_Buffered(expected.ch0.data(), expected.ch1.data(), 49152);
        OLM_VOR_Init();
        int at = 0;
        for (; at + n <= 49152; at += n) {
            const int16_t* const second = mode == 1 ? nullptr : expected.ch1.data() + at;
            expected.flags.push_back(OLM_VOR(expected.ch0.data() + at, second, n));
        }
        expected.ch0.resize(static_cast<size_t>(at));
        expected.ch1.resize(mode == 1 ? 0 : static_cast<size_t>(at));

        // What was before a start does not matter: another level, an unfinished block, speech.
        forget_everything();
        Tolu_NRSS_Init(2, 8000);
        Tolu_NRSS_BufInit();
        Samples other = bursts(60000, 3);
        Tolu_NRSS_Buffered(other.data(), other.data() + 30000, 30000);
        vor_state.speech = 1;
        start(rate, n, mode);
        EXPECT_TRUE(run(ch0, ch1, n, mode) == expected) << rate << " " << n << " " << mode;
    }
}

}  // namespace
}  // namespace korvane::test
