/** Short-time power spectra of a recording, in a bounded number of columns. */
#ifndef KORVANE_TOOLS_REPORT_SPECTROGRAM_H
#define KORVANE_TOOLS_REPORT_SPECTROGRAM_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

namespace korvane::tool::report {

/**
 * Hann windows of 20 to 40 ms, overlapping by three quarters. A sine of full scale reads 0 dB in
 * its row. Of two channels the mean power counts; of several bins in a row the strongest, so that
 * tones keep their level.
 *
 * Column j shows what lies in samples j*hop() to (j+1)*hop()-1: the mean power of the windows
 * centred there. Whenever there are too many columns, neighbours become one.
 */
class Spectrogram {
  public:
    /** @param rate   Hz, at least 1
     *  @param cells  most values kept, a float each; but two columns at least */
    Spectrogram(int rate, int channels, int64_t cells);
    ~Spectrogram();
    Spectrogram(const Spectrogram&) = delete;
    Spectrogram& operator=(const Spectrogram&) = delete;

    /** The next n sample frames, interleaved. */
    void add(const int16_t* samples, int64_t n);

    /** Zeros follow the last sample until every sample is in a column. Nothing may be added after.
     */
    void finish();

    int window() const { return window_; }
    int rows() const { return rows_; }
    /** Samples in a column. */
    int64_t hop() const { return step_ * per_column_; }
    int64_t columns() const { return static_cast<int64_t>(power_.size()) / rows_; }
    /** Row r is centred at this many Hz. */
    double frequency(int row) const;
    /** dB of full scale; -infinity for digital silence. */
    double decibels(int64_t column, int row) const;

    static constexpr double kFloor = -110;  ///< dB, what a byte of 0 stands for
    static constexpr double kStep = 2;      ///< dB from one byte to the next

    /** A byte for each cell, row after row from the lowest frequency: that way equal values lie
     * side by side and pack well. */
    std::vector<uint8_t> bytes() const;

  private:
    struct Transform;

    std::size_t samples_in(int64_t sample_frames) const;
    void transform();
    void add_to_column();
    void close_column();
    void halve();

    int channels_;
    int window_;
    int step_;
    int rows_;
    int64_t rate_;
    int64_t max_columns_;
    int64_t per_column_ = 1;        // windows in a column
    int64_t in_column_ = 0;         // windows in the column that is being made
    int64_t length_ = 0;            // sample frames added
    int64_t windows_ = 0;           // done so far
    std::vector<int16_t> pending_;  // interleaved, from the next window's first sample on
    std::vector<double> column_;    // sum over its windows
    std::vector<float> power_;      // column after column
    std::unique_ptr<Transform> transform_;
};

}  // namespace korvane::tool::report

#endif
