/** Bytes as text in a page. */
#ifndef KORVANE_TOOLS_REPORT_PACKING_H
#define KORVANE_TOOLS_REPORT_PACKING_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace korvane::tool::report {

/** The zlib form (RFC 1950), which browsers call "deflate". Of at most 4 GB. */
std::vector<uint8_t> deflated(std::span<const uint8_t> bytes);

/** RFC 4648, padded, without line breaks. Of less than 2 GB. */
std::string base64(std::span<const uint8_t> bytes);

}  // namespace korvane::tool::report

#endif
