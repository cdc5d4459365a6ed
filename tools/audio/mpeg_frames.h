/** Where the frames of MPEG audio begin in a file, and what its first one promises. */
#ifndef KORVANE_TOOLS_AUDIO_MPEG_FRAMES_H
#define KORVANE_TOOLS_AUDIO_MPEG_FRAMES_H

#include <cstdint>
#include <optional>

#include "tools/audio/input_descriptor.h"

namespace korvane::tool {

struct MpegSound {
    int64_t start = 0;       // bytes from the file's beginning to the first frame
    bool counted = false;    // the first frame says how many there are
    int64_t byte_count = 0;  // from `start`, as the first frame has it; 0 where it says nothing
};

/**
 * The MPEG sound that begins at `from` or at most `most_before` bytes behind it: with two frames one behind the other,
 * or one that reaches the file's end. A count of frames that leaves out what follows, as in files put one behind the
 * other, is passed over. Frames of a free bit rate are not found.
 */
std::optional<MpegSound> find_mpeg(InputDescriptor& file, int64_t from, int64_t most_before);

/** How far sound goes on as it began. */
struct MpegExtent {
    int64_t end = 0;       // bytes from the file's beginning to behind the last frame
    bool changes = false;  // frames of another rate or number of channels follow
};

/** Of the sound whose first frame is at `start`. What is no frame is passed over, if frames follow. */
MpegExtent extent_of_mpeg(InputDescriptor& file, int64_t start);

/** Where the ID3 tags that stand at `from`, if any, end. A cover in one may look like MPEG. */
int64_t end_of_id3_tags(InputDescriptor& file, int64_t from);

}  // namespace korvane::tool

#endif
