// Streams: what every host relies on, against the exported calls and against themselves.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numbers>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "dsp/gain_mul.h"
#include "fenced_pages.h"
#include "korvane_nrss.h"
#include "korvane_stream.h"
#include "korvane_vad.h"
#include "library_state.h"
#include "nrss/pipeline/block_pipeline.h"
#include "numeric_models.h"
#include "segments/segments.h"
#include "speech/speech_score.h"

extern "C" {
#include "sha256.h"
}

namespace korvane::test {
namespace {

using Config = KorvaneStreamConfig;

size_t index(int i) { return static_cast<size_t>(i); }

/** A resonance, the next sample of which is x + a y[-1] - b y[-2], factors in Q14. */
struct Resonance {
    int a, b, last = 0, before_last = 0;
    int pass(int x) {
        const int y = x + ((a * last - b * before_last) >> 14);
        before_last = last;
        last = y;
        return y;
    }
};

/** Seconds of faint noise, of loud noise and of vowels in turns, n samples per channel, interleaved. In whole
 * numbers, so that it is the same on every machine. */
Samples talk(int n, int channels, uint32_t seed) {
    Random random(seed);
    Samples x(index(n * channels));
    Resonance throat{31366, 15878};  // 600 Hz at 16 kHz, 80 Hz wide
    Resonance mouth{28028, 15753};   // 1300 Hz, 100 Hz wide
    int left = 0;
    int amplitude = 0;
    bool voice = false;
    for (int i = 0; i < n; ++i) {
        if (left-- == 0) {
            left = random.between(2000, 30000);
            voice = random.between(0, 2) == 0;
            amplitude = voice || random.between(0, 1) == 0 ? 12 : random.between(500, 32767);
        }
        const bool pulse = voice && i % 100 == 0 && i % 4000 < 2800;
        const int vowel = mouth.pass(throat.pass(pulse ? 1000 : 0));
        for (int c = 0; c < channels; ++c) {
            x[index(i * channels + c)] = static_cast<int16_t>(
                std::clamp(vowel + random.between(-amplitude, amplitude), -32768, 32767));
        }
    }
    return x;
}

Config config_of(int rate, int channels, int decision = KORVANE_DECISION_ADAPTIVE) {
    Config config;
    EXPECT_EQ(korvane_stream_defaults(&config, rate, channels), KORVANE_OK);
    config.decision = decision;
    return config;
}

/** All that a stream has given back. */
struct Told {
    std::vector<std::tuple<int64_t, int, int, float, float, float>> results;
    std::vector<std::tuple<int, int, int64_t, int64_t>> events;
    std::vector<int64_t> known_at;  // of each event: the position behind the last result
    Samples cleaned;
    bool operator==(const Told&) const = default;
};

struct Destroy {
    void operator()(KorvaneStream* stream) const { korvane_stream_destroy(stream); }
};
using Owned = std::unique_ptr<KorvaneStream, Destroy>;

Owned made(Config& config, Told& told) {
    config.user = &told;
    config.on_result = [](void* user, const KorvaneStreamResult* r) {
        static_cast<Told*>(user)->results.emplace_back(r->position, r->length, r->speech, r->score,
                                                       r->level_db, r->noise_db);
    };
    config.on_event = [](void* user, const KorvaneStreamEvent* e) {
        auto& all = *static_cast<Told*>(user);
        all.events.emplace_back(e->kind, e->open, e->position, e->start);
        const auto& last = all.results.back();
        all.known_at.push_back(std::get<0>(last) + std::get<1>(last));
    };
    int32_t error = 1;
    Owned stream(korvane_stream_create(&config, &error));
    EXPECT_EQ(error, KORVANE_OK) << korvane_stream_error_text(error);
    return stream;
}

/** The ways of handing samples over. */
enum class Form { kInt16, kFloat, kPlanar, kPlanarFloat };
constexpr Form kForms[] = {Form::kInt16, Form::kFloat, Form::kPlanar, Form::kPlanarFloat};

template <class T>
T sample_as(int16_t x) {
    return sizeof(T) == sizeof(int16_t) ? static_cast<T>(x) : static_cast<T>(x / 32768.0);
}
template <class T>
int16_t sample_of(T x) {
    return static_cast<int16_t>(sizeof(T) == sizeof(int16_t) ? x : x * 32768);
}

/** A call on n samples per channel from x on, or the end where x is null; appends what is cleaned. */
template <class T, class Interleaved, class Planar>
void call(const int16_t* x, int n, int channels, bool in_place, bool planar, Samples& cleaned,
          const Interleaved& interleaved_call, const Planar& planar_call) {
    const auto count = index(n * channels);
    std::vector<T> in(count);
    std::vector<T> other(count, sample_as<T>(99));
    const auto place = [&](int i, int c) {
        return static_cast<size_t>(planar ? c * n + i : i * channels + c);
    };
    for (int i = 0; x != nullptr && i < n; ++i) {
        for (int c = 0; c < channels; ++c) {
            in[place(i, c)] = sample_as<T>(x[i * channels + c]);
        }
    }
    const std::vector<T> given = in;
    std::vector<T>& out = in_place ? in : other;
    if (planar) {
        const T* const ins[] = {in.data(), in.data() + (channels - 1) * n};
        T* const outs[] = {out.data(), out.data() + (channels - 1) * n};
        EXPECT_GE(planar_call(ins, outs), 0);
    } else {
        EXPECT_GE(interleaved_call(in.data(), out.data()), 0);
    }
    EXPECT_TRUE(in_place || in == given);
    for (int i = 0; i < n; ++i) {
        for (int c = 0; c < channels; ++c) {
            cleaned.push_back(sample_of(out[place(i, c)]));
        }
    }
}

void process(KorvaneStream* s, Form form, const int16_t* x, int n, int channels, bool in_place,
             Samples& cleaned) {
    const bool planar = form == Form::kPlanar || form == Form::kPlanarFloat;
    if (form == Form::kInt16 || form == Form::kPlanar) {
        call<int16_t>(
            x, n, channels, in_place, planar, cleaned,
            [&](const int16_t* in, int16_t* out) {
                return x != nullptr ? korvane_stream_process(s, in, out, n)
                                    : korvane_stream_end(s, out);
            },
            [&](const int16_t* const* in, int16_t* const* out) {
                return x != nullptr ? korvane_stream_process_planar(s, in, out, n)
                                    : korvane_stream_end_planar(s, out);
            });
    } else {
        call<float>(
            x, n, channels, in_place, planar, cleaned,
            [&](const float* in, float* out) {
                return x != nullptr ? korvane_stream_process_float(s, in, out, n)
                                    : korvane_stream_end_float(s, out);
            },
            [&](const float* const* in, float* const* out) {
                return x != nullptr ? korvane_stream_process_planar_float(s, in, out, n)
                                    : korvane_stream_end_planar_float(s, out);
            });
    }
}

/** A whole input in one call, and the end. */
Told whole(Config config, const Samples& x) {
    Told told;
    const Owned stream = made(config, told);
    const int n = static_cast<int>(x.size()) / config.channels;
    process(stream.get(), Form::kInt16, x.data(), n, config.channels, false, told.cleaned);
    process(stream.get(), Form::kInt16, nullptr, korvane_stream_delay(stream.get()),
            config.channels, false, told.cleaned);
    return told;
}

/** A configuration that has every rule. */
Config random_config(Random& random) {
    constexpr int kRates[] = {8000, 16000, 22050, 24999, 25000, 44100, 48000, 49999, 11025};
    Config config = config_of(kRates[random.between(0, 8)], random.between(1, 2));
    config.decision = random.between(0, 2);
    if (random.between(0, 1) == 0) {
        config.frame_length = random.between(1, 4096);
    }
    config.restore_level = random.between(0, 1);
    config.onset_ms = random.between(0, 100);
    config.hangover_ms = random.between(0, 300);
    for (int32_t* time : {&config.min_gap_ms, &config.min_speech_ms, &config.max_speech_ms,
                          &config.pad_start_ms, &config.pad_end_ms}) {
        *time = random.between(0, 1) * random.between(0, 400);
    }
    return config;
}

TEST(Streams, AnyChunksFormatsAndLayoutsGiveTheSame) {
    Random random(1);
    for (int i = 0; i < 60; ++i) {
        Config config = random_config(random);
        const int n = random.between(1, 60000);
        const Samples x = talk(n, config.channels, static_cast<uint32_t>(i));
        const Told expected = whole(config, x);
        Told told;
        const Owned stream = made(config, told);
        // Once more after a reset, from wherever the stream was.
        for (const int length : {random.between(0, n), n}) {
            told = {};
            const int longest = random.between(1, 3000);
            for (int at = 0; at < length;) {
                const int piece = std::min(random.between(0, longest), length - at);
                process(stream.get(), kForms[random.between(0, 3)], x.data() + at * config.channels,
                        piece, config.channels, random.between(0, 1) == 0, told.cleaned);
                at += piece;
            }
            if (length == n) {
                process(stream.get(), kForms[random.between(0, 3)], nullptr,
                        korvane_stream_delay(stream.get()), config.channels, false, told.cleaned);
                EXPECT_TRUE(told == expected) << "case " << i;
            }
            EXPECT_EQ(korvane_stream_reset(stream.get()), KORVANE_OK);
        }
        ASSERT_EQ(
            expected.cleaned.size(),
            x.size() + static_cast<size_t>(korvane_stream_delay(stream.get()) * config.channels));
        // Frames follow each other over the whole input, events are in order and within it.
        int64_t position = std::get<0>(expected.results.front());
        for (const auto& [start, length, speech, score, level, noise] : expected.results) {
            ASSERT_EQ(start, position);
            ASSERT_TRUE(score >= 0 && score <= 1 && level >= -140 && level < 6 && noise >= -140);
            position += length;
        }
        ASSERT_GE(position, n);
        int64_t before = 0;
        int kind = KORVANE_SPEECH_START;
        for (const auto& [is, open, at, start] : expected.events) {
            ASSERT_TRUE(is == kind && at >= before && at <= n) << "case " << i;
            before = at;
            kind = KORVANE_SPEECH_START + KORVANE_SPEECH_END - kind;
        }
        ASSERT_EQ(kind, KORVANE_SPEECH_START);
    }
}

TEST(Streams, DecisionDetectorGivesTheAnswersOfTheExportedCalls) {
    Random random(2);
    auto handle = std::make_unique<VadHandle>();
    for (int i = 0; i < 40; ++i) {
        Config config = random_config(random);
        config.decision = KORVANE_DECISION_DETECTOR;
        config.restore_level = 0;
        for (int32_t* time : {&config.min_gap_ms, &config.min_speech_ms, &config.max_speech_ms,
                              &config.pad_start_ms, &config.pad_end_ms}) {
            *time = 0;
        }
        const int channels = config.channels;
        const int frame = config.frame_length;
        Samples x = talk(random.between(1, 100000), channels, static_cast<uint32_t>(i));
        const auto n = static_cast<int64_t>(x.size()) / channels;
        for (size_t at = 0; channels == 2 && i % 2 == 0 && at < x.size(); at += 2) {
            x[at] = static_cast<int16_t>(x[at] / 64);  // the other channel is the one to decide on
        }
        const Told told = whole(config, x);

        forget_everything();
        VoiceActivityDetectionInit();
        *handle = {};
        VoiceActivityDetectionChannelModeConfig(handle.get(), channels);
        VoiceActivityDetectionSamplingRateConfig(handle.get(),
                                                 static_cast<uint32_t>(config.sampling_rate));
        VoiceActivityDetectionFrameLengthConfig(handle.get(),
                                                static_cast<uint32_t>(frame * channels));
        using namespace segments;
        const int64_t delay = delay_of(config.sampling_rate);
        Segmenter segmenter;
        ASSERT_EQ(segmenter_init(segmenter, segments::timing_of(config.sampling_rate, frame), {}),
                  Status::kOk);
        std::vector<std::tuple<int, int, int64_t, int64_t>> events;
        const auto take = [&] {
            for (Segment s; segmenter_take(segmenter, s);) {
                events.emplace_back(KORVANE_SPEECH_START, 0, s.start, s.start);
                events.emplace_back(KORVANE_SPEECH_END, s.open ? 1 : 0, s.end, s.start);
            }
        };
        Samples cleaned;
        const int64_t frames = (n + delay + frame - 1) / frame;
        x.resize(static_cast<size_t>(frames * frame * channels));
        ASSERT_EQ(std::ssize(told.results), frames);
        for (int64_t k = 0; k < frames; ++k) {
            VoiceActivityDetectionInOutConfig(handle.get(), x.data() + k * frame * channels);
            const int speech = VoiceActivityDetectionExe(handle.get());
            const auto& result = told.results[static_cast<size_t>(k)];
            ASSERT_EQ(std::get<0>(result), k * frame - delay);
            ASSERT_EQ(std::get<2>(result), speech) << "case " << i << ", frame " << k;
            for (int s = 0; s < frame; ++s) {
                cleaned.push_back(handle->ch0_work[s]);
                if (channels == 2) {
                    cleaned.push_back(handle->ch1_work[s]);
                }
            }
            std::optional<Onset> onset;
            ASSERT_EQ(segmenter_add(segmenter, speech != 0, onset), Status::kOk);
            take();
        }
        segmenter_finish(segmenter, n);
        take();
        EXPECT_EQ(told.events, events);
        cleaned.resize(told.cleaned.size());
        EXPECT_TRUE(told.cleaned == cleaned);
    }
}

TEST(Streams, StayWithinTheirMemoryAndTheHostsArrays) {
    constexpr int kLongest = 1200;
    FencedPages memory(korvane_stream_size());
    FencedPages in(2 * kLongest * sizeof(float));
    FencedPages out(2 * kLongest * sizeof(float));
    const Samples x = talk(kLongest, 2, 3);
    for (const Edge edge : {Edge::kFirst, Edge::kLast}) {
        for (const auto& [rate, channels] :
             {std::tuple{16000, 1}, {16000, 2}, {48000, 1}, {48000, 2}}) {
            auto* const stream =
                reinterpret_cast<KorvaneStream*>(memory.array<char>(korvane_stream_size(), edge));
            const Config config = config_of(rate, channels);
            ASSERT_EQ(korvane_stream_init(stream, korvane_stream_size(), &config), KORVANE_OK);
            for (const int n : {0, 1, 2, 7, 575, 576, 577, kLongest}) {
                const auto count = index(n * channels);
                in.allow(PROT_READ | PROT_WRITE);
                auto* const shorts = in.array<int16_t>(count, edge);
                std::copy_n(x.begin(), count, shorts);
                in.allow(PROT_READ);
                ASSERT_GE(
                    korvane_stream_process(stream, shorts, out.array<int16_t>(count, edge), n), 0);
                in.allow(PROT_READ | PROT_WRITE);
                auto* const floats = in.array<float>(count, edge);
                std::fill_n(floats, count, 0.25F);
                in.allow(PROT_READ);
                ASSERT_GE(
                    korvane_stream_process_float(stream, floats, out.array<float>(count, edge), n),
                    0);
            }
            const auto rest = index(korvane_stream_delay(stream) * channels);
            ASSERT_GE(korvane_stream_end(stream, out.array<int16_t>(rest, edge)), 0);
        }
    }
}

TEST(Streams, AResultComesWithTheBlockThatCleansItsFrame) {
    for (const int rate : {16000, 48000}) {
        Config config = config_of(rate, 1);
        Told told;
        const Owned stream = made(config, told);
        const int64_t late = korvane_stream_delay(stream.get()) - 576;
        for (int64_t heard = 1; heard < 10 * 576; ++heard) {
            const int16_t x = 0;
            korvane_stream_process(stream.get(), &x, nullptr, 1);
            const int64_t cleaned = std::max<int64_t>(heard / 576 * 576 - late, 0);
            ASSERT_EQ(std::ssize(told.results), cleaned / config.frame_length) << heard;
        }
    }
}

/** The scores of one channel's hops, from the suppressor alone. */
std::vector<int> hop_scores(int rate, Samples x) {
    auto suppressor = std::make_unique<NrssState>();
    SpeechScore speech;
    NRSS_Init(*suppressor, 9, rate);
    speech_init(speech, rate);
    suppressor->speech = &speech;
    std::vector<int> scores;
    for (size_t at = 0; at + 576 <= x.size(); at += 576) {
        NRSS_Nonintlvd(*suppressor, x.data() + at, x.data() + at, 576);
        scores.insert(scores.end(), speech.hops.score, speech.hops.score + speech.hops.count);
        speech.hops.count = 0;
    }
    return scores;
}

TEST(Streams, DecisionAdaptiveFollowsTheScoresOfTheSoundsOwnHops) {
    for (const auto& [rate, hop, frame] :
         {std::tuple{16000, 144, 160}, {16000, 144, 1000}, {48000, 288, 480}, {25000, 288, 1}}) {
        Config config = config_of(rate, 1);
        config.frame_length = frame;
        config.enter_score = 0.6F;
        config.stay_score = 0.5F;
        const int n = 8 * rate;
        Samples x = talk(n, 1, 5);
        const Told told = whole(config, x);
        x.resize(index(n + 1440));
        const std::vector<int> scores = hop_scores(rate, x);
        const int silent_frames = (40 * rate / 1000 + frame - 1) / frame;
        bool speech = false;
        int below = 0;
        int changes = 0;
        for (const auto& [position, length, is_speech, score, level, noise] : told.results) {
            int64_t sum = 0;
            for (int64_t at = position; at < position + length; ++at) {
                // The hop after the one that holds the sample, which from 25000 Hz on is 3 samples late; at
                // the end the last one that holds nothing but the input.
                const int64_t next = (at + (hop == 288 ? 3 : 0)) / hop + 1;
                sum += scores[static_cast<size_t>(std::min<int64_t>(next, n / hop - 1))];
            }
            const auto mean = static_cast<int>(sum / length);
            ASSERT_EQ(score * 32768, static_cast<float>(mean)) << rate << ' ' << position;
            below = mean > 16384 ? 0 : below + 1;
            const bool before = speech;
            speech = speech ? below < silent_frames : mean >= 19661;
            changes += speech != before ? 1 : 0;
            ASSERT_EQ(is_speech != 0, speech) << rate << ' ' << position;
        }
        EXPECT_GE(changes, 2) << rate;

        // A score that is just reached is enough to begin.
        config.enter_score = std::get<3>(*std::ranges::max_element(
            told.results, {}, [](const auto& result) { return std::get<3>(result); }));
        const Told rarely = whole(config, talk(n, 1, 5));
        EXPECT_TRUE(std::ranges::any_of(
            rarely.results, [](const auto& result) { return std::get<2>(result) != 0; }));
    }
}

TEST(Streams, AnswerTheSameOnEveryMachine) {
    Sha256 digest;
    sha256_begin(&digest);
    const auto add = [&digest](int64_t value) {
        for (int i = 0; i < 8; ++i, value >>= 8) {
            const auto byte = static_cast<uint8_t>(value);
            sha256_add(&digest, &byte, 1);
        }
    };
    for (const int rate : {8000, 16000, 22050, 48000}) {
        for (const int decision : {KORVANE_DECISION_ADAPTIVE, KORVANE_DECISION_FIXED}) {
            const Told told = whole(config_of(rate, 2, decision), talk(4 * rate, 2, 7));
            for (const auto& [position, length, speech, score, level, noise] : told.results) {
                add(position);
                add(speech);
                add(std::lround(score * 32768));
                add(std::lround(level * 256));
                add(std::lround(noise * 256));
            }
            for (const auto& [kind, open, position, start] : told.events) {
                add(kind + open);
                add(position);
            }
            std::ranges::for_each(told.cleaned, add);
        }
    }
    char hex[65];
    sha256_end(&digest, hex);
    EXPECT_STREQ(hex, "7e3719fb832729cb39af49d3450edcea5ce7a6446c4a16b6353bd5e31f26c085")
        << "renew it where other answers are meant";
}

Samples tone_after_silence(int rate, int silence, int length, double amplitude) {
    Samples x(static_cast<size_t>(silence));
    for (int i = 0; i < length; ++i) {
        x.push_back(static_cast<int16_t>(
            std::lround(amplitude * std::sin(2 * std::numbers::pi * 1000 * i / rate))));
    }
    return x;
}

TEST(Streams, AToneThatBreaksOffWithTheInputIsNoSpeech) {
    for (const int rate : {8000, 16000, 48000}) {
        for (int length = 4 * rate; length < 4 * rate + 2000; length += 97) {
            const Told told = whole(config_of(rate, 1), tone_after_silence(rate, 0, length, 8000));
            for (const auto& [kind, open, position, start] : told.events) {
                ASSERT_LT(position, 2 * rate) << rate << ' ' << length;
            }
        }
    }
}

TEST(Streams, TheInputsLevelComesBackAtEveryRate) {
    for (const int rate : {8000, 16000, 22050, 25000, 48000}) {
        Config config = config_of(rate, 1);
        // The first half second, in which every gain is open.
        const Samples x = tone_after_silence(rate, 0, rate / 2, 8000);
        const auto level = [&](const Told& told) {
            double sum = 0;
            const int delay = rate < 25000 ? 720 : 867;
            for (int i = 1000; i < rate / 2 - 1000; ++i) {
                const double y = told.cleaned[index(i + delay)];
                sum += y * y;
            }
            return 10 * std::log10(sum / (rate / 2.0 - 2000) / 32e6);
        };
        const Told restored = whole(config, x);
        EXPECT_NEAR(level(restored), 0, 0.1) << rate;
        EXPECT_NEAR(std::get<4>(restored.results[20]),
                    20 * std::log10(8000 / 32768.0 / std::sqrt(2)), 0.1)
            << rate;
        config.restore_level = 0;
        const Told plain = whole(config, x);
        EXPECT_NEAR(level(plain), rate < 25000 ? -5.0 : 1.0, 0.1) << rate;
        EXPECT_TRUE(plain.results == restored.results && plain.events == restored.events) << rate;
    }
}

TEST(Streams, FixedThresholdsAndTimesMeanTheSameAtEveryRate) {
    for (const int rate : {8000, 16000, 44100}) {
        for (const auto& [enter, stay, speaks] :
             {std::tuple{-21.0F, -40.0F, true}, {-19.0F, -40.0F, false}}) {
            Config config = config_of(rate, 1, KORVANE_DECISION_FIXED);
            config.enter_db = enter;
            config.stay_db = stay;
            config.onset_ms = 30;
            config.hangover_ms = 100;
            // 0.3 s at -20 dB
            Samples x = tone_after_silence(rate, rate / 10, rate * 3 / 10, 3276.8 * std::sqrt(2));
            x.resize(static_cast<size_t>(rate));
            const Told told = whole(config, x);
            if (!speaks) {
                EXPECT_TRUE(told.events.empty()) << rate;
                continue;
            }
            ASSERT_EQ(told.events.size(), 2U) << rate;
            const int ten_ms = rate / 100;
            const int delay = rate / 40;  // the frames' windows reach around the sound
            EXPECT_NEAR(static_cast<double>(std::get<2>(told.events[0])), rate * 0.1, ten_ms)
                << rate;
            EXPECT_NEAR(static_cast<double>(std::get<2>(told.events[1])), rate * 0.4, delay)
                << rate;
            EXPECT_EQ(told.known_at[0] - std::get<2>(told.events[0]), 3 * ten_ms);
            EXPECT_EQ(told.known_at[1] - std::get<2>(told.events[1]), 10 * ten_ms);
        }
    }
}

TEST(Streams, TheNoiseIsMeasured) {
    for (const int rate : {8000, 16000, 48000}) {
        for (const int amplitude : {8000, 800}) {
            const Samples x = Random(3).noise(index(8 * rate), amplitude);
            const Told told = whole(config_of(rate, 1), x);
            // Even over the amplitudes; of two bands the lower half.
            const double level = 20 * std::log10(amplitude / 32768.0 / std::sqrt(3)) -
                                 (rate < 25000 ? 0 : 10 * std::log10(2));
            EXPECT_NEAR(std::get<5>(told.results.back()), level, 0.7) << rate << ' ' << amplitude;
        }
    }
}

TEST(Streams, SayWhatIsWrongAndTouchNothing) {
    const auto with = [](auto change) {
        Config config = config_of(16000, 1);
        change(config);
        return config;
    };
    const struct {
        Config config;
        int32_t error;
    } cases[] = {
        {with([](Config& c) { c.size = 0; }), KORVANE_ERROR_CONFIG},
        {with([](Config& c) { c.sampling_rate = 0; }), KORVANE_ERROR_RATE},
        {with([](Config& c) { c.sampling_rate = 50000; }), KORVANE_ERROR_RATE},
        {with([](Config& c) { c.channels = 0; }), KORVANE_ERROR_CHANNELS},
        {with([](Config& c) { c.channels = 3; }), KORVANE_ERROR_CHANNELS},
        {with([](Config& c) { c.frame_length = 0; }), KORVANE_ERROR_FRAME_LENGTH},
        {with([](Config& c) { c.frame_length = 4097; }), KORVANE_ERROR_FRAME_LENGTH},
        {with([](Config& c) { c.decision = 3; }), KORVANE_ERROR_DECISION},
        {with([](Config& c) { c.decision = -1; }), KORVANE_ERROR_DECISION},
        {with([](Config& c) { c.enter_db = NAN; }), KORVANE_ERROR_THRESHOLD},
        {with([](Config& c) { c.enter_db = 1; }), KORVANE_ERROR_THRESHOLD},
        {with([](Config& c) { c.stay_db = -141; }), KORVANE_ERROR_THRESHOLD},
        {with([](Config& c) { c.stay_db = -44; }), KORVANE_ERROR_THRESHOLD},
        {with([](Config& c) { c.enter_score = 1.1F; }), KORVANE_ERROR_SCORE},
        {with([](Config& c) { c.stay_score = -0.1F; }), KORVANE_ERROR_SCORE},
        {with([](Config& c) { c.stay_score = 0.6F; }), KORVANE_ERROR_SCORE},
        {with([](Config& c) { c.onset_ms = -1; }), KORVANE_ERROR_TIME},
        {with([](Config& c) { c.pad_end_ms = KORVANE_STREAM_MAX_MS + 1; }), KORVANE_ERROR_TIME},
    };
    const size_t size = korvane_stream_size();
    EXPECT_LT(size, 32768U);
    EXPECT_EQ(size % KORVANE_STREAM_ALIGNMENT, 0U);
    alignas(KORVANE_STREAM_ALIGNMENT) static unsigned char memory[32768 + 32];
    std::memset(memory, 0xA5, sizeof memory);
    const std::vector<unsigned char> untouched(memory, memory + sizeof memory);
    const auto stream_at = [](unsigned char* p) { return reinterpret_cast<KorvaneStream*>(p); };
    KorvaneStream* const stream = stream_at(memory);
    for (const auto& c : cases) {
        int32_t error = 0;
        EXPECT_EQ(korvane_stream_init(stream, size, &c.config), c.error) << &c - cases;
        EXPECT_EQ(korvane_stream_create(&c.config, &error), nullptr);
        EXPECT_EQ(error, c.error);
    }
    const Config good = config_of(16000, 2);
    EXPECT_EQ(korvane_stream_init(nullptr, size, &good), KORVANE_ERROR_NULL);
    EXPECT_EQ(korvane_stream_init(stream, size, nullptr), KORVANE_ERROR_NULL);
    EXPECT_EQ(korvane_stream_init(stream, size - 1, &good), KORVANE_ERROR_SIZE);
    EXPECT_EQ(korvane_stream_init(stream_at(memory + 16), size, &good), KORVANE_ERROR_ALIGNMENT);
    EXPECT_EQ(korvane_stream_create(nullptr, nullptr), nullptr);
    EXPECT_EQ(korvane_stream_defaults(nullptr, 16000, 1), KORVANE_ERROR_NULL);
    Config unfilled = good;
    EXPECT_EQ(korvane_stream_defaults(&unfilled, 96000, 1), KORVANE_ERROR_RATE);
    EXPECT_EQ(korvane_stream_defaults(&unfilled, 16000, 6), KORVANE_ERROR_CHANNELS);
    EXPECT_EQ(unfilled.sampling_rate, 16000);
    int16_t x[4] = {1, 2, 3, 4};
    float f[4] = {};
    int16_t* arrays[2] = {x, nullptr};
    KorvaneStreamResult result;
    EXPECT_EQ(korvane_stream_process(stream, x, x, 2), KORVANE_ERROR_NO_STREAM);
    EXPECT_EQ(korvane_stream_end(stream, nullptr), KORVANE_ERROR_NO_STREAM);
    EXPECT_EQ(korvane_stream_reset(stream), KORVANE_ERROR_NO_STREAM);
    EXPECT_EQ(korvane_stream_delay(stream), KORVANE_ERROR_NO_STREAM);
    EXPECT_EQ(korvane_stream_last(stream, &result), KORVANE_ERROR_NO_STREAM);
    EXPECT_TRUE(std::equal(untouched.begin(), untouched.end(), memory));

    ASSERT_EQ(korvane_stream_init(stream, size, &good), KORVANE_OK);
    EXPECT_TRUE(std::equal(untouched.begin() + static_cast<std::ptrdiff_t>(size), untouched.end(),
                           memory + size));
    const std::vector<unsigned char> fresh(memory, memory + size);
    EXPECT_EQ(korvane_stream_process(nullptr, x, x, 2), KORVANE_ERROR_NULL);
    EXPECT_EQ(korvane_stream_process(stream, nullptr, x, 2), KORVANE_ERROR_NULL);
    EXPECT_EQ(korvane_stream_process(stream, x, x, -1), KORVANE_ERROR_COUNT);
    EXPECT_EQ(korvane_stream_process_float(stream, f, f, INT32_MIN), KORVANE_ERROR_COUNT);
    EXPECT_EQ(korvane_stream_process_planar(stream, arrays, nullptr, 2), KORVANE_ERROR_NULL);
    EXPECT_EQ(korvane_stream_process_planar(stream, nullptr, nullptr, 2), KORVANE_ERROR_NULL);
    const int16_t* const ins[2] = {x, x};
    EXPECT_EQ(korvane_stream_process_planar(stream, ins, arrays, 2), KORVANE_ERROR_NULL);
    arrays[0] = nullptr;
    EXPECT_EQ(korvane_stream_process_planar(stream, arrays, nullptr, 2), KORVANE_ERROR_NULL);
    EXPECT_EQ(korvane_stream_end_planar(stream, arrays), KORVANE_ERROR_NULL);
    EXPECT_EQ(korvane_stream_last(stream, &result), KORVANE_ERROR_NO_RESULT);
    EXPECT_EQ(korvane_stream_last(stream, nullptr), KORVANE_ERROR_NULL);
    EXPECT_TRUE(std::equal(fresh.begin(), fresh.end(), memory));
    EXPECT_TRUE(x[0] == 1 && x[3] == 4);

    EXPECT_EQ(korvane_stream_process(stream, nullptr, nullptr, 0), 0);
    EXPECT_EQ(korvane_stream_process_planar(stream, nullptr, nullptr, 0), 0);
    EXPECT_EQ(korvane_stream_process_planar(stream, ins, nullptr, 2), 0);
    EXPECT_EQ(korvane_stream_end_planar(stream, nullptr), 0);
    EXPECT_EQ(korvane_stream_end_planar(stream, nullptr), KORVANE_ERROR_ENDED);
    EXPECT_EQ(korvane_stream_last(stream, &result), KORVANE_OK);
    EXPECT_EQ(korvane_stream_end(stream, nullptr), KORVANE_ERROR_ENDED);
    EXPECT_EQ(korvane_stream_process(stream, x, x, 2), KORVANE_ERROR_ENDED);
    EXPECT_EQ(korvane_stream_reset(stream), KORVANE_OK);
    EXPECT_EQ(korvane_stream_last(stream, &result), KORVANE_ERROR_NO_RESULT);
    for (int error = KORVANE_ERROR_SCORE; error < 0; ++error) {
        EXPECT_STRNE(korvane_stream_error_text(error), korvane_stream_error_text(1)) << error;
    }
    EXPECT_STREQ(korvane_stream_error_text(KORVANE_OK), "all is well");
    EXPECT_STREQ(korvane_stream_version(), KORVANE_STREAM_VERSION);
}

TEST(Streams, AnInputOfNoSamplesHasNoResultsAndComesBackAsSilence) {
    for (const int decision : {KORVANE_DECISION_ADAPTIVE, KORVANE_DECISION_DETECTOR}) {
        Config config = config_of(16000, 2, decision);
        Told told;
        const Owned stream = made(config, told);
        process(stream.get(), Form::kFloat, nullptr, 720, 2, false, told.cleaned);
        EXPECT_EQ(korvane_stream_reset(stream.get()), KORVANE_OK);
        EXPECT_EQ(korvane_stream_end(stream.get(), nullptr), 0);
        EXPECT_TRUE(told.results.empty() && told.events.empty());
        EXPECT_EQ(told.cleaned, Samples(size_t{2 * 720}));
    }
}

TEST(Streams, ACallbackCannotChangeItsOwnStream) {
    struct Host {
        KorvaneStream* stream = nullptr;
        std::vector<int32_t> answers;
    } host;
    Config config = config_of(16000, 1);
    config.user = &host;
    config.on_result = [](void* user, const KorvaneStreamResult* r) {
        auto& h = *static_cast<Host*>(user);
        KorvaneStreamResult last;
        h.answers = {korvane_stream_process(h.stream, nullptr, nullptr, 0),
                     korvane_stream_end(h.stream, nullptr), korvane_stream_reset(h.stream),
                     korvane_stream_last(h.stream, &last),
                     static_cast<int32_t>(last.position - r->position)};
    };
    const Owned stream(korvane_stream_create(&config, nullptr));
    host.stream = stream.get();
    const Samples x(2000);
    EXPECT_EQ(korvane_stream_process(stream.get(), x.data(), nullptr, 2000), 0);
    EXPECT_EQ(host.answers, (std::vector<int32_t>{KORVANE_ERROR_BUSY, KORVANE_ERROR_BUSY,
                                                  KORVANE_ERROR_BUSY, KORVANE_OK, 0}));
}

TEST(Streams, FloatSamplesAreRoundedAndSaturated) {
    const struct {
        float x;
        int16_t counts_as;
    } cases[] = {{0.5F, 16384},      {1, 32767},           {-1, -32768},
                 {2, 32767},         {-INFINITY, -32768},  {INFINITY, 32767},
                 {NAN, 0},           {0.49F / 32768, 0},   {0.5F / 32768, 1},
                 {-0.5F / 32768, 0}, {-0.51F / 32768, -1}, {32766.6F / 32768, 32767}};
    Config config = config_of(16000, 1);
    const Samples noise = talk(3000, 1, 9);
    for (const auto& c : cases) {
        Told told[2];
        for (const bool as_float : {false, true}) {
            const Owned stream = made(config, told[as_float]);
            for (size_t i = 0; i < noise.size(); ++i) {
                const bool here = i % 3 == 0;
                const float f = here ? c.x : static_cast<float>(noise[i]) / 32768;
                const int16_t s = here ? c.counts_as : noise[i];
                float y = 0;
                int16_t z = 0;
                if (as_float) {
                    korvane_stream_process_float(stream.get(), &f, &y, 1);
                    z = static_cast<int16_t>(y * 32768);
                } else {
                    korvane_stream_process(stream.get(), &s, &z, 1);
                }
                told[as_float].cleaned.push_back(z);
            }
        }
        EXPECT_TRUE(told[0] == told[1]) << c.x;
    }
}

TEST(Streams, AThousandOnSeveralThreadsEqualEachAlone) {
    constexpr int kStreams = 1000;
    constexpr int kThreads = 4;
    std::vector<Told> at_once(kStreams);
    const auto hear = [](int i, Told& told) {
        Config config = config_of(i % 2 == 0 ? 16000 : 48000, 1 + i / 2 % 2, i % 3);
        told = whole(config, talk(3000, config.channels, static_cast<uint32_t>(i)));
    };
    std::vector<std::thread> threads;
    threads.reserve(kThreads);
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            for (int i = t; i < kStreams; i += kThreads) {
                hear(i, at_once[static_cast<size_t>(i)]);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (int i = 0; i < kStreams; ++i) {
        Told alone;
        hear(i, alone);
        ASSERT_TRUE(alone == at_once[static_cast<size_t>(i)]) << i;
    }
}

TEST(Streams, DoNotSeeTheWeightsThatAHostPutsInOsf) {
    static constexpr int16_t kSubtractNothing[kGains] = {};
    const Config config = config_of(16000, 1);
    const Samples x = bursts(57600, 1);
    const Told expected = whole(config, x);
    Tolu_NRSS_Init(9, 16000);
    const int16_t* const weights = osf;
    osf = kSubtractNothing;
    EXPECT_TRUE(whole(config, x) == expected);
    osf = weights;
}

}  // namespace
}  // namespace korvane::test
