#include "tools/results/result_writer.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "korvane_vad.h"

namespace korvane::tool {
namespace {

using nlohmann::json;
using segments::Align;
using segments::Segment;

ResultHeader header_of(const std::string& name) {
    ResultHeader header;
    header.source = {.name = name,
                     .rate = 16000,
                     .channels = 1,
                     .input_rate = 96000,
                     .input_channels = 6,
                     .bit_exact = false,
                     .length = {}};
    header.file_id = name;
    header.stream.decision = KORVANE_DECISION_DETECTOR;
    header.stream.frame_length = 160;
    header.delay = 720;
    header.timing = segments::timing_of(16000, 160);
    header.rules = {Align::kOnset, 1600, 0, 80, 160, 480000};
    return header;
}

// Samples of 62.5 microseconds, so that rounding meets halves at six and at three decimals. The first
// is shorter than a millisecond, the last begins after more than an hour and is 7 samples long more
// than a whole number of milliseconds.
const std::vector<Segment> kList = {{1, 8, 480, false},
                                    {8, 40, 640, false},
                                    {32008, 48000, 32960, false},
                                    {59216000, 59600007, 59217440, true}};
const StreamTotals kTotals = {59600007, 372506, std::string(64, 'a')};

std::string file_of(ResultFormat format, bool several, const std::vector<ResultHeader>& headers,
                    const std::vector<Segment>& list) {
    std::string text = file_prologue(format);
    for (const ResultHeader& header : headers) {
        text += &header == headers.data() ? "" : file_separator(format);
        text += whole_result(format, several, {{header, kTotals, list}});
    }
    return text + file_epilogue(format);
}

std::string golden(const std::string& name) {
    std::ifstream file(std::string(KORVANE_GOLDEN_DIR "/") + name, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return std::regex_replace(text.str(), std::regex("korvane-vad VERSION"),
                              "korvane-vad " KORVANE_VERSION);
}

std::vector<std::string> lines_of(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

constexpr ResultFormat kAll[] = {
    ResultFormat::kText, ResultFormat::kJson,     ResultFormat::kJsonl,
    ResultFormat::kCsv,  ResultFormat::kAudacity, ResultFormat::kRttm,
    ResultFormat::kSrt,  ResultFormat::kVtt,      ResultFormat::kTextGrid};

TEST(ResultWriter, EveryFormatAsWrittenByHand) {
    for (const ResultFormat format : kAll) {
        const std::string& name = result_format_names()[static_cast<std::size_t>(format)];
        EXPECT_EQ(result_format(name), format);
        const std::string text = file_of(format, false, {header_of("a talk, 2 of 3.wav")}, kList);
        EXPECT_EQ(text, golden(name + extension_of(format)));
    }
    EXPECT_THROW(result_format("Text"), std::invalid_argument);
}

TEST(ResultWriter, SeveralInputsInOneFile) {
    const std::vector<ResultHeader> headers = {header_of("one.wav"), header_of("two.wav")};
    for (const ResultFormat format : kAll) {
        if (holds_several(format)) {
            const std::string& name = result_format_names()[static_cast<std::size_t>(format)];
            const std::vector<Segment> list = {{16000, 32000, 16960, false}};
            EXPECT_EQ(file_of(format, true, headers, list),
                      golden("several-" + name + extension_of(format)));
        }
    }
    EXPECT_EQ(json::parse(file_of(ResultFormat::kJson, true, {}, {})), json::array());
}

TEST(ResultWriter, WithoutSpeechTheFileIsStillValid) {
    const std::vector<ResultHeader> one = {header_of("silence.wav")};
    EXPECT_EQ(file_of(ResultFormat::kText, false, one, {}), "no speech\n");
    EXPECT_EQ(json::parse(file_of(ResultFormat::kJson, false, one, {}))[0]["segments"],
              json::array());
    EXPECT_EQ(lines_of(file_of(ResultFormat::kJsonl, false, one, {})).size(), 1U);
    EXPECT_EQ(lines_of(file_of(ResultFormat::kCsv, false, one, {}))[1],
              "silence.wav,,,,,,,,,no speech");
    EXPECT_EQ(file_of(ResultFormat::kAudacity, false, one, {}), "");
    EXPECT_EQ(file_of(ResultFormat::kRttm, false, one, {}), ";; silence.wav: no speech\n");
    EXPECT_EQ(file_of(ResultFormat::kSrt, false, one, {}), "");
    EXPECT_EQ(file_of(ResultFormat::kVtt, false, one, {}), "WEBVTT\n");
    const std::string grid = file_of(ResultFormat::kTextGrid, false, one, {});
    EXPECT_NE(grid.find("intervals: size = 1\n        intervals [1]:\n"
                        "            xmin = 0.000000\n            xmax = 3725.000438\n"
                        "            text = \"\"\n"),
              std::string::npos);
}

TEST(ResultWriter, NoFileNameBreaksAForm) {
    const std::string name = "tab\there\x7f \"q\",\nline\x1b[31m \xff\xc3(.wav";
    const std::vector<ResultHeader> headers = {header_of(name)};
    const std::string readable = "tab\there\x7f \"q\",\nline\x1b[31m \xef\xbf\xbd\xef\xbf\xbd(.wav";
    EXPECT_EQ(json::parse(file_of(ResultFormat::kJson, false, headers, kList))[0]["file"],
              readable);
    const auto jsonl = lines_of(file_of(ResultFormat::kJsonl, false, headers, kList));
    ASSERT_EQ(jsonl.size(), kList.size() + 1);
    for (const std::string& line : jsonl) {
        EXPECT_EQ(json::parse(line)["file"], readable);
    }
    EXPECT_EQ(json::parse(live_end(ResultFormat::kJsonl, headers[0], kTotals, 0))["file"],
              readable);
    EXPECT_EQ(lines_of(file_of(ResultFormat::kText, true, headers, kList))[0],
              "tab\\x09here\\x7f \"q\",\\x0aline\\x1b[31m \xff\xc3(.wav:");
    EXPECT_EQ(lines_of(file_of(ResultFormat::kRttm, false, headers, kList))[0],
              "SPEAKER tab%09here%7F%20\"q\",%0Aline%1B[31m%20\xff\xc3(.wav 1 0.000063 0.000438 "
              "<NA> <NA> speech "
              "<NA> <NA>");
}

TEST(ResultWriter, TimesAreRoundedFromIntegers) {
    const auto at = [](int64_t sample, int rate) {
        ResultHeader header = header_of("x");
        header.source.rate = rate;
        std::string csv = live_segment(ResultFormat::kCsv, header, false, 0, {0, sample, 0, true});
        std::replace(csv.begin(), csv.end(), ',', ' ');
        std::istringstream words(
            csv + live_segment(ResultFormat::kText, header, false, 1, {0, sample, 0, true}));
        std::vector<std::string> word(11);
        for (std::string& each : word) {
            words >> each;
        }
        return word[2] + " " + word[10];
    };
    EXPECT_EQ(at(3, 8000), "0.000375 0.000");
    EXPECT_EQ(at(4, 8000), "0.000500 0.001");  // half a millisecond
    EXPECT_EQ(at(7999, 8000), "0.999875 1.000");
    EXPECT_EQ(at(1, 16000), "0.000063 0.000");  // half a microsecond
    EXPECT_EQ(at(44077, 44100), "0.999478 0.999");
    EXPECT_EQ(at(1, 3), "0.333333 0.333");
    EXPECT_EQ(at(7, 1), "7.000000 7.000");
    // Where a double has no sixth decimal left.
    EXPECT_EQ(at(int64_t{49999} * 10000000000 + 1, 49999), "10000000000.000020 10000000000.000");
}

TEST(ResultWriter, LiveTextAndCsvAreTheWholeResult) {
    const ResultHeader header = header_of("-");
    for (const auto& list : {kList, std::vector<Segment>{}}) {
        for (const ResultFormat format : {ResultFormat::kText, ResultFormat::kCsv}) {
            std::string text = live_begin(format, {header});
            for (std::size_t i = 0; i < list.size(); ++i) {
                text += live_onset(format, header, {list[i].start, list[i].decided_at}, {});
                text += live_segment(format, header, i == 0, static_cast<int64_t>(i), list[i]);
            }
            text += live_end(format, header, kTotals, std::ssize(list));
            EXPECT_EQ(text, file_of(format, false, {header}, list));
        }
    }
    for (const ResultFormat format : kAll) {
        if (!is_live(format)) {
            EXPECT_THROW(live_begin(format, {header}), std::invalid_argument);
            EXPECT_THROW(live_onset(format, header, {}, {}), std::invalid_argument);
            EXPECT_THROW(live_end(format, header, kTotals, 0), std::invalid_argument);
            EXPECT_THROW(live_segment(format, header, true, 0, {}), std::invalid_argument);
            EXPECT_THROW(frames_begin(format, header), std::invalid_argument);
            EXPECT_THROW(frame_line(format, header, {}), std::invalid_argument);
        }
    }
}

TEST(ResultWriter, LiveJsonlKeepsCountsForTheEnd) {
    const ResultHeader header = header_of("-");
    constexpr ResultFormat kFormat = ResultFormat::kJsonl;
    const json first = json::parse(live_begin(kFormat, {header}));
    const json whole =
        json::parse(lines_of(whole_result(kFormat, false, {{header, kTotals, kList}}))[0]);
    const json last = json::parse(live_end(kFormat, header, kTotals, std::ssize(kList)));
    EXPECT_EQ(last["type"], "summary");
    for (const char* key : {"samples", "frames", "sha256", "segment_count"}) {
        EXPECT_FALSE(first.contains(key));
        EXPECT_EQ(last[key], whole[key]) << key;
    }
    json both = first;  // the header of a whole result is the live one and the summary
    both.update(last);
    both["type"] = "header";
    EXPECT_EQ(both, whole);
    EXPECT_EQ(live_onset(kFormat, header, {1, 480}, {}),
              "{\"type\":\"onset\",\"file\":\"-\",\"start\":0.000063,\"start_sample\":1,"
              "\"decided_at\":480}\n");
    EXPECT_EQ(
        live_segment(kFormat, header, false, 7, kList[0]),
        "{\"type\":\"segment\",\"file\":\"-\",\"index\":7,\"start\":0.000063,\"end\":0.000500,"
        "\"start_sample\":1,\"end_sample\":8,\"decided_at\":480,\"open\":false}\n");
}

TEST(ResultWriter, FramesMayLieBeforeTheInput) {
    ResultHeader header = header_of("-");
    Frame frame;
    frame.index = 4;
    frame.begin = -8 - 16000;  // minus 1.0005 s: a half goes up
    frame.end = -1;
    frame.fed = 800;
    frame.speech = true;
    frame.level = -44.995000001;
    EXPECT_EQ(
        frames_begin(ResultFormat::kText, header) + frame_line(ResultFormat::kText, header, frame),
        "       start          end       speech        level\n"
        "      -1.000        0.000            1       -45.00\n");
    EXPECT_EQ(
        frames_begin(ResultFormat::kCsv, header) + frame_line(ResultFormat::kCsv, header, frame),
        "index,start,end,start_sample,end_sample,fed,speech,level\n"
        "4,-1.000500,-0.000062,-16008,-1,800,true,-45.00\n");
    const json line = json::parse(frame_line(ResultFormat::kJsonl, header, frame));
    EXPECT_EQ(line, json::parse(R"({"type":"frame","index":4,"start":-1.0005,"end":-0.000062,
        "start_sample":-16008,"end_sample":-1,"fed":800,"speech":true,"level":-45.00})"));
    EXPECT_EQ(json::parse(frames_begin(ResultFormat::kJsonl, header))["type"], "header");

    header.stream.decision = KORVANE_DECISION_ADAPTIVE;
    header.stream.enter_score = 0.3F;
    frame.score = 0.9996;
    frame.noise = -61.25;
    EXPECT_EQ(
        frames_begin(ResultFormat::kText, header) + frame_line(ResultFormat::kText, header, frame),
        "       start          end       speech        level        score        noise\n"
        "      -1.000        0.000            1       -45.00        1.000       -61.25\n");
    EXPECT_EQ(
        frames_begin(ResultFormat::kCsv, header) + frame_line(ResultFormat::kCsv, header, frame),
        "index,start,end,start_sample,end_sample,fed,speech,level,score,noise\n"
        "4,-1.000500,-0.000062,-16008,-1,800,true,-45.00,1.000,-61.25\n");
    for (const std::string& text : {frame_line(ResultFormat::kJsonl, header, frame),
                                    live_onset(ResultFormat::kJsonl, header, {}, frame)}) {
        EXPECT_NE(text.find(",\"level\":-45.00,\"score\":1.000,\"noise\":-61.25}\n"),
                  std::string::npos);
    }
    const std::string described = frames_begin(ResultFormat::kJsonl, header);
    EXPECT_NE(described.find(R"("decision":"adaptive","enter":0.3,)"), std::string::npos);
}

}  // namespace
}  // namespace korvane::tool
