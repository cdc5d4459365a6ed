/** The speech in one recording. */
#ifndef KORVANE_TOOLS_BATCH_FINDING_H
#define KORVANE_TOOLS_BATCH_FINDING_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "segments/segments.h"
#include "tools/audio/audio_source.h"
#include "tools/cli/options.h"
#include "tools/results/detection.h"
#include "tools/results/result_writer.h"

namespace korvane::tool {

/** How far the work on an input is: 0..1 or, where that is not known, -1; and the seconds of sound
 * that have gone in. */
using Tick = std::function<void(double fraction, double seconds)>;

/** An open input and how it is looked at. */
struct Work {
    /** Throws a Failure, as reading does. */
    Work(const std::string& name, const Options& options);
    void tick(const Frame& frame, const Tick& tick) const;

    std::unique_ptr<AudioSource> source;
    ResultHeader header;
};

/** All segments of an input; the listener hears of everything. */
std::pair<StreamTotals, std::vector<segments::Segment>> segments_of(const Work& work, bool digest,
                                                                    const Listener& listener);

/** What `detect` has to say about one input that it has read to its end. */
struct Finding {
    bool speech = false;
    std::string text;  ///< without what stands around the results of a file
};
/** @param several  whether results of other inputs stand beside it */
Finding find_speech(const std::string& name, const Options& options, bool several,
                    const Tick& tick);

}  // namespace korvane::tool

#endif
