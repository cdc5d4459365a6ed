/** What ffmpeg decodes, read from a pipe to it. */
#ifndef KORVANE_TOOLS_AUDIO_FFMPEG_SOURCE_H
#define KORVANE_TOOLS_AUDIO_FFMPEG_SOURCE_H

#include <sys/types.h>

#include <memory>
#include <string>

#include "tools/audio/audio_source.h"

namespace korvane::tool {

/** The first sound of a file or of standard input, as 16-bit samples. The length is not known. */
class FfmpegSource : public AudioSource {
  public:
    /** Throws a Failure with ffmpeg's own words, or that it is not installed. */
    FfmpegSource(const std::string& name, const OriginalListener& original);
    ~FfmpegSource() override;
    FfmpegSource(const FfmpegSource&) = delete;
    FfmpegSource& operator=(const FfmpegSource&) = delete;

    const SourceInfo& info() const override { return info_; }
    int64_t read(int16_t* out, int64_t n) override;

  private:
    void start(int output);
    void check_end();

    std::string name_;
    pid_t process_ = 0;
    int messages_ = -1;  // a file in memory that ffmpeg writes to
    std::unique_ptr<AudioSource> decoded_;
    SourceInfo info_;
};

}  // namespace korvane::tool

#endif
