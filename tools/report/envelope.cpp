#include "tools/report/envelope.h"

#include <algorithm>

namespace korvane::tool::report {

namespace {

void append(std::vector<uint8_t>& bytes, const std::vector<int16_t>& values) {
    for (const int16_t value : values) {
        const auto bits = static_cast<uint16_t>(value);
        bytes.push_back(static_cast<uint8_t>(bits & 0xFFU));
        bytes.push_back(static_cast<uint8_t>(bits >> 8U));
    }
}

}  // namespace

Envelope::Envelope(int64_t limit) : limit_(limit) {}

void Envelope::add(const int16_t* numbers, int64_t n, int width) {
    while (n > 0) {
        if (low_.empty() || filled_ == bucket_) {
            if (count() == limit_) {
                halve();
            }
            low_.push_back(*numbers);
            high_.push_back(*numbers);
            filled_ = 0;
        }
        const int64_t taken = std::min(n, bucket_ - filled_);
        const int16_t* const end = numbers + taken * width;
        int16_t low = low_.back();
        int16_t high = high_.back();
        for (; numbers != end; ++numbers) {
            low = std::min(low, *numbers);
            high = std::max(high, *numbers);
        }
        low_.back() = low;
        high_.back() = high;
        filled_ += taken;
        n -= taken;
    }
}

/** All buckets are full here and their number is even. */
void Envelope::halve() {
    const std::size_t half = low_.size() / 2;
    for (std::size_t i = 0; i < half; ++i) {
        low_[i] = std::min(low_[2 * i], low_[2 * i + 1]);
        high_[i] = std::max(high_[2 * i], high_[2 * i + 1]);
    }
    low_.resize(half);
    high_.resize(half);
    bucket_ *= 2;
}

std::vector<uint8_t> Envelope::bytes() const {
    std::vector<uint8_t> bytes;
    bytes.reserve(4 * low_.size());
    append(bytes, low_);
    append(bytes, high_);
    return bytes;
}

}  // namespace korvane::tool::report
