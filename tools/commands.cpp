#include "tools/commands.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <optional>
#include <stdexcept>
#include <utility>

#include "tools/audio/audio_sink.h"
#include "tools/audio/sink_format.h"
#include "tools/batch/batch.h"
#include "tools/batch/recordings.h"
#include "tools/files/failure.h"
#include "tools/files/text_output.h"
#include "tools/one_recording.h"
#include "tools/report/report.h"
#include "tools/results/doubt.h"
#include "tools/results/segmenting.h"
#include "tools/score/score.h"
#include "tools/selftest.h"
#include "tools/split.h"

namespace korvane::tool {

namespace {

// ---- detect --------------------------------------------------------------------------------

/** The result of one detector, line by line, each as soon as it is certain. */
class LiveResult {
  public:
    /** @param lines_begun  whether a segment has been written, by this one or by another */
    LiveResult(ResultFormat format, const ResultHeader& header, TextOutput& output,
               bool& lines_begun)
        : format_(format),
          header_(header),
          output_(output),
          lines_begun_(lines_begun),
          segmenting_(header) {}

    void add(const Frame& frame) {
        doubt_.add(frame);
        if (const std::optional<segments::Onset> onset = segmenting_.add(frame.speech)) {
            output_.write(live_onset(format_, header_, *onset, frame));
        }
        write_settled();
        output_.flush();
    }

    void finish(int64_t length) {
        segmenting_.finish(length);
        write_settled();
    }

    void sum_up(const StreamTotals& totals) {
        output_.write(live_end(format_, header_, totals, count_));
    }

    std::string doubt(int64_t length) const { return doubt_.about(header_, length); }

  private:
    void write_settled() {
        while (const std::optional<segments::Segment> segment = segmenting_.take()) {
            const bool heads = !std::exchange(lines_begun_, true);
            output_.write(live_segment(format_, header_, heads, count_++, *segment));
        }
    }

    ResultFormat format_;
    const ResultHeader& header_;
    TextOutput& output_;
    bool& lines_begun_;
    Segmenting segmenting_;
    Doubt doubt_;
    int64_t count_ = 0;
};

int detect_live(const std::string& name, const Options& options) {
    prepare_for_interruption(name);
    Work work(name, options);
    TextOutput output(options.output);
    bool lines_begun = false;
    std::deque<LiveResult> results;
    std::vector<Listener> listeners;
    for (const ResultHeader& header : work.headers) {
        LiveResult& result = results.emplace_back(options.format, header, output, lines_begun);
        listeners.push_back({.frame = [&result](const Frame& frame) { result.add(frame); }});
    }
    output.write(live_begin(options.format, work.headers));
    output.flush();
    const std::vector<StreamTotals> totals =
        listen_to(work, options, holds_digest(options.format), listeners);
    for (std::size_t i = 0; i < results.size(); ++i) {
        results[i].finish(totals[i].length);
    }
    for (std::size_t i = 0; i < results.size(); ++i) {
        results[i].sum_up(totals[i]);
    }
    output.commit();
    for (std::size_t i = 0; i < results.size(); ++i) {
        warn(options, name, results[i].doubt(totals[i].length));
    }
    return status_after(totals[0].fault);
}

int detect_one(const std::string& name, const Options& options) {
    prepare_for_interruption(name);
    Finding finding;
    {
        ProgressBar bar = bar_for(options, name, false);
        finding = find_speech(name, options, false, drawing(bar));
    }
    if (options.check && !finding.fault.empty()) {
        throw std::runtime_error(finding.fault);
    }
    if (options.check) {
        return finding.speech ? 0 : std::max(status_after_stream(), 1);
    }
    TextOutput output(options.output);
    output.write(file_prologue(options.format) + finding.text + file_epilogue(options.format));
    output.commit();
    warn(options, name, finding.doubt);
    return status_after(finding.fault);
}

int run_detect(const Options& options) {
    const std::vector<std::string> names = recordings(options);
    check_is_no_input(options.output, names);
    check_is_no_input(options.output, {options.manifest, options.files_from});
    options.check_may_overwrite(options.output);
    const bool alone = names.size() == 1 && options.files_from.empty() && !options.recursive &&
                       options.manifest.empty() && !is_folder(options.output);
    if (!alone) {
        return run_batch(options, names);
    }
    const bool live = is_live_input(names[0]) && is_live(options.format) && !options.check;
    return live ? detect_live(names[0], options) : detect_one(names[0], options);
}

// ---- frames --------------------------------------------------------------------------------

int run_frames(const Options& options) {
    const std::string& name = options.files[0];
    check_is_no_input(options.output, options.files);
    options.check_may_overwrite(options.output);
    prepare_for_interruption(name);
    Work work(name, options);
    TextOutput output(options.output);
    ProgressBar bar = bar_for(options, name, options.output.empty());
    const Tick tick = drawing(bar);
    const bool live = is_live_input(name);
    output.write(frames_begin(options.format, work.headers[0]));
    std::vector<Listener> listeners;
    for (const ResultHeader& header : work.headers) {
        listeners.push_back({.frame = [&](const Frame& frame) {
            output.write(frame_line(options.format, header, frame));
            if (live) {
                output.flush();
            }
            work.tick(frame, tick);
        }});
    }
    const std::vector<StreamTotals> totals = listen_to(work, options, false, listeners);
    bar.wipe();
    output.commit();
    return status_after(totals[0].fault);
}

// ---- clean ---------------------------------------------------------------------------------

int run_clean(const Options& options) {
    const std::string& name = options.files[0];
    const std::string& path = options.files[1];
    prepare_for_interruption(name);
    Work work(name, options);
    const SourceInfo& info = work.header.source;
    check_sink(info, path);
    options.check_may_overwrite(path);
    const int format = sink_format(info, path);
    const std::unique_ptr<AudioSink> sink = open_sink(path, format, info.rate, info.channels);
    ProgressBar bar = bar_for(options, name, false);
    const Tick tick = drawing(bar);
    const auto write = [&](const int16_t* samples, int64_t n) { sink->write(samples, n); };
    std::vector<Listener> listeners = {{.cleaned = write}};
    if (options.source.each_channel) {
        listeners = interleaving(info.channels, write);
    }
    listeners[0].frame = [&](const Frame& frame) { work.tick(frame, tick); };
    const StreamTotals totals = listen_to(work, options, false, listeners)[0];
    bar.wipe();
    if (!totals.fault.empty()) {
        check_is_no_input(path, {name});  // of what is damaged nothing is to be lost
    }
    sink->commit();
    return status_after(totals.fault);
}

// ---- report --------------------------------------------------------------------------------

int run_report(const Options& options) {
    const std::string& name = options.files[0];
    if (!Report::available()) {
        throw Failure(options.output, "this korvane-vad was built without reports");
    }
    check_is_no_input(options.output, options.files);
    if (is_sound_name(options.output)) {
        throw Failure(options.output, "is the name of a sound file, and this is a page: .html");
    }
    options.check_may_overwrite(options.output);
    prepare_for_interruption(name);
    Work work(name, options);
    TextOutput output(options.output);
    ProgressBar bar = bar_for(options, name, false);
    const Tick tick = drawing(bar);
    Report report(work.header, options.page_audio);
    const Listener listener = {
        .input = [&](const int16_t* samples, int64_t n) { report.add_input(samples, n); },
        .frame =
            [&](const Frame& frame) {
                report.add(frame);
                work.tick(frame, tick);
            },
        .cleaned = [&](const int16_t* samples, int64_t n) { report.add_cleaned(samples, n); }};
    const auto [totals, list, doubt] = segments_of(work, options, true, {listener})[0];
    output.write(report.page(totals, list));
    bar.wipe();
    output.commit();
    warn(options, name, doubt);
    warn(options, name, report.missing_audio());
    return status_after(totals.fault);
}

}  // namespace

int run(const Options& options) {
    switch (options.command) {
        case Command::kDetect:
            return run_detect(options);
        case Command::kFrames:
            return run_frames(options);
        case Command::kClean:
            return run_clean(options);
        case Command::kSplit:
            return run_split(options);
        case Command::kReport:
            return run_report(options);
        case Command::kScore:
            options.check_may_overwrite(options.output);
            return run_score(options);
        case Command::kSelftest:
            return run_selftest(options.every);
    }
    return 1;
}

}  // namespace korvane::tool
