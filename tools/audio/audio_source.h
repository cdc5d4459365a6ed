/** Sound from a file, from standard input or from a raw stream, as the detector takes it: 16-bit
 * samples of one or two channels, below 50000 Hz. */
#ifndef KORVANE_TOOLS_AUDIO_AUDIO_SOURCE_H
#define KORVANE_TOOLS_AUDIO_AUDIO_SOURCE_H

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace korvane::tool {

constexpr int kFastestRate = 1'000'000;  ///< Hz, of an input

enum class RawEncoding { kUnsigned8, kSigned16, kSigned24, kFloat32, kMuLaw, kALaw };

/** Samples without a header. */
struct RawFormat {
    RawEncoding encoding = RawEncoding::kSigned16;
    bool big_endian = false;
    bool planar = false;  ///< files only: all of channel 1, then all of channel 2 ...
    int rate = 0;
    int channels = 1;
};

/** Hears the input's own samples, all of them, n of each channel at a time: interleaved, of all its
 * channels and at its rate, and as sample_kind says int16_t, int32_t or double. */
using OriginalListener = std::function<void(const void* samples, int64_t n)>;

struct SourceOptions {
    std::optional<RawFormat> raw;
    bool by_ffmpeg = false;     ///< which decodes in the place of libsndfile
    std::vector<int> channels;  ///< one or two of the input's, counted from 1; empty: all
    bool each_channel = false;  ///< any number of channels, since each will be judged by itself
    bool downmix = false;       ///< the mean of all (or of `channels`, then any number), rounded
                                ///< to nearest, halves to even
    bool resample = false;      ///< to 48000 Hz where the input has 50000 Hz or more
    OriginalListener original = {};
};

/** What a source is and what was done to it. */
struct SourceInfo {
    std::string name;  ///< as given; "-" for standard input
    int rate = 0;      ///< Hz, as handed out
    int channels = 0;  ///< 1 or 2, as handed out; any number where each is judged by itself
    int input_rate = 0;
    int input_channels = 0;
    int sf_format = 0;        ///< libsndfile's format word, 0 for raw samples of 16 bits
    bool is_decoded = false;  ///< by ffmpeg: the file itself is not of sf_format
    bool bit_exact = true;    ///< false after resampling, and after Vorbis, Opus and MPEG, whose
                              ///< decoders are not defined bit by bit
    std::optional<int64_t> length;  ///< samples per channel as handed out, where known beforehand
};

class AudioSource {
  public:
    virtual ~AudioSource() = default;
    virtual const SourceInfo& info() const = 0;
    /**
     * The next n sample frames, interleaved.
     *
     * @param out  n * channels samples
     * @return how many were written; fewer than n only at the end. From a pipe it returns as soon
     *         as n are there and no later.
     * Throws a Failure where the input is damaged, ends too early or has no samples at all. The
     * samples before the fault are handed out first; so the end is sound once a call, with n
     * greater than 0, has returned 0.
     */
    virtual int64_t read(int16_t* out, int64_t n) = 0;
};

/** Opens a file, or standard input for "-". Throws a Failure that says what to do where the input
 * cannot be taken as it is (rate, channels). */
std::unique_ptr<AudioSource> open_source(const std::string& name, const SourceOptions& options);

/**
 * Ends an input that is not a regular file here and now: a read that waits for more returns what is
 * there, later ones 0, and what is missing then is no fault. Async-signal-safe.
 */
void interrupt_live_input();

}  // namespace korvane::tool

#endif
