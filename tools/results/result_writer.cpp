#include "tools/results/result_writer.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <iterator>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "korvane_vad.h"
#include "tools/results/times.h"

namespace korvane::tool {

namespace {

using nlohmann::ordered_json;
using segments::Segment;

// ---- Times ----

/** hh:mm:ss and milliseconds behind `point`. */
std::string clock(int64_t milliseconds, char point) {
    const int64_t whole = milliseconds / kMilli;
    std::string text = zero_padded(whole / 3600, 2);
    text.append(":").append(zero_padded(whole / 60 % 60, 2));
    text.append(":").append(zero_padded(whole % 60, 2));
    text += point;
    return text.append(zero_padded(milliseconds % kMilli, 3));
}

/** "start --> end" of a caption. A caption must not end where it begins, not even one of less than
 * a millisecond. */
std::string cue_times(const Segment& segment, int rate, char point) {
    const int64_t start = ticks(segment.start, rate, kMilli);
    const int64_t end = std::max(ticks(segment.end, rate, kMilli), start + 1);
    return clock(start, point) + " --> " + clock(end, point) + "\n";
}

// ---- Names and words ----

bool is_control(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

/** For a line that people read: control characters as \xHH. */
std::string printable(const std::string& name) {
    constexpr std::string_view kHex = "0123456789abcdef";
    std::string text;
    for (const char c : name) {
        if (is_control(c)) {
            text.append("\\x");
            text += kHex[static_cast<std::size_t>(c) / 16];
            text += kHex[static_cast<std::size_t>(c) % 16];
        } else {
            text += c;
        }
    }
    return text;
}

/** For a field between spaces. */
std::string without_spaces(std::string name) {
    std::replace_if(
        name.begin(), name.end(), [](char c) { return c == ' ' || is_control(c); }, '_');
    return name;
}

std::string csv_field(const std::string& text) {
    if (text.find_first_of("\",\r\n") == std::string::npos) {
        return text;
    }
    std::string quoted = "\"";
    for (const char c : text) {
        quoted.append(c == '"' ? 2 : 1, c);
    }
    return quoted + "\"";
}

/** Bytes that are not UTF-8 become U+FFFD. */
std::string dump(const ordered_json& value, int indent = -1) {
    return value.dump(indent, ' ', false, ordered_json::error_handler_t::replace);
}

std::string boolean(bool value) { return value ? "true" : "false"; }

// ---- Text ----

std::string columns(const std::vector<std::string>& fields) {
    constexpr std::size_t kWidth = 12;
    std::string line;
    for (const std::string& field : fields) {
        line.append(line.empty() ? "" : " ");
        line.append(kWidth - std::min(kWidth, field.size()), ' ').append(field);
    }
    return line + "\n";
}

std::string text_line(int64_t index, const Segment& segment, int rate) {
    const std::string heading = index == 0 ? columns({"start", "end", "duration"}) : "";
    return heading +
           columns({seconds(segment.start, rate, kMilli), seconds(segment.end, rate, kMilli),
                    seconds(segment.end - segment.start, rate, kMilli)});
}

std::string text_end(int64_t segment_count) { return segment_count == 0 ? "no speech\n" : ""; }

std::string text_result(bool several, const ResultHeader& header,
                        const std::vector<Segment>& list) {
    std::string text = several ? printable(header.source.name) + ":\n" : "";
    for (std::size_t i = 0; i < list.size(); ++i) {
        text += text_line(static_cast<int64_t>(i), list[i], header.source.rate);
    }
    return text + text_end(std::ssize(list));
}

// ---- CSV ----

constexpr const char* kCsvHeading =
    "file,start,end,duration,start_sample,end_sample,decided_at,open\n";

std::string comma_separated(const std::vector<std::string>& fields) {
    std::string line;
    for (const std::string& field : fields) {
        line.append(line.empty() ? "" : ",").append(field);
    }
    return line + "\n";
}

std::string csv_line(const ResultHeader& header, const Segment& segment) {
    const int rate = header.source.rate;
    return comma_separated({csv_field(header.source.name), seconds(segment.start, rate, kMicro),
                            seconds(segment.end, rate, kMicro),
                            seconds(segment.end - segment.start, rate, kMicro),
                            std::to_string(segment.start), std::to_string(segment.end),
                            std::to_string(segment.decided_at), boolean(segment.open)});
}

// ---- JSON ----

bool by_detector(const ResultHeader& header) {
    return header.stream.decision == KORVANE_DECISION_DETECTOR;
}

/** What produced a result: appended to `object`. */
void describe(ordered_json& object, const ResultHeader& header) {
    const SourceInfo& source = header.source;
    const segments::Rules& rules = header.rules;
    object["tool"] = "korvane-vad " KORVANE_VERSION;
    object["library"] = library_name(header.stream);
    object["file"] = source.name;
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

std::string json_result(bool several, const ResultHeader& header, const StreamTotals& totals,
                        const std::vector<Segment>& list) {
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
    text.append(list.empty() ? "]\n}" : "\n  ]\n}");
    return several ? text : text + "\n";
}

std::string jsonl_segment(const ResultHeader& header, int64_t index, const Segment& segment) {
    std::string text = R"({"type":"segment","file":)" + dump(header.source.name);
    text.append(",\"index\":").append(std::to_string(index)).append(",");
    return text.append(segment_members(segment, header.source.rate)).append("}\n");
}

std::string decimals(double value, int count) {
    std::array<char, 32> text{};
    const auto end = std::to_chars(text.data(), text.data() + text.size(), value,
                                   std::chars_format::fixed, count);
    return {text.data(), end.ptr};
}

/** What was measured of a frame, by name. */
std::vector<std::pair<const char*, std::string>> measures(const ResultHeader& header,
                                                          const Frame& frame) {
    if (by_detector(header)) {
        return {{"level", decimals(frame.level, 2)}};
    }
    return {{"level", decimals(frame.level, 2)},
            {"score", decimals(frame.score, 3)},
            {"noise", decimals(frame.noise, 2)}};
}

/** The same as members of an object that has others before. */
std::string measure_members(const ResultHeader& header, const Frame& frame) {
    std::string text;
    for (const auto& [name, value] : measures(header, frame)) {
        text.append(",\"").append(name).append("\":").append(value);
    }
    return text;
}

std::string jsonl_onset(const ResultHeader& header, const segments::Onset& onset,
                        const Frame& frame) {
    std::string text = R"({"type":"onset","file":)" + dump(header.source.name);
    text.append(",\"start\":").append(seconds(onset.start, header.source.rate, kMicro));
    text.append(",\"start_sample\":").append(std::to_string(onset.start));
    text.append(",\"decided_at\":").append(std::to_string(onset.decided_at));
    return text.append(by_detector(header) ? "" : measure_members(header, frame)).append("}\n");
}

std::string jsonl_header(const ResultHeader& header) {
    ordered_json object = {{"type", "header"}};
    describe(object, header);
    return dump(object) + "\n";
}

std::string jsonl_summary(const ResultHeader& header, const StreamTotals& totals,
                          int64_t segment_count) {
    ordered_json object = {{"type", "summary"}, {"file", header.source.name}};
    count(object, totals);
    object["segment_count"] = segment_count;
    return dump(object) + "\n";
}

std::string jsonl_result(const ResultHeader& header, const StreamTotals& totals,
                         const std::vector<Segment>& list) {
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

// ---- Labels and captions ----

std::string audacity_result(const ResultHeader& header, const std::vector<Segment>& list) {
    std::string text;
    for (const Segment& segment : list) {
        text.append(seconds(segment.start, header.source.rate, kMicro)).append("\t");
        text.append(seconds(segment.end, header.source.rate, kMicro)).append("\tspeech\n");
    }
    return text;
}

std::string rttm_result(const ResultHeader& header, const std::vector<Segment>& list) {
    const int rate = header.source.rate;
    std::string text;
    for (const Segment& segment : list) {
        text.append("SPEAKER ").append(without_spaces(header.source.name)).append(" 1 ");
        text.append(seconds(segment.start, rate, kMicro)).append(" ");
        text.append(seconds(segment.end - segment.start, rate, kMicro));
        text.append(" <NA> <NA> speech <NA> <NA>\n");
    }
    return text;
}

std::string srt_result(const ResultHeader& header, const std::vector<Segment>& list) {
    std::string text;
    for (std::size_t i = 0; i < list.size(); ++i) {
        text.append(i == 0 ? "" : "\n").append(std::to_string(i + 1)).append("\n");
        text.append(cue_times(list[i], header.source.rate, ',')).append("speech\n");
    }
    return text;
}

std::string vtt_result(const ResultHeader& header, const std::vector<Segment>& list) {
    std::string text = "WEBVTT\n";
    for (const Segment& segment : list) {
        text.append("\n").append(cue_times(segment, header.source.rate, '.')).append("speech\n");
    }
    return text;
}

// ---- TextGrid ----

struct Interval {
    int64_t start;
    int64_t end;
    const char* label;
};

/** Segments and what lies between them: a tier has no holes. */
std::vector<Interval> intervals(const std::vector<Segment>& list, int64_t length) {
    std::vector<Interval> result;
    int64_t position = 0;
    for (const Segment& segment : list) {
        if (position < segment.start) {
            result.push_back({position, segment.start, ""});
        }
        result.push_back({segment.start, segment.end, "speech"});
        position = segment.end;
    }
    if (position < length) {
        result.push_back({position, length, ""});
    }
    return result;
}

std::string textgrid_span(const char* indent, int64_t start, int64_t end, int rate) {
    std::string text = indent;
    text.append("xmin = ").append(seconds(start, rate, kMicro)).append("\n").append(indent);
    return text.append("xmax = ").append(seconds(end, rate, kMicro)).append("\n");
}

std::string textgrid_result(const ResultHeader& header, int64_t length,
                            const std::vector<Segment>& list) {
    const int rate = header.source.rate;
    const std::vector<Interval> tier = intervals(list, length);
    std::string text = "File type = \"ooTextFile\"\nObject class = \"TextGrid\"\n\n";
    text += textgrid_span("", 0, length, rate);
    text += "tiers? <exists>\nsize = 1\nitem []:\n    item [1]:\n";
    text += "        class = \"IntervalTier\"\n        name = \"speech\"\n";
    text += textgrid_span("        ", 0, length, rate);
    text.append("        intervals: size = ").append(std::to_string(tier.size())).append("\n");
    for (std::size_t i = 0; i < tier.size(); ++i) {
        text.append("        intervals [").append(std::to_string(i + 1)).append("]:\n");
        text.append(textgrid_span("            ", tier[i].start, tier[i].end, rate));
        text.append("            text = \"").append(tier[i].label).append("\"\n");
    }
    return text;
}

// ---- Frames ----

/** A line of fields, and behind them what was measured, or its names. */
std::vector<std::string> with_measures(std::vector<std::string> fields, const ResultHeader& header,
                                       const Frame* frame) {
    for (const auto& [name, value] : measures(header, frame != nullptr ? *frame : Frame{})) {
        fields.push_back(frame != nullptr ? value : name);
    }
    return fields;
}

std::string jsonl_frame(const ResultHeader& header, const Frame& frame) {
    const int rate = header.source.rate;
    std::string text = R"({"type":"frame","index":)" + std::to_string(frame.index);
    text.append(",\"start\":").append(seconds(frame.begin, rate, kMicro));
    text.append(",\"end\":").append(seconds(frame.end, rate, kMicro));
    text.append(",\"start_sample\":").append(std::to_string(frame.begin));
    text.append(",\"end_sample\":").append(std::to_string(frame.end));
    text.append(",\"fed\":").append(std::to_string(frame.fed));
    text.append(",\"speech\":").append(boolean(frame.speech));
    return text.append(measure_members(header, frame)).append("}\n");
}

[[noreturn]] void refuse(ResultFormat format) {
    throw std::invalid_argument(result_format_names()[static_cast<std::size_t>(format)] +
                                " cannot be written line by line");
}

}  // namespace

Thresholds thresholds_of(const KorvaneStreamConfig& config) {
    const auto as_given = [](float threshold) { return std::round(threshold * 1e6) / 1e6; };
    if (config.decision == KORVANE_DECISION_ADAPTIVE) {
        return {as_given(config.enter_score), as_given(config.stay_score)};
    }
    return {as_given(config.enter_db), as_given(config.stay_db)};
}

std::string library_name(const KorvaneStreamConfig& config) {
    return config.decision == KORVANE_DECISION_DETECTOR
               ? VoiceActivityDetectionVersion()
               : std::string("korvane-streams ") + korvane_stream_version();
}

const std::vector<std::string>& result_format_names() {
    static const std::vector<std::string> names = {"text", "json", "jsonl", "csv",     "audacity",
                                                   "rttm", "srt",  "vtt",   "textgrid"};
    return names;
}

ResultFormat result_format(const std::string& name) {
    const std::vector<std::string>& names = result_format_names();
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
        throw std::invalid_argument("unknown format " + name);
    }
    return static_cast<ResultFormat>(found - names.begin());
}

std::string extension_of(ResultFormat format) {
    switch (format) {
        case ResultFormat::kText:
        case ResultFormat::kAudacity:
            return ".txt";
        case ResultFormat::kTextGrid:
            return ".TextGrid";
        default:
            return "." + result_format_names()[static_cast<std::size_t>(format)];
    }
}

bool holds_several(ResultFormat format) {
    return is_live(format) || format == ResultFormat::kJson || format == ResultFormat::kRttm;
}

bool holds_digest(ResultFormat format) {
    return format == ResultFormat::kJson || format == ResultFormat::kJsonl;
}

std::string file_prologue(ResultFormat format, bool several) {
    if (format == ResultFormat::kJson && several) {
        return "[\n";
    }
    return format == ResultFormat::kCsv ? kCsvHeading : "";
}

std::string file_separator(ResultFormat format, bool several) {
    if (format == ResultFormat::kJson && several) {
        return ",\n";
    }
    return format == ResultFormat::kText && several ? "\n" : "";
}

std::string file_epilogue(ResultFormat format, bool several) {
    return format == ResultFormat::kJson && several ? "\n]\n" : "";
}

std::string whole_result(ResultFormat format, bool several, const ResultHeader& header,
                         const StreamTotals& totals, const std::vector<Segment>& list) {
    switch (format) {
        case ResultFormat::kText:
            return text_result(several, header, list);
        case ResultFormat::kJson:
            return json_result(several, header, totals, list);
        case ResultFormat::kJsonl:
            return jsonl_result(header, totals, list);
        case ResultFormat::kCsv: {
            std::string text;
            for (const Segment& segment : list) {
                text += csv_line(header, segment);
            }
            return text;
        }
        case ResultFormat::kAudacity:
            return audacity_result(header, list);
        case ResultFormat::kRttm:
            return rttm_result(header, list);
        case ResultFormat::kSrt:
            return srt_result(header, list);
        case ResultFormat::kVtt:
            return vtt_result(header, list);
        case ResultFormat::kTextGrid:
            break;
    }
    return textgrid_result(header, totals.length, list);
}

bool is_live(ResultFormat format) {
    return format == ResultFormat::kText || format == ResultFormat::kJsonl ||
           format == ResultFormat::kCsv;
}

std::string live_begin(ResultFormat format, const ResultHeader& header) {
    switch (format) {
        case ResultFormat::kText:
            return "";
        case ResultFormat::kJsonl:
            return jsonl_header(header);
        case ResultFormat::kCsv:
            return kCsvHeading;
        default:
            refuse(format);
    }
}

std::string live_onset(ResultFormat format, const ResultHeader& header,
                       const segments::Onset& onset, const Frame& frame) {
    if (!is_live(format)) {
        refuse(format);
    }
    return format == ResultFormat::kJsonl ? jsonl_onset(header, onset, frame) : "";
}

std::string live_segment(ResultFormat format, const ResultHeader& header, int64_t index,
                         const Segment& segment) {
    switch (format) {
        case ResultFormat::kText:
            return text_line(index, segment, header.source.rate);
        case ResultFormat::kJsonl:
            return jsonl_segment(header, index, segment);
        case ResultFormat::kCsv:
            return csv_line(header, segment);
        default:
            refuse(format);
    }
}

std::string live_end(ResultFormat format, const ResultHeader& header, const StreamTotals& totals,
                     int64_t segment_count) {
    switch (format) {
        case ResultFormat::kText:
            return text_end(segment_count);
        case ResultFormat::kJsonl:
            return jsonl_summary(header, totals, segment_count);
        case ResultFormat::kCsv:
            return "";
        default:
            refuse(format);
    }
}

std::string frames_begin(ResultFormat format, const ResultHeader& header) {
    switch (format) {
        case ResultFormat::kText:
            return columns(with_measures({"start", "end", "speech"}, header, nullptr));
        case ResultFormat::kJsonl:
            return jsonl_header(header);
        case ResultFormat::kCsv:
            return comma_separated(with_measures(
                {"index", "start", "end", "start_sample", "end_sample", "fed", "speech"}, header,
                nullptr));
        default:
            refuse(format);
    }
}

std::string frame_line(ResultFormat format, const ResultHeader& header, const Frame& frame) {
    const int rate = header.source.rate;
    switch (format) {
        case ResultFormat::kText:
            return columns(
                with_measures({seconds(frame.begin, rate, kMilli), seconds(frame.end, rate, kMilli),
                               frame.speech ? "1" : "0"},
                              header, &frame));
        case ResultFormat::kJsonl:
            return jsonl_frame(header, frame);
        case ResultFormat::kCsv:
            return comma_separated(with_measures(
                {std::to_string(frame.index), seconds(frame.begin, rate, kMicro),
                 seconds(frame.end, rate, kMicro), std::to_string(frame.begin),
                 std::to_string(frame.end), std::to_string(frame.fed), boolean(frame.speech)},
                header, &frame));
        default:
            refuse(format);
    }
}

}  // namespace korvane::tool
