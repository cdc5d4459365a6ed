/** Who says where somebody speaks: files of the formats that are scored. */
#ifndef KORVANE_TOOLS_SCORE_ANNOTATIONS_H
#define KORVANE_TOOLS_SCORE_ANNOTATIONS_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace korvane::tool {

/** In microseconds, from `start` to before `end`. */
struct Stretch {
    int64_t start = 0;
    int64_t end = 0;
};

/** Speech in one channel of one recording. */
struct Annotation {
    std::string
        name;  ///< as the file has it; where it has none, its own without folder and extension
    int channel = 1;
    std::vector<Stretch> speech = {};    ///< in any order; they may overlap
    std::optional<int64_t> length = {};  ///< microseconds, where the file says it
};

/**
 * Reads RTTM, labels of Audacity, a TextGrid, or jsonl, told apart by what is in them. Every label
 * counts as speech, and so does every interval of a TextGrid whose text is not empty. Throws a Failure
 * that names the line where there is none of these.
 */
std::vector<Annotation> read_annotations(const std::string& path);

}  // namespace korvane::tool

#endif
