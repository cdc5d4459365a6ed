#include "tools/audio/channel_selection.h"

#include <cstddef>
#include <numeric>
#include <string>
#include <utility>

#include "tools/audio/input_descriptor.h"
#include "tools/audio/sample_conversion.h"
#include "tools/files/failure.h"

namespace korvane::tool {

ChannelSelection::ChannelSelection(std::unique_ptr<AudioSource> source, std::vector<int> channels,
                                   bool downmix)
    : source_(std::move(source)),
      channels_(std::move(channels)),
      downmix_(downmix),
      info_(source_->info()) {
    info_.channels = downmix ? 1 : static_cast<int>(channels_.size());
}

int64_t ChannelSelection::read(int16_t* out, int64_t n) {
    const auto width = static_cast<std::size_t>(source_->info().channels);
    all_.resize(static_cast<std::size_t>(n) * width);
    const int64_t count = source_->read(all_.data(), n);
    for (int64_t i = 0; i < count; ++i) {
        const int16_t* frame = all_.data() + static_cast<std::size_t>(i) * width;
        int64_t sum = 0;
        for (const int channel : channels_) {
            if (downmix_) {
                sum += frame[channel];
            } else {
                *out++ = frame[channel];
            }
        }
        if (downmix_) {
            *out++ = rounded_mean(sum, static_cast<int64_t>(channels_.size()));
        }
    }
    return count;
}

std::unique_ptr<AudioSource> select_channels(std::unique_ptr<AudioSource> source,
                                             const SourceOptions& options) {
    const std::string name = input_name(source->info().name);
    const int width = source->info().channels;
    const std::string there = std::to_string(width) + (width == 1 ? " channel" : " channels");
    std::vector<int> channels(static_cast<std::size_t>(width));
    std::iota(channels.begin(), channels.end(), 0);
    if (!options.channels.empty()) {
        channels.clear();
    }
    for (const int channel : options.channels) {
        if (channel < 1 || channel > width) {
            throw Failure(name, "no channel " + std::to_string(channel) + "; there " +
                                    (width == 1 ? "is " : "are ") + there + ", counted from 1");
        }
        channels.push_back(channel - 1);
    }
    if (channels.size() > 2 && !options.downmix && !options.each_channel) {
        throw Failure(name,
                      options.channels.empty()
                          ? there +
                                "; choose one or two with --channels 1,2, take the mean of all "
                                "with --downmix, or judge each by itself with --each-channel"
                          : std::to_string(channels.size()) +
                                " channels chosen; choose one or two, or take their mean with "
                                "--downmix");
    }
    if (options.channels.empty() && (!options.downmix || width == 1)) {
        return source;
    }
    return std::make_unique<ChannelSelection>(std::move(source), std::move(channels),
                                              options.downmix);
}

}  // namespace korvane::tool
