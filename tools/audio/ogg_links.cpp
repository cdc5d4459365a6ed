#include "tools/audio/ogg_links.h"

#include <cstring>
#include <numeric>

namespace korvane::tool {

std::vector<int64_t> starts_of_ogg_links(InputDescriptor& file) {
    constexpr std::size_t kHead = 27;  // bytes; the lengths of up to 255 segments follow
    constexpr uint8_t kFirstPage = 2;  // of a stream
    std::vector<int64_t> starts;
    bool in_first_pages = false;  // a link may have several streams, whose first pages come first
    uint8_t page[kHead + 255];
    for (int64_t at = 0;;) {
        const std::size_t got = file.read_at(at, page, sizeof page);
        if (got < kHead || std::memcmp(page, "OggS", 4) != 0 || got < kHead + page[26]) {
            return starts;
        }
        const bool first_page = (page[5] & kFirstPage) != 0;
        if (first_page && !in_first_pages) {
            starts.push_back(at);
        }
        in_first_pages = first_page;
        const uint8_t* const segments = page + kHead;
        at += static_cast<int64_t>(kHead) + page[26] +
              std::accumulate(segments, segments + page[26], 0);
    }
}

}  // namespace korvane::tool
