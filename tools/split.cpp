#include "tools/split.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <set>

#include "tools/audio/audio_sink.h"
#include "tools/audio/sample_spool.h"
#include "tools/audio/sink_format.h"
#include "tools/cli/name_template.h"
#include "tools/files/failure.h"
#include "tools/files/text_output.h"
#include "tools/one_recording.h"
#include "tools/results/segmenting.h"

namespace korvane::tool {

namespace {

/** The input's own extension where files of its format are written, else wav. */
std::string piece_extension(const SourceInfo& info) {
    const std::string own = extension_of_path(info.name);
    constexpr int kContainer = 0x0FFF0000;  // of libsndfile's format word
    const bool same = info.sf_format != 0 && !info.is_decoded &&
                      ((sink_format(info, "x." + own) ^ info.sf_format) & kContainer) == 0;
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
        options.check_may_overwrite(paths.back());
    }
    return paths;
}

/** What is cut: the recording as it came in, or the cleaned sound as it was judged. */
struct Cut {
    SourceInfo info;   // of a piece
    int channels = 0;  // in the spool
    SampleKind kind = SampleKind::kShort;
    bool is_encoded_anew = false;
    std::optional<SampleSpool> spool;
};

/** Before any work: whether pieces can be written under such names, and what is lost. */
void check_pieces(Cut& cut, const Options& options) {
    SourceInfo piece = cut.info;
    piece.length.reset();
    PieceName name;
    name.stem = stem_of(piece.name);
    name.extension = piece_extension(piece);
    const std::string path = NameTemplate(options.piece_name()).fill(name);
    check_sink(piece, path);
    cut.is_encoded_anew = piece.sf_format != 0 && is_inexact(sink_format(piece, path));
}

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
    constexpr int64_t kChunkValues = 131072;
    const int64_t chunk = std::max<int64_t>(kChunkValues / cut.channels, 1);
    std::vector<double> samples(static_cast<std::size_t>(chunk * cut.channels));  // for any kind
    for (int64_t at = segment.start; at < segment.end; at += chunk) {
        const int64_t count = std::min(chunk, segment.end - at);
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

/** Before any work: what is cut, how, and whether it can be kept. */
void prepare(Cut& cut, const Options& options, const SourceInfo& judged) {
    cut.info = options.cleaned ? judged : original_of(judged);
    cut.channels = cut.info.channels;
    cut.info.channels = options.source.each_channel ? 1 : cut.channels;
    check_pieces(cut, options);
    std::error_code error;
    std::filesystem::create_directories(options.output, error);
    if (error) {
        throw Failure(options.output, error.message());
    }
    cut.kind = options.cleaned ? SampleKind::kShort : sample_kind(judged.sf_format);
    cut.spool.emplace(options.output, value_bytes(cut.kind) * cut.channels);
}

/** For each detector; those of cleaned sound put it into the spool. */
std::vector<Listener> listeners_of(Cut& cut, const Options& options, std::size_t detectors) {
    const auto keep = [&cut](const int16_t* samples, int64_t n) { cut.spool->append(samples, n); };
    if (options.cleaned && options.source.each_channel) {
        return interleaving(cut.channels, keep);
    }
    std::vector<Listener> listeners(detectors);
    if (options.cleaned) {
        listeners[0].cleaned = keep;
    }
    return listeners;
}

/** Under temporary names; nothing is written where a name will not do. */
std::vector<std::unique_ptr<TemporaryFile>> write_pieces(const Options& options, const Work& work,
                                                         const Cut& cut,
                                                         const std::vector<Speech>& all) {
    std::set<std::string> taken;
    std::vector<std::vector<std::string>> paths;
    for (std::size_t i = 0; i < all.size(); ++i) {
        paths.push_back(piece_paths(options, work.headers[i], cut.info, all[i].list, taken));
    }
    const auto place = [&](int64_t sample) {
        const auto at = static_cast<double>(sample) * cut.info.rate / work.header.source.rate;
        return std::min(static_cast<int64_t>(std::llround(at)), cut.spool->length());
    };
    std::vector<std::unique_ptr<TemporaryFile>> files;
    for (std::size_t i = 0; i < all.size(); ++i) {
        std::optional<int> channel;
        if (options.source.each_channel) {
            channel = options.cleaned ? static_cast<int>(i) : work.headers[i].channel - 1;
        }
        for (std::size_t k = 0; k < paths[i].size(); ++k) {
            const segments::Segment& heard = all[i].list[k];
            files.push_back(write_piece(
                paths[i][k], cut, {.start = place(heard.start), .end = place(heard.end)}, channel));
        }
    }
    return files;
}

}  // namespace

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
    prepare(cut, options, judged);
    ProgressBar bar = bar_for(options, name, false);
    const Tick tick = drawing(bar);
    std::vector<Listener> listeners = listeners_of(cut, options, work.headers.size());
    listeners[0].frame = [&](const Frame& frame) { work.tick(frame, tick); };
    const std::vector<Speech> all = segments_of(work, options, false, listeners);
    bar.wipe();
    const std::vector<std::unique_ptr<TemporaryFile>> files = write_pieces(options, work, cut, all);
    TemporaryFile::commit_all(files);
    if (!files.empty() && cut.is_encoded_anew) {
        warn(options, name,
             "the pieces are encoded anew; --template with .flac or .wav loses nothing more");
    }
    if (!files.empty() && judged.is_decoded) {
        warn(options, name, "the pieces are what ffmpeg decodes, in 16 bits");
    }
    for (const Speech& speech : all) {
        warn(options, name, speech.doubt);
    }
    return status_after(all[0].totals.fault);
}

}  // namespace korvane::tool
