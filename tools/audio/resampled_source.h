/** A source whose rate is beyond the detector's, at 48000 Hz. */
#ifndef KORVANE_TOOLS_AUDIO_RESAMPLED_SOURCE_H
#define KORVANE_TOOLS_AUDIO_RESAMPLED_SOURCE_H

#include <soxr.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "tools/audio/buffered_source.h"

namespace korvane::tool {

constexpr int kResampledRate = 48000;

/** Length at kResampledRate of n samples at `rate` Hz: to nearest, halves up. n below 2^46. */
constexpr int64_t resampled_length(int64_t n, int rate) {
    return (2 * n * kResampledRate + rate) / (2 * int64_t{rate});
}

/** Sample 0 stays where it is; as long as resampled_length says. */
class ResampledSource : public BufferedSource {
  public:
    explicit ResampledSource(std::unique_ptr<AudioSource> source);

  private:
    struct Delete {
        void operator()(soxr_t resampler) const { soxr_delete(resampler); }
    };

    void refill(int64_t wanted) override;
    int64_t read_source(int64_t n);
    void convert(const int16_t* in, std::size_t count);

    std::unique_ptr<AudioSource> source_;
    std::unique_ptr<soxr, Delete> resampler_;
    std::vector<int16_t> in_;
};

}  // namespace korvane::tool

#endif
