/** Sound into files that appear under their names only when they are whole. */
#ifndef KORVANE_TOOLS_AUDIO_AUDIO_SINK_H
#define KORVANE_TOOLS_AUDIO_AUDIO_SINK_H

#include <cstdint>
#include <memory>
#include <string>

#include "tools/audio/audio_source.h"
#include "tools/audio/sample_conversion.h"
#include "tools/files/temporary_file.h"

namespace korvane::tool {

class AudioSink {
  public:
    virtual ~AudioSink() = default;
    /** Appends n sample frames, interleaved. Throws a Failure, as every call does. */
    virtual void write(const int16_t* samples, int64_t n) = 0;
    /** The same of samples as an OriginalListener hears them, without loss where the format has room. */
    virtual void write_original(const void* samples, int64_t n, SampleKind kind) = 0;
    /** Writes what is left. The file still has to be committed, or nothing stays; null: standard
     * output, where all is done. */
    virtual std::unique_ptr<TemporaryFile> finish() = 0;
    /** The same, and sees to it that all of it is on the disk and gives the file its name. */
    void commit() {
        if (const std::unique_ptr<TemporaryFile> file = finish()) {
            file->commit();
        }
    }
};

/**
 * `path` may be the source's own file. format 0: samples without a header, 16-bit little-endian. "-"
 * is standard output, for format 0 only. Of a name whose container cannot hold the rate or the
 * channels the Failure says so.
 */
std::unique_ptr<AudioSink> open_sink(const std::string& path, int sf_format, int rate,
                                     int channels);

}  // namespace korvane::tool

#endif
