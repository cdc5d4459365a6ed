/** From the detector's answers, one per frame, to speech segments on the recording's time line. */
#ifndef KORVANE_TOOLS_SPEECH_SEGMENTS_H
#define KORVANE_TOOLS_SPEECH_SEGMENTS_H

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::tool {

/** Frames of 10 ms: rate / 100 samples per channel, at least 1. */
constexpr int frame_length(int rate) { return rate < 100 ? 1 : rate / 100; }

/**
 * How many samples the cleaned stream, and the decision made on it, is behind the recording: the
 * stream's ring of 576, one hop of the suppressor (144, from 25000 Hz on 288), and on the two-band
 * path 3 for the allpass filter, whose delay in the speech band is that.
 */
constexpr int64_t path_delay(int rate) { return rate < 25000 ? 576 + 144 : 576 + 288 + 3; }

/** Samples begin..end-1 of the recording. */
struct Segment {
    int64_t begin;
    int64_t end;
    bool operator==(const Segment&) const = default;
};

class SpeechSegments {
  public:
    /** Frames of `frame` samples whose decision concerns what went in `delay` samples earlier. */
    SpeechSegments(int frame, int64_t delay) : frame_(frame), delay_(delay) {}

    /** The detector's answer to the next frame. */
    void add(bool speech);

    /** The segments within a recording of `length` samples, in order; none is empty, no two touch.
     */
    std::vector<Segment> within(int64_t length) const;

  private:
    int frame_;
    int64_t delay_;
    int64_t stream_position_ = 0;    // first sample of the next frame
    bool in_speech_ = false;         // the last segment still grows
    std::vector<Segment> segments_;  // in positions of the delayed stream
};

/** Seconds with three decimals, rounded to nearest, halves up. samples 0 or more. */
std::string seconds(int64_t samples, int rate);

}  // namespace korvane::tool

#endif
