#include "speech_segments.h"

#include <algorithm>

namespace korvane::tool {

void SpeechSegments::add(bool speech) {
    if (speech && !in_speech_) {
        segments_.push_back({stream_position_, stream_position_});
    }
    stream_position_ += frame_;
    if (speech) {
        segments_.back().end = stream_position_;
    }
    in_speech_ = speech;
}

std::vector<Segment> SpeechSegments::within(int64_t length) const {
    std::vector<Segment> clipped;
    for (const Segment& segment : segments_) {
        const int64_t begin = std::max<int64_t>(segment.begin - delay_, 0);
        const int64_t end = std::min(segment.end - delay_, length);
        if (begin < end) {
            clipped.push_back({begin, end});
        }
    }
    return clipped;
}

std::string seconds(int64_t samples, int rate) {
    const int64_t whole = samples / rate;
    const int64_t milliseconds =
        (2000 * (samples % rate) + rate) / (2 * static_cast<int64_t>(rate));
    const std::string decimals = std::to_string(1000 + milliseconds % 1000);
    return std::to_string(whole + milliseconds / 1000) + "." + decimals.substr(1);
}

}  // namespace korvane::tool
