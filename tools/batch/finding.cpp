#include "tools/batch/finding.h"

#include <optional>
#include <stdexcept>

#include "tools/results/doubt.h"
#include "tools/results/segmenting.h"

namespace korvane::tool {

namespace {

/** When frames are decided, as the library has it. */
segments::Timing timing_of(const KorvaneStreamConfig& c) {
    const int rate = c.sampling_rate;
    if (c.decision == KORVANE_DECISION_DETECTOR) {
        return segments::timing_of(rate, c.frame_length);
    }
    const bool adaptive = c.decision == KORVANE_DECISION_ADAPTIVE;
    return segments::timing_of(rate, c.frame_length, c.onset_ms, c.hangover_ms,
                               adaptive ? KORVANE_STREAM_SCORE_LAG_MS : 0);
}

}  // namespace

Work::Work(const std::string& name, const Options& options)
    : source(open_source(name, options.source)) {
    header.source = source->info();
    const int rate = header.source.rate;
    header.stream = options.stream(name, rate, header.source.channels);
    header.delay = segments::delay_of(rate);
    header.timing = timing_of(header.stream);
    header.rules = options.rules(rate);
}

void Work::tick(const Frame& frame, const Tick& tick) const {
    const std::optional<int64_t>& length = header.source.length;
    const auto fed = static_cast<double>(frame.fed);
    tick(length && *length > 0 ? fed / static_cast<double>(*length) : -1, fed / header.source.rate);
}

StreamTotals listen_to(const Work& work, const Options& options, bool digest,
                       const Listener& listener) {
    StreamTotals totals = detect(*work.source, work.header.stream, digest, listener);
    if (options.strict && !totals.fault.empty()) {
        throw std::runtime_error(totals.fault);
    }
    return totals;
}

Speech segments_of(const Work& work, const Options& options, bool digest,
                   const Listener& listener) {
    Segmenting segmenting(work.header);
    Doubt doubt;
    Speech speech;
    const auto collect = [&] {
        while (const std::optional<segments::Segment> segment = segmenting.take()) {
            speech.list.push_back(*segment);
        }
    };
    Listener with_segments = listener;
    with_segments.frame = [&](const Frame& frame) {
        segmenting.add(frame.speech);
        doubt.add(frame);
        collect();
        listener.frame(frame);
    };
    speech.totals = listen_to(work, options, digest, with_segments);
    segmenting.finish(speech.totals.length);
    collect();
    speech.doubt = doubt.about(work.header.source, speech.totals.length);
    return speech;
}

Finding find_speech(const std::string& name, const Options& options, bool several,
                    const Tick& tick) {
    Work work(name, options);
    const auto [totals, list, doubt] =
        segments_of(work, options, holds_digest(options.format),
                    {.frame = [&](const Frame& frame) { work.tick(frame, tick); }});
    return {!list.empty(), whole_result(options.format, several, work.header, totals, list),
            totals.fault, doubt};
}

}  // namespace korvane::tool
