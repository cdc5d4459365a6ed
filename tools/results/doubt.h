/** Says where what was found is probably not what is wanted. */
#ifndef KORVANE_TOOLS_RESULTS_DOUBT_H
#define KORVANE_TOOLS_RESULTS_DOUBT_H

#include <cstdint>
#include <string>

#include "tools/results/detection.h"
#include "tools/results/result_writer.h"

namespace korvane::tool {

class Doubt {
  public:
    void add(const Frame& frame) {
        const int64_t length = frame.end - frame.begin;
        speech_ += frame.speech ? length : 0;
        loud_ += frame.level > kVoiceLevel ? length : 0;
    }

    /**
     * Of an input of so many samples: a line, or nothing. It is doubtful that someone speaks all the
     * time for longer than 20 s, and that nobody speaks where a second or more is loud with its noise
     * taken out.
     */
    std::string about(const ResultHeader& header, int64_t length) const {
        const int rate = header.source.rate;
        const auto seconds = [rate](int64_t samples) {
            return static_cast<double>(samples) / rate;
        };
        const std::string channel =
            header.channel != 0 ? "channel " + std::to_string(header.channel) + ": " : "";
        const double percent = 100.0 * static_cast<double>(speech_) / static_cast<double>(length);
        if (seconds(length) > 20 && percent > 97) {
            return channel + "nearly all of it counts as speech; music and other voices do";
        }
        if (speech_ == 0 && seconds(loud_) >= 1) {
            return channel + "no speech is found, though " + std::to_string(loud_ / rate) +
                   " s of it are as loud as a voice";
        }
        return "";
    }

  private:
    static constexpr double kVoiceLevel = -40;  // dB
    int64_t loud_ = 0;
    int64_t speech_ = 0;
};

}  // namespace korvane::tool

#endif
