/** The results of one or several inputs, in the forms people already work with. */
#ifndef KORVANE_TOOLS_RESULTS_RESULT_WRITER_H
#define KORVANE_TOOLS_RESULTS_RESULT_WRITER_H

#include <cstdint>
#include <string>
#include <vector>

#include "segments/segments.h"
#include "tools/audio/audio_source.h"
#include "tools/results/detection.h"

namespace korvane::tool {

enum class ResultFormat { kText, kJson, kJsonl, kCsv, kAudacity, kRttm, kSrt, kVtt, kTextGrid };

/** From its name on the command line: text json jsonl csv audacity rttm srt vtt textgrid; throws
 * std::invalid_argument. */
ResultFormat result_format(const std::string& name);
/** The names, in the order of the enumeration. */
const std::vector<std::string>& result_format_names();
/** As on the command line: none, onset, both. */
constexpr const char* align_name(segments::Align align) {
    constexpr const char* kNames[] = {"none", "onset", "both"};
    return kNames[static_cast<int>(align)];
}
/** The same of a decision: adaptive, fixed, detector. */
constexpr const char* decision_name(int32_t decision) {
    constexpr const char* kNames[] = {"adaptive", "fixed", "detector"};
    return kNames[decision];
}
/** Where speech begins and above which it goes on: scores with `adaptive`, else dB; as they were given,
 * without what float adds to them. */
struct Thresholds {
    double enter;
    double stay;
};
Thresholds thresholds_of(const KorvaneStreamConfig& config);
/** The library that decides, and its version. */
std::string library_name(const KorvaneStreamConfig& config);
/** File name extension, with its dot: .txt .json .jsonl .csv .txt .rttm .srt .vtt .TextGrid */
std::string extension_of(ResultFormat format);
/** Whether results of several inputs can stand in one file. */
bool holds_several(ResultFormat format);

/** Whether a result tells the digest of the samples. */
bool holds_digest(ResultFormat format);

/** What produced the segments of one input. */
struct ResultHeader {
    SourceInfo source;
    int channel = 0;      ///< of the input, counted from 1, judged by itself; 0: all together
    std::string file_id;  ///< in RTTM
    KorvaneStreamConfig stream = {};
    int64_t delay = 0;        ///< of the cleaned sound, in samples
    segments::Timing timing;  ///< of the decisions
    segments::Rules rules;
};

// All of these return text; they write nothing. Times are seconds, rounded from samples to nearest,
// halves up, only here: three decimals in text, srt and vtt, six elsewhere. With six no two samples
// look alike. Durations are rounded from their own sample count.
//
// File names: JSON and JSONL replace bytes that are not UTF-8 by U+FFFD. Text shows control
// characters as \xHH. RTTM, whose fields end at spaces, writes spaces, control characters and % as %HH.
// CSV keeps every byte and quotes as RFC 4180 says, so that a name with a line feed takes two lines; its
// lines end with a line feed alone.

/** What stands before, between and behind the results of inputs in one file: CSV's heading, JSON's
 * brackets. */
std::string file_prologue(ResultFormat format);
std::string file_separator(ResultFormat format);
std::string file_epilogue(ResultFormat format);

/** What came of an input, or of one of its channels. */
struct Judged {
    ResultHeader header;
    StreamTotals totals;
    std::vector<segments::Segment> list;
};

/** The whole result of an input that has been read to its end, of all its channels where they are
 * judged apart. JSON and JSONL begin with what produced them, counts and digest included. That there
 * is no speech, and a fault, is said in text, csv and rttm too. */
std::string whole_result(ResultFormat format, bool several, const std::vector<Judged>& judged);

/** In the place of a result, where there is none; nothing in formats that hold one input alone. */
std::string failed_result(ResultFormat format, bool several, const std::string& name,
                          const std::string& error);

// For streams: text, jsonl and csv can be written as it happens. Counts and digest then come last.
// live_begin includes what file_prologue gives; text and csv come out as the same bytes as a whole
// result, but that channels judged apart come as they are decided. Other formats throw std::invalid_argument, in frames_begin and frame_line too.
bool is_live(ResultFormat format);
std::string live_begin(ResultFormat format, const std::vector<ResultHeader>& headers);
/** @param frame  the one that declares it */
std::string live_onset(ResultFormat format, const ResultHeader& header,
                       const segments::Onset& onset, const Frame& frame);
/**
 * @param heads  whether the line is the first of its output, where text has its heading
 * @param index  of the segment, from 0
 */
std::string live_segment(ResultFormat format, const ResultHeader& header, bool heads, int64_t index,
                         const segments::Segment& segment);
/** After a fault jsonl has none. */
std::string live_end(ResultFormat format, const ResultHeader& header, const StreamTotals& totals,
                     int64_t segment_count);

/** One line of `korvane-vad frames` in text, jsonl or csv, and what stands before the first. Score and
 * noise are left out with the decision `detector`, which has none. */
std::string frames_begin(ResultFormat format, const ResultHeader& header);
std::string frame_line(ResultFormat format, const ResultHeader& header, const Frame& frame);

}  // namespace korvane::tool

#endif
