#include "tools/audio/ogg_links.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <numeric>
#include <string_view>

namespace korvane::tool {

namespace {

constexpr std::size_t kHead = 27;  // bytes; the lengths of up to 255 segments follow
constexpr std::size_t kMostSegments = 255;
constexpr std::size_t kChecksum = 22;  // where its four bytes stand
constexpr std::string_view kMark = "OggS";

constexpr std::array<uint32_t, 256> checksum_table() {
    std::array<uint32_t, 256> table{};
    for (uint32_t i = 0; i < table.size(); ++i) {
        uint32_t sum = i << 24;
        for (int bit = 0; bit < 8; ++bit) {
            sum = sum << 1 ^ (sum >> 31 != 0 ? 0x04C11DB7U : 0U);
        }
        table[i] = sum;
    }
    return table;
}

uint32_t checksum(const std::vector<uint8_t>& bytes) {
    static constexpr std::array<uint32_t, 256> kTable = checksum_table();
    return std::accumulate(bytes.begin(), bytes.end(), 0U, [](uint32_t sum, uint8_t byte) {
        return sum << 8 ^ kTable[sum >> 24 ^ byte];
    });
}

uint32_t little_endian(const uint8_t* bytes) {
    return uint32_t{bytes[3]} << 24 | uint32_t{bytes[2]} << 16 | uint32_t{bytes[1]} << 8 | bytes[0];
}

struct Page {
    int64_t size = 0;  // 0: there is none, or it is wrong
    bool begins_stream = false;
    bool ends_stream = false;
    uint32_t stream = 0;
    uint32_t number = 0;
};

Page page_at(InputDescriptor& file, int64_t at) {
    std::vector<uint8_t> bytes(kHead + kMostSegments * (1 + kMostSegments));
    bytes.resize(file.read_at(at, bytes.data(), kHead + kMostSegments));
    if (bytes.size() < kHead || std::memcmp(bytes.data(), kMark.data(), kMark.size()) != 0 ||
        bytes.size() < kHead + bytes[26]) {
        return {};
    }
    const auto body = bytes.begin() + static_cast<std::ptrdiff_t>(kHead);
    const auto size = static_cast<std::size_t>(
        std::accumulate(body, body + bytes[26], int64_t{kHead} + bytes[26]));
    bytes.resize(size);
    if (file.read_at(at, bytes.data(), size) != size) {
        return {};
    }
    const uint32_t stated = little_endian(&bytes[kChecksum]);
    std::fill_n(bytes.begin() + kChecksum, 4, uint8_t{0});
    if (checksum(bytes) != stated) {
        return {};
    }
    return {.size = static_cast<int64_t>(size),
            .begins_stream = (bytes[5] & 2) != 0,
            .ends_stream = (bytes[5] & 4) != 0,
            .stream = little_endian(&bytes[14]),
            .number = little_endian(&bytes[18])};
}

/** The next place where a page may begin, or the file's end. */
int64_t next_mark(InputDescriptor& file, int64_t from) {
    std::string piece(65536, '\0');
    while (from < file.size()) {
        piece.resize(file.read_at(from, piece.data(), 65536));
        const std::size_t found = piece.find(kMark);
        if (found != std::string::npos) {
            return from + static_cast<int64_t>(found);
        }
        if (piece.size() < kMark.size()) {
            break;
        }
        from += static_cast<int64_t>(piece.size() - kMark.size()) + 1;
    }
    return file.size();
}

}  // namespace

OggLinks find_ogg_links(InputDescriptor& file) {
    OggLinks links;
    std::map<uint32_t, uint32_t> next_numbers;  // by stream that has not ended
    bool in_first_pages = false;  // a link may have several streams, whose first pages come first
    for (int64_t at = 0; at < file.size();) {
        const Page page = page_at(file, at);
        if (page.size == 0) {
            at = next_mark(file, at + 1);
            continue;
        }
        if (page.begins_stream && !in_first_pages) {
            if (!next_numbers.empty() && links.unfinished == 0) {
                links.unfinished = static_cast<int64_t>(links.starts.size());
            }
            links.starts.push_back(at);
            next_numbers.clear();
        }
        in_first_pages = page.begins_stream;
        const auto [next, is_new] = next_numbers.try_emplace(page.stream, page.number);
        if (next->second != page.number) {
            links.is_damaged = true;
            return links;
        }
        ++next->second;
        if (page.ends_stream) {
            next_numbers.erase(next);
        }
        at += page.size;
        links.end = at;
    }
    return links;
}

}  // namespace korvane::tool
