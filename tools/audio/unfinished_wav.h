/** WAV, W64, RF64, AU and CAF without a true length: what a recorder has not finished, and what was written to a pipe. */
#ifndef KORVANE_TOOLS_AUDIO_UNFINISHED_WAV_H
#define KORVANE_TOOLS_AUDIO_UNFINISHED_WAV_H

#include <sndfile.h>

#include <cstdint>
#include <optional>

#include "tools/audio/input_descriptor.h"

namespace korvane::tool {

/** Programs that write to a pipe cannot know the length and put a huge one into the header. What is declared from
 * here on, in bytes, is such a placeholder, unless the file says otherwise. */
constexpr int64_t kUnknownBytes = 0x7F000000;

/** Where the samples of a regular file begin, in bytes, if they go on to its end whatever its header says: where
 * that says 0 or a placeholder, and no chunk follows. */
std::optional<int64_t> start_of_unfinished_samples(InputDescriptor& file);

/** A CAF file whose header leaves the length open, which that format allows. */
struct OpenEndedCaf {
    int64_t start = 0;  ///< of the samples, in bytes
    SF_INFO samples{};  ///< without a header
};

/** Nothing for other files, and where the samples are not linear PCM. */
std::optional<OpenEndedCaf> find_open_ended_caf(InputDescriptor& file);

}  // namespace korvane::tool

#endif
