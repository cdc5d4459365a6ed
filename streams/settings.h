/**
 * What a configuration means to a stream: checked, its times in samples, its levels in whole numbers.
 */
#ifndef KORVANE_STREAMS_SETTINGS_H
#define KORVANE_STREAMS_SETTINGS_H

#include <cstdint>

#include "korvane_stream.h"
#include "segments/segments.h"
#include "streams/levels.h"

namespace korvane {

struct StreamSettings {
    int32_t rate;
    int32_t channels;
    int32_t frame;     ///< samples per channel
    int32_t decision;  ///< KORVANE_DECISION_...
    int32_t delay;     ///< of the cleaned samples
    Level enter;       ///< of the decision `fixed`
    Level stay;
    int32_t enter_score;  ///< of the decision `adaptive`, Q15
    int32_t stay_score;
    int32_t onset;  ///< samples, as the level decision counts them
    int32_t hangover;
    Level loss;         ///< by which the suppressor lowers every sound; negative: raises it
    int32_t restoring;  ///< Q14: what the cleaned samples are multiplied with; 0 for nothing
    segments::Timing timing;
    segments::Rules rules;
};

/** The defaults of korvane_stream.h; rate and channels as they come. */
KorvaneStreamConfig default_config(int32_t rate, int32_t channels);

/** What is wrong with a configuration, KORVANE_OK for nothing; only then settings are written. */
int32_t settings_of(const KorvaneStreamConfig& config, StreamSettings& settings);

}  // namespace korvane

#endif
