#include "tools/audio/audio_source.h"

#include <utility>

#include "tools/audio/channel_selection.h"
#include "tools/audio/ffmpeg_source.h"
#include "tools/audio/input_descriptor.h"
#include "tools/audio/raw_source.h"
#include "tools/audio/resampled_source.h"
#include "tools/audio/sndfile_source.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

constexpr int kRateLimit = 50000;  // the detector takes what is below
constexpr int kMaxChannels = 1024;

void check_raw_format(const std::string& name, const RawFormat& format) {
    if (format.channels < 1 || format.channels > kMaxChannels) {
        throw Failure(input_name(name), std::to_string(format.channels) +
                                            " channels; raw samples have 1 to " +
                                            std::to_string(kMaxChannels));
    }
}

void check_rate(const SourceInfo& info, bool resample) {
    const std::string rate = "sampling rate " + std::to_string(info.rate) + " Hz; ";
    if (info.rate < 1) {
        throw Failure(input_name(info.name), rate + "it must be 1 Hz or more");
    }
    // What a damaged header says could ask for any amount of memory at each step of the resampler.
    if (info.rate > kFastestRate) {
        throw Failure(input_name(info.name),
                      rate + "it must be " + std::to_string(kFastestRate) + " Hz or less");
    }
    if (info.rate >= kRateLimit && !resample) {
        throw Failure(input_name(info.name),
                      rate + "the detector takes less than " + std::to_string(kRateLimit) +
                          " Hz; --resample converts to " + std::to_string(kResampledRate) + " Hz");
    }
}

}  // namespace

std::unique_ptr<AudioSource> open_source(const std::string& name, const SourceOptions& options) {
    std::unique_ptr<AudioSource> source;
    if (options.raw) {
        check_raw_format(name, *options.raw);
        source = std::make_unique<RawSource>(name, *options.raw, options.original);
    } else if (options.by_ffmpeg) {
        source = std::make_unique<FfmpegSource>(name, options.original);
    } else {
        source = std::make_unique<SndfileSource>(name, options.original);
    }
    check_rate(source->info(), options.resample);
    source = select_channels(std::move(source), options);
    if (source->info().rate >= kRateLimit) {
        source = std::make_unique<ResampledSource>(std::move(source));
    }
    return source;
}

}  // namespace korvane::tool
