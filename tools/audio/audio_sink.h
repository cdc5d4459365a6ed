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

/**
 * Format of a file for samples of a source: the source's own container and encoding where libsndfile
 * can write them so that rate, channels and length come back, else 16 bits in that container, else
 * WAV with 16 bits. A name with an extension that stands for another container chooses that one,
 * with the source's encoding if it has it and loses nothing. 0, samples without a header, for "-",
 * .raw and .pcm, and for a raw source where the name says nothing else.
 */
int sink_format(const SourceInfo& source, const std::string& path);

/** Throws a Failure where a file of that name cannot hold what the source gives: its extension stands
 * for no format that is written, or the format cannot hold the rate, the channels or the length. */
void check_sink(const SourceInfo& source, const std::string& path);

/** Whether the extension stands for a format that libsndfile knows. */
bool is_sound_name(const std::string& path);

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
