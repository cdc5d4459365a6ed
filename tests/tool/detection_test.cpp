#include "tools/results/detection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "temporary_folder.h"

// The library's log lines would only blur the test's output.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" __attribute__((visibility("default"), format(printf, 3, 4))) int __android_log_print(
    int /*priority*/, const char* /*tag*/, const char* /*format*/, ...) {
    return 0;
}

namespace korvane::tool {
namespace {

constexpr const char* kSpeech = "/usr/share/sounds/alsa/Front_Center.wav";  // 48 kHz mono

/** Everything that detect gives, put together again. */
struct Result {
    StreamTotals totals;
    std::string failure;
    std::vector<int16_t> noisy;
    std::vector<int16_t> cleaned;
    std::vector<bool> flags;
    std::vector<double> levels;
};

/** Checks what must hold of every frame on the way. */
Result run(AudioSource& source, int frame_length) {
    Result result;
    const int channels = source.info().channels;
    const int64_t delay = source.info().rate < 25000 ? 720 : 867;
    result.failure = failure_of([&] {
        result.totals =
            detect(source, frame_length, {.level = true, .digest = true}, [&](const Frame& frame) {
                EXPECT_EQ(frame.index, static_cast<int64_t>(result.flags.size()));
                EXPECT_EQ(frame.fed, (frame.index + 1) * frame_length);
                EXPECT_EQ(frame.end, frame.fed - delay);
                EXPECT_EQ(frame.begin, frame.end - frame_length);
                for (int64_t i = frame.noisy_count * channels; i < frame_length * channels; ++i) {
                    EXPECT_EQ(frame.noisy[i], 0);
                }
                EXPECT_EQ(frame.cleaned_begin,
                          static_cast<int64_t>(result.cleaned.size()) / channels);
                result.noisy.insert(result.noisy.end(), frame.noisy,
                                    frame.noisy + frame.noisy_count * channels);
                result.cleaned.insert(result.cleaned.end(), frame.cleaned,
                                      frame.cleaned + frame.cleaned_count * channels);
                result.flags.push_back(frame.speech);
                result.levels.push_back(frame.level);
                return true;
            });
    });
    return result;
}

class DetectionTest : public testing::Test {
  protected:
    Result run_raw(const std::string& bytes, int rate, int channels, int frame) {
        const auto source = open_source(folder_.write("x", bytes), raw_options(rate, channels));
        return run(*source, frame);
    }
    Result run_raw(const std::vector<int16_t>& samples, int rate, int channels, int frame) {
        return run_raw(raw_bytes(samples), rate, channels, frame);
    }

    TemporaryFolder folder_;
};

TEST_F(DetectionTest, GivesBackTheWholeInputCleanedWhateverTheFrameLength) {
    const std::vector<int16_t> speech = read_all(std::string(kSpeech));
    for (const int rate : {8000, 48000}) {  // at 8000 Hz it is slow speech
        const Result expected = run_raw(speech, rate, 1, 480);
        EXPECT_EQ(std::count(expected.flags.begin(), expected.flags.end(), true) > 0, true);
        EXPECT_NE(expected.cleaned, speech);
        for (const int frame : {1, 7, 160, 4096}) {
            const Result result = run_raw(speech, rate, 1, frame);
            const auto length = static_cast<int64_t>(speech.size());
            EXPECT_EQ(result.totals.length, length);
            EXPECT_EQ(result.totals.frames, static_cast<int64_t>(result.flags.size()));
            // The frame that returns the last sample is the last one.
            const int64_t all = length + (rate < 25000 ? 720 : 867);
            EXPECT_EQ(result.totals.frames, (all + frame - 1) / frame);
            EXPECT_EQ(result.noisy, speech);
            EXPECT_EQ(result.cleaned.size(), speech.size());
            EXPECT_EQ(result.cleaned, expected.cleaned) << frame;
            EXPECT_EQ(result.totals.sha256, expected.totals.sha256);
        }
    }
}

TEST_F(DetectionTest, HandlesEveryShortLength) {
    for (const int rate : {1, 24999, 25000, 49999}) {
        for (const std::size_t length : {1U, 79U, 80U, 81U, 719U, 720U, 721U, 866U, 867U, 868U}) {
            for (const int channels : {1, 2}) {
                const std::size_t count = length * static_cast<std::size_t>(channels);
                const Result result = run_raw(noise(count, 1), rate, channels, 80);
                EXPECT_EQ(result.noisy.size(), count);
                EXPECT_EQ(result.cleaned.size(), count);
            }
        }
    }
}

TEST_F(DetectionTest, MeasuresTheLouderOfTwoChannels) {
    const std::vector<int16_t> speech = read_all(std::string(kSpeech));
    for (const std::size_t loud : {0U, 1U}) {
        std::vector<int16_t> pair(2 * speech.size());
        for (std::size_t i = 0; i < speech.size(); ++i) {
            pair[2 * i + loud] = speech[i];
        }
        const Result stereo = run_raw(pair, 48000, 2, 480);
        EXPECT_EQ(stereo.noisy, pair);
        // Answer i is about the samples from 480 i - 867 on; the first two lie before the input.
        for (std::size_t i = 2; 480 * (i + 1) <= speech.size(); ++i) {
            double energy = 0;
            for (std::size_t k = 480 * i - 867; k < 480 * (i + 1) - 867; ++k) {
                energy += std::pow(stereo.cleaned[2 * k + loud] / 32768.0, 2);
            }
            ASSERT_NEAR(stereo.levels[i], 20 * std::log10(std::sqrt(energy / 480) + 1e-7), 1e-9);
        }
    }
    const Result silence = run_raw(std::vector<int16_t>(8000), 8000, 1, 80);
    for (const double level : silence.levels) {
        ASSERT_DOUBLE_EQ(level, -140);  // 1e-7
    }
    EXPECT_EQ(std::count(silence.flags.begin(), silence.flags.end(), true), 0);
}

TEST_F(DetectionTest, DigestsTheInputAlone) {
    // FIPS 180's message "abc" has an odd length; these are the digests of "abcd" and of a million
    // times "a".
    EXPECT_EQ(run_raw(std::string("abcd"), 8000, 1, 80).totals.sha256,
              "88d4266fd4e6338d13b845fcf289579d209c897823b9217da3e161936f031589");
    EXPECT_EQ(run_raw(std::string(1000000, 'a'), 16000, 2, 160).totals.sha256,
              "cdc76e5c9914fb9281a1c7e284d73e67f1809a48a497200e046d39ccc7112cd0");
}

TEST_F(DetectionTest, AnswersEverythingBeforeAFault) {
    const std::vector<int16_t> samples = noise(5000, 2);
    const Result whole = run_raw(samples, 16000, 1, 160);
    const Result damaged = run_raw(raw_bytes(samples) + "x", 16000, 1, 160);
    EXPECT_EQ(whole.failure, "no failure");
    EXPECT_THAT(damaged.failure, testing::HasSubstr("ends within a sample"));
    EXPECT_EQ(damaged.cleaned, whole.cleaned);
    EXPECT_EQ(damaged.flags, whole.flags);
    const Result nothing = run_raw(std::string(), 16000, 1, 160);
    EXPECT_THAT(nothing.failure, testing::HasSubstr("holds no samples"));
    EXPECT_TRUE(nothing.flags.empty());
}

TEST_F(DetectionTest, StopsWhenItIsTold) {
    const auto source =
        open_source(folder_.write("x", std::string(20001, 'a')), raw_options(16000, 1));
    int answers = 0;
    const StreamTotals totals =
        detect(*source, 100, {}, [&](const Frame&) { return ++answers < 3; });
    EXPECT_EQ(answers, 3);
    EXPECT_EQ(totals.frames, 3);
    EXPECT_EQ(totals.length, 300);
    for (const int frame : {0, -1, 4097}) {
        EXPECT_THROW(detect(*source, frame, {}, [](const Frame&) { return true; }),
                     std::invalid_argument);
    }
}

}  // namespace
}  // namespace korvane::tool
