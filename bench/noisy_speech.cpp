#include "noisy_speech.h"

#include <samplerate.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <random>
#include <sndfile.hh>
#include <stdexcept>
#include <string>

namespace korvane::bench {

namespace {

constexpr char kClips[] = "/usr/share/sounds/alsa";
constexpr int kClipRate = 48000;
constexpr double kFullScale = 32768;
constexpr double kSpeechRms = 0.1;  // of full scale: -20 dB
constexpr double kSignalToNoise = 12;
constexpr uint32_t kSeed = 20220622;

std::vector<float> read_clip(const std::string& path) {
    SndfileHandle file(path);
    if (file.error() != 0 || file.samplerate() != kClipRate || file.channels() != 1) {
        throw std::runtime_error(path + ": not a mono recording at 48 kHz");
    }
    std::vector<float> clip(static_cast<size_t>(file.frames()));
    file.readf(clip.data(), file.frames());
    return clip;
}

/** All clips that are spoken, in the order of their names. */
std::vector<float> speech_at_clip_rate() {
    std::vector<std::string> paths;
    if (std::filesystem::is_directory(kClips)) {
        for (const auto& entry : std::filesystem::directory_iterator(kClips)) {
            const bool spoken = entry.path().filename() != "Noise.wav";
            if (entry.path().extension() == ".wav" && spoken) {
                paths.push_back(entry.path());
            }
        }
    }
    if (paths.empty()) {
        throw std::runtime_error(std::string(kClips) + ": no clips; install alsa-utils");
    }
    std::sort(paths.begin(), paths.end());
    std::vector<float> speech;
    for (const std::string& path : paths) {
        const std::vector<float> clip = read_clip(path);
        speech.insert(speech.end(), clip.begin(), clip.end());
    }
    return speech;
}

std::vector<float> resampled(const std::vector<float>& in, int rate) {
    const double ratio = static_cast<double>(rate) / kClipRate;
    std::vector<float> out(static_cast<size_t>(static_cast<double>(in.size()) * ratio) + 1);
    SRC_DATA job{};
    job.data_in = in.data();
    job.input_frames = static_cast<long>(in.size());
    job.data_out = out.data();
    job.output_frames = static_cast<long>(out.size());
    job.src_ratio = ratio;
    if (const int error = src_simple(&job, SRC_SINC_MEDIUM_QUALITY, 1); error != 0) {
        throw std::runtime_error(src_strerror(error));
    }
    out.resize(static_cast<size_t>(job.output_frames_gen));
    return out;
}

}  // namespace

std::vector<int16_t> noisy_speech(int rate, int channels, size_t frames) {
    const std::vector<float> speech = resampled(speech_at_clip_rate(), rate);
    double energy = 0;
    for (const float x : speech) {
        energy += x * x;
    }
    const double speech_gain =
        kFullScale * kSpeechRms / std::sqrt(energy / static_cast<double>(speech.size()));
    // Evenly distributed noise within +-peak has a power of peak^2 / 3.
    const double noise_peak =
        kFullScale * kSpeechRms * std::pow(10, -kSignalToNoise / 20) * std::sqrt(3.0);

    std::mt19937 random(kSeed);
    const auto noise = [&] { return noise_peak * (std::ldexp(random(), -31) - 1); };
    const size_t late = static_cast<size_t>(rate / 1000);
    const size_t loop = speech.size();
    std::vector<int16_t> out;
    out.reserve(frames * static_cast<size_t>(channels));
    for (size_t n = 0; n < frames; ++n) {
        for (int c = 0; c < channels; ++c) {
            const double voice = c == 0 ? speech[n % loop] : 0.7 * speech[(n + loop - late) % loop];
            const double x = std::clamp(speech_gain * voice + noise(), -32768.0, 32767.0);
            out.push_back(static_cast<int16_t>(std::lrint(x)));
        }
    }
    return out;
}

}  // namespace korvane::bench
