/** From the decisions on frames to segments, as the tool does it: what cannot happen with a detector's
 * decisions is a std::logic_error. */
#ifndef KORVANE_TOOLS_RESULTS_SEGMENTING_H
#define KORVANE_TOOLS_RESULTS_SEGMENTING_H

#include <optional>
#include <stdexcept>

#include "segments/segments.h"
#include "tools/results/detection.h"
#include "tools/results/result_writer.h"

namespace korvane::tool {

class Segmenting {
  public:
    explicit Segmenting(const ResultHeader& header)
        : delay_(header.delay), on_time_line_(header.stream.decision != KORVANE_DECISION_DETECTOR) {
        require(segmenter_init(segmenter_, header.timing, header.rules));
    }

    /** Adds a decision; returns where speech begins, if this frame declares it. */
    std::optional<segments::Onset> add(bool speech) {
        std::optional<segments::Onset> onset;
        require(segmenter_add(segmenter_, speech, onset));
        if (onset) {
            onset->decided_at = heard_by(onset->decided_at);
        }
        return onset;
    }

    /** The input has ended after so many samples. */
    void finish(int64_t length) { require(segmenter_finish(segmenter_, length)); }

    /** The next segment that nothing to come can change. */
    std::optional<segments::Segment> take() {
        segments::Segment segment;
        if (!segmenter_take(segmenter_, segment)) {
            return std::nullopt;
        }
        segment.decided_at = heard_by(segment.decided_at);
        return segment;
    }

  private:
    static void require(segments::Status status) {
        if (status != segments::Status::kOk) {
            throw std::logic_error(segments::status_text(status));
        }
    }

    int64_t heard_by(int64_t end) const { return on_time_line_ ? heard_for(end, delay_) : end; }

    segments::Segmenter segmenter_;
    int64_t delay_;
    bool on_time_line_;  // whether frames are the input's, else an answer comes with its frame
};

}  // namespace korvane::tool

#endif
