/** A source through the detector. */
#ifndef KORVANE_TOOLS_RESULTS_DETECTION_H
#define KORVANE_TOOLS_RESULTS_DETECTION_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "korvane_stream.h"
#include "tools/audio/audio_source.h"

namespace korvane::tool {

/** The decision about one frame. Positions are of the input's time line, in samples per channel. */
struct Frame {
    int64_t index = 0;
    int64_t begin = 0;  ///< of what the answer concerns; with the decision `detector` it may lie
                        ///< before 0
    int64_t end = 0;    ///< with `detector` it may lie behind the input's last sample
    int64_t fed = 0;    ///< samples that had to go in for it, zeros behind the input included
    bool speech = false;
    double score = 0;  ///< 0..1
    double level = 0;  ///< of the cleaned frame, dB of full scale; of two channels the louder
    double noise = 0;  ///< dB of full scale, -140 while it is not known
};

/** Samples that have gone in when the sample before `end` is clean, of a stream whose sound comes back
 * so late. With the decision `detector` an answer also waits until the sound comes back. */
int64_t heard_for(int64_t end, int64_t delay);

/** Who is told what comes of an input, in this order. Samples are interleaved, on the input's own
 * time line, and each call goes on where the one before it ended. What is not set is not told. */
struct Listener {
    std::function<void(const int16_t* samples, int64_t n)> input = {};
    std::function<void(const Frame&)> frame = {};
    std::function<void(const int16_t* samples, int64_t n)> cleaned = {};
};

struct StreamTotals {
    int64_t length = 0;  ///< samples per channel read
    int64_t frames = 0;
    std::string
        sha256;  ///< if asked for: of the samples as handed to the detector: 16-bit little-endian,
                 ///< interleaved; hexadecimal
    std::string fault = {};  ///< why the source gave no more; empty where it came to a sound end
};

/**
 * Runs a fresh detector for each listener over the whole source; each frame is told as soon as it is
 * decided. What the samples before a fault of the source give is told; a Failure is thrown only where
 * there are none. Each detector hears channels of its own: the first one the source's first ones, as
 * many as the configuration says, the next one those that follow.
 *
 * With the decision `detector` the input is filled up with zeros to whole frames, and levels are those
 * of the sound as the suppressor leaves it: 20*log10(rms + 1e-7), full scale 32768.
 *
 * @param config  without callbacks; std::invalid_argument says what is wrong with it
 * @param digest  whether to work out the SHA-256, which takes a tenth of the time of a recording
 */
std::vector<StreamTotals> detect(AudioSource& source, const KorvaneStreamConfig& config,
                                 bool digest, const std::vector<Listener>& listeners);

}  // namespace korvane::tool

#endif
