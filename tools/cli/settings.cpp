/** What the options mean for one recording. */
#include <algorithm>
#include <charconv>
#include <cmath>
#include <sstream>

#include "tools/cli/options.h"
#include "tools/files/failure.h"
#include "tools/files/text_output.h"

namespace korvane::tool {

namespace {

constexpr double kLongestSeconds = 1e9;
constexpr double kMostSamples = 1e15;  // doubles count them one by one

}  // namespace

Span::Span(const std::string& text, Unit plain) : text_(text), unit_(plain) {
    const std::size_t digits = text.find_first_not_of("0123456789.");
    const std::string number = text.substr(0, digits);
    const std::string suffix = digits == std::string::npos ? "" : text.substr(digits);
    double scale = 1;
    if (suffix == "ms") {
        unit_ = Unit::kSeconds;
        scale = 1000;
    } else if (suffix == "s") {
        unit_ = Unit::kSeconds;
    } else if (suffix == "samples" || suffix == "sample") {
        unit_ = Unit::kSamples;
    } else if (!suffix.empty()) {
        throw std::invalid_argument("'" + text + "': write 250ms, 0.25s or 4000samples");
    }
    const char* end = number.data() + number.size();
    const auto [stop, error] = std::from_chars(number.data(), end, value_);
    if (error != std::errc() || stop != end) {
        throw std::invalid_argument("'" + text + "': write 250ms, 0.25s or 4000samples");
    }
    value_ /= scale;
    if (value_ > (unit_ == Unit::kSeconds ? kLongestSeconds : kMostSamples)) {
        throw std::invalid_argument("'" + text + "' is too long");
    }
    if (unit_ == Unit::kSamples && value_ != std::floor(value_)) {
        throw std::invalid_argument("'" + text + "': there are no parts of samples");
    }
}

int64_t Span::samples(int rate) const {
    return static_cast<int64_t>(unit_ == Unit::kSamples ? value_ : std::floor(value_ * rate + 0.5));
}

KorvaneStreamConfig Options::stream(const std::string& name, int rate, int channels) const {
    KorvaneStreamConfig config;
    korvane_stream_defaults(&config, rate, channels);
    if (frame.text() != "0") {
        const int64_t length = frame.samples(rate);
        if (length < 1 || length > kLongestFrame) {
            throw Failure(name, "--frame " + frame.text() + " is " + std::to_string(length) +
                                    " samples at " + std::to_string(rate) +
                                    " Hz; frames have 1 to 4096");
        }
        config.frame_length = static_cast<int32_t>(length);
    }
    config.decision = decision;
    config.restore_level = decision == KORVANE_DECISION_DETECTOR ? 0 : 1;
    const auto [enter_at, stay_above] = thresholds();
    if (decision == KORVANE_DECISION_ADAPTIVE) {
        config.enter_score = enter_at;
        config.stay_score = stay_above;
    } else {
        config.enter_db = enter_at;
        config.stay_db = stay_above;
    }
    config.onset_ms = onset.value_or(config.onset_ms);
    config.hangover_ms = hangover.value_or(config.hangover_ms);
    return config;
}

std::pair<float, float> Options::thresholds() const {
    KorvaneStreamConfig config;
    korvane_stream_defaults(&config, 16000, 1);
    const bool score = decision == KORVANE_DECISION_ADAPTIVE;
    const float usual_enter = score ? config.enter_score : config.enter_db;
    const float usual_stay = score ? config.stay_score : config.stay_db;
    const auto first = static_cast<float>(enter.value_or(usual_enter));
    const float least = score ? 0 : kLowestLevel;
    const auto second =
        stay ? static_cast<float>(*stay) : std::max(first - (usual_enter - usual_stay), least);
    return {first, second};
}

const SegmentTimes& Options::times() const {
    if (preset) {
        return *preset;
    }
    if (decision == KORVANE_DECISION_DETECTOR) {
        return kNoRules;
    }
    const bool captions = format == ResultFormat::kSrt || format == ResultFormat::kVtt;
    return captions || command == Command::kSplit ? kUsualCuts : kUsualTimes;
}

segments::Rules Options::rules(int rate) const {
    const SegmentTimes& usual = times();
    const auto samples = [rate](const std::optional<Span>& given, const char* otherwise) {
        return given.value_or(Span(otherwise, Span::Unit::kSeconds)).samples(rate);
    };
    segments::Rules rules;
    rules.align = align;
    rules.min_gap = samples(min_gap, usual.min_gap);
    rules.min_speech = samples(min_speech, usual.min_speech);
    rules.pad_start = samples(pad_start, usual.pad_start);
    rules.pad_end = samples(pad_end, usual.pad_end);
    rules.max_speech = samples(max_speech, usual.max_speech);
    return rules;
}

std::string Options::piece_name() const {
    if (!name_template.empty()) {
        return name_template;
    }
    return source.each_channel ? "{stem}_{channel}_{index:04}.{ext}" : "{stem}_{index:04}.{ext}";
}

void Options::check_may_overwrite(const std::string& path) const {
    if (no_clobber && !force) {
        check_is_new(path);
    }
}

std::string Options::fingerprint() const {
    std::ostringstream text;
    text << result_format_names()[static_cast<std::size_t>(format)] << " align "
         << align_name(align);
    text << ' ' << decision_name(decision);
    for (const std::optional<double>& limit : {enter, stay}) {
        text << ' ' << (limit ? std::to_string(*limit) : "-");
    }
    for (const std::optional<int32_t>& time : {onset, hangover}) {
        text << ' ' << (time ? std::to_string(*time) : "-");
    }
    const SegmentTimes& usual = times();
    const auto time = [&text](const std::optional<Span>& given, const char* otherwise) {
        text << ' ' << (given ? given->text() : otherwise);
    };
    text << ' ' << frame.text();
    time(pad_start, usual.pad_start);
    time(pad_end, usual.pad_end);
    time(min_speech, usual.min_speech);
    time(min_gap, usual.min_gap);
    time(max_speech, usual.max_speech);
    text << " channels";
    for (const int channel : source.channels) {
        text << ' ' << channel;
    }
    text << (source.downmix ? " downmix" : "") << (source.resample ? " resample" : "")
         << (source.by_ffmpeg ? " ffmpeg" : "") << (source.each_channel ? " each" : "")
         << (file_id_is_path ? " path" : "");
    if (source.raw) {
        text << " raw " << static_cast<int>(source.raw->encoding) << ' ' << source.raw->rate << ' '
             << source.raw->channels << (source.raw->big_endian ? " be" : " le")
             << (source.raw->planar ? " planar" : " interleaved");
    }
    return text.str();
}

}  // namespace korvane::tool
