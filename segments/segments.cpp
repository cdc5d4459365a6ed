#include "segments/segments.h"

#include <algorithm>
#include <initializer_list>
#include <stdexcept>
#include <utility>

namespace korvane::segments {

namespace {

constexpr int64_t kMaxFrame = 4096;
constexpr int64_t kOnsetSamples = 480;
constexpr int64_t kHangoverSamples = 19200;

// Positions and rules are at most kHuge, so that sums of a few of them do not overflow.
constexpr int64_t kHuge = int64_t{1} << 60;
constexpr int64_t kNever = 2 * kHuge;

int64_t round_up(int64_t samples, int64_t frame) { return (samples + frame - 1) / frame * frame; }

void require(bool condition, const char* message) {
    if (!condition) {
        throw std::invalid_argument(message);
    }
}

/** Joins a segment with one that begins no earlier. */
void absorb(Segment& segment, const Segment& next) {
    segment.end = std::max(segment.end, next.end);
    segment.open = segment.open || next.open;
}

}  // namespace

Timing timing_of(int rate, int frame) {
    require(rate >= 1 && rate <= 49999, "sampling rate outside 1..49999 Hz");
    require(frame >= 1 && frame <= kMaxFrame, "frame length outside 1..4096 samples");
    // The stream's ring, one hop of the suppressor, and from 25000 Hz on the allpass filter that
    // splits the bands, by its delay in the speech band.
    const int64_t delay = rate < 25000 ? 576 + 144 : 576 + 288 + 3;
    return {frame, delay, round_up(kOnsetSamples, frame), round_up(kHangoverSamples, frame)};
}

Segmenter::Segmenter(const Timing& timing, const Rules& rules) : timing_(timing), rules_(rules) {
    require(timing.frame >= 1 && timing.frame <= kMaxFrame, "frame length outside 1..4096 samples");
    require(timing.delay >= 0, "negative delay");
    require(timing.onset >= timing.frame, "onset shorter than a frame");
    require(timing.hangover >= timing.frame, "hang-over shorter than a frame");
    for (int64_t* rule : {&rules_.min_gap, &rules_.min_speech, &rules_.pad_start, &rules_.pad_end,
                          &rules_.max_speech}) {
        require(*rule >= 0, "negative rule");
        *rule = std::min(*rule, kHuge);
    }
}

/** Of speech declared by the frame with which `fed` samples have gone in. */
int64_t Segmenter::aligned_start(int64_t fed) const {
    if (rules_.align == Align::kNone) {
        return fed - timing_.frame;
    }
    const int64_t run = std::max(fed - timing_.onset, quiet_from_);
    return std::max<int64_t>(run - timing_.delay, 0);
}

/** Of speech ended by the frame with which `fed` samples have gone in. */
int64_t Segmenter::aligned_end(int64_t fed) const {
    switch (rules_.align) {
        case Align::kNone:
            return fed - timing_.frame;
        case Align::kOnset:
            return fed - timing_.frame - timing_.delay;
        case Align::kBoth:
            break;
    }
    return fed - timing_.hangover - timing_.delay;
}

/** The input is at least as long: with less, the last frame would not have been needed. */
int64_t Segmenter::least_length() const {
    return length_.value_or(
        std::max<int64_t>((frames_ - 1) * timing_.frame - timing_.delay + 1, 0));
}

/** No segment that has not been merged yet begins earlier. */
int64_t Segmenter::earliest_start() const {
    if (!aligned_.empty()) {
        return aligned_.front().start;
    }
    if (speech_) {
        return speech_->start;
    }
    return length_ ? kNever : aligned_start((frames_ + 1) * timing_.frame);
}

std::optional<Onset> Segmenter::add(bool speech) {
    if (length_) {
        throw std::logic_error("a frame after the input's end");
    }
    ++frames_;
    const int64_t fed = frames_ * timing_.frame;
    if (speech == speech_.has_value()) {
        return std::nullopt;
    }
    if (speech) {
        speech_ = {aligned_start(fed), fed};
        return speech_;
    }
    // An end before the start comes from answers that no detector gives, or from before the input.
    const int64_t end = aligned_end(fed);
    if (end > speech_->start) {
        aligned_.push_back({speech_->start, end, speech_->decided_at, false});
    }
    quiet_from_ = fed;
    speech_.reset();
    return std::nullopt;
}

void Segmenter::finish(int64_t length) {
    if (length_) {
        throw std::logic_error("the input's end given twice");
    }
    require(length >= least_length(), "more frames than an input of this length takes");
    if (speech_) {
        aligned_.push_back({speech_->start, length, speech_->decided_at, true});
        speech_.reset();
    }
    for (Segment& segment : aligned_) {
        segment.end = std::min(segment.end, length);
    }
    std::erase_if(aligned_, [](const Segment& s) { return s.start >= s.end; });
    if (padded_) {
        padded_->end = std::min(padded_->end, length);
    }
    length_ = length;
}

std::vector<Segment> Segmenter::take() {
    while (!aligned_.empty() && aligned_.front().end <= least_length()) {
        merge_near(aligned_.front());
        aligned_.pop_front();
    }
    if (merged_ && earliest_start() - merged_->end >= rules_.min_gap) {
        drop_or_pad(*merged_);
        merged_.reset();
    }
    if (padded_ && padded_->end <= least_length()) {
        const int64_t next = merged_ ? merged_->start : earliest_start();
        if (std::max<int64_t>(next - rules_.pad_start, 0) > padded_->end) {
            split(*padded_);
            padded_.reset();
        }
    }
    return std::exchange(done_, {});
}

void Segmenter::merge_near(const Segment& segment) {
    if (merged_ && segment.start - merged_->end < rules_.min_gap) {
        absorb(*merged_, segment);
        return;
    }
    if (merged_) {
        drop_or_pad(*merged_);
    }
    merged_ = segment;
}

void Segmenter::drop_or_pad(const Segment& segment) {
    if (segment.end - segment.start < rules_.min_speech) {
        return;
    }
    Segment wider = segment;
    wider.start = std::max<int64_t>(segment.start - rules_.pad_start, 0);
    wider.end = std::min(segment.end + rules_.pad_end, length_.value_or(kNever));
    merge_touching(wider);
}

void Segmenter::merge_touching(const Segment& segment) {
    if (padded_ && segment.start <= padded_->end) {
        absorb(*padded_, segment);
        return;
    }
    if (padded_) {
        split(*padded_);
    }
    padded_ = segment;
}

void Segmenter::split(const Segment& segment) {
    const int64_t samples = segment.end - segment.start;
    const int64_t most = rules_.max_speech == 0 ? samples : rules_.max_speech;
    const int64_t parts = (samples + most - 1) / most;
    const int64_t longer = samples % parts;  // so many parts have a sample more
    Segment part = segment;
    for (int64_t i = 0; i < parts; ++i) {
        part.end = part.start + samples / parts + (i < longer ? 1 : 0);
        part.open = segment.open && i == parts - 1;
        done_.push_back(part);
        part.start = part.end;
    }
}

}  // namespace korvane::segments
