/**
 * From the detector's answers, one per frame, to speech segments on the input's own time line.
 *
 * Positions are samples per channel from the first sample of the input; segments are half-open
 * ranges, start..end-1. The rules are applied in a fixed order: align, merge, drop, pad, merge,
 * split. A stream of answers gives the same segments however long the caller waits before it takes
 * them.
 *
 * The library knows neither files nor the detector; it is plain arithmetic on 64-bit integers, for
 * inputs of up to 2^60 samples.
 */
#ifndef KORVANE_SEGMENTS_SEGMENTS_H
#define KORVANE_SEGMENTS_SEGMENTS_H

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace korvane::segments {

/** How the detector's answers lie in time. All in samples per channel. */
struct Timing {
    int64_t frame = 0;     ///< of a frame, 1..4096
    int64_t delay = 0;     ///< by which an answer is late
    int64_t onset = 0;     ///< whole frames above the threshold before speech is declared, the
                           ///< declaring one included
    int64_t hangover = 0;  ///< whole frames below it before speech ends, the ending one included
};

/** Of a detector at `rate` Hz (1..49999) fed in frames of `frame` samples (1..4096). Throws
 * std::invalid_argument outside. */
Timing timing_of(int rate, int frame);

/** Which of the detector's inertia is taken out of a segment. */
enum class Align {
    kNone,   ///< none: the frames that were answered with speech
    kOnset,  ///< delay at both ends, and the onset run at the start
    kBoth,   ///< the hang-over run at the end as well
};

/** All in samples, 0 or more; 0 means no such rule. */
struct Rules {
    Align align = Align::kBoth;
    int64_t min_gap = 0;     ///< segments closer than this become one
    int64_t min_speech = 0;  ///< shorter segments are dropped
    int64_t pad_start = 0;   ///< added before a segment; segments that then touch become one
    int64_t pad_end = 0;     ///< added behind it
    int64_t max_speech = 0;  ///< longer segments are split into the fewest parts that fit, equal to
                             ///< within one sample, the longer ones first
};

struct Segment {
    int64_t start = 0;
    int64_t end = 0;
    int64_t decided_at = 0;  ///< samples that had gone in when its first speech was declared, zeros
                             ///< that flush included; all parts of a split segment have the same
    bool open = false;       ///< the input ended before the speech did; of parts only the last
    bool operator==(const Segment&) const = default;
};

/** Speech declared: where it begins by the alignment alone (before merging, dropping and padding),
 * and how many samples had gone in by then. */
struct Onset {
    int64_t start = 0;
    int64_t decided_at = 0;
    bool operator==(const Onset&) const = default;
};

class Segmenter {
  public:
    /** Throws std::invalid_argument where the frame is outside 1..4096, the onset or the hang-over
     * shorter than a frame, or anything negative. */
    Segmenter(const Timing& timing, const Rules& rules);

    /**
     * The answer to the next frame. Returns where speech begins, if this frame declares it: 0 or
     * more; beyond the input's end if only the flushing zeros brought it there, and then no segment
     * follows.
     *
     * An onset run does not reach back into earlier speech or into the frame that ended it; with
     * answers that no detector gives, a start is therefore later than the onset asks for.
     */
    std::optional<Onset> add(bool speech);

    /**
     * The input has ended after `length` samples; frames of zeros that flush the delay have been
     * added before. Nothing may be added after (std::logic_error).
     *
     * No more frames may have been added than that takes: the last one's first sample lies before
     * length + delay, so length > (frames - 1) * frame - delay. take() counts on it, and
     * std::invalid_argument is thrown where it does not hold.
     *
     * Speech that lasts to the last frame ends with the input, and its segment is open.
     */
    void finish(int64_t length);

    /** The segments that nothing to come can change, in order, each once, with the frame that
     * settles them (with Align::kNone up to the delay later); of a segment to be split all parts
     * together, once its end is settled. 0 <= start < end, at most the input's length;
     * disjoint. */
    std::vector<Segment> take();

  private:
    int64_t aligned_start(int64_t fed) const;
    int64_t aligned_end(int64_t fed) const;
    int64_t least_length() const;
    int64_t earliest_start() const;
    void merge_near(const Segment& segment);
    void drop_or_pad(const Segment& segment);
    void merge_touching(const Segment& segment);
    void split(const Segment& segment);

    Timing timing_;
    Rules rules_;
    int64_t frames_ = 0;
    int64_t quiet_from_ = 0;         // end of the frame that ended the last speech
    std::optional<int64_t> length_;  // once the input has ended
    std::optional<Onset> speech_;    // declared and not over
    // One stage after the other; what is in a later one lies earlier in time.
    std::deque<Segment> aligned_;    // the input's end may still cut them
    std::optional<Segment> merged_;  // by the gap; may grow
    std::optional<Segment> padded_;  // may grow
    std::vector<Segment> done_;
};

}  // namespace korvane::segments

#endif
