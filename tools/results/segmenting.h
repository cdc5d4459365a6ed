/** The segmenter as the tool uses it: what cannot happen with a detector's answers is an exception. */
#ifndef KORVANE_TOOLS_RESULTS_SEGMENTING_H
#define KORVANE_TOOLS_RESULTS_SEGMENTING_H

#include <optional>
#include <stdexcept>

#include "segments/segments.h"

namespace korvane::tool {

/** Throws std::logic_error unless all is well. */
inline void require(segments::Status status) {
    if (status != segments::Status::kOk) {
        throw std::logic_error(segments::status_text(status));
    }
}

inline segments::Segmenter segmenter_of(const segments::Timing& timing,
                                        const segments::Rules& rules) {
    segments::Segmenter segmenter;
    require(segmenter_init(segmenter, timing, rules));
    return segmenter;
}

/** Adds an answer; returns where speech begins, if this frame declares it. */
inline std::optional<segments::Onset> add_answer(segments::Segmenter& segmenter, bool speech) {
    std::optional<segments::Onset> onset;
    require(segmenter_add(segmenter, speech, onset));
    return onset;
}

}  // namespace korvane::tool

#endif
