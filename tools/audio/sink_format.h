/** In which format a file is written, by its name and by what it is to hold. */
#ifndef KORVANE_TOOLS_AUDIO_SINK_FORMAT_H
#define KORVANE_TOOLS_AUDIO_SINK_FORMAT_H

#include <cstdint>
#include <string>

#include "tools/audio/audio_source.h"

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

/** Of a file's name, without its dot, in lower case. */
std::string lower_extension(const std::string& path);

/** Whether the extension stands for a format that libsndfile knows. */
bool is_sound_name(const std::string& path);

/** Why a file of this format cannot be written; empty where it can. */
std::string cannot_hold(int sf_format, int rate, int channels);

/** Most samples, all channels together, that the format's size fields can count. */
int64_t max_samples(int sf_format);
/** What is said where there are more. */
inline constexpr const char* kTooLong =
    "too long for this format (4 GiB); .w64, .rf64 and .flac hold more";

}  // namespace korvane::tool

#endif
