// Real speech, through the public calls: speech is found where it is and silence is not, and the
// stream's properties hold on it. The recordings are those of Debian's alsa-utils (48 kHz) and
// asterisk-core-sounds-en-wav (8 kHz).

#include <gtest/gtest.h>
#include <samplerate.h>
#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "korvane_nrss.h"
#include "korvane_vad.h"

extern "C" __attribute__((visibility("default"))) int __android_log_print(int, const char*,
                                                                          const char*, ...) {
    return 0;  // keeps the library's messages off the terminal
}

namespace {

using Samples = std::vector<int16_t>;

constexpr size_t kOnset = 480;
constexpr size_t kHangover = 19200;

Samples read_recording(const std::string& path, int rate) {
    SF_INFO info = {};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr || info.samplerate != rate || info.channels != 1) {
        throw std::runtime_error(path + " is not a mono recording at " + std::to_string(rate) +
                                 " Hz: install alsa-utils and asterisk-core-sounds-en-wav");
    }
    Samples x(static_cast<size_t>(info.frames));
    sf_read_short(file, x.data(), info.frames);
    sf_close(file);
    return x;
}

Samples resampled(const Samples& x, int from, int to) {
    if (from == to) {
        return x;
    }
    std::vector<float> in(x.size());
    src_short_to_float_array(x.data(), in.data(), static_cast<int>(x.size()));
    std::vector<float> out(x.size() * static_cast<size_t>(to) / static_cast<size_t>(from));
    SRC_DATA data = {};
    data.data_in = in.data();
    data.data_out = out.data();
    data.input_frames = static_cast<long>(in.size());
    data.output_frames = static_cast<long>(out.size());
    data.src_ratio = double(to) / from;
    if (src_simple(&data, SRC_SINC_MEDIUM_QUALITY, 1) != 0) {
        throw std::runtime_error("cannot resample");
    }
    Samples y(static_cast<size_t>(data.output_frames_gen));
    src_float_to_short_array(out.data(), y.data(), static_cast<int>(y.size()));
    return y;
}

struct Span {
    size_t begin;
    size_t end;
};

/** Utterances between stretches of faint noise, each longer than the hang-over by 1.5 s. */
struct Scene {
    int rate = 0;
    Samples samples;
    std::vector<Span> utterances;
    std::vector<bool> loud;  ///< per 20 ms: the utterance alone lies above -30 dB, well into speech

    size_t window() const { return static_cast<size_t>(rate / 50); }
};

Scene make_scene(int rate, int gain) {
    std::vector<Samples> utterances;
    if (rate == 8000) {
        for (const char* const name : {"vm-intro", "hello-world", "conf-invalid"}) {
            utterances.push_back(read_recording(
                std::string("/usr/share/asterisk/sounds/en/") + name + ".wav", 8000));
        }
    } else {
        for (const char* const name : {"Front_Center", "Front_Left", "Rear_Right"}) {
            utterances.push_back(resampled(
                read_recording(std::string("/usr/share/sounds/alsa/") + name + ".wav", 48000),
                48000, rate));
        }
    }
    const size_t gap = kHangover + static_cast<size_t>(rate) * 3 / 2;
    Scene scene;
    scene.rate = rate;
    scene.samples.resize(gap);
    for (const Samples& utterance : utterances) {
        const size_t begin = scene.samples.size();
        scene.samples.insert(scene.samples.end(), utterance.begin(), utterance.end());
        scene.utterances.push_back({begin, scene.samples.size()});
        scene.samples.resize(scene.samples.size() + gap);
    }
    for (size_t at = 0; at + scene.window() <= scene.samples.size(); at += scene.window()) {
        double energy = 0.0;
        for (size_t i = at; i < at + scene.window(); ++i) {
            energy += double(scene.samples[i]) * scene.samples[i];
        }
        const double rms = std::sqrt(energy / static_cast<double>(scene.window()));
        scene.loud.push_back(20.0 * std::log10(rms / 32768.0 + 1e-9) > -30.0);
    }
    std::mt19937 generator(7);
    for (int16_t& v : scene.samples) {  // -84 dB; gain is applied to all, and clips
        const int noisy = gain * (v + static_cast<int>(generator() % 7) - 3);
        v = static_cast<int16_t>(std::clamp(noisy, -32768, 32767));
    }
    return scene;
}

struct Result {
    Samples ch0;
    Samples ch1;
    std::vector<int> flags;
};

/** One stream from its initialisation on, in frames of n; what does not fill a frame is left out.
 */
Result detect(int rate, const Samples& ch0, const Samples& ch1, size_t n, int mode) {
    const auto vad = std::make_unique<VadHandle>();
    Samples frame(2 * n);
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(vad.get(), mode);
    VoiceActivityDetectionSamplingRateConfig(vad.get(), static_cast<uint32_t>(rate));
    VoiceActivityDetectionFrameLengthConfig(vad.get(),
                                            static_cast<uint32_t>(mode == 1 ? n : 2 * n));
    VoiceActivityDetectionInOutConfig(vad.get(), frame.data());
    Result result;
    for (size_t at = 0; at + n <= ch0.size(); at += n) {
        if (mode == 2) {
            Tolu_NRSS_Interleave(frame.data(), &ch0[at], &ch1[at], static_cast<int>(n));
        } else {
            std::copy_n(&ch0[at], n, frame.data());
            std::copy_n(&ch1[at], n, frame.data() + n);
        }
        result.flags.push_back(VoiceActivityDetectionExe(vad.get()));
        result.ch0.insert(result.ch0.end(), vad->ch0_work, vad->ch0_work + n);
        result.ch1.insert(result.ch1.end(), vad->ch1_work, vad->ch1_work + n);
    }
    return result;
}

class Speech : public testing::TestWithParam<int> {
  protected:
    int rate() const { return GetParam(); }
    size_t frame() const { return static_cast<size_t>(rate() / 100); }
    /** Samples the cleaned stream is late: the ring and one hop of the frames. */
    size_t delay() const { return 576 + hop(); }
    size_t hop() const { return rate() < 25000 ? 144 : 288; }

    void expect_found(const Scene& scene, const std::vector<int>& flags) const {
        const size_t n = frame();
        // Certain speech: loud for an onset, and for two frames and a suppressor's frame on top,
        // since neither begins where the speech does.
        const size_t certain = kOnset + 2 * n + 2 * hop();
        size_t loud = 0;
        size_t certain_frames = 0;
        for (size_t f = 0; f < flags.size(); ++f) {
            const size_t at = f * n;  // of the cleaned stream
            if (at >= delay()) {
                const size_t window = (at - delay()) / scene.window();
                loud = scene.loud[window] ? loud + n : 0;
            }
            if (loud >= certain) {
                ++certain_frames;
                EXPECT_EQ(flags[f], 1) << "speech not found at " << double(at) / rate() << " s";
            }
            // From the speech on, late by the path; at its end a suppressor's frame may still hold
            // some of it, and the hang-over begins with the next whole frame.
            const bool possible =
                std::any_of(scene.utterances.begin(), scene.utterances.end(), [&](Span span) {
                    return at + n > span.begin + 576 &&
                           at < span.end + delay() + hop() + kHangover + n;
                });
            EXPECT_TRUE(flags[f] == 0 || possible)
                << "speech found in silence at " << double(at) / rate() << " s";
        }
        // Some speech in every utterance, or the check above would be empty.
        EXPECT_GE(certain_frames, 10 * scene.utterances.size());
        for (const Span span : scene.utterances) {
            const auto begin = flags.begin() + static_cast<std::ptrdiff_t>(span.begin / n);
            const auto end = flags.begin() + static_cast<std::ptrdiff_t>((span.end + delay()) / n);
            EXPECT_NE(std::count(begin, end, 1), 0);
        }
    }

    /** The high band's frames outlive an initialisation: a block of silence empties them. */
    static void flush_high_band() {
        Samples silence(1152);
        Tolu_NRSS_Init(9, 48000);
        Tolu_NRSS_Nonintlvd(silence.data(), silence.data() + 576, 576);
    }
};

INSTANTIATE_TEST_SUITE_P(Rates, Speech, testing::Values(8000, 16000, 44100, 48000),
                         testing::PrintToStringParamName());

TEST_P(Speech, IsFoundWhereItIsAndSilenceIsNot) {
    for (const int gain : {1, 4}) {
        const Scene scene = make_scene(rate(), gain);
        const Samples silence(scene.samples.size());
        expect_found(scene, detect(rate(), scene.samples, silence, frame(), 1).flags);
        // In either channel of two.
        expect_found(scene, detect(rate(), scene.samples, silence, frame(), 2).flags);
        expect_found(scene, detect(rate(), silence, scene.samples, frame(), 3).flags);
    }
}

TEST_P(Speech, TheCleanedStreamDependsOnTheSamplesAlone) {
    for (const int gain : {1, 4}) {
        const Samples ch0 = make_scene(rate(), gain).samples;
        const Samples ch1(ch0.rbegin(), ch0.rend());
        flush_high_band();
        const Result mono = detect(rate(), ch0, ch1, frame(), 1);
        ASSERT_NE(std::count(mono.flags.begin(), mono.flags.end(), 1), 0);
        flush_high_band();
        const Result stereo = detect(rate(), ch0, ch1, frame(), 3);
        EXPECT_TRUE(stereo.ch0 == mono.ch0);
        for (const size_t n : {size_t{1}, size_t{161}, size_t{577}, size_t{4096}}) {
            for (const int mode : {2, 3}) {
                flush_high_band();
                Result cut = detect(rate(), ch0, ch1, n, mode);
                const size_t common = std::min(cut.ch0.size(), stereo.ch0.size());
                for (Samples* const x : {&cut.ch0, &cut.ch1}) {
                    x->resize(common);
                    const Samples& whole = x == &cut.ch0 ? stereo.ch0 : stereo.ch1;
                    EXPECT_TRUE(std::equal(x->begin(), x->end(), whole.begin()))
                        << n << " " << mode;
                }
            }
        }
    }
}

TEST_P(Speech, InitialisedAgainIsAsFresh) {
    const Samples ch0 = make_scene(rate(), 1).samples;
    const Samples ch1(ch0.rbegin(), ch0.rend());
    flush_high_band();
    const Result fresh = detect(rate(), ch0, ch1, frame(), 2);
    detect(rate() == 16000 ? 8000 : 16000, ch1, ch0, 333, 2);
    if (rate() > 25000) {
        flush_high_band();
    }
    const Result again = detect(rate(), ch0, ch1, frame(), 2);
    EXPECT_TRUE(again.ch0 == fresh.ch0 && again.ch1 == fresh.ch1);
    EXPECT_EQ(again.flags, fresh.flags);
}

}  // namespace
