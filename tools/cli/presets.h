/** Rules for segments, by what somebody wants to do with them. */
#ifndef KORVANE_TOOLS_CLI_PRESETS_H
#define KORVANE_TOOLS_CLI_PRESETS_H

#include <string>
#include <utility>
#include <vector>

namespace korvane::tool {

/** Times as the command line takes them. */
struct SegmentTimes {
    const char* min_gap;
    const char* min_speech;
    const char* pad_start;
    const char* pad_end;
    const char* max_speech;
};

/** With neither a preset nor an option. A breath or a stop within a word parts no segment, and a click
 * is none. */
constexpr SegmentTimes kUsualTimes = {"300ms", "100ms", "0", "0", "0"};
/** The same where sound is cut or a caption shown: the soft beginnings and ends of words stay in. */
constexpr SegmentTimes kUsualCuts = {"300ms", "100ms", "50ms", "150ms", "0"};
/** With the decision `detector`, whose hang-over joins and whose segments are as they always were. */
constexpr SegmentTimes kNoRules = {"0", "0", "0", "0", "0"};

const std::vector<std::pair<const char*, SegmentTimes>>& presets();
/** Their names with a bar between them. */
std::string preset_names();

}  // namespace korvane::tool

#endif
