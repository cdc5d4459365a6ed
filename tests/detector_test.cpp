// The detector's interface and the level decision.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "detector/level_decision.h"
#include "guarded_samples.h"
#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/stream/block_stream.h"

namespace korvane::test {
namespace {

/** A message as the host received it, and what the handle held at that moment. */
struct Message {
    int priority;
    std::string tag;
    std::string text;
    VadHandle handle;
};

std::vector<Message> messages;
const VadHandle* watched_handle = nullptr;
uint32_t speech_when_logged = 0;

}  // namespace
}  // namespace korvane::test

// The host's own log function. The library must take it instead of writing to stderr.
extern "C" int __android_log_print(int priority, const char* tag, const char* format, ...) {
    using namespace korvane::test;
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    messages.push_back({priority, tag, text, watched_handle ? *watched_handle : VadHandle{}});
    speech_when_logged = korvane::vor_state.speech;
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

/** n samples whose squares sum up to sum. */
Samples frame_of_sum(int n, int64_t sum) {
    constexpr int kSpare = 16;
    const auto base = static_cast<int16_t>(std::sqrt(static_cast<double>(sum / n)));
    Samples x(static_cast<size_t>(n), base);
    int64_t left = sum - int64_t{n - kSpare} * base * base;
    for (int i = n - kSpare; i < n; ++i) {
        auto root = static_cast<int64_t>(std::sqrt(static_cast<double>(left)));
        x[static_cast<size_t>(i)] = static_cast<int16_t>(root);
        left -= root * root;
    }
    EXPECT_EQ(left, 0);
    return x;
}

/** The shortest frame (length, sum of squares) whose level is exactly db, to the last bit. The sum
 * must hit it to one part in 10^15, which good rational approximations do from some 10^5 samples
 * on. */
std::pair<int, int64_t> find_exact_level(double db) {
    const double rms = std::pow(10.0, db / 20.0) - 1e-7;
    const double per_sample = rms * rms * 1073741824.0;
    for (int n = 20000; n < 3000000; ++n) {
        const double wanted = n * per_sample;
        const double sum = std::nearbyint(wanted);
        if (std::abs(sum - wanted) < 1e-4 &&
            20.0 * std::log10(std::sqrt(sum / (n * 1073741824.0)) + 1e-7) == db) {
            return {n, static_cast<int64_t>(sum)};
        }
    }
    return {0, 0};
}

TEST(LevelDecision, MeasuresKnownLevels) {
    const Samples silence(4096);
    EXPECT_EQ(level_db(silence.data(), 4096), -140.0);
    EXPECT_EQ(level_db(silence.data(), 1), -140.0);
    EXPECT_EQ(level_db(nullptr, -1), -140.0);
    EXPECT_TRUE(std::isnan(level_db(silence.data(), 0)));

    // 20*log10(1 + e) is 20*e/ln(10) less a second-order term of 4.4e-14 and rounding of some
    // 1e-15.
    for (const int n : {1, 8, 4096}) {  // eight squares of 2^30 exceed 32 bits
        EXPECT_NEAR(level_db(Samples(4096, -32768).data(), n), 20e-7 / std::log(10.0), 5e-14);
    }
    // Rounding to whole samples changes the rms of 23170 by at most 0.5: 1.9e-4 dB.
    Samples sine(4800);
    for (size_t i = 0; i < sine.size(); ++i) {
        sine[i] =
            static_cast<int16_t>(std::lround(32767.0 * std::sin(M_PI / 24.0 * double(i) + 0.3)));
    }
    EXPECT_NEAR(level_db(sine.data(), 4800), 20.0 * std::log10(32767.0 / 32768.0 / std::sqrt(2.0)),
                2e-4);
    // Amplitude 2^5, that is -200*log10(2) dB; with one sample in four an rms of 2^4. The added e =
    // 1e-7 makes it 20/ln(10)*e/rms more, to a second-order term of 10/ln(10)*(e/rms)^2.
    Samples sparse(64);
    for (size_t i = 0; i < 64; i += 4) {
        sparse[i] = i % 8 == 0 ? 32 : -32;
    }
    const double raise = 20e-7 * 1024.0 / std::log(10.0);
    EXPECT_NEAR(level_db(Samples(64, 32).data(), 64), -200.0 * std::log10(2.0) + raise, 5e-8);
    EXPECT_NEAR(level_db(sparse.data(), 64), -220.0 * std::log10(2.0) + 2.0 * raise, 2e-7);
}

TEST(LevelDecision, ComparesStrictly) {
    for (const double threshold : {-45.0, -50.0}) {
        const auto [n, sum] = find_exact_level(threshold);
        ASSERT_GE(n, 19200) << "no frame of exactly " << threshold << " dB";
        const Samples at = frame_of_sum(n, sum);
        const Samples above = frame_of_sum(n, sum + 1);
        ASSERT_EQ(level_db(at.data(), n), threshold);
        ASSERT_GT(level_db(above.data(), n), threshold);
        // Longer than both counts, so one frame settles it.
        OLM_VOR_Init();
        vor_state.speech = threshold == -50.0 ? 1 : 0;
        EXPECT_EQ(OLM_VOR(above.data(), nullptr, n), 1);
        vor_state.speech = threshold == -50.0 ? 1 : 0;
        EXPECT_EQ(OLM_VOR(at.data(), nullptr, n), 0);
    }
}

/** A run of equal frames and what the decision is at its end; before that it must be `held`. */
struct Run {
    int frames;
    int n;
    double db;
    int held;
    int last;
};

void expect_runs(const std::vector<Run>& runs) {
    OLM_VOR_Init();
    for (size_t r = 0; r < runs.size(); ++r) {
        for (int i = 1; i <= runs[r].frames; ++i) {
            ASSERT_EQ(decide(runs[r].db, runs[r].n),
                      i < runs[r].frames ? runs[r].held : runs[r].last)
                << "run " << r << " frame " << i;
        }
    }
}

TEST(LevelDecision, CountsSamplesOfUninterruptedRuns) {
    expect_runs({{3, 160, -40, 0, 1}, {120, 160, -60, 1, 0}, {3, 160, -40, 0, 1}});
    expect_runs({{480, 1, -40, 0, 1}, {19200, 1, -60, 1, 0}});
    expect_runs({{1, 480, -40, 0, 1}, {1, 19200, -60, 1, 0}});
    expect_runs({{1, 479, -40, 0, 0}, {1, 1, -40, 0, 1}, {1, 19199, -60, 1, 1}, {1, 1, -60, 1, 0}});
    expect_runs({{1, 481, -40, 0, 1}, {1, 19201, -60, 1, 0}});
    // A frame on the other side starts the count again, and so does one that lies between.
    expect_runs({{2, 160, -40, 0, 0}, {1, 160, -60, 0, 0}, {3, 160, -40, 0, 1}});
    expect_runs({{2, 160, -40, 0, 0}, {1, 160, -47, 0, 0}, {3, 160, -40, 0, 1}});
    expect_runs(
        {{3, 160, -40, 0, 1}, {119, 160, -60, 1, 1}, {1, 160, -30, 1, 1}, {120, 160, -60, 1, 0}});
    expect_runs(
        {{3, 160, -40, 0, 1}, {119, 160, -60, 1, 1}, {1, 160, -48, 1, 1}, {120, 160, -60, 1, 0}});
    // What a long frame counts beyond a transition does not shorten the next count.
    expect_runs({{1, 900, -40, 0, 1}, {120, 160, -60, 1, 0}});
    expect_runs({{3, 160, -40, 0, 1}, {1, 19900, -60, 1, 0}, {3, 160, -40, 0, 1}});
    // Between the thresholds the decision stays for good.
    expect_runs({{300, 160, -48, 0, 0}, {3, 160, -40, 0, 1}, {300, 160, -48, 1, 1}});
    // 0.1 dB to either side of both thresholds.
    expect_runs({{9, 160, -45.1, 0, 0},
                 {3, 160, -44.9, 0, 1},
                 {200, 160, -49.9, 1, 1},
                 {120, 160, -50.1, 1, 0}});
}

TEST(LevelDecision, TakesTheLouderChannel) {
    const Samples quiet = frame_at(-47, 480);
    const Samples loud = frame_at(-40, 480);
    for (const auto& [ch0, ch1, expected] :
         {std::tuple{&loud, &quiet, 1},
          {&quiet, &loud, 1},
          {&loud, &loud, 1},
          {&quiet, &quiet, 0}}) {  // pooled, the last pair would lie at -44 dB
        OLM_VOR_Init();
        EXPECT_EQ(OLM_VOR(ch0->data(), ch1->data(), 480), expected);
    }
    OLM_VOR_Init();
    EXPECT_EQ(OLM_VOR(quiet.data(), nullptr, 480), 0);
}

TEST(LevelDecision, WithoutSamplesAndWithNegativeCounts) {
    const Samples any(4);
    for (const uint32_t speech : {0u, 1u}) {
        OLM_VOR_Init();
        vor_state.speech = speech;
        vor_state.countdown = 77;
        EXPECT_EQ(OLM_VOR(any.data(), any.data(), 0), static_cast<int>(speech));
        EXPECT_EQ(vor_state.countdown, 0);
    }
    OLM_VOR_Init();
    vor_state.countdown = 77;
    EXPECT_EQ(OLM_VOR(nullptr, nullptr, -3), 0);  // silence: no onset
    EXPECT_EQ(vor_state.countdown, 0);
    vor_state.speech = 1;
    EXPECT_EQ(OLM_VOR(nullptr, nullptr, -3), 1);  // silence: the hang-over runs
    EXPECT_EQ(vor_state.countdown, 19203);
    vor_state.countdown = 0;
    EXPECT_EQ(OLM_VOR(nullptr, nullptr, INT32_MIN), 0);  // 19200 + 2^31 wraps below 1
}

TEST(LevelDecision, SetFsSetsTheCountsAndNothingElse) {
    for (const int rate : {8000, 48000, 0, -1, INT32_MAX, INT32_MIN}) {
        OLM_VOR_Init();
        vor_state.speech = 1;
        vor_state.countdown = 55;
        const std::string before = bytes_of(vor_state);
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
    vor_state = {};
    OLM_VOR_SetFs(16000);
    EXPECT_TRUE(bytes_of(vor_state) == bytes_of(VorState{}));
    const Samples full(16, -32768);
    const Samples less(16, 32767);
    EXPECT_EQ(OLM_VOR(less.data(), nullptr, 1), 0);
    EXPECT_EQ(OLM_VOR(full.data(), nullptr, 1), 1);
    EXPECT_EQ(OLM_VOR(full.data(), nullptr, 1), 1);
    EXPECT_EQ(OLM_VOR(less.data(), nullptr, 1), 0);
    // Each threshold has an enable of its own, and so have the counts.
    vor_state = {};
    vor_state.enter_enabled = 1;
    OLM_VOR_SetFs(16000);
    EXPECT_EQ(decide(-40, 1), 1);
    EXPECT_EQ(decide(-40, 1), 0);
    vor_state = {};
    vor_state.stay_enabled = 1;
    EXPECT_EQ(decide(-40, 1), 0);
    vor_state.speech = 1;
    EXPECT_EQ(decide(-40, 1), 1);
    OLM_VOR_SetFs(16000);
    EXPECT_EQ(vor_state.onset_samples, 0);
    vor_state = {};
    vor_state.rate_enabled = 1;
    OLM_VOR_SetFs(16000);
    EXPECT_EQ(vor_state.onset_samples, 480);
    EXPECT_EQ(vor_state.hangover_samples, 19200);
}

TEST(LevelDecision, InitResetsEverything) {
    std::memset(&vor_state, 0x5A, sizeof vor_state);
    OLM_VOR_Init();
    const VorState& s = vor_state;
    EXPECT_TRUE(s.enter_enabled && s.stay_enabled && s.rate_enabled);
    EXPECT_EQ(s.onset_samples, 480);
    EXPECT_EQ(s.hangover_samples, 19200);
    EXPECT_EQ(s.speech, 0u);
    EXPECT_EQ(s.countdown, 0);
}

// ---- Handle and configuration
// ---------------------------------------------------------------------

class Detector : public testing::Test {
  protected:
    Detector() {
        forget_everything();
        watched_handle = &handle();
        messages.clear();
    }
    ~Detector() override { watched_handle = nullptr; }

    VadHandle& handle() { return guarded_->handle; }

    /** A new stream, and this handle configured for it in the documented order. */
    void start(int rate, int n, int mode) {
        VoiceActivityDetectionInit();
        VoiceActivityDetectionChannelModeConfig(&handle(), mode);
        VoiceActivityDetectionSamplingRateConfig(&handle(), static_cast<uint32_t>(rate));
        VoiceActivityDetectionFrameLengthConfig(&handle(),
                                                static_cast<uint32_t>(mode == 1 ? n : 2 * n));
    }

    int exe(int16_t* samples) {
        VoiceActivityDetectionInOutConfig(&handle(), samples);
        const int flag = VoiceActivityDetectionExe(&handle());
        EXPECT_TRUE(guarded_->before == 0x5AA5 && guarded_->after == 0x5AA5);
        return flag;
    }

  private:
    struct Guarded {
        uint64_t before = 0x5AA5;
        VadHandle handle = {};
        uint64_t after = 0x5AA5;
    };
    std::unique_ptr<Guarded> guarded_ = std::make_unique<Guarded>();
};

TEST_F(Detector, VersionIsOneTextAtOnePlace) {
    const char* const version = VoiceActivityDetectionVersion();
    EXPECT_STREQ(version, "Korvane VAD v3.0 a64 2020.06.22)");
    VoiceActivityDetectionInit();
    EXPECT_EQ(VoiceActivityDetectionVersion(), version);
}

TEST_F(Detector, ConfigurationStoresOneFieldEach) {
    VadHandle& h = handle();
    std::memset(&h, 0x33, sizeof h);
    // The last lengths lose their upper bits; the mode decides about the halving before that.
    const std::tuple<uint16_t, uint32_t, int16_t> lengths[] = {{1, 320, 320},
                                                               {0, 320, 160},
                                                               {2, 320, 160},
                                                               {3, 321, 160},
                                                               {4, 2, 1},
                                                               {2, 1, 0},
                                                               {1, 65535, -1},
                                                               {1, 65536, 0},
                                                               {1, 65537, 1},
                                                               {1, 40000, -25536},
                                                               {2, 65536, -32768},
                                                               {2, 131074, 1},
                                                               {3, 0xFFFFFFFFu, -1},
                                                               {1, 0xFFFFFFFFu, -1},
                                                               {0x101, 320, 160},
                                                               {1, 0x80000000u, 0},
                                                               {2, 8192, 4096}};
    for (const auto& [mode, length, stored] : lengths) {
        h.channel_mode = mode;
        VadHandle expected;
        std::memcpy(&expected, &h, sizeof h);
        expected.frame_length = stored;
        EXPECT_EQ(VoiceActivityDetectionFrameLengthConfig(&h, length), 0);
        EXPECT_TRUE(bytes_of(h) == bytes_of(expected)) << mode << " " << length;
    }
    const std::pair<int, uint16_t> modes[] = {{1, 1},      {3, 3},         {0, 0},
                                              {65537, 1},  {-1, 65535},    {131074, 2},
                                              {-65535, 1}, {INT32_MIN, 0}, {77, 77}};
    for (const auto& [mode, stored] : modes) {
        VadHandle expected;
        std::memcpy(&expected, &h, sizeof h);
        expected.channel_mode = stored;
        EXPECT_EQ(VoiceActivityDetectionChannelModeConfig(&h, mode), 0);
        EXPECT_TRUE(bytes_of(h) == bytes_of(expected)) << mode;
    }
    for (const uint32_t rate : {0u, 16000u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
        VadHandle expected;
        std::memcpy(&expected, &h, sizeof h);
        expected.sampling_rate = rate;
        EXPECT_EQ(VoiceActivityDetectionSamplingRateConfig(&h, rate), 0);
        EXPECT_TRUE(bytes_of(h) == bytes_of(expected)) << rate;
    }
    int16_t sample = 0;
    VadHandle expected;
    std::memcpy(&expected, &h, sizeof h);
    expected.samples = &sample;
    EXPECT_EQ(VoiceActivityDetectionInOutConfig(&h, &sample), 0);
    EXPECT_EQ(VoiceActivityDetectionParamConfig(&h), 0);
    EXPECT_EQ(VoiceActivityDetectionParamConfig(nullptr), 0);
    EXPECT_EQ(VoiceActivityDetectionInit(), 0);
    EXPECT_TRUE(bytes_of(h) == bytes_of(expected));
}

TEST_F(Detector, ConfigAllHalvesByTheModeBeforeIt) {
    int16_t sample = 0;
    VadHandle& h = handle();
    EXPECT_EQ(VoiceActivityDetectionConfigAll(&h, 16000, 320, &sample, 1), 0);
    EXPECT_EQ(h.frame_length, 160);
    EXPECT_EQ(h.channel_mode, 1);
    EXPECT_EQ(h.sampling_rate, 16000u);
    EXPECT_EQ(h.samples, &sample);
    VoiceActivityDetectionConfigAll(&h, 16000, 320, &sample, 1);
    EXPECT_EQ(h.frame_length, 320);
    VoiceActivityDetectionConfigAll(&h, 16000, 320, nullptr, 0x10002);
    EXPECT_EQ(h.frame_length, 320);  // still by mode 1
    EXPECT_EQ(h.channel_mode, 2);
    EXPECT_EQ(h.samples, nullptr);
    VoiceActivityDetectionConfigAll(&h, 16000, 320, &sample, 3);
    EXPECT_EQ(h.frame_length, 160);
}

TEST_F(Detector, OnlyTheFirstRateAfterAnInitReachesTheSuppressor) {
    // A first rate, as Init takes it: class 1 where the rate is 50000 or more.
    const std::pair<uint32_t, int> classes[] = {
        {0, 0},     {8000, 0},  {9999, 0},  {10000, 1},       {19999, 1},       {20000, 2},
        {25000, 3}, {49999, 3}, {50000, 1}, {0x7FFFFFFFu, 1}, {0x80000000u, 0}, {0xFFFFFFFFu, 0}};
    for (const bool all : {false, true}) {
        const auto configure = [&](uint32_t rate) {
            if (all) {
                VoiceActivityDetectionConfigAll(&handle(), rate, 160, nullptr, 1);
            } else {
                VoiceActivityDetectionSamplingRateConfig(&handle(), rate);
            }
        };
        for (const auto& [rate, rate_class] : classes) {
            VoiceActivityDetectionInit();
            EXPECT_EQ(nrss_state.rate_class, 1);
            EXPECT_EQ(nrss_state.level, 9);
            nrss_state.frame_count = 5;
            nrss_state.level = 3;
            configure(rate);
            EXPECT_EQ(nrss_state.rate_class, rate_class) << rate;
            EXPECT_EQ(nrss_state.frame_count, 0);
            EXPECT_EQ(nrss_state.level, 9);
            // The next rates are stored, set the counts, and go no further.
            nrss_state.frame_count = 5;
            vor_state.onset_samples = 0;
            configure(rate_class == 0 ? 48000 : 8000);
            configure(rate);
            EXPECT_EQ(nrss_state.rate_class, rate_class) << rate;
            EXPECT_EQ(nrss_state.frame_count, 5);
            EXPECT_EQ(vor_state.onset_samples, 480);
            EXPECT_EQ(handle().sampling_rate, rate);
        }
    }
}

TEST_F(Detector, MessagesComeInOrderBeforeTheirEffect) {
    const auto expect_message = [](size_t i, const std::string& text) {
        ASSERT_LT(i, messages.size());
        EXPECT_EQ(messages[i].priority, 4);
        EXPECT_EQ(messages[i].tag, "OLM_VOR_a64");
        EXPECT_EQ(messages[i].text, text);
    };
    VadHandle& h = handle();
    vor_state.speech = 1;
    VoiceActivityDetectionInit();
    EXPECT_EQ(speech_when_logged, 1u);
    VoiceActivityDetectionChannelModeConfig(&h, 1);
    VoiceActivityDetectionSamplingRateConfig(&h, 16000);
    VoiceActivityDetectionFrameLengthConfig(&h, 160);
    VoiceActivityDetectionChannelModeConfig(&h, -2);
    VoiceActivityDetectionFrameLengthConfig(&h, 320);
    VoiceActivityDetectionSamplingRateConfig(&h, 0xFFFFFFFFu);
    int16_t sample = 0;
    VoiceActivityDetectionConfigAll(&h, 48000, 961, &sample, 1);
    expect_message(0, "VoiceActivityDetectionInit() Version Korvane VAD v3.0 a64 2020.06.22)");
    expect_message(1, "VoiceActivityDetectionChannelModeConfig 1");
    expect_message(2, "VoiceActivityDetectionSamplingRateConfig 16000");
    expect_message(3, "VoiceActivityDetectionFrameLengthConfig 160");
    expect_message(4, "VoiceActivityDetectionChannelModeConfig -2");
    expect_message(5, "VoiceActivityDetectionFrameLengthConfig 320");
    expect_message(6, "VoiceActivityDetectionSamplingRateConfig -1");
    expect_message(7, "VoiceActivityDetectionSamplingRateConfig 48000");
    expect_message(8, "VoiceActivityDetectionFrameLengthConfig 961");
    expect_message(9, "VoiceActivityDetectionChannelModeConfig 1");

    // Each message finds the handle as it was: the effect follows.
    EXPECT_EQ(messages[2].handle.sampling_rate, 0u);
    EXPECT_EQ(messages[3].handle.frame_length, 0);
    EXPECT_EQ(messages[4].handle.channel_mode, 1);
    EXPECT_EQ(messages[7].handle.sampling_rate, 0xFFFFFFFFu);
    EXPECT_EQ(messages[8].handle.sampling_rate, 48000u);
    EXPECT_EQ(messages[8].handle.frame_length, 160);
    EXPECT_EQ(messages[8].handle.samples, nullptr);
    EXPECT_EQ(messages[9].handle.frame_length, 480);
    EXPECT_EQ(messages[9].handle.samples, &sample);
    EXPECT_EQ(messages[9].handle.channel_mode, 65534);

    // Nothing else logs.
    Samples frame(480);
    VoiceActivityDetectionInOutConfig(&h, frame.data());
    VoiceActivityDetectionParamConfig(&h);
    VoiceActivityDetectionExe(&h);
    VoiceActivityDetectionVersion();
    EXPECT_EQ(messages.size(), 10u);
}

// ---- Processing
// -----------------------------------------------------------------------------------

TEST_F(Detector, RefusedFramesTouchNothing) {
    VadHandle& h = handle();
    start(16000, 4096, 3);
    Samples buffer = noise(8192, 1);
    exe(buffer.data());
    const Samples loud(8192, 20000);
    buffer = loud;
    vor_state.speech = 1;  // so that a stray decision would show as 1
    VadHandle expected;
    std::memcpy(&expected, &h, sizeof h);
    const std::string state = library_state();

    for (int n = -32768; n <= 32767; n = n == 0 ? 4097 : n + 1) {
        h.frame_length = static_cast<int16_t>(n);
        expected.frame_length = static_cast<int16_t>(n);
        for (const uint16_t mode : {uint16_t{1}, uint16_t{2}, uint16_t{3}}) {
            h.channel_mode = mode;
            expected.channel_mode = mode;
            ASSERT_EQ(VoiceActivityDetectionExe(&h), 0) << n;
        }
        ASSERT_EQ(std::memcmp(&h, &expected, sizeof h), 0) << n;
    }
    expected.frame_length = h.frame_length = 160;
    for (const int mode : {0, 4, 5, 257, 258, 65535}) {
        h.channel_mode = static_cast<uint16_t>(mode);
        expected.channel_mode = h.channel_mode;
        ASSERT_EQ(VoiceActivityDetectionExe(&h), 0) << mode;
        ASSERT_EQ(std::memcmp(&h, &expected, sizeof h), 0) << mode;
    }
    EXPECT_TRUE(library_state() == state);
    EXPECT_EQ(buffer, loud);
}

/** Cleaned channels and the decision of every frame. */
struct Result {
    Samples ch0;
    Samples ch1;
    std::vector<int> flags;
};

class DetectorStream : public Detector {
  protected:
    /** Frames of n samples through the detector; checks what each mode may and may not write. */
    Result run(const Samples& ch0, const Samples& ch1, int n, int mode) {
        Result result;
        const size_t size = static_cast<size_t>(n);
        VadHandle& h = handle();
        std::fill_n(h.ch0_work, KORVANE_VAD_MAX_FRAME, int16_t{0x1111});
        std::fill_n(h.ch1_work, KORVANE_VAD_MAX_FRAME, int16_t{0x2222});
        for (size_t at = 0; at + size <= ch0.size(); at += size) {
            Samples frame;
            for (size_t i = 0; i < size; ++i) {
                frame.push_back(ch0[at + i]);
                if (mode == 2) {
                    frame.push_back(ch1[at + i]);
                }
            }
            if (mode == 3) {
                frame.insert(frame.end(), &ch1[at], &ch1[at] + size);
            }
            GuardedSamples buffer(frame);
            result.flags.push_back(exe(buffer.data()));
            EXPECT_TRUE(buffer.intact());
            if (mode == 2) {
                for (size_t i = 0; i < size; ++i) {
                    frame[2 * i] = h.ch0_work[i];
                    frame[2 * i + 1] = h.ch1_work[i];
                }
            }
            EXPECT_EQ(buffer.samples(), frame);
            result.ch0.insert(result.ch0.end(), h.ch0_work, h.ch0_work + n);
            result.ch1.insert(result.ch1.end(), h.ch1_work, h.ch1_work + n);
        }
        for (int i = mode == 1 ? 0 : n; i < KORVANE_VAD_MAX_FRAME; ++i) {
            EXPECT_EQ(h.ch1_work[i], 0x2222);
            EXPECT_TRUE(i < n || h.ch0_work[i] == 0x1111);
        }
        return result;
    }
};

TEST_F(DetectorStream, AllModesGiveTheCleanedStreamAndTheDecisionOnIt) {
    const Samples ch0 = bursts(49152, 1);
    const Samples ch1 = bursts(49152, 2);
    for (const int rate : {8000, 16000, 24000, 48000}) {
        for (const int n : {1, 160, 577, 4096}) {
            forget_everything();
            Tolu_NRSS_Init(9, rate);
            Tolu_NRSS_BufInit();
            Samples clean0 = ch0;
            Samples clean1 = ch1;
            Tolu_NRSS_Buffered(clean0.data(), clean1.data(), 49152);
            const size_t whole = ch0.size() / static_cast<size_t>(n) * static_cast<size_t>(n);
            clean0.resize(whole);
            clean1.resize(whole);
            ASSERT_TRUE(std::all_of(clean0.begin(), clean0.begin() + 576,
                                    [](int16_t v) { return v == 0; }));
            for (const int mode : {1, 2, 3}) {
                forget_everything();
                start(rate, n, mode);
                const Result result = run(ch0, ch1, n, mode);
                EXPECT_TRUE(result.ch0 == clean0) << rate << " " << n << " " << mode;
                EXPECT_TRUE(mode == 1 || result.ch1 == clean1) << rate << " " << n << " " << mode;
                OLM_VOR_Init();
                for (size_t f = 0; f < result.flags.size(); ++f) {
                    const size_t at = f * static_cast<size_t>(n);
                    ASSERT_EQ(result.flags[f],
                              OLM_VOR(&clean0[at], mode == 1 ? nullptr : &clean1[at], n))
                        << rate << " " << n << " " << mode << " frame " << f;
                }
                if (n > 1) {  // single samples of noise may be quiet too often for an onset
                    EXPECT_NE(std::count(result.flags.begin(), result.flags.end(), 1), 0);
                }
            }
        }
    }
}

TEST_F(DetectorStream, ATonesDecisionComesAfterThePathDelayAndTheOnset) {
    // 1 kHz at -6 dB. At 16 kHz its cleaned samples begin at 720, so of the frames of 160 samples
    // number 4 is the first to hold some; the third in a row, number 6, completes the onset of 480.
    // At 48 kHz they begin at 864, past frames of 480 number 0, and one frame is the whole onset.
    for (const auto& [rate, n, first] : {std::tuple{16000, 160, 6}, {48000, 480, 1}}) {
        Samples tone(static_cast<size_t>(20 * n));
        for (size_t i = 0; i < tone.size(); ++i) {
            tone[i] = static_cast<int16_t>(16384.0 * std::sin(2000.0 * M_PI * double(i) / rate));
        }
        start(rate, n, 1);
        const std::vector<int> flags = run(tone, tone, n, 1).flags;
        for (int f = 0; f < 20; ++f) {
            EXPECT_EQ(flags[static_cast<size_t>(f)], f >= first ? 1 : 0) << rate << " " << f;
        }
    }
}

TEST_F(DetectorStream, InitialisedAgainIsAsFresh) {
    const Samples ch0 = bursts(30000, 3);
    const Samples ch1 = bursts(30000, 4);
    for (const int rate : {8000, 16000, 44100}) {
        for (const int mode : {1, 3}) {
            forget_everything();
            start(rate, 160, mode);
            const Result fresh = run(ch0, ch1, 160, mode);
            // Something else in between: other rate, mode, level, an unfinished block.
            start(rate == 44100 ? 48000 : 12000, 333, 2);
            run(ch1, ch0, 333, 2);
            Tolu_NRSS_Init(2, 22050);
            if (rate == 44100) {
                // The frames of the high band outlive an initialisation; a block of silence on an
                // initialised suppressor empties them.
                Samples silence(1152);
                Tolu_NRSS_Init(9, 48000);
                Tolu_NRSS_Nonintlvd(silence.data(), silence.data() + 576, 576);
            }
            start(rate, 160, mode);
            const Result again = run(ch0, ch1, 160, mode);
            EXPECT_TRUE(again.ch0 == fresh.ch0 && again.ch1 == fresh.ch1) << rate << " " << mode;
            EXPECT_EQ(again.flags, fresh.flags) << rate << " " << mode;
        }
    }
}

}  // namespace
}  // namespace korvane::test
