#include "tools/cli/presets.h"

namespace korvane::tool {

const std::vector<std::pair<const char*, SegmentTimes>>& presets() {
    static const std::vector<std::pair<const char*, SegmentTimes>> list = {
        // Captions that are on the screen long enough to read, and not longer than seven seconds.
        {"subtitles", {"400ms", "200ms", "100ms", "300ms", "7s"}},
        // Sentences: who dictates stops to think.
        {"dictation", {"1s", "150ms", "150ms", "300ms", "0"}},
        // Turns: a short "yes" is one, and the other side answers soon.
        {"telephone", {"200ms", "80ms", "50ms", "100ms", "0"}},
        // Passages, to see what an hour holds.
        {"archive", {"2s", "500ms", "250ms", "500ms", "0"}}};
    return list;
}

std::string preset_names() {
    std::string names;
    for (const auto& [name, times] : presets()) {
        names += (names.empty() ? "" : "|") + std::string(name);
    }
    return names;
}

}  // namespace korvane::tool
