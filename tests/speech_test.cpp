// Real speech, through the public calls: it is found where it is and silence is not. The recordings are
// those of Debian's alsa-utils (48 kHz) and asterisk-core-sounds-en-wav (8 kHz).

#include <gtest/gtest.h>
#include <sndfile.h>

#include <algorithm>
#include <array>
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

Samples read_recording(const std::string& path) {
    SF_INFO info = {};
    SNDFILE* const file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr || info.channels != 1) {
        throw std::runtime_error(path +
                                 " is not a mono recording: install alsa-utils and "
                                 "asterisk-core-sounds-en-wav");
    }
    Samples x(static_cast<size_t>(info.frames));
    sf_read_short(file, x.data(), info.frames);
    sf_close(file);
    return x;
}

/** The recording of 48000 Hz at another rate, by linear interpolation; the treble folds over. */
Samples resampled(const Samples& x, int rate) {
    Samples y;
    for (int64_t at = 0; at / rate + 1 < static_cast<int64_t>(x.size()); at += 48000) {
        const auto i = static_cast<size_t>(at / rate);
        y.push_back(static_cast<int16_t>(x[i] + (x[i + 1] - x[i]) * (at % rate) / rate));
    }
    return y;
}

struct Span {
    size_t begin;
    size_t end;
};

/** Utterances between stretches of faint noise, each longer than the hang-over by 1.5 s. */
struct Scene {
    size_t window;  ///< 20 ms
    Samples samples;
    std::vector<Span> utterances;
    std::vector<bool> loud;  ///< per window: the utterance alone lies above -30 dB

    Scene(int rate, int gain) : window(static_cast<size_t>(rate / 50)) {
        const std::string folder = rate == 8000 ? "/usr/share/asterisk/sounds/en_US_f_Allison/"
                                                : "/usr/share/sounds/alsa/";
        const auto names = rate == 8000 ? std::array{"vm-intro", "hello-world", "conf-invalid"}
                                        : std::array{"Front_Center", "Front_Left", "Rear_Right"};
        const size_t gap = kHangover + static_cast<size_t>(rate) * 3 / 2;
        samples.resize(gap);
        for (const char* const name : names) {
            const Samples recording = read_recording(folder + name + ".wav");
            const Samples utterance = rate == 8000 ? recording : resampled(recording, rate);
            utterances.push_back({samples.size(), samples.size() + utterance.size()});
            samples.insert(samples.end(), utterance.begin(), utterance.end());
            samples.resize(samples.size() + gap);
        }
        for (size_t at = 0; at + window <= samples.size(); at += window) {
            double energy = 0.0;
            for (size_t i = at; i < at + window; ++i) {
                energy += double(samples[i]) * samples[i];
            }
            loud.push_back(energy > 1e-3 * 32768.0 * 32768.0 * static_cast<double>(window));
        }
        std::mt19937 generator(7);
        for (int16_t& v : samples) {  // -84 dB; gain is applied to all, and clips
            const int noisy = gain * (v + static_cast<int>(generator() % 7) - 3);
            v = static_cast<int16_t>(std::clamp(noisy, -32768, 32767));
        }
    }
};

/** The decision on every frame of 10 ms; a last one that is not whole is left out. */
std::vector<int> detect(int rate, const Samples& ch0, const Samples& ch1, int mode) {
    const auto vad = std::make_unique<VadHandle>();
    const auto n = static_cast<size_t>(rate / 100);
    Samples frame(2 * n);
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(vad.get(), mode);
    VoiceActivityDetectionConfigAll(vad.get(), static_cast<uint32_t>(rate),
                                    static_cast<uint32_t>(mode == 1 ? n : 2 * n), frame.data(),
                                    mode);
    std::vector<int> flags;
    for (size_t at = 0; at + n <= ch0.size(); at += n) {
        if (mode == 2) {
            Tolu_NRSS_Interleave(frame.data(), &ch0[at], &ch1[at], static_cast<int>(n));
        } else {
            std::copy_n(&ch1[at], n, std::copy_n(&ch0[at], n, frame.data()));
        }
        flags.push_back(VoiceActivityDetectionExe(vad.get()));
    }
    return flags;
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
                const size_t window = (at - delay()) / scene.window;
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
};

INSTANTIATE_TEST_SUITE_P(Rates, Speech, testing::Values(8000, 16000, 44100, 48000),
                         testing::PrintToStringParamName());

TEST_P(Speech, IsFoundWhereItIsAndSilenceIsNot) {
    for (const int gain : {1, 4}) {
        const Scene scene(rate(), gain);
        const Samples silence(scene.samples.size());
        expect_found(scene, detect(rate(), scene.samples, silence, 1));
        // In either channel of two.
        expect_found(scene, detect(rate(), scene.samples, silence, 2));
        expect_found(scene, detect(rate(), silence, scene.samples, 3));
    }
}

}  // namespace
