/** Some of a source's channels, or their mean. */
#ifndef KORVANE_TOOLS_AUDIO_CHANNEL_SELECTION_H
#define KORVANE_TOOLS_AUDIO_CHANNEL_SELECTION_H

#include <cstdint>
#include <memory>
#include <vector>

#include "tools/audio/audio_source.h"

namespace korvane::tool {

class ChannelSelection : public AudioSource {
  public:
    /** @param channels  of the source's, counted from 0; not empty */
    ChannelSelection(std::unique_ptr<AudioSource> source, std::vector<int> channels, bool downmix);
    const SourceInfo& info() const override { return info_; }
    int64_t read(int16_t* out, int64_t n) override;

  private:
    std::unique_ptr<AudioSource> source_;
    std::vector<int> channels_;
    bool downmix_;
    SourceInfo info_;
    std::vector<int16_t> all_;
};

/** The channels that the options ask for. Throws a Failure where these are not in the source, and
 * where more than two are left. */
std::unique_ptr<AudioSource> select_channels(std::unique_ptr<AudioSource> source,
                                             const SourceOptions& options);

}  // namespace korvane::tool

#endif
