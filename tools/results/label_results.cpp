#include "tools/results/label_results.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "tools/results/times.h"

namespace korvane::tool {

namespace {

using segments::Segment;

/** hh:mm:ss and milliseconds behind `point`. */
std::string clock(int64_t milliseconds, char point) {
    const int64_t whole = milliseconds / kMilli;
    std::string text = zero_padded(whole / 3600, 2);
    text.append(":").append(zero_padded(whole / 60 % 60, 2));
    text.append(":").append(zero_padded(whole % 60, 2));
    text += point;
    return text.append(zero_padded(milliseconds % kMilli, 3));
}

std::string label_of(const ResultHeader& header) {
    return header.channel != 0 ? "speech, channel " + std::to_string(header.channel) : "speech";
}

/** Times and words of a caption. A caption must not end where it begins, not even one of less than a
 * millisecond. */
std::string cue(const ResultHeader& header, const Segment& segment, char point) {
    const int64_t start = ticks(segment.start, header.source.rate, kMilli);
    const int64_t end = std::max(ticks(segment.end, header.source.rate, kMilli), start + 1);
    return clock(start, point) + " --> " + clock(end, point) + "\n" + label_of(header) + "\n";
}

/** For a field between spaces: no two names give the same. */
std::string between_spaces(const std::string& name) {
    constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string field;
    for (const char c : name) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte <= 0x20 || byte == 0x7f || c == '%') {
            field += '%';
            field += kHex[byte / 16];
            field += kHex[byte % 16];
        } else {
            field += c;
        }
    }
    return field;
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

std::string textgrid_tier(std::size_t number, const Judged& judged) {
    const int rate = judged.header.source.rate;
    const std::vector<Interval> tier = intervals(judged.list, judged.totals.length);
    std::string text = "    item [" + std::to_string(number) + "]:\n";
    text +=
        "        class = \"IntervalTier\"\n        name = \"" + label_of(judged.header) + "\"\n";
    text += textgrid_span("        ", 0, judged.totals.length, rate);
    text.append("        intervals: size = ").append(std::to_string(tier.size())).append("\n");
    for (std::size_t i = 0; i < tier.size(); ++i) {
        text.append("        intervals [").append(std::to_string(i + 1)).append("]:\n");
        text.append(textgrid_span("            ", tier[i].start, tier[i].end, rate));
        text.append("            text = \"").append(tier[i].label).append("\"\n");
    }
    return text;
}

}  // namespace

std::vector<std::pair<const ResultHeader*, const Segment*>> in_order(
    const std::vector<Judged>& judged) {
    std::vector<std::pair<const ResultHeader*, const Segment*>> all;
    for (const Judged& each : judged) {
        for (const Segment& segment : each.list) {
            all.emplace_back(&each.header, &segment);
        }
    }
    std::stable_sort(all.begin(), all.end(), [](const auto& one, const auto& other) {
        return one.second->start < other.second->start;
    });
    return all;
}

std::string audacity_result(const std::vector<Judged>& judged) {
    std::string text;
    for (const auto& [header, segment] : in_order(judged)) {
        text.append(seconds(segment->start, header->source.rate, kMicro)).append("\t");
        text.append(seconds(segment->end, header->source.rate, kMicro)).append("\t");
        text.append(label_of(*header)).append("\n");
    }
    return text;
}

std::string rttm_remark(const std::string& name, const std::string& remark) {
    std::string text = ";; " + name + ": " + remark;
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    return text + "\n";
}

std::string rttm_result(const std::vector<Judged>& judged) {
    std::string text;
    for (const auto& [header, segment] : in_order(judged)) {
        const int rate = header->source.rate;
        text.append("SPEAKER ").append(between_spaces(header->file_id)).append(" ");
        text.append(std::to_string(std::max(header->channel, 1))).append(" ");
        text.append(seconds(segment->start, rate, kMicro)).append(" ");
        text.append(seconds(segment->end - segment->start, rate, kMicro));
        text.append(" <NA> <NA> speech <NA> <NA>\n");
    }
    for (const auto& [header, totals, list] : judged) {
        const std::string channel =
            header.channel != 0 ? "channel " + std::to_string(header.channel) + ": " : "";
        if (list.empty()) {
            text += rttm_remark(header.source.name, channel + "no speech");
        }
        if (!totals.fault.empty()) {
            text += rttm_remark(header.source.name, channel + "damaged: " + totals.fault);
        }
    }
    return text;
}

std::string srt_result(const std::vector<Judged>& judged) {
    std::string text;
    int64_t number = 0;
    for (const auto& [header, segment] : in_order(judged)) {
        text.append(number == 0 ? "" : "\n").append(std::to_string(number + 1)).append("\n");
        text.append(cue(*header, *segment, ','));
        ++number;
    }
    return text;
}

std::string vtt_result(const std::vector<Judged>& judged) {
    std::string text = "WEBVTT\n";
    for (const auto& [header, segment] : in_order(judged)) {
        text.append("\n").append(cue(*header, *segment, '.'));
    }
    return text;
}

std::string textgrid_result(const std::vector<Judged>& judged) {
    std::string text = "File type = \"ooTextFile\"\nObject class = \"TextGrid\"\n\n";
    text += textgrid_span("", 0, judged[0].totals.length, judged[0].header.source.rate);
    text += "tiers? <exists>\nsize = " + std::to_string(judged.size()) + "\nitem []:\n";
    for (std::size_t i = 0; i < judged.size(); ++i) {
        text += textgrid_tier(i + 1, judged[i]);
    }
    return text;
}

}  // namespace korvane::tool
