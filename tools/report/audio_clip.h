/** A recording as a file that browsers play, in memory. */
#ifndef KORVANE_TOOLS_REPORT_AUDIO_CLIP_H
#define KORVANE_TOOLS_REPORT_AUDIO_CLIP_H

#include <cstdint>
#include <future>
#include <memory>
#include <optional>
#include <vector>

#include "tools/audio/embedded_audio.h"

namespace korvane::tool::report {

class Encoder;

/** Encodes in another thread what is added. */
class AudioClip {
  public:
    /**
     * MP3 is small, and every browser plays it. FLAC is to the bit what the detector got and gave; browsers play it
     * from 3000 Hz on. Throws std::runtime_error where it fails, as every call does.
     *
     * @param seconds  how long it will be, on which MP3's bit rate depends; none: not known
     */
    AudioClip(EmbeddedAudio format, int rate, int channels, std::optional<double> seconds);
    ~AudioClip();
    AudioClip(const AudioClip&) = delete;
    AudioClip& operator=(const AudioClip&) = delete;

    /** The next n sample frames, interleaved. */
    void add(const int16_t* samples, int64_t n);

    /** Bytes so far, but for what is on its way. */
    int64_t size() const { return size_; }

    /** The file; nothing may be added after. */
    std::vector<uint8_t> finish();

  private:
    void wait();
    void encode();

    std::unique_ptr<Encoder> encoder_;
    int channels_;
    std::vector<int16_t> collected_;
    std::vector<int16_t> in_work_;
    std::future<int64_t> encoding_;
    int64_t size_ = 0;
};

}  // namespace korvane::tool::report

#endif
