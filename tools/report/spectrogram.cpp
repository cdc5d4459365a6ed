#include "tools/report/spectrogram.h"

#include <fftw3.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <limits>
#include <new>
#include <numbers>

namespace korvane::tool::report {

namespace {

constexpr int kOverlap = 4;
constexpr int kMaxRows = 256;

/** The power of two from 20 ms on; at very low rates 64, for some frequencies at all. */
int window_length(int rate) {
    return static_cast<int>(std::bit_ceil(static_cast<unsigned>(std::max(64, rate / 50))));
}

}  // namespace

struct Spectrogram::Transform {
    Transform(int window, int rows)
        : in(fftwf_alloc_real(static_cast<std::size_t>(window))),
          out(fftwf_alloc_complex(static_cast<std::size_t>(window) / 2 + 1)),
          weights(static_cast<std::size_t>(window)),
          squares(static_cast<std::size_t>(window) / 2),
          power(static_cast<std::size_t>(rows)) {
        if (in == nullptr || out == nullptr) {
            throw std::bad_alloc();
        }
        // Estimated, not measured: the same plan in every run, and so the same page.
        plan = fftwf_plan_dft_r2c_1d(window, in, out, FFTW_ESTIMATE);
        // A sine of amplitude 32768 then has magnitude 1: the window sums to window / 2 and a real
        // sine has half its amplitude at either sign of the frequency.
        const double scale = 4.0 / window / 32768;
        for (int i = 0; i < window; ++i) {
            const double phase = 2 * std::numbers::pi * i / window;
            weights[static_cast<std::size_t>(i)] =
                static_cast<float>(scale * (0.5 - 0.5 * std::cos(phase)));
        }
    }
    ~Transform() {
        fftwf_destroy_plan(plan);
        fftwf_free(out);
        fftwf_free(in);
    }
    Transform(const Transform&) = delete;
    Transform& operator=(const Transform&) = delete;

    float* in;
    fftwf_complex* out;
    fftwf_plan plan;
    std::vector<float> weights;
    std::vector<float> squares;  // of the magnitudes
    std::vector<float> power;    // of a window, by row
};

Spectrogram::Spectrogram(int rate, int channels, int64_t cells)
    : channels_(channels),
      window_(window_length(rate)),
      step_(window_ / kOverlap),
      rows_(std::min(window_ / 2, kMaxRows)),
      rate_(rate),
      // Even, so that halving leaves none over.
      max_columns_(std::max<int64_t>(2, cells / rows_ / 2 * 2)),
      column_(static_cast<std::size_t>(rows_)),
      transform_(std::make_unique<Transform>(window_, rows_)) {
    // Memory is taken only where it is written to, so this costs short recordings nothing and long
    // ones no copies.
    power_.reserve(static_cast<std::size_t>((max_columns_ + 1) * rows_));
    // Windows are centred in their steps, so the first one begins before the first sample.
    pending_.assign(samples_in((window_ - step_) / 2), 0);
}

Spectrogram::~Spectrogram() = default;

std::size_t Spectrogram::samples_in(int64_t sample_frames) const {
    return static_cast<std::size_t>(sample_frames * channels_);
}

void Spectrogram::add(const int16_t* samples, int64_t n) {
    pending_.insert(pending_.end(), samples, samples + n * channels_);
    length_ += n;
    std::size_t begin = 0;
    const std::size_t needed = samples_in(window_);
    for (; pending_.size() - begin >= needed; begin += samples_in(step_)) {
        std::fill(transform_->power.begin(), transform_->power.end(), 0.0F);
        for (int channel = 0; channel < channels_; ++channel) {
            const int16_t* first = pending_.data() + begin + static_cast<std::size_t>(channel);
            for (int i = 0; i < window_; ++i) {
                transform_->in[i] = transform_->weights[static_cast<std::size_t>(i)] *
                                    static_cast<float>(first[i * channels_]);
            }
            transform();
        }
        add_to_column();
    }
    pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(begin));
}

/** One channel of a window, into the power by row. The bin at half the rate is left out. */
void Spectrogram::transform() {
    fftwf_execute(transform_->plan);
    const fftwf_complex* const out = transform_->out;
    float* const squares = transform_->squares.data();
    for (int bin = 0; bin < window_ / 2; ++bin) {
        squares[bin] = out[bin][0] * out[bin][0] + out[bin][1] * out[bin][1];
    }
    const int bins = window_ / 2 / rows_;
    if (bins > 1) {
        for (int row = 0; row < rows_; ++row) {
            squares[row] = *std::max_element(squares + row * bins, squares + (row + 1) * bins);
        }
    }
    const float share = 1.0F / static_cast<float>(channels_);
    for (std::size_t row = 0; row < column_.size(); ++row) {
        transform_->power[row] += share * squares[row];
    }
}

void Spectrogram::add_to_column() {
    for (std::size_t row = 0; row < column_.size(); ++row) {
        column_[row] += transform_->power[row];
    }
    ++windows_;
    if (++in_column_ < per_column_) {
        return;
    }
    if (columns() == max_columns_) {
        halve();  // what has been collected is now the first half of a wider column
    } else {
        close_column();
    }
}

void Spectrogram::close_column() {
    for (double& sum : column_) {
        power_.push_back(static_cast<float>(sum / static_cast<double>(in_column_)));
        sum = 0;
    }
    in_column_ = 0;
}

void Spectrogram::halve() {
    const std::size_t height = column_.size();
    const std::size_t half = power_.size() / height / 2;
    for (std::size_t column = 0; column < half; ++column) {
        for (std::size_t row = 0; row < height; ++row) {
            power_[column * height + row] =
                (power_[2 * column * height + row] + power_[(2 * column + 1) * height + row]) / 2;
        }
    }
    power_.resize(half * height);
    per_column_ *= 2;
}

void Spectrogram::finish() {
    const int64_t length = length_;
    const std::vector<int16_t> zeros(samples_in(step_), 0);
    while (windows_ * step_ < length) {
        add(zeros.data(), step_);
    }
    if (in_column_ > 0) {  // of fewer windows than the others, and perhaps one above the limit
        close_column();
    }
}

double Spectrogram::frequency(int row) const {
    const int bins = window_ / 2 / rows_;
    return (row * bins + (bins - 1) / 2.0) * static_cast<double>(rate_) / window_;
}

double Spectrogram::decibels(int64_t column, int row) const {
    const float power = power_[static_cast<std::size_t>(column * rows_ + row)];
    return power > 0 ? 10 * std::log10(static_cast<double>(power))
                     : -std::numeric_limits<double>::infinity();
}

std::vector<uint8_t> Spectrogram::bytes() const {
    std::vector<uint8_t> bytes;
    bytes.reserve(power_.size());
    for (int row = 0; row < rows_; ++row) {
        for (int64_t column = 0; column < columns(); ++column) {
            const double steps = (decibels(column, row) - kFloor) / kStep;
            bytes.push_back(static_cast<uint8_t>(std::lround(std::clamp(steps, 0.0, 255.0))));
        }
    }
    return bytes;
}

}  // namespace korvane::tool::report
