#include "tools/audio/raw_source.h"

#include <algorithm>
#include <utility>

#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

constexpr std::size_t kSampleBytes = sizeof(int16_t);

int16_t decode(const uint8_t* bytes, bool big_endian) {
    const unsigned low = bytes[big_endian ? 1 : 0];
    const unsigned high = bytes[big_endian ? 0 : 1];
    return static_cast<int16_t>(static_cast<uint16_t>(high << 8 | low));
}

}  // namespace

RawSource::RawSource(const std::string& name, const RawFormat& format, OriginalListener original)
    : InputSource(name, std::move(original)), format_(format) {
    info_.rate = info_.input_rate = format.rate;
    info_.channels = info_.input_channels = format.channels;
    const int64_t frame_bytes = int64_t{kSampleBytes} * format.channels;
    if (!input_.live()) {
        info_.length = input_.size() / frame_bytes;
    }
    if (format.planar && input_.live()) {
        throw Failure(
            input_name(name),
            "planar samples can only be read from a regular file, because the length tells "
            "where a channel begins");
    }
    if (format.planar && input_.size() % frame_bytes != 0) {
        throw Failure(input_name(name), std::to_string(input_.size()) + " bytes are not " +
                                            std::to_string(format.channels) +
                                            " channels of equal length");
    }
}

int64_t RawSource::read_piece(int16_t* piece, int64_t frames) {
    if (info_.length) {
        frames =
            std::min(frames, *info_.length - position_);  // what is appended now comes too late
    }
    const int64_t count =
        format_.planar ? read_planar(piece, frames) : read_interleaved(piece, frames);
    position_ += count;
    if (original_) {
        original_(piece, count);
    }
    return count;
}

int64_t RawSource::read_interleaved(int16_t* piece, int64_t frames) {
    const std::size_t frame_bytes = kSampleBytes * static_cast<std::size_t>(format_.channels);
    bytes_.resize(static_cast<std::size_t>(frames) * frame_bytes);
    const std::size_t got = input_.read(bytes_.data(), bytes_.size());
    left_over_ = got % frame_bytes;
    const std::size_t samples = (got - left_over_) / kSampleBytes;
    for (std::size_t i = 0; i < samples; ++i) {
        piece[i] = decode(&bytes_[kSampleBytes * i], format_.big_endian);
    }
    return static_cast<int64_t>(got / frame_bytes);
}

int64_t RawSource::read_planar(int16_t* piece, int64_t frames) {
    bytes_.resize(static_cast<std::size_t>(frames) * kSampleBytes);
    const auto channels = static_cast<std::size_t>(format_.channels);
    for (std::size_t c = 0; c < channels; ++c) {
        const int64_t first = static_cast<int64_t>(c) * *info_.length + position_;
        const std::size_t got = input_.read_at(first * int64_t{kSampleBytes}, bytes_.data(),
                                               static_cast<std::size_t>(frames) * kSampleBytes);
        frames = std::min(frames, static_cast<int64_t>(got / kSampleBytes));
        for (std::size_t i = 0; i < static_cast<std::size_t>(frames); ++i) {
            piece[i * channels + c] = decode(&bytes_[kSampleBytes * i], format_.big_endian);
        }
    }
    return frames;
}

void RawSource::check_end(int64_t frames_read) {
    const std::string name = input_name(info_.name);
    const int64_t frame_bytes = int64_t{kSampleBytes} * format_.channels;
    input_.check();
    if (info_.length && frames_read < *info_.length) {
        throw Failure(name, "truncated while it was read: " + std::to_string(frames_read) + " of " +
                                std::to_string(*info_.length) + " samples");
    }
    const int64_t rest = info_.length ? input_.size() % frame_bytes : int64_t(left_over_);
    if (rest != 0) {
        throw Failure(name, "ends within a sample: " + std::to_string(rest) + " of " +
                                std::to_string(frame_bytes) + " bytes");
    }
}

}  // namespace korvane::tool
