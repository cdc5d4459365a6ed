#include "tools/audio/resampled_source.h"

#include <algorithm>
#include <utility>

#include "tools/audio/input_descriptor.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

constexpr std::size_t kRoom = 8192;  // sample frames that one call of the resampler may give

}  // namespace

ResampledSource::ResampledSource(std::unique_ptr<AudioSource> source) : source_(std::move(source)) {
    info_ = source_->info();
    info_.rate = kResampledRate;
    info_.bit_exact = false;
    if (info_.length) {
        info_.length = resampled_length(*info_.length, info_.input_rate);
    }
    soxr_error_t error = nullptr;
    soxr_io_spec_t samples = soxr_io_spec(SOXR_INT16_I, SOXR_INT16_I);
    samples.flags = SOXR_NO_DITHER;
    const soxr_quality_spec_t quality = soxr_quality_spec(SOXR_VHQ, 0);  // linear phase
    resampler_.reset(soxr_create(info_.input_rate, kResampledRate,
                                 static_cast<unsigned>(info_.channels), &error, &samples, &quality,
                                 nullptr));
    if (error != nullptr) {
        throw Failure(input_name(info_.name), "cannot be resampled: " + std::string(error));
    }
}

/** Feeds the resampler about as much as `wanted` samples need, so that a live input is not read
 * ahead of what goes out. */
void ResampledSource::refill(int64_t wanted) {
    piece_.clear();
    const int64_t feed = std::min<int64_t>(wanted, kRoom) * info_.input_rate / kResampledRate + 1;
    const int64_t count = read_source(feed);
    convert(in_.data(), static_cast<std::size_t>(count));
    if (count < feed) {
        read_source(1);  // nothing, or what is wrong with the input
        convert(nullptr, 0);
        ended_ = true;
    }
}

int64_t ResampledSource::read_source(int64_t n) {
    in_.resize(static_cast<std::size_t>(n * info_.channels));
    try {
        return source_->read(in_.data(), n);
    } catch (const Failure&) {
        fault_ = std::current_exception();
        return 0;
    }
}

/** Appends what comes out to the piece. `in` null: the input is at its end. */
void ResampledSource::convert(const int16_t* in, std::size_t count) {
    const auto channels = static_cast<std::size_t>(info_.channels);
    std::size_t done = 0;
    do {
        const std::size_t before = piece_.size();
        piece_.resize(before + kRoom * channels);
        std::size_t taken = 0;
        const soxr_error_t error =
            soxr_process(resampler_.get(), in, count, &taken, piece_.data() + before, kRoom, &done);
        piece_.resize(before + done * channels);
        if (error != nullptr) {
            throw Failure(input_name(info_.name), "cannot be resampled: " + std::string(error));
        }
        in = in == nullptr ? nullptr : in + taken * channels;
        count -= taken;
    } while (count > 0 || done > 0);
}

}  // namespace korvane::tool
