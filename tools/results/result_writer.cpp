#include "tools/results/result_writer.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <stdexcept>
#include <utility>

#include "korvane_vad.h"
#include "tools/results/json_results.h"
#include "tools/results/label_results.h"
#include "tools/results/lines.h"
#include "tools/results/times.h"

namespace korvane::tool {

namespace {

using segments::Segment;

// ---- Text ----

std::vector<std::string> with_channel(std::vector<std::string> fields, const ResultHeader& header,
                                      const std::string& field) {
    if (header.channel != 0) {
        fields.push_back(field);
    }
    return fields;
}

std::string text_line(const ResultHeader& header, bool heads, const Segment& segment) {
    const int rate = header.source.rate;
    const std::string heading =
        heads ? columns(with_channel({"start", "end", "duration"}, header, "channel")) : "";
    return heading + columns(with_channel(
                         {seconds(segment.start, rate, kMilli), seconds(segment.end, rate, kMilli),
                          seconds(segment.end - segment.start, rate, kMilli)},
                         header, std::to_string(header.channel)));
}

/** What is to be said behind the segments of one signal, where they do not say it all. */
std::vector<std::string> remarks(const StreamTotals& totals, int64_t segment_count) {
    std::vector<std::string> list;
    if (segment_count == 0) {
        list.emplace_back("no speech");
    }
    if (!totals.fault.empty()) {
        list.push_back("damaged: " + totals.fault);
    }
    return list;
}

std::string text_end(const ResultHeader& header, const StreamTotals& totals, int64_t count) {
    const std::string channel =
        header.channel != 0 ? "channel " + std::to_string(header.channel) + ": " : "";
    std::string text;
    for (const std::string& remark : remarks(totals, count)) {
        text.append(channel).append(printable(remark)).append("\n");
    }
    return text;
}

std::string text_heading(bool several, const std::string& name) {
    return several ? printable(name) + ":\n" : "";
}

// ---- CSV ----

constexpr const char* kCsvHeading =
    "file,start,end,duration,start_sample,end_sample,decided_at,open,channel,state\n";

std::string channel_field(const ResultHeader& header) {
    return header.channel != 0 ? std::to_string(header.channel) : "";
}

std::string csv_line(const ResultHeader& header, const Segment& segment) {
    const int rate = header.source.rate;
    return comma_separated({csv_field(header.source.name), seconds(segment.start, rate, kMicro),
                            seconds(segment.end, rate, kMicro),
                            seconds(segment.end - segment.start, rate, kMicro),
                            std::to_string(segment.start), std::to_string(segment.end),
                            std::to_string(segment.decided_at), boolean(segment.open),
                            channel_field(header), "speech"});
}

/** A row without a segment. */
std::string csv_remark(const std::string& file, const std::string& channel,
                       const std::string& state) {
    return comma_separated(
        {csv_field(file), "", "", "", "", "", "", "", channel, csv_field(state)});
}

std::string csv_end(const ResultHeader& header, const StreamTotals& totals, int64_t count) {
    std::string text;
    for (const std::string& remark : remarks(totals, count)) {
        text += csv_remark(header.source.name, channel_field(header), remark);
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

// ---- Whole results ----

constexpr const char* kBetweenObjects = ",\n";

/** Of text and csv: the segments of all channels in the order of their begin, then the remarks. */
std::string in_lines(ResultFormat format, const std::vector<Judged>& judged) {
    std::string text;
    for (const auto& [header, segment] : in_order(judged)) {
        text += live_segment(format, *header, text.empty(), 0, *segment);
    }
    for (const auto& [header, totals, list] : judged) {
        text += live_end(format, header, totals, std::ssize(list));
    }
    return text;
}

std::string joined(const std::vector<Judged>& judged, std::string (*text_of)(const Judged&),
                   const char* separator) {
    std::string text;
    for (const Judged& each : judged) {
        text.append(text.empty() ? "" : separator).append(text_of(each));
    }
    return text;
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

std::string file_prologue(ResultFormat format) {
    return format == ResultFormat::kJson ? "[\n" : format == ResultFormat::kCsv ? kCsvHeading : "";
}

std::string file_separator(ResultFormat format) {
    return format == ResultFormat::kJson   ? kBetweenObjects
           : format == ResultFormat::kText ? "\n"
                                           : "";
}

std::string file_epilogue(ResultFormat format) {
    return format == ResultFormat::kJson ? "\n]\n" : "";
}

std::string whole_result(ResultFormat format, bool several, const std::vector<Judged>& judged) {
    switch (format) {
        case ResultFormat::kText:
            return text_heading(several, judged[0].header.source.name) + in_lines(format, judged);
        case ResultFormat::kCsv:
            return in_lines(format, judged);
        case ResultFormat::kJson:
            return joined(judged, json_result, kBetweenObjects);
        case ResultFormat::kJsonl:
            return joined(judged, jsonl_result, "");
        case ResultFormat::kAudacity:
            return audacity_result(judged);
        case ResultFormat::kRttm:
            return rttm_result(judged);
        case ResultFormat::kSrt:
            return srt_result(judged);
        case ResultFormat::kVtt:
            return vtt_result(judged);
        case ResultFormat::kTextGrid:
            break;
    }
    return textgrid_result(judged);
}

std::string failed_result(ResultFormat format, bool several, const std::string& name,
                          const std::string& error) {
    const std::string remark = "failed: " + error;
    switch (format) {
        case ResultFormat::kText:
            return text_heading(several, name) + printable(remark) + "\n";
        case ResultFormat::kCsv:
            return csv_remark(name, "", remark);
        case ResultFormat::kJson:
            return json_failure(name, error);
        case ResultFormat::kJsonl:
            return jsonl_failure(name, error);
        case ResultFormat::kRttm:
            return rttm_remark(name, remark);
        default:
            return "";
    }
}

bool is_live(ResultFormat format) {
    return format == ResultFormat::kText || format == ResultFormat::kJsonl ||
           format == ResultFormat::kCsv;
}

std::string live_begin(ResultFormat format, const std::vector<ResultHeader>& headers) {
    switch (format) {
        case ResultFormat::kText:
            return "";
        case ResultFormat::kJsonl:
            return jsonl_headers(headers);
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

std::string live_segment(ResultFormat format, const ResultHeader& header, bool heads, int64_t index,
                         const Segment& segment) {
    switch (format) {
        case ResultFormat::kText:
            return text_line(header, heads, segment);
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
            return text_end(header, totals, segment_count);
        case ResultFormat::kJsonl:  // that no summary follows tells a fault from a sound end
            return totals.fault.empty() ? jsonl_summary(header, totals, segment_count) : "";
        case ResultFormat::kCsv:
            return csv_end(header, totals, segment_count);
        default:
            refuse(format);
    }
}

std::string frames_begin(ResultFormat format, const ResultHeader& header) {
    switch (format) {
        case ResultFormat::kText:
            return columns(with_channel(with_measures({"start", "end", "speech"}, header, nullptr),
                                        header, "channel"));
        case ResultFormat::kJsonl:
            return jsonl_headers({header});
        case ResultFormat::kCsv:
            return comma_separated(with_channel(
                with_measures(
                    {"index", "start", "end", "start_sample", "end_sample", "fed", "speech"},
                    header, nullptr),
                header, "channel"));
        default:
            refuse(format);
    }
}

std::string frame_line(ResultFormat format, const ResultHeader& header, const Frame& frame) {
    const int rate = header.source.rate;
    switch (format) {
        case ResultFormat::kText:
            return columns(with_channel(
                with_measures({seconds(frame.begin, rate, kMilli), seconds(frame.end, rate, kMilli),
                               frame.speech ? "1" : "0"},
                              header, &frame),
                header, channel_field(header)));
        case ResultFormat::kJsonl:
            return jsonl_frame(header, frame);
        case ResultFormat::kCsv:
            return comma_separated(with_channel(
                with_measures(
                    {std::to_string(frame.index), seconds(frame.begin, rate, kMicro),
                     seconds(frame.end, rate, kMicro), std::to_string(frame.begin),
                     std::to_string(frame.end), std::to_string(frame.fed), boolean(frame.speech)},
                    header, &frame),
                header, channel_field(header)));
        default:
            refuse(format);
    }
}

}  // namespace korvane::tool
