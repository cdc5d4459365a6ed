/** What the command line asks for. The parsers behind it are also what help texts, the manual page and
 * the shells' completions are generated from. */
#ifndef KORVANE_TOOLS_CLI_OPTIONS_H
#define KORVANE_TOOLS_CLI_OPTIONS_H

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "korvane_stream.h"
#include "segments/segments.h"
#include "tools/audio/audio_source.h"
#include "tools/audio/embedded_audio.h"
#include "tools/cli/presets.h"
#include "tools/results/result_writer.h"

namespace korvane::tool {

constexpr int kLongestFrame = 4096;   ///< samples
constexpr float kLowestLevel = -140;  ///< dB, of silence
constexpr int kMostJobs = 256;

enum class Command { kDetect, kFrames, kClean, kSplit, kReport, kScore, kSelftest };

/** Commands as the user knows them. */
struct CommandText {
    Command command;
    const char* name;
    const char* arguments;  ///< as in the synopsis
    const char* summary;    ///< a line
    struct Example {
        const char* line;
        const char* does;
    };
    std::vector<Example> examples;
    std::vector<const char*> notes;  ///< paragraphs
};
const std::vector<CommandText>& command_texts();
const CommandText& text_of(Command command);

/** The command line is wrong: exit status 2. */
struct UsageError : std::runtime_error {
    UsageError(Command where, const std::string& what) : std::runtime_error(what), command(where) {}
    Command command;
};

/** A length of time as it was given, in seconds or in samples. */
class Span {
  public:
    enum class Unit { kSeconds, kSamples };
    Span() = default;
    /**
     * "250ms", "0.25s" or "4000samples"; a number alone is in `plain`. Throws
     * std::invalid_argument on anything else, on negative values, on parts of samples, and on more
     * than 10^9 seconds or 10^15 samples.
     */
    Span(const std::string& text, Unit plain);
    /** At `rate` Hz, rounded to nearest, halves up. */
    int64_t samples(int rate) const;
    Unit unit() const { return unit_; }
    const std::string& text() const { return text_; }

  private:
    std::string text_ = "0";
    double value_ = 0;
    Unit unit_ = Unit::kSamples;
};

enum class Progress { kAuto, kAlways, kNever };

struct Options {
    Command command = Command::kDetect;
    bool help = false;
    bool no_config = false;  ///< has been obeyed when the options are there
    bool json = false;       ///< never set: --format=json stands for it
    std::vector<std::string>
        files;  ///< detect: recordings; clean: input, output; score: reference, hypothesis; selftest:
                ///< none; else one

    SourceOptions source;
    Span frame;  ///< 0: 10 ms
    int32_t decision = KORVANE_DECISION_ADAPTIVE;
    std::optional<double> enter, stay;       ///< scores or dB; not given: the library's
    std::optional<int32_t> onset, hangover;  ///< ms; not given: the library's
    segments::Align align = segments::Align::kBoth;
    std::optional<SegmentTimes> preset;
    std::optional<Span> pad_start, pad_end, min_speech, min_gap,
        max_speech;  ///< not given: times()

    ResultFormat format = ResultFormat::kText;
    bool format_is_given = false;  ///< else the output's extension has chosen it
    std::string output;            ///< -o; empty: standard output
    Progress progress = Progress::kAuto;
    bool quiet = false;
    bool strict = false;

    int jobs = 1;
    std::string files_from;
    bool recursive = false;  ///< of folders all recordings in them
    bool null_separated = false;
    bool fail_fast = false;
    std::string manifest;
    bool check = false;

    EmbeddedAudio page_audio = EmbeddedAudio::kMp3;

    std::string name_template;  ///< empty: piece_name()
    bool cleaned = false;
    bool no_clobber = false;  ///< unless `force`: nothing that is there is overwritten
    bool force = false;
    bool file_id_is_path = false;  ///< of RTTM; else the name without folder and extension

    Span collar;    ///< score: before and behind each edge of the reference
    int every = 1;  ///< selftest: only each row of so many

    /** What a detector for the input `name` is set to. Throws a Failure about it where a frame is not
     * of 1 to 4096 samples at that rate. */
    KorvaneStreamConfig stream(const std::string& name, int rate, int channels) const;
    /** Where speech begins and above which it goes on, as the decision counts. */
    std::pair<float, float> thresholds() const;
    /** Where no option gives a time: of the preset, or else what suits the command and the format. */
    const SegmentTimes& times() const;
    segments::Rules rules(int rate) const;
    /** Before any work: throws a Failure where something is at the path and must stay. */
    void check_may_overwrite(const std::string& path) const;
    /** The pattern for the names of pieces. */
    std::string piece_name() const;
    /** Everything that the result of a recording depends on, besides the recording. */
    std::string fingerprint() const;
};

/** An option as it is shown. */
struct OptionText {
    std::string letter;  ///< without its dash; may be empty
    std::string word;
    std::string type;  ///< empty: a flag
    std::string about;
    std::string group;

    /** Whether the type lists the values: "a|b|c". */
    bool has_choices() const { return type.find('|') != std::string::npos; }
};
/** Of a command's options, in the order of its parser. */
std::vector<OptionText> option_texts(Command command);

/** Reads the words after the program's name. Throws a UsageError. With `help` set nothing else was
 * checked. */
Options parse_options(const std::vector<std::string>& words);

}  // namespace korvane::tool

#endif
