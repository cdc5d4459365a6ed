#include "tools/batch/finding.h"

#include <deque>
#include <optional>
#include <stdexcept>

#include "tools/cli/name_template.h"
#include "tools/files/failure.h"
#include "tools/results/doubt.h"
#include "tools/results/segmenting.h"

namespace korvane::tool {

Work::Work(const std::string& name, const Options& options)
    : source(open_source(name, options.source)) {
    header.source = source->info();
    header.file_id = file_id_of(name, options);
    const int rate = header.source.rate;
    const int together = options.source.each_channel ? 1 : header.source.channels;
    header.stream = options.stream(name, rate, together);
    header.delay = segments::delay_of(rate);
    header.timing = segments::timing_of(header.stream);
    header.rules = options.rules(rate);
    headers = {static_cast<std::size_t>(header.source.channels / together), header};
    for (std::size_t i = 0; options.source.each_channel && i < headers.size(); ++i) {
        const std::vector<int>& chosen = options.source.channels;
        headers[i].channel = chosen.empty() ? static_cast<int>(i) + 1 : chosen[i];
        headers[i].source.channels = 1;
    }
}

std::string file_id_of(const std::string& name, const Options& options) {
    return options.file_id_is_path ? name : stem_of(name);
}

void Work::tick(const Frame& frame, const Tick& tick) const {
    const std::optional<int64_t>& length = header.source.length;
    const auto fed = static_cast<double>(frame.fed);
    tick(length && *length > 0 ? fed / static_cast<double>(*length) : -1, fed / header.source.rate);
}

std::vector<StreamTotals> listen_to(const Work& work, const Options& options, bool digest,
                                    const std::vector<Listener>& listeners) {
    std::vector<StreamTotals> totals = detect(*work.source, work.header.stream, digest, listeners);
    if (options.strict && !totals[0].fault.empty()) {
        throw Failure(totals[0].fault);
    }
    return totals;
}

namespace {

/** Puts segments together from what it hears, and passes that on. */
struct Collector {
    explicit Collector(const ResultHeader& header) : segmenting(header) {}

    void collect() {
        while (const std::optional<segments::Segment> segment = segmenting.take()) {
            list.push_back(*segment);
        }
    }

    Listener listener(const Listener& next) {
        Listener with_segments = next;
        with_segments.frame = [this, frame = next.frame](const Frame& decided) {
            segmenting.add(decided.speech);
            doubt.add(decided);
            collect();
            if (frame) {
                frame(decided);
            }
        };
        return with_segments;
    }

    Segmenting segmenting;
    Doubt doubt;
    std::vector<segments::Segment> list;
};

}  // namespace

std::vector<Speech> segments_of(const Work& work, const Options& options, bool digest,
                                const std::vector<Listener>& listeners) {
    std::deque<Collector> collectors;
    std::vector<Listener> collecting;
    for (std::size_t i = 0; i < work.headers.size(); ++i) {
        collectors.emplace_back(work.headers[i]);
        collecting.push_back(collectors.back().listener(listeners[i]));
    }
    const std::vector<StreamTotals> totals = listen_to(work, options, digest, collecting);
    std::vector<Speech> all;
    for (std::size_t i = 0; i < collectors.size(); ++i) {
        Collector& each = collectors[i];
        each.segmenting.finish(totals[i].length);
        each.collect();
        all.push_back({totals[i], each.list, each.doubt.about(work.headers[i], totals[i].length)});
    }
    return all;
}

Finding find_speech(const std::string& name, const Options& options, bool several,
                    const Tick& tick) {
    const Work work(name, options);
    std::vector<Listener> listeners(work.headers.size());
    listeners[0].frame = [&](const Frame& frame) { work.tick(frame, tick); };
    const std::vector<Speech> all =
        segments_of(work, options, holds_digest(options.format), listeners);
    Finding finding;
    finding.fault = all[0].totals.fault;
    std::vector<Judged> judged;
    for (std::size_t i = 0; i < all.size(); ++i) {
        judged.push_back({work.headers[i], all[i].totals, all[i].list});
        finding.speech = finding.speech || !all[i].list.empty();
        finding.doubt = finding.doubt.empty() ? all[i].doubt : finding.doubt;
    }
    finding.text = whole_result(options.format, several, judged);
    return finding;
}

}  // namespace korvane::tool
