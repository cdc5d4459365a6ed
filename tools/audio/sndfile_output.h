/** Sound files written with libsndfile, without its losing an error. */
#ifndef KORVANE_TOOLS_AUDIO_SNDFILE_OUTPUT_H
#define KORVANE_TOOLS_AUDIO_SNDFILE_OUTPUT_H

#include <cstdint>
#include <vector>

#include "tools/audio/sndfile_source.h"

namespace korvane::tool {

/** What libsndfile writes to. It keeps the error that libsndfile and its encoders pass over. */
struct Output {
    int descriptor = -1;
    int error = 0;
};

/** Null where libsndfile does not write the format; sf_strerror(nullptr) says why. The output must outlive it. */
SndfileHandle open_for_writing(Output& output, int format, int rate, int channels);

/** Full scale 1.0 for what is floating point or coded from it, else the samples as they are: wider
 * integers are filled up with zeros. */
sf_count_t write_samples(SNDFILE* file, int format, const std::vector<int16_t>& samples);

/** Whether what was written to the file is found there again, with its length. */
bool reads_back_as(int descriptor, int format, int rate, int channels, int64_t length);

}  // namespace korvane::tool

#endif
