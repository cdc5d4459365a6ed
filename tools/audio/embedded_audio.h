/** Sound in a page. */
#ifndef KORVANE_TOOLS_AUDIO_EMBEDDED_AUDIO_H
#define KORVANE_TOOLS_AUDIO_EMBEDDED_AUDIO_H

namespace korvane::tool {

enum class EmbeddedAudio {
    kMp3,   ///< small
    kFlac,  ///< to the bit
    kNone,
};

}  // namespace korvane::tool

#endif
