/** From the decisions on frames to segments, as the tool does it: what cannot happen with a detector's
 * decisions is a std::logic_error. */
#ifndef KORVANE_TOOLS_RESULTS_SEGMENTING_H
#define KORVANE_TOOLS_RESULTS_SEGMENTING_H

#include <optional>
#include <stdexcept>

#include "segments/segments.h"
#include "tools/results/result_writer.h"

namespace korvane::tool {

class Segmenting {
  public:
    explicit Segmenting(const ResultHeader& header) : late_(header.delay - header.timing.delay) {
        require(segmenter_init(segmenter_, header.timing, header.rules));
    }

    /** Adds a decision; returns where speech begins, if this frame declares it. */
    std::optional<segments::Onset> add(bool speech) {
        std::optional<segments::Onset> onset;
        require(segmenter_add(segmenter_, speech, onset));
        if (onset) {
            onset->decided_at += late_;
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
        segment.decided_at += late_;
        return segment;
    }

  private:
    static void require(segments::Status status) {
        if (status != segments::Status::kOk) {
            throw std::logic_error(segments::status_text(status));
        }
    }

    segments::Segmenter segmenter_;
    int64_t late_;  // by which a decision comes after its frame, where frames are the input's
};

}  // namespace korvane::tool

#endif
