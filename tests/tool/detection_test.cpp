#include "tools/results/detection.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <sstream>

#include "temporary_folder.h"
#include "tools/batch/finding.h"

namespace korvane::tool {
namespace {

constexpr const char* kSpeech = "/usr/share/sounds/alsa/Front_Center.wav";  // 48 kHz mono

constexpr int32_t kDecisions[] = {KORVANE_DECISION_ADAPTIVE, KORVANE_DECISION_FIXED,
                                  KORVANE_DECISION_DETECTOR};

KorvaneStreamConfig config_of(const SourceInfo& source, int frame, int32_t decision) {
    KorvaneStreamConfig config;
    korvane_stream_defaults(&config, source.rate, source.channels);
    config.frame_length = frame;
    config.decision = decision;
    config.restore_level = decision == KORVANE_DECISION_DETECTOR ? 0 : 1;
    return config;
}

/** Everything that detect gives, put together again. */
struct Result {
    StreamTotals totals;
    std::string failure;
    std::vector<int16_t> input;
    std::vector<int16_t> cleaned;
    std::vector<bool> flags;
    std::vector<double> levels;
};

/** Checks what must hold of every frame on the way. */
Result run(AudioSource& source, int frame_length, int32_t decision) {
    Result result;
    const int channels = source.info().channels;
    const int64_t delay = source.info().rate < 25000 ? 720 : 867;
    const bool by_detector = decision == KORVANE_DECISION_DETECTOR;
    const auto onto = [channels](std::vector<int16_t>& all) {
        return [channels, &all](const int16_t* samples, int64_t n) {
            all.insert(all.end(), samples, samples + n * channels);
        };
    };
    std::optional<int64_t> flushed_after;
    const auto answer = [&](const Frame& frame) {
        EXPECT_EQ(frame.index, std::ssize(result.flags));
        EXPECT_EQ(frame.begin, frame.index * frame_length - (by_detector ? delay : 0));
        const int64_t heard = std::ssize(result.input) / channels;
        EXPECT_LE(frame.fed, frame.end + delay);
        if (frame.fed != heard) {  // zeros behind the input
            EXPECT_GT(frame.fed, heard);
            flushed_after = heard;
        }
        // The last one alone may be shorter, and then it ends with the input.
        EXPECT_TRUE(frame.end == frame.begin + frame_length ||
                    frame.end == std::ssize(result.input) / channels);
        result.flags.push_back(frame.speech);
        result.levels.push_back(frame.level);
    };
    result.failure = failure_of([&] {
        result.totals = detect(
            source, config_of(source.info(), frame_length, decision), true,
            {{.input = onto(result.input), .frame = answer, .cleaned = onto(result.cleaned)}})[0];
    });
    const int64_t length = std::ssize(result.input) / channels;
    EXPECT_EQ(flushed_after.value_or(length), length);
    return result;
}

class DetectionTest : public testing::Test {
  protected:
    Result run_raw(const std::string& bytes, int rate, int channels, int frame,
                   int32_t decision = KORVANE_DECISION_DETECTOR) {
        const auto source = open_source(folder_.write("x", bytes), raw_options(rate, channels));
        return run(*source, frame, decision);
    }
    Result run_raw(const std::vector<int16_t>& samples, int rate, int channels, int frame,
                   int32_t decision = KORVANE_DECISION_DETECTOR) {
        return run_raw(raw_bytes(samples), rate, channels, frame, decision);
    }

    TemporaryFolder folder_;
};

TEST_F(DetectionTest, GivesBackTheWholeInputCleanedWhateverTheFrameLength) {
    const std::vector<int16_t> speech = read_all(std::string(kSpeech));
    const auto length = std::ssize(speech);
    for (const int rate : {8000, 48000}) {  // at 8000 Hz it is slow speech
        for (const int32_t decision : kDecisions) {
            const Result expected = run_raw(speech, rate, 1, 480, decision);
            EXPECT_EQ(std::count(expected.flags.begin(), expected.flags.end(), true) > 0, true);
            EXPECT_NE(expected.cleaned, speech);
            for (const int frame : {1, 7, 160, 4096}) {
                const Result result = run_raw(speech, rate, 1, frame, decision);
                EXPECT_EQ(result.totals.length, length);
                EXPECT_EQ(result.totals.frames, std::ssize(result.flags));
                // The frame with the last sample is the last one; the detector's lie earlier.
                const int64_t late = rate < 25000 ? 720 : 867;
                const int64_t all = length + (decision == KORVANE_DECISION_DETECTOR ? late : 0);
                EXPECT_EQ(result.totals.frames, (all + frame - 1) / frame);
                EXPECT_EQ(result.input, speech);
                EXPECT_EQ(result.cleaned, expected.cleaned) << frame;
                EXPECT_EQ(result.totals.sha256, expected.totals.sha256);
            }
        }
    }
}

TEST_F(DetectionTest, HandlesEveryShortLength) {
    for (const int rate : {1, 24999, 25000, 49999}) {
        for (const std::size_t length : {1U, 79U, 80U, 81U, 719U, 720U, 721U, 866U, 867U, 868U}) {
            for (const int channels : {1, 2}) {
                for (const int32_t decision : kDecisions) {
                    const std::size_t count = length * static_cast<std::size_t>(channels);
                    const Result result = run_raw(noise(count, 1), rate, channels, 80, decision);
                    EXPECT_EQ(result.input.size(), count);
                    EXPECT_EQ(result.cleaned.size(), count);
                }
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
        EXPECT_EQ(stereo.input, pair);
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
    EXPECT_EQ(damaged.failure, "no failure");
    EXPECT_THAT(damaged.totals.fault, testing::HasSubstr("ends within a sample"));
    EXPECT_EQ(whole.totals.fault, "");
    EXPECT_EQ(damaged.cleaned, whole.cleaned);
    EXPECT_EQ(damaged.flags, whole.flags);
    const Result nothing = run_raw(std::string(), 16000, 1, 160);
    EXPECT_THAT(nothing.failure, testing::HasSubstr("holds no samples"));
    EXPECT_TRUE(nothing.flags.empty());
}

TEST_F(DetectionTest, SaysWhatIsWrongWithFrames) {
    const auto source = open_source(folder_.write("x", "abcd"), raw_options(16000, 1));
    for (const int frame : {0, -1, 4097}) {
        EXPECT_THROW(detect(*source, config_of(source->info(), frame, KORVANE_DECISION_FIXED),
                            false, std::vector<Listener>(1)),
                     std::invalid_argument);
    }
}

/** Start and end of each segment; an open end is negative. */
using Places = std::vector<std::pair<int64_t, int64_t>>;

TEST_F(DetectionTest, SegmentsAreTheLibrarysEvents) {
    const std::string speech = raw_bytes(read_all(std::string(kSpeech)));
    const std::string file = folder_.write(
        "speech", speech + std::string(60000, '\0') + speech.substr(0, speech.size() / 3 * 2));
    for (const std::string decision :
         {"adaptive --onset 21ms --hangover 45ms", "fixed --onset 0.05 --hangover 0", "detector"}) {
        for (const std::string rate : {"8000", "16000", "48000"}) {
            for (const std::string frame : {"10ms", "37", "1000"}) {
                std::istringstream words(
                    "--min-gap 40ms --min-speech 20ms --pad-start 31ms "
                    "--pad-end 5ms --max-speech 500ms --raw s16le -r " +
                    rate + " --frame " + frame + " --decision " + decision);
                std::vector<std::string> command = {file};
                for (std::string word; words >> word;) {
                    command.push_back(word);
                }
                const Options options = parse_options(command);
                const Work work(file, options);
                Places places;
                const Speech found = segments_of(work, options, false, {Listener{}})[0];
                for (const segments::Segment& segment : found.list) {
                    places.emplace_back(segment.start, segment.open ? -segment.end : segment.end);
                }
                EXPECT_GT(places.size(), 1U);

                Places events;
                KorvaneStreamConfig config = work.header.stream;
                config.min_gap_ms = 40;
                config.min_speech_ms = 20;
                config.pad_start_ms = 31;
                config.pad_end_ms = 5;
                config.max_speech_ms = 500;
                config.user = &events;
                config.on_event = [](void* user, const KorvaneStreamEvent* event) {
                    if (event->kind == KORVANE_SPEECH_END) {
                        static_cast<Places*>(user)->emplace_back(
                            event->start, event->open != 0 ? -event->position : event->position);
                    }
                };
                KorvaneStream* stream = korvane_stream_create(&config, nullptr);
                const std::vector<int16_t> samples = read_all(file, options.source);
                korvane_stream_process(stream, samples.data(), nullptr,
                                       static_cast<int32_t>(samples.size()));
                korvane_stream_end(stream, nullptr);
                korvane_stream_destroy(stream);
                EXPECT_EQ(places, events) << decision << ' ' << rate << ' ' << frame;
            }
        }
    }
}

}  // namespace
}  // namespace korvane::tool
