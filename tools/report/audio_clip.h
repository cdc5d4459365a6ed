/** A recording as FLAC, in memory. */
#ifndef KORVANE_TOOLS_REPORT_AUDIO_CLIP_H
#define KORVANE_TOOLS_REPORT_AUDIO_CLIP_H

#include <cstdint>
#include <memory>
#include <vector>

namespace korvane::tool::report {

/** FLAC: what is heard in the page is to the bit what the detector got and gave, and every browser
 * plays it. */
class AudioClip {
  public:
    /** Throws std::runtime_error where it fails, as every call does. */
    AudioClip(int rate, int channels);
    ~AudioClip();
    AudioClip(const AudioClip&) = delete;
    AudioClip& operator=(const AudioClip&) = delete;

    /** The next n sample frames, interleaved. */
    void add(const int16_t* samples, int64_t n);

    /** Bytes so far. */
    int64_t size() const;

    /** The file; nothing may be added after. */
    const std::vector<uint8_t>& finish();

  private:
    struct File;
    std::unique_ptr<File> file_;
};

}  // namespace korvane::tool::report

#endif
