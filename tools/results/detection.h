/** A source through the detector, frame by frame. */
#ifndef KORVANE_TOOLS_RESULTS_DETECTION_H
#define KORVANE_TOOLS_RESULTS_DETECTION_H

#include <cstdint>
#include <functional>
#include <string>

#include "segments/segments.h"
#include "tools/audio/audio_source.h"

namespace korvane::tool {

/** Frames of 10 ms: rate / 100 samples per channel, at least 1. */
constexpr int default_frame_length(int rate) { return rate < 100 ? 1 : rate / 100; }

/** One answer of the detector. Positions are of the input's time line, in samples per channel. */
struct Frame {
    int64_t index = 0;
    int64_t begin = 0;  ///< of what the answer concerns: the frame's first sample minus
                        ///< the delay; may lie before 0
    int64_t end = 0;    ///< may lie behind the input's last sample
    int64_t fed = 0;    ///< samples that have gone in, zeros that flush included
    bool speech = false;
    double level =
        0;  ///< if asked for: of the cleaned frame, dB of full scale; of two channels the
            ///< louder: 20*log10(rms + 1e-7), full scale 32768
    const int16_t* noisy = nullptr;    ///< the input, interleaved, zeros behind its end
    int64_t noisy_count = 0;           ///< sample frames of it that belong to the input
    const int16_t* cleaned = nullptr;  ///< the part of the cleaned frame that belongs to the input
    int64_t cleaned_begin = 0;         ///< position of its first sample
    int64_t cleaned_count = 0;         ///< sample frames in it, 0..frame length
};

struct StreamTotals {
    int64_t length = 0;  ///< samples per channel read
    int64_t frames = 0;  ///< answers, those to the zeros that flush included
    std::string
        sha256;  ///< if asked for: of the samples as handed to the detector: 16-bit little-endian,
                 ///< interleaved; hexadecimal
};

/** What to work out besides the answers. Both together take an eighth of the time of a recording. */
struct Measures {
    bool level = false;
    bool digest = false;
};

/**
 * Runs a fresh detector over the whole source in frames of `frame` samples per channel (1..4096)
 * and hands every answer to `each`, as soon as it is made; `each` returns false to stop early. At
 * the end the delay is flushed with zeros. Where the source ends with a Failure, that is thrown after
 * the answers to all the samples before it, the flush included. One at a time in a process.
 */
StreamTotals detect(AudioSource& source, int frame, Measures measures,
                    const std::function<bool(const Frame&)>& each);

}  // namespace korvane::tool

#endif
