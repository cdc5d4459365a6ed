// Lengths of time as they are given, and positions as they are written.

#include "tools/results/times.h"
#include "input_file.h"
#include "tools/cli/options.h"

using namespace korvane::tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    FuzzedDataProvider data(input, size);
    const int rate = data.ConsumeIntegralInRange(1, 1'000'000);
    const auto plain = data.ConsumeBool() ? Span::Unit::kSamples : Span::Unit::kSeconds;
    const auto position =
        data.ConsumeIntegralInRange<int64_t>(-1'000'000'000'000, 1'000'000'000'000);
    try {
        const Span span(data.ConsumeRemainingBytesAsString(), plain);
        const int64_t samples = span.samples(rate);
        require(samples >= 0 && samples <= 1'000'000'000'000'000, "a length of time is in range");
        const Span again(span.text(), plain);
        require(again.samples(rate) == samples, "the same text means the same");
    } catch (const std::invalid_argument&) {
    }
    for (const auto& [scale, decimals] : {std::pair{kMilli, 3U}, std::pair{kMicro, 6U}}) {
        std::string text = seconds(position, rate, scale);
        require(text.size() > decimals + 1 && text[text.size() - decimals - 1] == '.', "decimals");
        text.erase(text.size() - decimals - 1, 1);
        // Twice the difference between what is written and what is meant, in units of 1 / rate.
        const auto written = static_cast<__int128>(std::stoll(text)) * rate * 2;
        const auto meant = static_cast<__int128>(position) * scale * 2;
        require(written - meant <= rate && meant - written < rate, "to nearest, halves up");
    }
    return 0;
}
