// The LADSPA plugins as a host sees them: loaded from their file, against the library for many streams.

#include <dlfcn.h>
#include <gtest/gtest.h>
#include <korvane_stream.h>
#include <ladspa.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "counted_allocations.h"

namespace korvane::test {
namespace {

using Floats = std::vector<float>;

const LADSPA_Descriptor& plugin(int channels) {
    static void* const file = dlopen(KORVANE_LADSPA_PLUGIN, RTLD_NOW | RTLD_LOCAL);
    const auto descriptor =
        reinterpret_cast<LADSPA_Descriptor_Function>(dlsym(file, "ladspa_descriptor"));
    return *descriptor(static_cast<unsigned long>(channels - 1));
}

/** What a host sets a port to that nobody has touched. */
float default_of(const LADSPA_PortRangeHint& hint) {
    switch (hint.HintDescriptor & LADSPA_HINT_DEFAULT_MASK) {
        case LADSPA_HINT_DEFAULT_1:
            return 1;
        case LADSPA_HINT_DEFAULT_MIDDLE:
            return LADSPA_IS_HINT_LOGARITHMIC(hint.HintDescriptor)
                       ? std::sqrt(hint.LowerBound * hint.UpperBound)
                       : (hint.LowerBound + hint.UpperBound) / 2;
        default:
            return 0;
    }
}

/** An instance with its control ports, at their defaults. */
class Plugin {
  public:
    Plugin(int channels, int rate)
        : descriptor_(plugin(channels)),
          controls_(descriptor_.PortCount),
          handle_(descriptor_.instantiate(&descriptor_, static_cast<unsigned long>(rate))) {
        for (unsigned long port = 0; port < descriptor_.PortCount; ++port) {
            if (LADSPA_IS_PORT_AUDIO(descriptor_.PortDescriptors[port])) {
                sound_.push_back(port);
            }
            controls_[port] = default_of(descriptor_.PortRangeHints[port]);
            descriptor_.connect_port(handle_, port, &controls_[port]);
        }
        descriptor_.activate(handle_);
    }
    ~Plugin() { descriptor_.cleanup(handle_); }
    Plugin(const Plugin&) = delete;
    Plugin& operator=(const Plugin&) = delete;

    /** The port whose name begins so. */
    float& control(const std::string& name) {
        for (unsigned long port = 0; port < descriptor_.PortCount; ++port) {
            if (std::string(descriptor_.PortNames[port]).starts_with(name)) {
                return controls_[port];
            }
        }
        throw std::out_of_range(name);
    }
    /** Sound ports in order: inputs, then outputs. */
    void run(const std::vector<float*>& buffers, size_t n) {
        for (size_t i = 0; i < buffers.size(); ++i) {
            descriptor_.connect_port(handle_, sound_[i], buffers[i]);
        }
        descriptor_.run(handle_, n);
    }

  private:
    const LADSPA_Descriptor& descriptor_;
    Floats controls_;
    std::vector<unsigned long> sound_;
    LADSPA_Handle handle_;
};

/** Noise with bursts, which some frames take for speech. */
Floats bursts(size_t n, unsigned seed) {
    std::mt19937 random(seed);
    Floats x(n);
    for (size_t i = 0; i < n; ++i) {
        const float loud =
            i / 9000 % 2 == 1 ? 0.2F * std::sin(0.11F * static_cast<float>(i % 9000)) : 0.F;
        x[i] = loud + 0.01F * (static_cast<float>(random() >> 8) / 8388608.F - 1);
    }
    return x;
}

KorvaneStreamConfig defaults(int rate, int channels) {
    KorvaneStreamConfig config;
    EXPECT_EQ(korvane_stream_defaults(&config, rate, channels), KORVANE_OK);
    return config;
}

using Stream = std::unique_ptr<KorvaneStream, decltype(&korvane_stream_destroy)>;

Stream stream_of(const KorvaneStreamConfig& config) {
    return {korvane_stream_create(&config, nullptr), korvane_stream_destroy};
}

/** What a stream makes of one or two channels. */
std::vector<Floats> cleaned(const KorvaneStreamConfig& config, std::vector<Floats> sound,
                            KorvaneStreamResult* last = nullptr) {
    const Stream stream = stream_of(config);
    float* const channels[] = {sound[0].data(), sound.back().data()};
    korvane_stream_process_planar_float(stream.get(), channels, channels,
                                        static_cast<int32_t>(sound[0].size()));
    if (last != nullptr) {
        EXPECT_EQ(korvane_stream_last(stream.get(), last), KORVANE_OK);
    }
    return sound;
}

// What a host offers before anybody turns a knob is what the library does.
TEST(Ladspa, DefaultsAreTheLibrarys) {
    const KorvaneStreamConfig config = defaults(16000, 1);
    Plugin mono(1, 16000);
    const std::pair<const char*, float> expected[] = {
        {"Bypass", 0},
        {"Decision", static_cast<float>(config.decision)},
        {"Enter score", config.enter_score},
        {"Stay score", config.stay_score},
        {"Enter level", config.enter_db},
        {"Stay level", config.stay_db},
        {"Onset", static_cast<float>(config.onset_ms)},
        {"Hang-over", static_cast<float>(config.hangover_ms)}};
    for (const auto& [name, value] : expected) {
        EXPECT_EQ(mono.control(name), value) << name;
    }
}

// Instances in turn, blocks of all lengths, each output in the other channel's input: the same samples as from
// streams that get all at once, and nothing from the heap.
TEST(Ladspa, AnyBlocksInAnyPlacesGiveTheSame) {
    for (const int rate : {8000, 48000}) {
        const std::vector<Floats> left = {bursts(40000, 1), bursts(40000, 2), bursts(40000, 3)};
        const std::vector<Floats> right = {bursts(40000, 4), bursts(40000, 5), bursts(40000, 6)};
        std::vector<Floats> a = left;
        std::vector<Floats> b = right;
        std::vector<std::unique_ptr<Plugin>> plugins;
        for (size_t i = 0; i < a.size(); ++i) {
            plugins.push_back(std::make_unique<Plugin>(2, rate));
        }
        long in_run = 0;
        const size_t blocks[] = {1, 0, 255, 256, 257, 4096, 7, 1024};
        for (size_t at = 0, turn = 0; at < a[0].size(); ++turn) {
            const size_t n = std::min(blocks[turn % std::size(blocks)], a[0].size() - at);
            for (size_t i = 0; i < a.size(); ++i) {
                const std::vector<float*> places = {&a[i][at], &b[i][at], &b[i][at], &a[i][at]};
                const long before = allocations;
                plugins[i]->run(places, n);
                in_run += allocations - before;
            }
            at += n;
        }
        EXPECT_EQ(in_run, 0);
        EXPECT_GT(allocations, 0);  // what made the plugins was counted
        bool different_scores = false;
        for (size_t i = 0; i < a.size(); ++i) {
            KorvaneStreamResult last;
            const std::vector<Floats> expected =
                cleaned(defaults(rate, 2), {left[i], right[i]}, &last);
            EXPECT_EQ(expected[0], b[i]) << i;
            EXPECT_EQ(expected[1], a[i]) << i;
            EXPECT_EQ(plugins[i]->control("Speech"), static_cast<float>(last.speech));
            EXPECT_EQ(plugins[i]->control("Score"), last.score);
            EXPECT_EQ(plugins[i]->control("latency"), rate < 25000 ? 720 : 867);
            different_scores = different_scores || last.score != plugins[0]->control("Score");
        }
        EXPECT_TRUE(different_scores);  // else instances that share a stream would pass
    }
}

// Settings come from a host unchecked. What is beyond a range becomes its end; a change begins anew.
TEST(Ladspa, SettingsAreKeptInRange) {
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();
    constexpr float kMuch = std::numeric_limits<float>::infinity();
    struct Case {
        float decision, enter_score, stay_score, enter_db, stay_db, hangover_ms;
        KorvaneStreamConfig expected;
    };
    KorvaneStreamConfig fixed = defaults(16000, 1);
    fixed.decision = KORVANE_DECISION_FIXED;
    fixed.enter_db = fixed.stay_db = -30;
    KorvaneStreamConfig detector = defaults(16000, 1);
    detector.decision = KORVANE_DECISION_DETECTOR;
    KorvaneStreamConfig low = defaults(16000, 1);
    low.enter_score = low.stay_score = 0;
    low.hangover_ms = 0;
    const Case cases[] = {{1.2F, 0.5F, 0.4F, -30, -20, 40, fixed},
                          {kMuch, 0.5F, 0.4F, -45, -50, 40, detector},
                          {-kMuch, -3, kMuch, kNone, 10, -1, low},
                          {kNone, kNone, 1, -45, -50, kNone, low}};
    const Floats sound = bursts(30000, 7);
    Plugin mono(1, 16000);
    for (const Case& settings : cases) {
        mono.control("Decision") = settings.decision;
        mono.control("Enter score") = settings.enter_score;
        mono.control("Stay score") = settings.stay_score;
        mono.control("Enter level") = settings.enter_db;
        mono.control("Stay level") = settings.stay_db;
        mono.control("Hang-over") = settings.hangover_ms;
        const Stream stream = stream_of(settings.expected);
        Floats expected = sound;
        Floats out = sound;
        for (size_t at = 0; at < sound.size(); at += 500) {
            const int32_t speech =
                korvane_stream_process_float(stream.get(), &expected[at], &expected[at], 500);
            mono.run({&out[at], &out[at]}, 500);
            ASSERT_EQ(mono.control("Speech"), static_cast<float>(speech))
                << "case " << &settings - cases << " at " << at;
        }
        EXPECT_EQ(out, expected);
    }
}

TEST(Ladspa, UntouchedSoundIsNotLate) {
    const Floats sound = bursts(9000, 8);
    Plugin mono(1, 16000);
    mono.control("Bypass") = 1;
    Floats in = sound;
    Floats out(sound.size());
    mono.run({in.data(), out.data()}, in.size());
    EXPECT_EQ(out, sound);
    EXPECT_EQ(mono.control("latency"), 0);
}

TEST(Ladspa, RatesBeyondTheLibrarysAreRefused) {
    const LADSPA_Descriptor& mono = plugin(1);
    for (const unsigned long rate : {0UL, 50000UL, 96000UL, 1UL << 31, ~0UL}) {
        EXPECT_EQ(mono.instantiate(&mono, rate), nullptr) << rate;
    }
}

}  // namespace
}  // namespace korvane::test
