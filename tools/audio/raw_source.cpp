#include "tools/audio/raw_source.h"

#include <sndfile.h>

#include <algorithm>
#include <bit>
#include <utility>

#include "tools/audio/sample_conversion.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

/** The same without byte order or layout, as libsndfile calls it. */
int sf_encoding(RawEncoding encoding) {
    switch (encoding) {
        case RawEncoding::kUnsigned8:
            return SF_FORMAT_PCM_U8;
        case RawEncoding::kSigned16:
            return SF_FORMAT_PCM_16;
        case RawEncoding::kSigned24:
            return SF_FORMAT_PCM_24;
        case RawEncoding::kFloat32:
            return SF_FORMAT_FLOAT;
        case RawEncoding::kMuLaw:
            return SF_FORMAT_ULAW;
        case RawEncoding::kALaw:
            break;
    }
    return SF_FORMAT_ALAW;
}

/** `count` bytes, 1 to 4, as the upper ones of 32 bits. */
uint32_t upper_bytes(const uint8_t* bytes, std::size_t count, bool big_endian) {
    uint32_t bits = 0;
    for (std::size_t i = 0; i < count; ++i) {
        bits |= uint32_t{bytes[i]} << 8 * (big_endian ? 3 - i : 4 - count + i);
    }
    return bits;
}

// Both laws keep a sign, the number of a segment, each twice as wide as the one before, and four bits
// within it. What comes out is the middle of what such a code stands for.

int16_t from_mu_law(uint8_t code) {
    const int bits = ~code & 0xFF;
    const int segment = bits >> 4 & 7;
    const int magnitude = ((((bits & 15) << 3) + 0x84) << segment) - 0x84;
    return static_cast<int16_t>((bits & 0x80) != 0 ? -magnitude : magnitude);
}

int16_t from_a_law(uint8_t code) {
    const int bits = code ^ 0x55;
    const int segment = bits >> 4 & 7;
    const int within = ((bits & 15) << 4) + 8;
    const int magnitude = segment == 0 ? within : (within + 0x100) << (segment - 1);
    return static_cast<int16_t>((bits & 0x80) != 0 ? magnitude : -magnitude);
}

}  // namespace

RawSource::RawSource(const std::string& name, const RawFormat& format, OriginalListener original)
    : InputSource(name, std::move(original)),
      format_(format),
      sample_bytes_(static_cast<std::size_t>(sample_bytes(sf_encoding(format.encoding)))) {
    if (format.encoding != RawEncoding::kSigned16) {
        info_.sf_format = SF_FORMAT_RAW | sf_encoding(format.encoding);
    }
    info_.rate = info_.input_rate = format.rate;
    info_.channels = info_.input_channels = format.channels;
    const int64_t frame_bytes = static_cast<int64_t>(sample_bytes_) * format.channels;
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
    piece_out_ = piece;
    const auto size = static_cast<std::size_t>(frames * format_.channels);
    wide_.resize(format_.encoding == RawEncoding::kSigned24 ? size : 0);
    real_.resize(format_.encoding == RawEncoding::kFloat32 ? size : 0);
    const int64_t count = format_.planar ? read_planar(frames) : read_interleaved(frames);
    position_ += count;
    if (original_) {
        original_(!real_.empty()   ? static_cast<const void*>(real_.data())
                  : !wide_.empty() ? static_cast<const void*>(wide_.data())
                                   : piece,
                  count);
    }
    return count;
}

/** The samples of `bytes` to places of the piece from `to` on, `step` apart. */
void RawSource::decode(const uint8_t* bytes, std::size_t to, std::size_t count, std::size_t step) {
    for (std::size_t i = 0; i < count; ++i, bytes += sample_bytes_, to += step) {
        const uint32_t bits = upper_bytes(bytes, sample_bytes_, format_.big_endian);
        switch (format_.encoding) {
            case RawEncoding::kUnsigned8:
                piece_out_[to] = static_cast<int16_t>((bits ^ 0x80000000U) >> 16);
                break;
            case RawEncoding::kSigned16:
                piece_out_[to] = static_cast<int16_t>(bits >> 16);
                break;
            case RawEncoding::kSigned24:
                wide_[to] = static_cast<int32_t>(bits);
                piece_out_[to] = sample_from_int(wide_[to]);
                break;
            case RawEncoding::kFloat32:
                real_[to] = double{std::bit_cast<float>(bits)};
                piece_out_[to] = sample_from_float(real_[to]);
                break;
            case RawEncoding::kMuLaw:
                piece_out_[to] = from_mu_law(*bytes);
                break;
            case RawEncoding::kALaw:
                piece_out_[to] = from_a_law(*bytes);
                break;
        }
    }
}

int64_t RawSource::read_interleaved(int64_t frames) {
    const std::size_t frame_bytes = sample_bytes_ * static_cast<std::size_t>(format_.channels);
    bytes_.resize(static_cast<std::size_t>(frames) * frame_bytes);
    const std::size_t got = input_.read(bytes_.data(), bytes_.size());
    left_over_ = got % frame_bytes;
    const std::size_t samples = (got - left_over_) / sample_bytes_;
    decode(bytes_.data(), 0, samples, 1);
    return static_cast<int64_t>(got / frame_bytes);
}

int64_t RawSource::read_planar(int64_t frames) {
    bytes_.resize(static_cast<std::size_t>(frames) * sample_bytes_);
    const auto channels = static_cast<std::size_t>(format_.channels);
    for (std::size_t c = 0; c < channels; ++c) {
        const int64_t first = static_cast<int64_t>(c) * *info_.length + position_;
        const std::size_t got =
            input_.read_at(first * static_cast<int64_t>(sample_bytes_), bytes_.data(),
                           static_cast<std::size_t>(frames) * sample_bytes_);
        frames = std::min(frames, static_cast<int64_t>(got / sample_bytes_));
        decode(bytes_.data(), c, static_cast<std::size_t>(frames), channels);
    }
    return frames;
}

void RawSource::check_end(int64_t frames_read) {
    const std::string name = input_name(info_.name);
    const int64_t frame_bytes = static_cast<int64_t>(sample_bytes_) * format_.channels;
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
