#include "tools/audio/mpeg_frames.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <vector>

namespace korvane::tool {

namespace {

constexpr std::size_t kHeader = 4;  // bytes

uint32_t big_endian(const uint8_t* bytes) {
    return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

/** Bytes of the frame with this header, of ISO 11172-3 or 13818-3; 0 where it is none, or its bit rate is free. */
int64_t frame_bytes(uint32_t header) {
    using BitRates = std::array<uint16_t, 15>;  // kbit/s
    constexpr BitRates kFirst[] = {
        {0, 32, 64, 96, 128, 160, 192, 224, 256, 288, 320, 352, 384, 416, 448},
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320, 384},
        {0, 32, 40, 48, 56, 64, 80, 96, 112, 128, 160, 192, 224, 256, 320}};
    constexpr BitRates kLowRates[] = {
        {0, 32, 48, 56, 64, 80, 96, 112, 128, 144, 160, 176, 192, 224, 256},
        {0, 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160}};
    constexpr int kRates[] = {44100, 48000, 32000};
    const uint32_t version = header >> 19 & 3;  // 3: MPEG 1, 2: MPEG 2, 0: MPEG 2.5
    const uint32_t layer = 4 - (header >> 17 & 3);
    const uint32_t bit_rate = header >> 12 & 15;
    const uint32_t rate = header >> 10 & 3;
    if (header >> 21 != 0x7FF || version == 1 || layer == 4 || bit_rate == 15 || rate == 3) {
        return 0;
    }
    const BitRates& bit_rates = version == 3 ? kFirst[layer - 1] : kLowRates[layer == 1 ? 0 : 1];
    const int hertz = kRates[rate] >> (version == 3 ? 0 : version == 2 ? 1 : 2);
    const int padding = static_cast<int>(header >> 9 & 1);
    const int bits = 1000 * bit_rates[bit_rate];
    if (bits == 0) {
        return 0;
    }
    if (layer == 1) {
        return (12 * bits / hertz + padding) * 4;
    }
    return (layer == 3 && version != 3 ? 72 : 144) * bits / hertz + padding;
}

/** The headers of a file, read in large pieces. */
class Headers {
  public:
    explicit Headers(InputDescriptor& file) : file_(&file) {}

    /** 0 where the file has no four bytes more. */
    uint32_t at(int64_t place) {
        constexpr auto kSize = static_cast<int64_t>(kHeader);
        if (place + kSize > file_->size()) {
            return 0;
        }
        if (place < begin_ || place + kSize > begin_ + static_cast<int64_t>(piece_.size())) {
            constexpr std::size_t kPiece = 65536;
            piece_.resize(kPiece);
            piece_.resize(file_->read_at(place, piece_.data(), kPiece));
            begin_ = place;
        }
        const auto offset = static_cast<std::size_t>(place - begin_);
        return offset + kHeader <= piece_.size() ? big_endian(&piece_[offset]) : 0;
    }
    InputDescriptor& file() { return *file_; }

  private:
    InputDescriptor* file_;
    std::vector<uint8_t> piece_;
    int64_t begin_ = 0;
};

/** Whether both are of one version, layer and rate. */
bool are_alike(uint32_t one, uint32_t other) { return ((one ^ other) & 0xFFFE0C00) == 0; }

/** Whether a decoder that plays the one goes on with the other: with as many channels, too. */
bool goes_on(uint32_t one, uint32_t other) {
    constexpr uint32_t kMono = 3;
    return are_alike(one, other) && ((one >> 6 & 3) == kMono) == ((other >> 6 & 3) == kMono);
}

/** Whether sound begins with this header: whole frames follow each other. */
bool begins_sound(Headers& headers, int64_t at, uint32_t header) {
    const int64_t bytes = frame_bytes(header);
    if (bytes == 0) {
        return false;
    }
    const uint32_t next = headers.at(at + bytes);
    return at + bytes >= headers.file().size() ||
           (frame_bytes(next) > 0 && are_alike(next, header));
}

/** Where the sound goes on behind `at`, if it does: behind a tag of 128 bytes, which ends a file, and those that begin one. */
int64_t behind_tags(InputDescriptor& file, int64_t at) {
    char name[3];
    const bool tag = file.read_at(at, name, sizeof name) == 3 && std::memcmp(name, "TAG", 3) == 0;
    return end_of_id3_tags(file, tag ? at + 128 : at);
}

/** What the frame of Xing and LAME's making says, which decodes to silence and stands before the sound. */
MpegSound counted_sound(Headers& headers, int64_t start, int64_t first_frame) {
    InputDescriptor& file = headers.file();
    MpegSound sound{.start = start};
    std::array<char, 64> head{};
    file.read_at(start, head.data(), head.size());
    const std::string_view text(head.data(), head.size());
    const std::size_t tag = std::min(text.find("Xing"), text.find("Info"));
    if (tag > text.size() - 16) {
        return sound;
    }
    const auto* const fields = reinterpret_cast<const uint8_t*>(head.data()) + tag + 4;
    const uint32_t present = big_endian(fields);
    sound.counted = (present & 1) != 0;
    sound.byte_count = (present & 3) == 3 ? big_endian(fields + 8) : 0;
    const int64_t end = behind_tags(file, start + sound.byte_count);
    if (sound.byte_count > 0 && begins_sound(headers, end, headers.at(end))) {
        return {.start = start + first_frame};
    }
    return sound;
}

}  // namespace

int64_t end_of_id3_tags(InputDescriptor& file, int64_t from) {
    int64_t end = from;
    uint8_t tag[10];  // name, version, flags, size in 4 times 7 bits
    while (file.read_at(end, tag, sizeof tag) == sizeof tag && std::memcmp(tag, "ID3", 3) == 0) {
        const bool has_footer = (tag[5] & 0x10) != 0;
        end += (has_footer ? 20 : 10) +
               ((tag[6] & 127) << 21 | (tag[7] & 127) << 14 | (tag[8] & 127) << 7 | (tag[9] & 127));
    }
    return end;
}

std::optional<MpegSound> find_mpeg(InputDescriptor& file, int64_t from, int64_t most_before) {
    Headers headers(file);
    for (int64_t at = from; at <= std::min(from + most_before, file.size()); ++at) {
        if (const uint32_t header = headers.at(at); begins_sound(headers, at, header)) {
            return counted_sound(headers, at, frame_bytes(header));
        }
    }
    return std::nullopt;
}

MpegExtent extent_of_mpeg(InputDescriptor& file, int64_t start) {
    Headers headers(file);
    const uint32_t first = headers.at(start);
    MpegExtent extent{.end = start};
    for (int64_t at = start; at < file.size();) {
        uint32_t header = headers.at(at);
        if (frame_bytes(header) == 0 || !goes_on(first, header)) {
            at = behind_tags(file, at);
            while (at < file.size() && !begins_sound(headers, at, header = headers.at(at))) {
                ++at;
            }
            extent.changes = at < file.size() && !goes_on(first, header);
            if (at >= file.size() || extent.changes) {
                break;
            }
        }
        at += frame_bytes(header);
        extent.end = std::min(at, file.size());
    }
    return extent;
}

}  // namespace korvane::tool
