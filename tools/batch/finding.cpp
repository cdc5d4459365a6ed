#include "tools/batch/finding.h"

#include <optional>

#include "tools/results/segmenting.h"

namespace korvane::tool {

Work::Work(const std::string& name, const Options& options)
    : source(open_source(name, options.source)) {
    header.source = source->info();
    const int rate = header.source.rate;
    header.frame = options.frame_length(name, rate);
    header.timing = segments::timing_of(rate, header.frame);
    header.rules = options.rules(rate);
}

void Work::tick(const Frame& frame, const Tick& tick) const {
    const std::optional<int64_t>& length = header.source.length;
    const auto fed = static_cast<double>(frame.fed);
    tick(length && *length > 0 ? fed / static_cast<double>(*length) : -1, fed / header.source.rate);
}

std::pair<StreamTotals, std::vector<segments::Segment>> segments_of(
    const Work& work, Measures measures, const std::function<void(const Frame&)>& each) {
    segments::Segmenter segmenter = segmenter_of(work.header.timing, work.header.rules);
    std::vector<segments::Segment> list;
    const auto collect = [&] {
        for (segments::Segment segment; segmenter_take(segmenter, segment);) {
            list.push_back(segment);
        }
    };
    const StreamTotals totals =
        detect(*work.source, work.header.frame, measures, [&](const Frame& frame) {
            add_answer(segmenter, frame.speech);
            collect();
            each(frame);
            return true;
        });
    require(segmenter_finish(segmenter, totals.length));
    collect();
    return {totals, list};
}

Finding find_speech(const std::string& name, const Options& options, bool several,
                    const Tick& tick) {
    Work work(name, options);
    const auto [totals, list] = segments_of(work, {.digest = holds_digest(options.format)},
                                            [&](const Frame& frame) { work.tick(frame, tick); });
    return {!list.empty(), whole_result(options.format, several, work.header, totals, list)};
}

}  // namespace korvane::tool
