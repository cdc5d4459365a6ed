/** Ogg files that were put one behind the other, as recorders and radio stations make them. */
#ifndef KORVANE_TOOLS_AUDIO_OGG_LINKS_H
#define KORVANE_TOOLS_AUDIO_OGG_LINKS_H

#include <cstdint>
#include <vector>

#include "tools/audio/input_descriptor.h"

namespace korvane::tool {

/** Where the links of a chain lie in a file, in bytes; see RFC 3533. */
struct OggLinks {
    std::vector<int64_t> starts;
    int64_t end = 0;          ///< of what is whole
    bool is_damaged = false;  ///< behind `end` a page is missing or wrong
    /** Of the first link that others follow though its last page is missing, counted from 1; 0: there is none. */
    int64_t unfinished = 0;
};

/** What is no page is passed over where a link has ended. */
OggLinks find_ogg_links(InputDescriptor& file);

}  // namespace korvane::tool

#endif
