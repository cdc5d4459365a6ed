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

void Envelope::add(int16_t low, int16_t high) {
    if (filled_ > 0 && filled_ < bucket_) {
        low_.back() = std::min(low_.back(), low);
        high_.back() = std::max(high_.back(), high);
        ++filled_;
        return;
    }
    if (count() == limit_) {
        halve();
    }
    low_.push_back(low);
    high_.push_back(high);
    filled_ = 1;
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
