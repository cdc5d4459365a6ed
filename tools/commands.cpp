#include "tools/commands.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <deque>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <utility>

#include "tools/audio/audio_sink.h"
#include "tools/audio/sample_spool.h"
#include "tools/batch/batch.h"
#include "tools/batch/finding.h"
#include "tools/cli/interruption.h"
#include "tools/cli/name_template.h"
#include "tools/cli/progress.h"
#include "tools/files/failure.h"
#include "tools/files/text_output.h"
#include "tools/report/report.h"
#include "tools/results/detection.h"
#include "tools/results/doubt.h"
#include "tools/results/segmenting.h"
#include "tools/score/score.h"
#include "tools/selftest.h"

namespace korvane::tool {

namespace {

/** A pipe, a device or a socket, by name or as standard input. */
bool is_stream(const std::string& name) {
    struct stat status {};
    const int failed = name == "-" ? fstat(STDIN_FILENO, &status) : stat(name.c_str(), &status);
    return failed == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

/** Whether each result is wanted when it is certain, not at the end. */
bool is_live_input(const std::string& name) { return name == "-" || is_stream(name); }

/** Where `name` is a stream, an interruption is its end: what came before it counts. */
void prepare_for_interruption(const std::string& name) {
    if (is_stream(name)) {
        let_interruption_end_stream();
    }
}

int status_after_stream() { return interrupted_by() != 0 ? 128 + interrupted_by() : 0; }

/** The exit status when everything is written; a fault of the input is told. */
int status_after(const std::string& fault) {
    if (fault.empty()) {
        return status_after_stream();
    }
    std::fprintf(stderr, "korvane-vad: %s\n", fault.c_str());
    return std::max(status_after_stream(), 1);
}

/** A bar for one input. A stream has no end to measure against. */
ProgressBar bar_for(const Options& options, const std::string& input, bool prints_meanwhile) {
    return {options.progress,
            is_live_input(input) || (prints_meanwhile && isatty(STDOUT_FILENO) == 1)};
}

Tick drawing(ProgressBar& bar) {
    return [&bar](double fraction, double seconds) { bar.update(fraction, seconds, ""); };
}

/** Before any work. */
void check_may_overwrite(const Options& options, const std::string& path) {
    if (options.no_clobber && !options.force) {
        check_is_new(path);
    }
}

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
    check_may_overwrite(options, options.output);
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
    check_may_overwrite(options, options.output);
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

/** Told of each channel's samples in turn, passes them on together. */
std::vector<Listener> interleaving(
    int channels, const std::function<void(const int16_t* samples, int64_t n)>& next) {
    const auto together = std::make_shared<std::vector<int16_t>>();
    const auto width = static_cast<std::size_t>(channels);
    std::vector<Listener> listeners(width);
    for (std::size_t channel = 0; channel < width; ++channel) {
        listeners[channel].cleaned = [=](const int16_t* samples, int64_t n) {
            together->resize(static_cast<std::size_t>(n) * width);
            for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
                (*together)[i * width + channel] = samples[i];
            }
            if (channel + 1 == width) {
                next(together->data(), n);
            }
        };
    }
    return listeners;
}

// ---- clean ---------------------------------------------------------------------------------

int run_clean(const Options& options) {
    const std::string& name = options.files[0];
    const std::string& path = options.files[1];
    prepare_for_interruption(name);
    Work work(name, options);
    const SourceInfo& info = work.header.source;
    check_sink(info, path);
    check_may_overwrite(options, path);
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

// ---- split ---------------------------------------------------------------------------------

/** The input's own extension where files of its format are written, else wav. */
std::string piece_extension(const SourceInfo& info) {
    const std::string own = extension_of_path(info.name);
    constexpr int kContainer = 0x0FFF0000;  // of libsndfile's format word
    const bool same =
        info.sf_format != 0 && ((sink_format(info, "x." + own) ^ info.sf_format) & kContainer) == 0;
    return same && !own.empty() ? own : "wav";
}

/** @param taken  the paths of other channels' pieces, to which these are added */
std::vector<std::string> piece_paths(const Options& options, const ResultHeader& header,
                                     const SourceInfo& cut,
                                     const std::vector<segments::Segment>& list,
                                     std::set<std::string>& taken) {
    const NameTemplate name_template(options.piece_name());
    PieceName piece;
    piece.stem = stem_of(header.source.name);
    piece.extension = piece_extension(cut);
    piece.channel = header.channel;
    piece.rate = header.source.rate;
    std::vector<std::string> paths;
    for (const segments::Segment& segment : list) {
        ++piece.index;
        piece.start = segment.start;
        piece.end = segment.end;
        const std::filesystem::path path =
            std::filesystem::path(options.output) / name_template.fill(piece);
        paths.push_back(path.string());
        if (!taken.insert(paths.back()).second) {
            throw Failure(paths.back(),
                          std::string("is the name of two segments; --template needs ") +
                              (header.channel > 0 ? "{channel} and " : "") + "{index}");
        }
        check_is_no_input(paths.back(), {options.files[0]});
        check_may_overwrite(options, paths.back());
    }
    return paths;
}

/** Before any work: whether pieces can be written under such names. */
void check_pieces(const Options& options, const SourceInfo& info) {
    SourceInfo piece = info;
    piece.length.reset();
    PieceName name;
    name.stem = stem_of(info.name);
    name.extension = piece_extension(info);
    check_sink(piece, NameTemplate(options.piece_name()).fill(name));
}

/** What `split` cuts: the recording as it came in, or the cleaned sound as it was judged. */
struct Cut {
    SourceInfo info;   // of a piece
    int channels = 0;  // in the spool
    SampleKind kind = SampleKind::kShort;
    std::optional<SampleSpool> spool;
};

int64_t value_bytes(SampleKind kind) {
    return kind == SampleKind::kShort ? int64_t{sizeof(int16_t)}
           : kind == SampleKind::kInt ? int64_t{sizeof(int32_t)}
                                      : int64_t{sizeof(double)};
}

/** As it came in. */
SourceInfo original_of(const SourceInfo& judged) {
    SourceInfo info = judged;
    info.rate = judged.input_rate;
    info.channels = judged.input_channels;
    info.length.reset();
    return info;
}

/** Puts one channel of n interleaved samples to the front. */
void keep_channel(std::vector<double>& samples, int64_t n, int channel, const Cut& cut) {
    const auto size = static_cast<std::size_t>(value_bytes(cut.kind));
    const auto channels = static_cast<std::size_t>(cut.channels);
    auto* const bytes = reinterpret_cast<char*>(samples.data());
    for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
        const char* from = bytes + (i * channels + static_cast<std::size_t>(channel)) * size;
        std::memmove(bytes + i * size, from, size);
    }
}

/** @param channel  of the spool, counted from 0, where the piece has that one alone */
std::unique_ptr<TemporaryFile> write_piece(const std::string& path, const Cut& cut,
                                           const segments::Segment& segment,
                                           std::optional<int> channel) {
    const SourceInfo& info = cut.info;
    const std::unique_ptr<AudioSink> sink =
        open_sink(path, sink_format(info, path), info.rate, info.channels);
    constexpr int64_t kPieceValues = 131072;
    const int64_t piece = std::max<int64_t>(kPieceValues / cut.channels, 1);
    std::vector<double> samples(static_cast<std::size_t>(piece * cut.channels));  // for any kind
    for (int64_t at = segment.start; at < segment.end; at += piece) {
        const int64_t count = std::min(piece, segment.end - at);
        cut.spool->read(at, samples.data(), count);
        if (channel) {
            keep_channel(samples, count, *channel, cut);
        }
        sink->write_original(samples.data(), count, cut.kind);
    }
    std::unique_ptr<TemporaryFile> file = sink->finish();
    file->close_descriptor();
    return file;
}

int run_split(const Options& options) {
    const std::string& name = options.files[0];
    prepare_for_interruption(name);
    Cut cut;
    Options with_original = options;
    if (!options.cleaned) {
        with_original.source.original = [&cut](const void* samples, int64_t n) {
            cut.spool->append(samples, n);
        };
    }
    Work work(name, with_original);
    const SourceInfo& judged = work.header.source;
    const bool apart = options.source.each_channel;
    cut.info = options.cleaned ? judged : original_of(judged);
    cut.channels = cut.info.channels;
    cut.info.channels = apart ? 1 : cut.channels;
    check_pieces(options, cut.info);
    std::error_code error;
    std::filesystem::create_directories(options.output, error);
    if (error) {
        throw Failure(options.output, error.message());
    }
    cut.kind = options.cleaned ? SampleKind::kShort : sample_kind(judged.sf_format);
    cut.spool.emplace(options.output, value_bytes(cut.kind) * cut.channels);
    ProgressBar bar = bar_for(options, name, false);
    const Tick tick = drawing(bar);
    std::vector<Listener> listeners(work.headers.size());
    if (options.cleaned) {
        const auto keep = [&](const int16_t* samples, int64_t n) { cut.spool->append(samples, n); };
        listeners[0].cleaned = keep;
        if (apart) {
            listeners = interleaving(cut.channels, keep);
        }
    }
    listeners[0].frame = [&](const Frame& frame) { work.tick(frame, tick); };
    const std::vector<Speech> all = segments_of(work, options, false, listeners);
    bar.wipe();
    std::set<std::string> taken;
    std::vector<std::vector<std::string>> paths;
    for (std::size_t i = 0; i < all.size(); ++i) {
        paths.push_back(piece_paths(options, work.headers[i], cut.info, all[i].list, taken));
    }
    const auto place = [&](int64_t sample) {
        const auto at = static_cast<double>(sample) * cut.info.rate / judged.rate;
        return std::min(static_cast<int64_t>(std::llround(at)), cut.spool->length());
    };
    std::vector<std::unique_ptr<TemporaryFile>> files;
    for (std::size_t i = 0; i < all.size(); ++i) {
        std::optional<int> channel;
        if (apart) {
            channel = options.cleaned ? static_cast<int>(i) : work.headers[i].channel - 1;
        }
        for (std::size_t k = 0; k < paths[i].size(); ++k) {
            const segments::Segment& heard = all[i].list[k];
            files.push_back(write_piece(
                paths[i][k], cut, {.start = place(heard.start), .end = place(heard.end)}, channel));
        }
    }
    TemporaryFile::commit_all(files);
    if (!taken.empty() && is_inexact(sink_format(cut.info, *taken.begin())) &&
        cut.info.sf_format != 0) {
        warn(options, name,
             "the pieces are encoded anew; --template with .flac or .wav loses nothing more");
    }
    for (const Speech& speech : all) {
        warn(options, name, speech.doubt);
    }
    return status_after(all[0].totals.fault);
}

// ---- report --------------------------------------------------------------------------------

int run_report(const Options& options) {
    const std::string& name = options.files[0];
    if (!Report::available()) {
        throw Failure(options.output, "this korvane-vad was built without reports");
    }
    check_is_no_input(options.output, options.files);
    check_may_overwrite(options, options.output);
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
            check_may_overwrite(options, options.output);
            return run_score(options);
        case Command::kSelftest:
            return run_selftest(options.every);
    }
    return 1;
}

}  // namespace korvane::tool
