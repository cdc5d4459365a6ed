/** How far two annotations of the same recording are apart. */
#ifndef KORVANE_TOOLS_SCORE_SCORE_H
#define KORVANE_TOOLS_SCORE_SCORE_H

#include <cstdint>

#include "tools/cli/options.h"
#include "tools/score/annotations.h"

namespace korvane::tool {

/** Times in microseconds; of several recordings their sums. */
struct Score {
    int64_t scored = 0;       ///< without what lies within the collar
    int64_t speech = 0;       ///< of the reference
    int64_t false_alarm = 0;  ///< speech of the hypothesis alone
    int64_t missed = 0;       ///< speech of the reference alone

    /** 2 hits / (2 hits + false alarms + misses); 1 where nobody says anything. */
    double f1() const;
    /** 0.75 misses / speech + 0.25 false alarms / what is no speech; a part of nothing is 0. */
    double detection_cost() const;
};

/** @param collar  microseconds before and behind each begin and end of the reference that do not count
 */
Score score_of(const Annotation& reference, const Annotation& hypothesis, int64_t collar);

/** The command: a line for each recording of the reference, and one for all. */
int run_score(const Options& options);

}  // namespace korvane::tool

#endif
