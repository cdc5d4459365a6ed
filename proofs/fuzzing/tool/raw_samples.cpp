// Samples without a header, from a file and from a pipe, against the plainest way to take them apart.

#include "input_file.h"
#include "tools/audio/audio_source.h"
#include "tools/files/failure.h"

using namespace korvane::tool;

namespace {

/** Sample `frame` of channel `channel`, as the format says it lies. */
int16_t sample(const std::string& bytes, const RawFormat& format, size_t frame, size_t channel) {
    const auto width = static_cast<size_t>(format.channels);
    const size_t frames = bytes.size() / 2 / width;
    const size_t at = format.planar ? channel * frames + frame : frame * width + channel;
    const auto first = static_cast<uint8_t>(bytes[2 * at]);
    const auto second = static_cast<uint8_t>(bytes[2 * at + 1]);
    return static_cast<int16_t>(format.big_endian ? first << 8 | second : second << 8 | first);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    FuzzedDataProvider data(input, size);
    RawFormat format;
    format.big_endian = data.ConsumeBool();
    format.planar = data.ConsumeBool();
    format.rate = data.ConsumeBool() ? 16000 : data.ConsumeIntegral<int>();
    format.channels = data.ConsumeIntegralInRange(-1, 9);
    if (format.channels == 9) {
        format.channels = data.ConsumeIntegral<int>();
    }
    SourceOptions options;
    options.raw = format;
    for (int left = data.ConsumeIntegralInRange(0, 2); left > 0; --left) {
        options.channels.push_back(data.ConsumeIntegralInRange(-1, 10));
    }
    const bool live = data.ConsumeBool();
    const auto piece = data.ConsumeIntegralInRange<int64_t>(1, 300);
    const std::string bytes = data.ConsumeRemainingBytesAsString();
    const InputFile file(bytes);
    if (live) {
        pipe_to_standard_input(bytes);
    }

    size_t taken = 0;
    try {
        const std::unique_ptr<AudioSource> source = open_source(live ? "-" : file.path(), options);
        const auto width = static_cast<size_t>(source->info().channels);
        require(width == 1 || width == 2, "one or two channels are handed out");
        for (;;) {
            std::vector<int16_t> samples(static_cast<size_t>(piece) * width);
            const int64_t count = source->read(samples.data(), piece);
            require(count >= 0 && count <= piece, "no more is handed out than was asked for");
            for (size_t i = 0; i < static_cast<size_t>(count) * width; ++i) {
                const size_t channel = options.channels.empty()
                                           ? i % width
                                           : static_cast<size_t>(options.channels[i % width]) - 1;
                require(samples[i] == sample(bytes, format, taken + i / width, channel),
                        "every sample is the one at its place");
            }
            taken += static_cast<size_t>(count);
            if (count == 0) {
                break;
            }
        }
        require(taken == bytes.size() / 2 / static_cast<size_t>(format.channels), "all of them");
    } catch (const Failure&) {
    }
    return 0;
}
