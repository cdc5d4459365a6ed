/** WAV and W64 without a true length: what a recorder has not finished, and what was written to a pipe. */
#ifndef KORVANE_TOOLS_AUDIO_UNFINISHED_WAV_H
#define KORVANE_TOOLS_AUDIO_UNFINISHED_WAV_H

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

}  // namespace korvane::tool

#endif
