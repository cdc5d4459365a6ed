/** A recording, read from any file that libsndfile knows and handed out as 16-bit samples. */
#ifndef KORVANE_TOOLS_RECORDING_H
#define KORVANE_TOOLS_RECORDING_H

#include <sndfile.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace korvane::tool {

/** Upper 16 bits of an integer sample that fills 32 bits. */
constexpr int16_t sample_from_int(int32_t value) { return static_cast<int16_t>(value >> 16); }

/** Full scale 1.0: times 32768, to nearest (halves to even), clipped. Not a number gives 0. */
int16_t sample_from_float(double value);

class Recording {
  public:
    /** Opens it and checks that the detector can take it: 1 or 2 channels, 1..49999 Hz. */
    explicit Recording(const std::string& path);

    int rate() const { return info_.samplerate; }
    int channels() const { return info_.channels; }

    /**
     * The next n sample frames, interleaved.
     *
     * @param out  n * channels() samples, written as far as the recording goes
     * @return the number of sample frames written; fewer than n only at the end
     *
     * Throws a Failure where the file is damaged, ends too early or has no samples at all.
     */
    int64_t read(int16_t* out, int64_t n);

  private:
    enum class Kind { kShort, kInt, kFloat };
    struct Close {
        void operator()(SNDFILE* file) const { sf_close(file); }
    };

    static Kind kind_of(int format);
    void refill();
    void check_complete() const;

    std::string path_;
    SF_INFO info_{};
    std::unique_ptr<SNDFILE, Close> file_;
    Kind kind_ = Kind::kShort;
    int64_t frames_read_ = 0;
    bool ended_ = false;
    std::vector<int16_t> piece_;  // samples read and converted
    std::size_t used_ = 0;        // of them handed out
    std::vector<int32_t> wide_;   // a piece before its conversion
    std::vector<double> real_;
};

}  // namespace korvane::tool

#endif
