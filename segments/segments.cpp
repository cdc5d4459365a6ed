#include "segments/segments.h"

#include <algorithm>

namespace korvane::segments {

namespace {

constexpr int64_t kMaxFrame = 4096;

// Positions and rules are at most kHuge, so that sums of a few of them do not overflow.
constexpr int64_t kHuge = int64_t{1} << 60;
constexpr int64_t kNever = 2 * kHuge;

int64_t longest_delay(int64_t onset, int64_t hangover) { return 3 * (onset + hangover); }

/** Joins a segment with one that begins no earlier. */
void absorb(Segment& segment, const Segment& next) {
    segment.end = std::max(segment.end, next.end);
    segment.open = segment.open || next.open;
}

int64_t fed(const Segmenter& s) { return s.frames * s.timing.frame; }

/** Of speech declared by the frame with which `fed` samples have gone in. */
int64_t aligned_start(const Segmenter& s, int64_t fed) {
    if (s.rules.align == Align::kNone) {
        return fed - s.timing.frame;
    }
    return std::max<int64_t>(fed - s.timing.onset - s.timing.delay, 0);
}

/** Of speech ended by the frame with which `fed` samples have gone in. */
int64_t aligned_end(const Segmenter& s, int64_t fed) {
    switch (s.rules.align) {
        case Align::kNone:
            return fed - s.timing.frame;
        case Align::kOnset:
            return fed - s.timing.frame - s.timing.delay;
        case Align::kBoth:
            break;
    }
    return fed - s.timing.hangover - s.timing.delay;
}

/** The input is at least as long: with less, the last frame would not have been needed. */
int64_t least_length(const Segmenter& s) {
    return s.length ? *s.length
                    : std::max<int64_t>(fed(s) - s.timing.frame - s.timing.delay + 1, 0);
}

/** No segment that has not been merged yet begins earlier. */
int64_t earliest_start(const Segmenter& s) {
    if (s.aligned_count > 0) {
        return s.aligned[0].start;
    }
    if (s.speech) {
        return s.speech->start;
    }
    return s.length
               ? kNever
               : aligned_start(s, std::max(fed(s) + s.timing.frame, s.changed_at + s.timing.onset));
}

/** The speech that goes on ends no earlier, whether by an answer or with the input. */
int64_t earliest_end(const Segmenter& s) {
    const int64_t answered =
        std::max(fed(s) + s.timing.frame, s.speech->decided_at + s.timing.hangover);
    return std::min(aligned_end(s, answered), least_length(s));
}

void begin_parts(Segmenter& s, const Segment& segment) {
    const int64_t samples = segment.end - segment.start;
    const int64_t most = s.rules.max_speech == 0 ? samples : s.rules.max_speech;
    s.split = segment;
    s.parts = (samples + most - 1) / most;
    s.parts_taken = 0;
}

Segment next_part(Segmenter& s) {
    const int64_t samples = s.split.end - s.split.start;
    const int64_t longer = samples % s.parts;  // so many parts have a sample more
    const int64_t start =
        s.split.start + s.parts_taken * (samples / s.parts) + std::min(s.parts_taken, longer);
    const int64_t end = start + samples / s.parts + (s.parts_taken < longer ? 1 : 0);
    ++s.parts_taken;
    return {start, end, s.split.decided_at, s.split.open && s.parts_taken == s.parts};
}

void merge_touching(Segmenter& s, const Segment& segment) {
    if (s.padded && segment.start <= s.padded->end) {
        absorb(*s.padded, segment);
        return;
    }
    if (s.padded) {
        begin_parts(s, *s.padded);
    }
    s.padded = segment;
}

void drop_or_pad(Segmenter& s, const Segment& segment) {
    if (segment.end - segment.start < s.rules.min_speech) {
        return;
    }
    Segment wider = segment;
    wider.start = std::max<int64_t>(segment.start - s.rules.pad_start, 0);
    wider.end = std::min(segment.end + s.rules.pad_end, s.length ? *s.length : kNever);
    merge_touching(s, wider);
}

void merge_near(Segmenter& s, const Segment& segment) {
    if (s.merged && segment.start - s.merged->end < s.rules.min_gap) {
        absorb(*s.merged, segment);
        return;
    }
    if (s.merged) {
        drop_or_pad(s, *s.merged);
    }
    s.merged = segment;
}

/** Moves one segment one stage on, where nothing to come can change it in its own. At most one leaves
 * the last stage, to be taken in parts. Returns whether one could move. */
bool advance(Segmenter& s) {
    if (s.aligned_count > 0 && s.aligned[0].end <= least_length(s)) {
        const Segment first = s.aligned[0];
        std::copy(s.aligned + 1, s.aligned + s.aligned_count, s.aligned);
        --s.aligned_count;
        merge_near(s, first);
        return true;
    }
    if (s.merged && earliest_start(s) - s.merged->end >= s.rules.min_gap) {
        const Segment merged = *s.merged;
        s.merged.reset();
        drop_or_pad(s, merged);
        return true;
    }
    if (s.padded && s.padded->end <= least_length(s)) {
        const int64_t next = s.merged ? s.merged->start : earliest_start(s);
        if (std::max<int64_t>(next - s.rules.pad_start, 0) > s.padded->end) {
            begin_parts(s, *s.padded);
            s.padded.reset();
            return true;
        }
    }
    return false;
}

}  // namespace

int64_t whole_frames(int64_t samples, int64_t frame) {
    return (samples + frame - 1) / frame * frame;
}

int64_t delay_of(int rate) {
    // The stream's ring, one hop of the suppressor, and from 25000 Hz on the allpass filter that
    // splits the bands, by its delay in the speech band.
    return rate < 25000 ? 576 + 144 : 576 + 288 + 3;
}

Timing timing_of(int rate, int frame) {
    if (rate < 1 || rate > 49999 || frame < 1 || frame > kMaxFrame) {
        return {};
    }
    return {frame, delay_of(rate), whole_frames(KORVANE_STREAM_DETECTOR_ONSET, frame),
            whole_frames(KORVANE_STREAM_DETECTOR_HANGOVER, frame)};
}

Timing timing_of(const KorvaneStreamConfig& c) {
    if (c.decision == KORVANE_DECISION_DETECTOR) {
        return timing_of(c.sampling_rate, c.frame_length);
    }
    const auto run = [&](int milliseconds) {
        return whole_frames(std::max<int64_t>(samples_of(milliseconds, c.sampling_rate), 1),
                            c.frame_length);
    };
    Timing timing{c.frame_length, 0, run(c.onset_ms), run(c.hangover_ms)};
    if (c.decision == KORVANE_DECISION_ADAPTIVE) {
        timing.delay = std::min(samples_of(KORVANE_STREAM_SCORE_LAG_MS, c.sampling_rate),
                                longest_delay(timing.onset, timing.hangover));
    }
    return timing;
}

const char* status_text(Status status) {
    switch (status) {
        case Status::kOk:
            return "all is well";
        case Status::kFrame:
            return "frame length outside 1..4096 samples";
        case Status::kDelay:
            return "delay negative or longer than three onsets and hang-overs";
        case Status::kOnset:
            return "onset shorter than a frame";
        case Status::kHangover:
            return "hang-over shorter than a frame";
        case Status::kRule:
            return "negative rule";
        case Status::kTooSoon:
            return "the answer changed sooner than onset or hang-over allow";
        case Status::kNotTaken:
            return "no room before segments are taken";
        case Status::kEnded:
            return "the input has ended already";
        case Status::kLength:
            return "more frames than an input of this length takes";
    }
    return "no status";
}

Status segmenter_init(Segmenter& s, const Timing& timing, const Rules& rules) {
    if (timing.frame < 1 || timing.frame > kMaxFrame) {
        return Status::kFrame;
    }
    if (timing.onset < timing.frame || timing.onset > kHuge) {
        return Status::kOnset;
    }
    if (timing.hangover < timing.frame || timing.hangover > kHuge) {
        return Status::kHangover;
    }
    if (timing.delay < 0 || timing.delay > longest_delay(timing.onset, timing.hangover)) {
        return Status::kDelay;
    }
    Segmenter fresh;
    fresh.timing = timing;
    fresh.rules = rules;
    for (int64_t Rules::*const rule : {&Rules::min_gap, &Rules::min_speech, &Rules::pad_start,
                                       &Rules::pad_end, &Rules::max_speech}) {
        if (rules.*rule < 0) {
            return Status::kRule;
        }
        fresh.rules.*rule = std::min(rules.*rule, kHuge);
    }
    s = fresh;
    return Status::kOk;
}

Status segmenter_add(Segmenter& s, bool speech, std::optional<Onset>& onset) {
    onset.reset();
    if (s.length) {
        return Status::kEnded;
    }
    const int64_t now = fed(s) + s.timing.frame;
    if (speech == s.speech.has_value()) {
        ++s.frames;
        return Status::kOk;
    }
    if (now - s.changed_at < (speech ? s.timing.onset : s.timing.hangover)) {
        return Status::kTooSoon;
    }
    if (speech) {
        s.speech = {aligned_start(s, now), now};
        onset = s.speech;
    } else {
        if (s.aligned_count == kMaxAligned) {
            return Status::kNotTaken;
        }
        const Segment segment = {s.speech->start, aligned_end(s, now), s.speech->decided_at, false};
        if (segment.end > segment.start) {  // else it is over before the input begins
            s.aligned[s.aligned_count++] = segment;
        }
        s.speech.reset();
    }
    s.changed_at = now;
    ++s.frames;
    return Status::kOk;
}

Status segmenter_finish(Segmenter& s, int64_t length) {
    if (s.length) {
        return Status::kEnded;
    }
    if (length < least_length(s)) {
        return Status::kLength;
    }
    if (s.speech) {
        if (s.aligned_count == kMaxAligned) {
            return Status::kNotTaken;
        }
        s.aligned[s.aligned_count++] = {s.speech->start, length, s.speech->decided_at, true};
        s.speech.reset();
    }
    int kept = 0;
    for (int i = 0; i < s.aligned_count; ++i) {
        Segment segment = s.aligned[i];
        segment.end = std::min(segment.end, length);
        if (segment.start < segment.end) {
            s.aligned[kept++] = segment;
        }
    }
    s.aligned_count = kept;
    if (s.padded) {
        s.padded->end = std::min(s.padded->end, length);
    }
    s.length = length;
    return Status::kOk;
}

bool segmenter_take(Segmenter& s, Segment& segment) {
    while (s.parts_taken == s.parts) {
        if (!advance(s)) {
            return false;
        }
    }
    segment = next_part(s);
    s.start_given = false;
    return true;
}

std::optional<int64_t> segmenter_begun(Segmenter& s) {
    if (s.start_given || s.rules.align == Align::kNone) {
        return std::nullopt;
    }
    int64_t start = -1;
    if (s.padded) {
        start = s.padded->start;
    } else if (s.merged || s.speech) {
        const int64_t first = s.merged ? s.merged->start : s.speech->start;
        int64_t end = s.merged ? s.merged->end : first;
        if (s.speech && (!s.merged || s.speech->start - end < s.rules.min_gap)) {
            end = std::max(end, earliest_end(s));
        }
        if (end - first < std::max<int64_t>(s.rules.min_speech, 1)) {
            return std::nullopt;
        }
        start = std::max<int64_t>(first - s.rules.pad_start, 0);
    } else {
        return std::nullopt;
    }
    s.start_given = true;
    return start;
}

}  // namespace korvane::segments
