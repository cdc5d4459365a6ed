/** The speech in one recording. */
#ifndef KORVANE_TOOLS_BATCH_FINDING_H
#define KORVANE_TOOLS_BATCH_FINDING_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
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
    ResultHeader header;  ///< of all channels together, or of each
    /** For each detector: one, or as many as there are channels that are judged apart. */
    std::vector<ResultHeader> headers;
};

/** What became of an input, or of one of its channels. */
struct Speech {
    StreamTotals totals;
    std::vector<segments::Segment> list;
    std::string doubt;  ///< as Doubt tells it
};

/** All segments of an input, for each detector of `work`, whose own listener hears of everything. With
 * --strict a fault of the source is a Failure. */
std::vector<Speech> segments_of(const Work& work, const Options& options, bool digest,
                                const std::vector<Listener>& listeners);

/** The same without segments. */
std::vector<StreamTotals> listen_to(const Work& work, const Options& options, bool digest,
                                    const std::vector<Listener>& listeners);

/** RTTM's name for a recording. */
std::string file_id_of(const std::string& name, const Options& options);

/** What `detect` has to say about one input that it has read to its end. */
struct Finding {
    bool speech = false;
    std::string text;        ///< without what stands around the results of a file
    std::string fault = {};  ///< what ended the input before its end; empty where nothing did
    std::string doubt = {};  ///< why the result may not be what is wanted; empty where it may
};
/** @param several  whether results of other inputs stand beside it */
Finding find_speech(const std::string& name, const Options& options, bool several,
                    const Tick& tick);

}  // namespace korvane::tool

#endif
