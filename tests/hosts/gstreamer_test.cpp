// The GStreamer element in a harness, against the library for many streams.

#include <gst/check/gstharness.h>
#include <gtest/gtest.h>
#include <korvane_stream.h>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "counted_allocations.h"
#include "gstreamer/element.h"
#include "gstreamer/session.h"

namespace korvane::test {
namespace {

using Samples = std::vector<int16_t>;  // interleaved

constexpr int kRate = 16000;
constexpr GstClockTime kStart = 7 * GST_SECOND;

/** Noise with a tone in turns, three quarters of a second each. */
Samples bursts(int rate, int channels, double seconds, unsigned seed) {
    std::mt19937 random(seed);
    Samples x(static_cast<size_t>(seconds * rate) * static_cast<size_t>(channels));
    for (size_t i = 0; i < x.size(); ++i) {
        const size_t frame = i / static_cast<size_t>(channels);
        const double t = static_cast<double>(frame) / rate;
        const double tone =
            std::fmod(t, 1.5) < 0.75 ? 0 : 6000 * std::sin(2764 * t) * std::sin(8 * t);
        x[i] = static_cast<int16_t>(tone + static_cast<double>(random() % 400) - 200);
    }
    return x;
}

struct Told {
    int64_t kind, position, start, open;
    bool operator==(const Told&) const = default;
};

/** What the library itself makes of the sound. */
struct Expected {
    Samples cleaned;
    std::vector<Told> events;
};

Expected expected_of(KorvaneStreamConfig config, const Samples& sound) {
    Expected expected;
    config.user = &expected.events;
    config.on_event = [](void* user, const KorvaneStreamEvent* e) {
        static_cast<std::vector<Told>*>(user)->push_back({e->kind, e->position, e->start, e->open});
    };
    KorvaneStream* const stream = korvane_stream_create(&config, nullptr);
    const auto delay =
        static_cast<size_t>(korvane_stream_delay(stream)) * static_cast<size_t>(config.channels);
    Samples out(sound.size() + delay);
    korvane_stream_process(stream, sound.data(), out.data(),
                           static_cast<int32_t>(sound.size()) / config.channels);
    korvane_stream_end(stream, &out[sound.size()]);
    korvane_stream_destroy(stream);
    expected.cleaned.assign(out.begin() + static_cast<std::ptrdiff_t>(delay), out.end());
    return expected;
}

KorvaneStreamConfig config_of(int rate, int channels) {
    KorvaneStreamConfig config;
    EXPECT_EQ(korvane_stream_defaults(&config, rate, channels), KORVANE_OK);
    return config;
}

struct Received {
    Samples sound;             ///< zeros where there was a gap
    std::vector<bool> silent;  ///< for each sample per channel: muted, or in a gap
};

class Element {
  public:
    static void start_gstreamer() {
        static const bool started = [] {
            // Nothing but this element is to be loaded.
            setenv("GST_PLUGIN_SYSTEM_PATH_1_0", "", 1);
            setenv("GST_PLUGIN_PATH_1_0", "", 1);
            setenv("GST_REGISTRY", "/dev/null", 1);
            gst_init(nullptr, nullptr);
            return gst_element_register(nullptr, "korvanevad", GST_RANK_NONE,
                                        korvane_vad_get_type());
        }();
        ASSERT_TRUE(started);
    }
    static GstCaps* caps_of(int rate, int channels, bool is_float) {
        return gst_caps_new_simple("audio/x-raw", "format", G_TYPE_STRING,
                                   is_float ? "F32LE" : "S16LE", "rate", G_TYPE_INT, rate,
                                   "channels", G_TYPE_INT, channels, "layout", G_TYPE_STRING,
                                   "interleaved", nullptr);
    }
    explicit Element(const std::string& settings = "") {
        start_gstreamer();
        harness_ = gst_harness_new_parse(("korvanevad " + settings).c_str());
        bus_ = gst_bus_new();
        element_ = gst_harness_find_element(harness_, "korvanevad");
        gst_element_set_bus(element_, bus_);
    }
    ~Element() {
        gst_harness_teardown(harness_);
        gst_object_unref(element_);
        gst_object_unref(bus_);
    }
    Element(const Element&) = delete;
    Element& operator=(const Element&) = delete;

    void caps(int rate, int channels, bool is_float = false) {
        rate_ = rate;
        channels_ = static_cast<size_t>(channels);
        is_float_ = is_float;
        gst_harness_set_src_caps(harness_, caps_of(rate, channels, is_float));
    }
    /** Hands sound over in buffers of all lengths, or of one, the first one at that time. */
    void push(const Samples& sound, GstClockTime time, size_t length = 0) {
        static constexpr size_t kLengths[] = {1, 160, 441, 7, 4000};
        const size_t frames = sound.size() / channels_;
        for (size_t at = 0, turn = 0; at < frames; ++turn) {
            const size_t next = length != 0 ? length : kLengths[turn % std::size(kLengths)];
            const size_t n = std::min(next, frames - at);
            GstBuffer* const buffer = buffer_of(&sound[at * channels_], n * channels_);
            GST_BUFFER_PTS(buffer) =
                time + gst_util_uint64_scale(at, GST_SECOND, static_cast<guint64>(rate_));
            GST_BUFFER_DURATION(buffer) =
                gst_util_uint64_scale(n, GST_SECOND, static_cast<guint64>(rate_));
            ASSERT_EQ(gst_harness_push(harness_, buffer), GST_FLOW_OK);
            at += n;
        }
    }
    void event(GstEvent* event) { gst_harness_push_event(harness_, event); }
    void segment(GstClockTime stream_time = 0) {
        GstSegment segment;
        gst_segment_init(&segment, GST_FORMAT_TIME);
        segment.time = stream_time;
        event(gst_event_new_segment(&segment));
    }
    void flush() {
        event(gst_event_new_flush_start());
        event(gst_event_new_flush_stop(TRUE));
        segment();
    }
    void end() { event(gst_event_new_eos()); }

    /** All that came out since the last call. Each piece must begin where the one before it ended. */
    Received receive(GstClockTime time) {
        Received received;
        while (GstBuffer* const buffer = gst_harness_try_pull(harness_)) {
            const auto skipped =
                static_cast<int64_t>(gst_util_uint64_scale_round(
                    GST_BUFFER_PTS(buffer) - time, static_cast<guint64>(rate_), GST_SECOND)) -
                static_cast<int64_t>(received.silent.size());
            EXPECT_GE(skipped, 0);
            received.silent.resize(
                received.silent.size() + static_cast<size_t>(std::max<int64_t>(skipped, 0)), true);
            received.sound.resize(received.silent.size() * channels_);
            append(received, buffer);
            gst_buffer_unref(buffer);
        }
        return received;
    }
    /** Silence told by gap events since the last call, in ns. */
    GstClockTime gaps() {
        GstClockTime sum = 0;
        while (GstEvent* const event = gst_harness_try_pull_event(harness_)) {
            if (GST_EVENT_TYPE(event) == GST_EVENT_GAP) {
                GstClockTime duration = 0;
                gst_event_parse_gap(event, nullptr, &duration);
                sum += duration;
            }
            gst_event_unref(event);
        }
        return sum;
    }
    /** What was told on the bus; positions count from that time. */
    std::vector<Told> told(GstClockTime time) {
        std::vector<Told> told;
        while (GstMessage* const message = gst_bus_pop_filtered(bus_, GST_MESSAGE_ELEMENT)) {
            const GstStructure* const s = gst_message_get_structure(message);
            gboolean speech = FALSE;
            gboolean open = FALSE;
            guint64 at = 0;
            guint64 start = 0;
            guint64 running = 0;
            EXPECT_TRUE(gst_structure_get(s, "speech", G_TYPE_BOOLEAN, &speech, "timestamp",
                                          G_TYPE_UINT64, &at, "start", G_TYPE_UINT64, &start,
                                          "running-time", G_TYPE_UINT64, &running, "open",
                                          G_TYPE_BOOLEAN, &open, nullptr));
            EXPECT_EQ(running, at);
            told.push_back({speech ? KORVANE_SPEECH_START : KORVANE_SPEECH_END, position(at - time),
                            position(start - time), open});
            gst_message_unref(message);
        }
        return told;
    }
    GstClockTime latency() { return gst_harness_query_latency(harness_); }
    bool speech() const {
        gboolean speech = FALSE;
        g_object_get(element_, "speech", &speech, nullptr);
        return speech;
    }
    GstHarness* harness() { return harness_; }
    std::string error() {
        g_autoptr(GstMessage) message = gst_bus_pop_filtered(bus_, GST_MESSAGE_ERROR);
        g_autoptr(GError) error = nullptr;
        if (message != nullptr) {
            gst_message_parse_error(message, &error, nullptr);
        }
        return error != nullptr ? error->message : "none";
    }
    GstBuffer* buffer_of(const int16_t* samples, size_t count) const {
        if (!is_float_) {
            return gst_buffer_new_memdup(samples, count * sizeof *samples);
        }
        std::vector<float> floats(count);
        std::transform(samples, samples + count, floats.begin(),
                       [](int16_t x) { return static_cast<float>(x) / 32768; });
        return gst_buffer_new_memdup(floats.data(), count * sizeof(float));
    }

  private:
    int64_t position(GstClockTime time) const {
        return static_cast<int64_t>(
            gst_util_uint64_scale_round(time, static_cast<guint64>(rate_), GST_SECOND));
    }
    void append(Received& received, GstBuffer* buffer) const {
        const gsize size = gst_buffer_get_size(buffer);
        std::vector<float> floats(size / sizeof(float));
        Samples samples(size / sizeof(int16_t));
        gst_buffer_extract(buffer, 0,
                           is_float_ ? static_cast<void*>(floats.data()) : samples.data(), size);
        if (is_float_) {
            samples.resize(floats.size());
            std::transform(floats.begin(), floats.end(), samples.begin(),
                           [](float x) { return static_cast<int16_t>(x * 32768); });
        }
        received.sound.insert(received.sound.end(), samples.begin(), samples.end());
        const size_t frames = samples.size() / channels_;
        received.silent.resize(received.silent.size() + frames,
                               GST_BUFFER_FLAG_IS_SET(buffer, GST_BUFFER_FLAG_GAP));
        EXPECT_NEAR(static_cast<double>(GST_BUFFER_DURATION(buffer)),
                    static_cast<double>(frames) * GST_SECOND / rate_, 1);
    }

    GstHarness* harness_;
    GstElement* element_;
    GstBus* bus_;
    int rate_ = kRate;
    size_t channels_ = 1;
    bool is_float_ = false;
};

TEST(GStreamer, SoundMessagesAndTimesAreTheLibrarys) {
    struct Case {
        int rate, channels;
        bool is_float;
        GstClockTime delay;  ///< 720 or 867 samples, rounded up
    };
    for (const auto& [rate, channels, is_float, delay] :
         std::initializer_list<Case>{{8000, 1, false, 90000000},
                                     {16000, 2, true, 45000000},
                                     {44100, 2, false, 19659864},
                                     {48000, 1, true, 18062500}}) {
        const Samples sound = bursts(rate, channels, 4.3, 1);
        const Expected expected = expected_of(config_of(rate, channels), sound);
        ASSERT_GE(expected.events.size(), 4U);
        Element element;
        element.caps(rate, channels, is_float);
        EXPECT_EQ(element.latency(), delay);
        element.push(sound, kStart);
        element.end();
        const Received received = element.receive(kStart);
        EXPECT_EQ(received.sound, expected.cleaned);
        EXPECT_EQ(std::count(received.silent.begin(), received.silent.end(), true), 0);
        EXPECT_EQ(element.told(kStart), expected.events) << rate;
    }
}

TEST(GStreamer, UntouchedSoundGoesOnAtOnce) {
    const Samples sound = bursts(kRate, 1, 3, 2);
    Element element("clean=false");
    element.caps(kRate, 1);
    EXPECT_EQ(element.latency(), 0U);
    element.push(sound, kStart);
    EXPECT_EQ(element.receive(kStart).sound, sound);  // before the end
    element.end();
    EXPECT_EQ(element.receive(kStart).sound, Samples());
    EXPECT_EQ(element.told(kStart), expected_of(config_of(kRate, 1), sound).events);
}

// Whatever the settings, of what is told as speech nothing is silenced, while most of the rest is.
TEST(GStreamer, SilenceNeverCutsSpeech) {
    struct Case {
        const char* settings;
        void (*apply)(KorvaneStreamConfig& config);
    };
    const Case cases[] = {
        {"", [](KorvaneStreamConfig&) {}},
        {"decision=detector",
         [](KorvaneStreamConfig& c) { c.decision = KORVANE_DECISION_DETECTOR; }},
        {"decision=fixed onset-ms=100 pad-start-ms=200 pad-end-ms=50",
         [](KorvaneStreamConfig& c) {
             c.decision = KORVANE_DECISION_FIXED;
             c.onset_ms = 100;
             c.pad_start_ms = 200;
             c.pad_end_ms = 50;
         }},
        {"onset-ms=30 min-gap-ms=100 min-speech-ms=300",
         [](KorvaneStreamConfig& c) {
             c.onset_ms = 30;
             c.min_gap_ms = 100;
             c.min_speech_ms = 300;
         }},
        {"hangover-ms=300 enter-score=0.05 stay-score=0.04",  // speech from the first sample on
         [](KorvaneStreamConfig& c) {
             c.hangover_ms = 300;
             c.enter_score = 0.05F;
             c.stay_score = 0.04F;
         }},
        {"decision=detector min-speech-ms=1500",
         [](KorvaneStreamConfig& c) {
             c.decision = KORVANE_DECISION_DETECTOR;
             c.min_speech_ms = 1500;
         }},
        {"min-speech-ms=1000 min-gap-ms=800", [](KorvaneStreamConfig& c) {
             c.min_speech_ms = 1000;
             c.min_gap_ms = 800;
         }}};
    struct Mode {
        const char* settings;
        double begin;  // in seconds: within the first silence, or within the first burst
    };
    for (const Mode& m : {Mode{"silence=gap", 0}, Mode{"silence=gap", 0.8}, Mode{"silence=mute", 0},
                          Mode{"silence=gap clean=false", 0.8}}) {
        const std::string mode = m.settings;
        Samples sound = bursts(kRate, 2, 6.1, 3);
        sound.erase(sound.begin(), sound.begin() + static_cast<int>(m.begin * 2 * kRate));
        for (const Case& c : cases) {
            SCOPED_TRACE(mode + " " + c.settings + " from " + std::to_string(m.begin));
            KorvaneStreamConfig config = config_of(kRate, 2);
            c.apply(config);
            const Expected expected = expected_of(config, sound);
            Element element(mode + " " + c.settings);
            element.caps(kRate, 2);
            element.push(sound, kStart, 16);
            element.end();
            const GstClockTime gaps = element.gaps();
            Received got = element.receive(kStart);
            const size_t frames = sound.size() / 2;
            if (mode.starts_with("silence=mute")) {
                EXPECT_EQ(got.silent.size(), frames);
            }
            got.sound.resize(sound.size());
            got.silent.resize(frames, true);
            const auto silent = std::count(got.silent.begin(), got.silent.end(), true);
            if (mode.starts_with("silence=gap")) {
                EXPECT_NEAR(static_cast<double>(gaps),
                            static_cast<double>(silent) * GST_SECOND / kRate, 100);
            }
            const Samples& whole = mode.ends_with("clean=false") ? sound : expected.cleaned;
            for (size_t i = 0; i < sound.size(); ++i) {
                ASSERT_EQ(got.sound[i], got.silent[i / 2] ? 0 : whole[i]) << i;
            }
            auto outside = static_cast<int64_t>(frames);
            for (size_t i = 0; i + 1 < expected.events.size(); i += 2) {
                const auto begin = got.silent.begin() + expected.events[i].position;
                const auto end = got.silent.begin() + expected.events[i + 1].position;
                EXPECT_EQ(std::count(begin, end, true), 0) << expected.events[i].position;
                outside -= end - begin;
            }
            EXPECT_GE(silent, outside / 2);
        }
    }
}

// Whatever parts two sounds: the first comes out whole and its speech ends, the second is a stream of its own.
TEST(GStreamer, BreaksInTheSound) {
    const Samples first = bursts(kRate, 1, 2.6, 4);  // ends within the second burst
    const Expected expected_first = expected_of(config_of(kRate, 1), first);
    constexpr GstClockTime kSecond = kStart + 2600 * GST_MSECOND;
    struct Case {
        const char* name;
        void (*happens)(Element& element);
        int rate, channels;  // of the second sound
    };
    const Case cases[] = {
        {"caps", [](Element& e) { e.event(gst_event_new_caps(Element::caps_of(8000, 2, false))); },
         8000, 2},
        {"segment", [](Element& e) { e.segment(GST_SECOND); }, kRate, 1},
        {"gap", [](Element& e) { e.event(gst_event_new_gap(kSecond, GST_MSECOND)); }, kRate, 1},
        {"segment done",
         [](Element& e) { e.event(gst_event_new_segment_done(GST_FORMAT_TIME, 0)); }, kRate, 1},
        {"flush", [](Element& e) { e.flush(); }, kRate, 1}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Element element;
        element.caps(kRate, 1);
        element.push(first, kStart);
        EXPECT_TRUE(element.speech());
        c.happens(element);
        EXPECT_FALSE(element.speech());
        const Samples out = element.receive(kStart).sound;
        if (c.name != std::string("flush")) {
            EXPECT_EQ(out, expected_first.cleaned);
        }
        EXPECT_EQ(element.told(kStart), expected_first.events);

        const Samples second = bursts(c.rate, c.channels, 2, 5);
        const Expected expected = expected_of(config_of(c.rate, c.channels), second);
        element.caps(c.rate, c.channels);
        element.push(second, kSecond);
        element.end();
        EXPECT_EQ(element.receive(kSecond).sound, expected.cleaned);
        EXPECT_EQ(element.told(kSecond), expected.events);
    }
}

TEST(GStreamer, TimesWaverOrJump) {
    const Samples sound = bursts(kRate, 1, 2, 6);
    Samples twice = sound;
    twice.insert(twice.end(), sound.begin(), sound.end());
    const Samples alone = expected_of(config_of(kRate, 1), sound).cleaned;
    const Samples together = expected_of(config_of(kRate, 1), twice).cleaned;
    for (const int ms : {-39, 39, 41}) {
        Element element;
        element.caps(kRate, 1);
        element.push(sound, kStart);
        element.caps(kRate, 1);  // the same again part nothing
        element.segment();
        element.push(sound, kStart + static_cast<GstClockTime>(2000 + ms) * GST_MSECOND);
        element.end();
        const Samples out = element.receive(kStart).sound;
        if (ms < 40) {
            EXPECT_EQ(out, together) << ms;
        } else {
            ASSERT_EQ(out.size(), twice.size() + 41 * kRate / 1000);
            EXPECT_TRUE(std::equal(alone.begin(), alone.end(), out.begin()));
            EXPECT_TRUE(std::equal(alone.rbegin(), alone.rend(), out.rbegin()));
        }
    }
}

TEST(GStreamer, WhatCannotBeIsRefused) {
    struct Case {
        const char* settings;
        int rate;
        const char* error;
    };
    const Case cases[] = {
        {"enter-score=0.3", kRate, korvane_stream_error_text(KORVANE_ERROR_SCORE)},
        {"decision=fixed stay-db=-20", kRate, korvane_stream_error_text(KORVANE_ERROR_THRESHOLD)},
        {"silence=gap max-speech-ms=9", kRate,
         "max-speech-ms needs silence=pass: parts are known only when the whole has ended"},
        {"", 96000, "none"}};  // the graph's own refusal
    for (const Case& c : cases) {
        Element element(c.settings);
        element.caps(c.rate, 1);
        const int16_t sample = 0;
        EXPECT_EQ(gst_harness_push(element.harness(), element.buffer_of(&sample, 1)),
                  GST_FLOW_NOT_NEGOTIATED);
        EXPECT_EQ(element.error(), c.error);
    }
}

// The same memory may be on its way elsewhere, too, and samples may lie at odd places.
TEST(GStreamer, OthersBuffersStayAsTheyAre) {
    const Samples sound = bursts(kRate, 1, 1, 7);
    Element element;
    element.caps(kRate, 1);
    const gsize size = sound.size() * sizeof(int16_t);
    GstBuffer* const buffer = gst_buffer_new_allocate(nullptr, size + 1, nullptr);
    gst_buffer_fill(buffer, 1, sound.data(), size);
    gst_buffer_resize(buffer, 1, static_cast<gssize>(size));
    GST_BUFFER_PTS(buffer) = kStart;
    ASSERT_EQ(gst_harness_push(element.harness(), gst_buffer_ref(buffer)), GST_FLOW_OK);
    element.end();
    EXPECT_EQ(gst_buffer_memcmp(buffer, 0, sound.data(), size), 0);
    EXPECT_EQ(element.receive(kStart).sound, expected_of(config_of(kRate, 1), sound).cleaned);
    gst_buffer_unref(buffer);
    Element broken;
    broken.caps(kRate, 2);
    EXPECT_EQ(gst_harness_push(broken.harness(), broken.buffer_of(sound.data(), 3)),
              GST_FLOW_ERROR);
}

// What was speech is forgotten with the sound.
TEST(GStreamer, SilenceAfterAFlushIsAFreshElements) {
    const Samples sound = bursts(kRate, 1, 3.2, 4);
    Element flushed("silence=mute");
    flushed.caps(kRate, 1);
    flushed.push({sound.begin(), sound.begin() + 41600}, kStart);  // ends within speech
    flushed.flush();
    flushed.receive(kStart);
    Element fresh("silence=mute");
    fresh.caps(kRate, 1);
    for (Element* element : {&flushed, &fresh}) {
        element->push(sound, kStart);
        element->end();
    }
    EXPECT_EQ(flushed.receive(kStart).silent, fresh.receive(kStart).silent);
}

TEST(GStreamer, ListeningTakesNothingFromTheHeap) {
    Element::start_gstreamer();
    Settings settings = default_settings();
    settings.clean = false;
    Session session;
    ASSERT_EQ(session.configure(settings, {kRate, 1, false}), nullptr);
    session.begin(0);
    const Samples sound = bursts(kRate, 1, 5, 8);
    GstBuffer* const buffer = gst_buffer_new_memdup(sound.data(), sound.size() * sizeof(int16_t));
    const long before = allocations;
    EXPECT_GT(before, 0);
    session.hear(buffer);
    session.hear(buffer);
    EXPECT_EQ(allocations, before);
    gst_buffer_unref(buffer);
}

}  // namespace
}  // namespace korvane::test
