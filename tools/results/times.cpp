#include "tools/results/times.h"

#include <algorithm>

namespace korvane::tool {

// Whole seconds apart, so that nothing overflows.
int64_t ticks(int64_t samples, int rate, int64_t scale) {
    int64_t whole = samples / rate;
    int64_t rest = samples % rate;
    if (rest < 0) {
        rest += rate;
        --whole;
    }
    return whole * scale + (2 * rest * scale + rate) / (2 * static_cast<int64_t>(rate));
}

std::string zero_padded(int64_t number, std::size_t digits) {
    const std::string text = std::to_string(number);
    return std::string(digits - std::min(digits, text.size()), '0') + text;
}

std::string seconds(int64_t samples, int rate, int64_t scale) {
    const int64_t count = ticks(samples, rate, scale);
    const int64_t size = count < 0 ? -count : count;
    const std::size_t decimals = scale == kMilli ? 3 : 6;
    std::string text = count < 0 ? "-" : "";
    return text.append(std::to_string(size / scale))
        .append(".")
        .append(zero_padded(size % scale, decimals));
}

}  // namespace korvane::tool
