// Writes the signal of the measurements to a file: WAV where the name says so, bare 16-bit
// little-endian samples otherwise.
//
//     write_signal RATE CHANNELS SECONDS FILE
#include <cstdlib>
#include <exception>
#include <iostream>
#include <sndfile.hh>
#include <string>

#include "noisy_speech.h"

int main(int argc, char** argv) {
    if (argc != 5) {
        std::cerr << "usage: write_signal RATE CHANNELS SECONDS FILE\n";
        return 2;
    }
    const int rate = std::atoi(argv[1]);
    const int channels = std::atoi(argv[2]);
    const int seconds = std::atoi(argv[3]);
    const std::string path = argv[4];
    if (rate < 1000 || (channels != 1 && channels != 2) || seconds < 1) {
        std::cerr << "write_signal: rate from 1000, 1 or 2 channels, at least 1 second\n";
        return 2;
    }
    try {
        const auto frames = static_cast<size_t>(rate) * static_cast<size_t>(seconds);
        const auto samples = korvane::bench::noisy_speech(rate, channels, frames);
        const int container =
            path.ends_with(".wav") ? SF_FORMAT_WAV : SF_FORMAT_RAW | SF_ENDIAN_LITTLE;
        SndfileHandle file(path, SFM_WRITE, container | SF_FORMAT_PCM_16, channels, rate);
        const auto count = static_cast<sf_count_t>(samples.size());
        if (file.error() != 0 || file.write(samples.data(), count) != count) {
            std::cerr << path << ": " << file.strError() << '\n';
            return 1;
        }
    } catch (const std::exception& e) {
        std::cerr << "write_signal: " << e.what() << '\n';
        return 1;
    }
}
