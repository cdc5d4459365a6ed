#include "tools/results/json_results.h"

#include <array>
#include <charconv>
#include <nlohmann/json.hpp>
#include <string_view>

#include "tools/results/lines.h"
#include "tools/results/times.h"

namespace korvane::tool {

namespace {

using nlohmann::ordered_json;
using segments::Segment;

/** Bytes that are not UTF-8 become U+FFFD. */
std::string dump(const ordered_json& value, int indent = -1) {
    return value.dump(indent, ' ', false, ordered_json::error_handler_t::replace);
}

bool by_detector(const ResultHeader& header) {
    return header.stream.decision == KORVANE_DECISION_DETECTOR;
}

void identify(ordered_json& object, const ResultHeader& header) {
    object["file"] = header.source.name;
    if (header.channel != 0) {
        object["channel"] = header.channel;
    }
}

/** What produced a result: appended to `object`. */
void describe(ordered_json& object, const ResultHeader& header) {
    const SourceInfo& source = header.source;
    const segments::Rules& rules = header.rules;
    object["tool"] = "korvane-vad " KORVANE_VERSION;
    object["library"] = library_name(header.stream);
    identify(object, header);
    object["rate"] = source.rate;
    object["channels"] = source.channels;
    object["input_rate"] = source.input_rate;
    object["input_channels"] = source.input_channels;
    object["bit_exact"] = source.bit_exact;
    if (!by_detector(header)) {
        object["decision"] = decision_name(header.stream.decision);
        const Thresholds thresholds = thresholds_of(header.stream);
        object["enter"] = thresholds.enter;
        object["stay"] = thresholds.stay;
    }
    object["frame"] = header.stream.frame_length;
    object["delay"] = header.delay;
    object["onset"] = header.timing.onset;
    object["hangover"] = header.timing.hangover;
    object["align"] = align_name(rules.align);
    object["rules"] = {{"min_gap", rules.min_gap},
                       {"min_speech", rules.min_speech},
                       {"pad_start", rules.pad_start},
                       {"pad_end", rules.pad_end},
                       {"max_speech", rules.max_speech}};
}

void count(ordered_json& object, const StreamTotals& totals) {
    object["samples"] = totals.length;
    if (!totals.fault.empty()) {
        object["fault"] = totals.fault;
    }
    object["frames"] = totals.frames;
    object["sha256"] = totals.sha256;
}

// Segments are put together by hand: a time out of a floating-point number would now and then come
// out with seventeen digits.

/** The members of a segment's object, times with six decimals. */
std::string segment_members(const Segment& segment, int rate) {
    std::string text = "\"start\":" + seconds(segment.start, rate, kMicro);
    text.append(",\"end\":").append(seconds(segment.end, rate, kMicro));
    text.append(",\"start_sample\":").append(std::to_string(segment.start));
    text.append(",\"end_sample\":").append(std::to_string(segment.end));
    text.append(",\"decided_at\":").append(std::to_string(segment.decided_at));
    return text.append(",\"open\":").append(boolean(segment.open));
}

/** The first members of a line about an input. */
std::string jsonl_begin(const char* type, const ResultHeader& header) {
    ordered_json object = {{"type", type}};
    identify(object, header);
    std::string text = dump(object);
    text.back() = ',';
    return text;
}

std::string decimals(double value, int count) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                   std::chars_format::fixed, count);
    return {text.data(), end.ptr};
}

/** What was measured, as members of an object that has others before. */
std::string measure_members(const ResultHeader& header, const Frame& frame) {
    std::string text;
    for (const auto& [name, value] : measures(header, frame)) {
        text.append(",\"").append(name).append("\":").append(value);
    }
    return text;
}

std::string jsonl_header(const ResultHeader& header) {
    ordered_json object = {{"type", "header"}};
    describe(object, header);
    return dump(object) + "\n";
}

}  // namespace

std::vector<std::pair<const char*, std::string>> measures(const ResultHeader& header,
                                                          const Frame& frame) {
    if (by_detector(header)) {
        return {{"level", decimals(frame.level, 2)}};
    }
    return {{"level", decimals(frame.level, 2)},
            {"score", decimals(frame.score, 3)},
            {"noise", decimals(frame.noise, 2)}};
}

std::string json_result(const Judged& judged) {
    const auto& [header, totals, list] = judged;
    ordered_json object;
    describe(object, header);
    count(object, totals);
    std::string text = dump(object, 2);
    text.resize(text.size() - std::string_view("\n}").size());
    text += ",\n  \"segments\": [";
    for (const Segment& segment : list) {
        text.append(text.back() == '[' ? "\n" : ",\n");
        text.append("    {").append(segment_members(segment, header.source.rate)).append("}");
    }
    return text.append(list.empty() ? "]\n}" : "\n  ]\n}");
}

std::string jsonl_segment(const ResultHeader& header, int64_t index, const Segment& segment) {
    std::string text = jsonl_begin("segment", header);
    text.append("\"index\":").append(std::to_string(index)).append(",");
    return text.append(segment_members(segment, header.source.rate)).append("}\n");
}

std::string jsonl_onset(const ResultHeader& header, const segments::Onset& onset,
                        const Frame& frame) {
    std::string text = jsonl_begin("onset", header);
    text.append("\"start\":").append(seconds(onset.start, header.source.rate, kMicro));
    text.append(",\"start_sample\":").append(std::to_string(onset.start));
    text.append(",\"decided_at\":").append(std::to_string(onset.decided_at));
    return text.append(by_detector(header) ? "" : measure_members(header, frame)).append("}\n");
}

std::string jsonl_headers(const std::vector<ResultHeader>& headers) {
    std::string text;
    for (const ResultHeader& header : headers) {
        text += jsonl_header(header);
    }
    return text;
}

std::string jsonl_summary(const ResultHeader& header, const StreamTotals& totals,
                          int64_t segment_count) {
    ordered_json object = {{"type", "summary"}};
    identify(object, header);
    count(object, totals);
    object["segment_count"] = segment_count;
    return dump(object) + "\n";
}

std::string jsonl_result(const Judged& judged) {
    const auto& [header, totals, list] = judged;
    ordered_json object = {{"type", "header"}};
    describe(object, header);
    count(object, totals);
    object["segment_count"] = list.size();
    std::string text = dump(object) + "\n";
    for (std::size_t i = 0; i < list.size(); ++i) {
        text += jsonl_segment(header, static_cast<int64_t>(i), list[i]);
    }
    return text;
}

std::string json_failure(const std::string& name, const std::string& error) {
    return dump({{"file", name}, {"error", error}}, 2);
}

std::string jsonl_failure(const std::string& name, const std::string& error) {
    return dump({{"type", "error"}, {"file", name}, {"error", error}}) + "\n";
}

std::string jsonl_frame(const ResultHeader& header, const Frame& frame) {
    const int rate = header.source.rate;
    std::string text = R"({"type":"frame",)";
    text.append(header.channel != 0 ? "\"channel\":" + std::to_string(header.channel) + "," : "");
    text.append("\"index\":").append(std::to_string(frame.index));
    text.append(",\"start\":").append(seconds(frame.begin, rate, kMicro));
    text.append(",\"end\":").append(seconds(frame.end, rate, kMicro));
    text.append(",\"start_sample\":").append(std::to_string(frame.begin));
    text.append(",\"end_sample\":").append(std::to_string(frame.end));
    text.append(",\"fed\":").append(std::to_string(frame.fed));
    text.append(",\"speech\":").append(boolean(frame.speech));
    return text.append(measure_members(header, frame)).append("}\n");
}

}  // namespace korvane::tool
