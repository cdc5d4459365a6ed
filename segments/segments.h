/**
 * From the detector's answers, one per frame, to speech segments on the input's own time line.
 *
 * Positions are samples per channel from the first sample of the input; segments are half-open
 * ranges, start..end-1. The rules are applied in a fixed order: align, merge, drop, pad, merge,
 * split. The same answers always give the same segments.
 *
 * This knows neither files nor the detector; it is plain arithmetic on 64-bit integers, for inputs of
 * up to 2^60 samples. Nothing is allocated and nothing thrown: what a segmenter remembers is a record
 * of a fixed size, and what can be wrong comes back as a Status.
 */
#ifndef KORVANE_SEGMENTS_SEGMENTS_H
#define KORVANE_SEGMENTS_SEGMENTS_H

#include <cstdint>
#include <optional>

#include "korvane_stream.h"

namespace korvane::segments {

/** How the detector's answers lie in time. All in samples per channel. */
struct Timing {
    int64_t frame = 0;     ///< of a frame, 1..4096
    int64_t delay = 0;     ///< by which an answer is late
    int64_t onset = 0;     ///< whole frames above the threshold before speech is declared, the
                           ///< declaring one included
    int64_t hangover = 0;  ///< whole frames below it before speech ends, the ending one included
};

/** Samples by which the cleaned sound of a detector at `rate` Hz (1..49999) is late. */
int64_t delay_of(int rate);

/** Of a detector at `rate` Hz (1..49999) fed in frames of `frame` samples (1..4096). Outside of that
 * all is 0, which segmenter_init refuses. */
Timing timing_of(int rate, int frame);

/** The nearest number of samples. */
constexpr int64_t samples_of(int milliseconds, int rate) {
    return (int64_t{milliseconds} * rate + 500) / 1000;
}

/** Of a stream whose settings are valid. What decides on the input's own frames takes at least a frame for onset and
 * hang-over; the score's lag is cut to the longest delay that a segmenter takes with these. */
Timing timing_of(const KorvaneStreamConfig& config);

/** The next multiple of a frame, `samples` itself where it is one. */
int64_t whole_frames(int64_t samples, int64_t frame);

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

/** What a call has to say. Where it is not kOk, the call has changed nothing. */
enum class Status {
    kOk,
    kFrame,     ///< frame length outside 1..4096 samples
    kDelay,     ///< delay negative or longer than three onsets and hang-overs
    kOnset,     ///< onset shorter than a frame
    kHangover,  ///< hang-over shorter than a frame
    kRule,      ///< a negative rule
    kTooSoon,   ///< the answer changed sooner than onset or hang-over allow
    kNotTaken,  ///< no room before segments are taken
    kEnded,     ///< the input has ended already
    kLength,    ///< more frames than an input of this length takes
};

/** A line of English for people; static. */
const char* status_text(Status status);

/** Room for segments that the input's end may still cut. With a delay of up to three onsets and
 * hang-overs there are at most five. */
inline constexpr int kMaxAligned = 8;

/** One input on its way from answers to segments; made by segmenter_init. */
struct Segmenter {
    Timing timing;
    Rules rules;
    int64_t frames = 0;
    int64_t changed_at = 0;         // end of the frame that changed the answer last
    std::optional<int64_t> length;  // once the input has ended
    std::optional<Onset> speech;    // declared and not over
    // One stage after the other; what is in a later one lies earlier in time.
    Segment aligned[kMaxAligned];  // the input's end may still cut them
    int aligned_count = 0;
    std::optional<Segment> merged;  // by the gap; may grow
    std::optional<Segment> padded;  // may grow
    Segment split;                  // settled; its parts are being taken
    int64_t parts = 0;
    int64_t parts_taken = 0;
    bool start_given = false;  // of the segment that is taken next
};

/** kFrame, kDelay, kOnset, kHangover or kRule where the timing or the rules make no sense. */
Status segmenter_init(Segmenter& s, const Timing& timing, const Rules& rules);

/**
 * The answer to the next frame. Take the segments after each.
 *
 * @param onset  where speech begins, if this frame declares it: 0 or more; else empty. Declared while
 *               zeros flush the delay, the start may lie beyond the input's end; no segment follows.
 * @return       kTooSoon for an answer that no detector of this timing gives; kNotTaken; kEnded
 */
Status segmenter_add(Segmenter& s, bool speech, std::optional<Onset>& onset);

/**
 * The input has ended after `length` samples; frames of zeros that flush the delay have been added
 * before. Nothing may be added after. Speech that lasts to the last frame ends with the input, and its
 * segment is open.
 *
 * @return  kLength where more frames have been added than that takes: the last one's first sample
 *          lies before length + delay, so length > (frames - 1) * frame - delay, and
 *          segmenter_take counts on it; kNotTaken; kEnded
 */
Status segmenter_finish(Segmenter& s, int64_t length);

/**
 * The next segment that nothing to come can change: each once, in order, as of the frame that settles
 * it (with Align::kNone up to the delay later); the parts of a split segment follow each other.
 * 0 <= start < end, at most the input's length; disjoint.
 *
 * @return  whether there is one; call again until there is none
 */
bool segmenter_take(Segmenter& s, Segment& segment);

/**
 * Where the next segment to be taken begins, as soon as nothing to come can change that, though its
 * end may be far: once for each segment that segmenter_take has not handed out first. Of a segment to
 * be split it is the first part's. Not with Align::kNone, where the input's end can still take a
 * segment back.
 */
std::optional<int64_t> segmenter_begun(Segmenter& s);

}  // namespace korvane::segments

#endif
