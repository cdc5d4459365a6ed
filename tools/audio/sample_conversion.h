/** From what a file holds to the 16 bits that the detector takes, and back. */
#ifndef KORVANE_TOOLS_AUDIO_SAMPLE_CONVERSION_H
#define KORVANE_TOOLS_AUDIO_SAMPLE_CONVERSION_H

#include <sndfile.h>

#include <algorithm>
#include <cmath>
#include <cstdint>

namespace korvane::tool {

/** Upper 16 bits of an integer sample that fills 32 bits. */
constexpr int16_t sample_from_int(int32_t value) { return static_cast<int16_t>(value >> 16); }

/** Full scale 1.0: times 32768, to nearest (halves to even), clipped. Not a number gives 0. */
inline int16_t sample_from_float(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    return static_cast<int16_t>(std::lrint(std::clamp(value * 32768.0, -32768.0, 32767.0)));
}

/** The mean of `count` samples (1 or more) with this sum, to nearest, halves to even. */
constexpr int16_t rounded_mean(int64_t sum, int64_t count) {
    int64_t mean = sum / count;
    int64_t rest = sum % count;
    if (rest < 0) {
        rest += count;
        --mean;
    }
    const bool up = 2 * rest > count || (2 * rest == count && mean % 2 != 0);
    return static_cast<int16_t>(mean + (up ? 1 : 0));
}

/** What libsndfile's decoder gives without loss. */
enum class SampleKind {
    kShort,  ///< integers of up to 16 bits; the speech codecs decode to these
    kInt,    ///< wider integers
    kReal,   ///< floating point of full scale 1.0
};

constexpr bool is_mpeg(int sf_format) {
    const int encoding = sf_format & SF_FORMAT_SUBMASK;
    return encoding == SF_FORMAT_MPEG_LAYER_I || encoding == SF_FORMAT_MPEG_LAYER_II ||
           encoding == SF_FORMAT_MPEG_LAYER_III;
}

/** Of Vorbis, Opus and MPEG, whose decoders may differ in the last bits. */
constexpr bool is_inexact(int sf_format) {
    const int encoding = sf_format & SF_FORMAT_SUBMASK;
    return encoding == SF_FORMAT_VORBIS || encoding == SF_FORMAT_OPUS || is_mpeg(sf_format);
}

constexpr SampleKind sample_kind(int sf_format) {
    if (is_inexact(sf_format)) {
        return SampleKind::kReal;
    }
    switch (sf_format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_FLOAT:
        case SF_FORMAT_DOUBLE:
            return SampleKind::kReal;
        case SF_FORMAT_PCM_24:
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_DWVW_24:
        case SF_FORMAT_DWVW_N:
        case SF_FORMAT_ALAC_20:
        case SF_FORMAT_ALAC_24:
        case SF_FORMAT_ALAC_32:
            return SampleKind::kInt;
        default:
            return SampleKind::kShort;
    }
}

constexpr int container_of(int format) { return format & SF_FORMAT_TYPEMASK; }

/** Bytes of a sample where all have the same, else 0. */
constexpr int64_t sample_bytes(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
        case SF_FORMAT_ULAW:
        case SF_FORMAT_ALAW:
            return 1;
        case SF_FORMAT_PCM_16:
            return 2;
        case SF_FORMAT_PCM_24:
            return 3;
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_FLOAT:
            return 4;
        case SF_FORMAT_DOUBLE:
            return 8;
        default:
            return 0;
    }
}

}  // namespace korvane::tool

#endif
