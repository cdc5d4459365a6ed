/** Ogg files that were put one behind the other, as recorders and radio stations make them. */
#ifndef KORVANE_TOOLS_AUDIO_OGG_LINKS_H
#define KORVANE_TOOLS_AUDIO_OGG_LINKS_H

#include <cstdint>
#include <vector>

#include "tools/audio/input_descriptor.h"

namespace korvane::tool {

/** Where the links of a chain begin, in bytes, as far as its pages follow each other; see RFC 3533. */
std::vector<int64_t> starts_of_ogg_links(InputDescriptor& file);

}  // namespace korvane::tool

#endif
