#include "tools/cli/parser.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <functional>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "tools/cli/name_template.h"

namespace korvane::tool {

namespace {

constexpr int kMostChannels = 1024;
constexpr int kMostRows = 1'000'000;
constexpr int64_t kFewSeconds = 50;     // more without a unit are taken for milliseconds
constexpr int64_t kManySeconds = 1000;  // the same of the longest segment

/** "12" -> 12; throws what CLI11 reports with the option's name. */
int whole_number(const std::string& text, int least, int most) {
    int value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    if (error != std::errc() || stop != end || value < least || value > most) {
        throw std::invalid_argument("'" + text + "' is not a number from " + std::to_string(least) +
                                    " to " + std::to_string(most));
    }
    return value;
}

template <class Value>
Value choice(const std::string& text, const std::vector<std::pair<const char*, Value>>& choices) {
    std::string names;
    for (const auto& [name, value] : choices) {
        if (text == name) {
            return value;
        }
        names += (names.empty() ? "" : ", ") + std::string(name);
    }
    throw std::invalid_argument("'" + text + "' is none of " + names);
}

std::vector<int> channel_list(const std::string& text) {
    std::vector<int> channels;
    std::istringstream words(text + ",");
    for (std::string word; std::getline(words, word, ',');) {
        const std::size_t dash = word.find('-');
        const int first = whole_number(word.substr(0, dash), 1, kMostChannels);
        const int last = dash == std::string::npos
                             ? first
                             : whole_number(word.substr(dash + 1), first, kMostChannels);
        for (int channel = first; channel <= last; ++channel) {
            if (std::find(channels.begin(), channels.end(), channel) != channels.end()) {
                throw std::invalid_argument("channel " + std::to_string(channel) +
                                            " is named twice");
            }
            channels.push_back(channel);
        }
    }
    return channels;
}

/** In seconds nobody means so much, but in milliseconds. */
void check_is_not_milliseconds(const std::string& text, int64_t most_seconds) {
    const bool has_unit = text.find_first_not_of("0123456789.") != std::string::npos;
    if (!has_unit && Span(text, Span::Unit::kSeconds).samples(1) >= most_seconds) {
        throw std::invalid_argument("'" + text + "' would be seconds; write " + text + "ms, or " +
                                    text + "s if they are meant");
    }
}

std::string formats(bool frames_only) {
    std::string names;
    for (const std::string& name : result_format_names()) {
        if (!frames_only || is_live(result_format(name))) {
            names += (names.empty() ? "" : "|") + name;
        }
    }
    return names;
}

// CLI11 takes a word in brackets for a list. There are files with such names, so a mark that no
// command line has in front of a bracket hides them from it.
constexpr char kMark = '\x01';

std::string marked(const std::string& word) {
    const bool list = word.size() > 1 && word.front() == '[' && word.back() == ']';
    return list ? kMark + word : word;
}

std::string unmarked(const std::string& word) {
    return word.size() > 1 && word[0] == kMark && word[1] == '[' ? word.substr(1) : word;
}

/** Adds options to one parser. What it stores into outlives it. */
class Adder {
  public:
    Adder(CLI::App& app, Options& options) : app_(app), options_(options) {}

    /** @param store  may throw std::invalid_argument */
    void value(const std::string& names, const std::string& type, const std::string& about,
               const std::function<void(const std::string&)>& store) {
        const std::string shown = names.substr(names.find(',') + 1);  // the long name comes last
        app_.add_option_function<std::string>(
                names,
                [shown, store](const std::string& text) {
                    try {
                        store(unmarked(text));
                    } catch (const std::invalid_argument& error) {
                        throw CLI::ValidationError(shown, error.what());
                    }
                },
                about)
            ->type_name(type)
            ->group(group_)
            ->take_last();
    }

    void text(const std::string& names, const char* type, const std::string& about,
              std::string& where) {
        value(names, type, about, [&where](const std::string& given) {
            if (given.empty()) {
                throw std::invalid_argument("is empty");
            }
            where = given;
        });
    }

    void flag(const std::string& names, const std::string& about, bool& where) {
        app_.add_flag(names, where, about)->group(group_);
    }

    void span(const std::string& name, const std::string& about, std::optional<Span>& where,
              int64_t most_seconds = kFewSeconds) {
        value(name, "TIME", about, [&where, most_seconds](const std::string& text) {
            where = Span(text, Span::Unit::kSeconds);
            check_is_not_milliseconds(text, most_seconds);
        });
    }

    void milliseconds(const std::string& name, const std::string& about,
                      std::optional<int32_t>& where);
    void number(const std::string& name, const std::string& about, std::optional<double>& where);

    void input();
    void decision(bool thresholds);
    void segments();
    void output(const char* type, const std::string& about);
    void format(bool frames_only);
    void progress();
    void each_channel();
    void file_id();
    void overwriting();
    void check();
    void batch();
    void pieces();
    void page_audio();
    void score();
    void rows();
    void help();

  private:
    CLI::App& app_;
    Options& options_;
    const char* group_ = "Options";
};

void Adder::input() {
    group_ = "Input";
    const auto raw = [&options = options_]() -> RawFormat& {
        if (!options.source.raw) {
            options.source.raw.emplace();
        }
        return *options.source.raw;
    };
    value("--raw", "s16le|s16be|u8|s24le|s24be|f32le|f32be|mulaw|alaw",
          "the input has samples of this kind and no header; needs --rate",
          [raw](const std::string& text) {
              using Kind = std::pair<RawEncoding, bool>;
              const auto [encoding, big_endian] =
                  choice<Kind>(text, {{"s16le", {RawEncoding::kSigned16, false}},
                                      {"s16be", {RawEncoding::kSigned16, true}},
                                      {"u8", {RawEncoding::kUnsigned8, false}},
                                      {"s24le", {RawEncoding::kSigned24, false}},
                                      {"s24be", {RawEncoding::kSigned24, true}},
                                      {"f32le", {RawEncoding::kFloat32, false}},
                                      {"f32be", {RawEncoding::kFloat32, true}},
                                      {"mulaw", {RawEncoding::kMuLaw, false}},
                                      {"alaw", {RawEncoding::kALaw, false}}});
              raw().encoding = encoding;
              raw().big_endian = big_endian;
          });
    value("--decoder", "libsndfile|ffmpeg",
          "what reads recordings (default libsndfile); ffmpeg, where it is installed, knows more "
          "formats and gives 16 bits",
          [&options = options_](const std::string& text) {
              options.source.by_ffmpeg =
                  choice<bool>(text, {{"libsndfile", false}, {"ffmpeg", true}});
          });
    value("-r,--rate", "HZ", "with --raw: samples per second, of each channel",
          [raw](const std::string& text) { raw().rate = whole_number(text, 1, kFastestRate); });
    value(
        "-c,--channel-count", "N", "with --raw: number of channels (default 1)",
        [raw](const std::string& text) { raw().channels = whole_number(text, 1, kMostChannels); });
    value("--layout", "interleaved|planar",
          "with --raw: channels sample by sample (interleaved, the default) or one channel after "
          "the other (planar, from files only)",
          [raw](const std::string& text) {
              raw().planar = choice<bool>(text, {{"interleaved", false}, {"planar", true}});
          });
    value("--channels", "LIST", "use only these channels, counted from 1, for example 2,4-6",
          [&options = options_](const std::string& text) {
              options.source.channels = channel_list(text);
          });
    flag("--downmix", "use the mean of all channels, or of those that --channels names",
         options_.source.downmix);
    flag("--resample", "convert rates of 50000 Hz and more to 48000 Hz; else they are refused",
         options_.source.resample);
    value("--frame", "LENGTH",
          "length of a frame in samples, 1 to 4096, or with a unit (default 10ms)",
          [&options = options_](const std::string& text) {
              options.frame = Span(text, Span::Unit::kSamples);
              if (options.frame.samples(1) < 1 && options.frame.unit() == Span::Unit::kSamples) {
                  throw std::invalid_argument("a frame has at least 1 sample");
              }
              if (options.frame.unit() == Span::Unit::kSamples &&
                  options.frame.samples(1) > kLongestFrame) {
                  throw std::invalid_argument("a frame has at most 4096 samples");
              }
          });
}

void Adder::each_channel() {
    group_ = "Input";
    const char* const about =
        options_.command == Command::kClean
            ? "suppress the noise of each channel by itself, any number of them; else the first of "
              "two decides for both"
        : options_.command == Command::kSplit
            ? "judge channels apart, any number of them; the pieces of each have that one alone"
            : "judge channels apart, any number of them, in one pass; all formats say which one it "
              "is";
    flag("--each-channel", about, options_.source.each_channel);
}

void Adder::milliseconds(const std::string& name, const std::string& about,
                         std::optional<int32_t>& where) {
    value(name, "TIME", about, [&where](const std::string& text) {
        const Span span(text, Span::Unit::kSeconds);
        check_is_not_milliseconds(text, kFewSeconds);
        const int64_t count = span.samples(1000);
        if (span.unit() == Span::Unit::kSamples || count > KORVANE_STREAM_MAX_MS) {
            throw std::invalid_argument("'" + text + "': write 250ms or 0.25s, an hour at most");
        }
        where = static_cast<int32_t>(count);
    });
}

void Adder::number(const std::string& name, const std::string& about,
                   std::optional<double>& where) {
    value(name, "LIMIT", about, [&where](const std::string& text) {
        double number = 0;
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, number);
        if (error != std::errc() || stop != end) {
            throw std::invalid_argument("'" + text + "' is not a number");
        }
        where = number;
    });
}

void Adder::decision(bool thresholds) {
    group_ = "Decision";
    value("--decision", "adaptive|fixed|detector",
          thresholds
              ? "what decides about a frame: a score that follows noise and speech (adaptive, "
                "the default), the level of the cleaned frame (fixed), or the answers of "
                "libKorvaneVAD (detector)"
              : "detector: the sound just as libKorvaneVAD leaves it, 5 dB quieter below 25000 "
                "Hz; with the others it is as loud as it was",
          [&options = options_](const std::string& text) {
              options.decision = choice<int32_t>(
                  text, {{decision_name(KORVANE_DECISION_ADAPTIVE), KORVANE_DECISION_ADAPTIVE},
                         {decision_name(KORVANE_DECISION_FIXED), KORVANE_DECISION_FIXED},
                         {decision_name(KORVANE_DECISION_DETECTOR), KORVANE_DECISION_DETECTOR}});
          });
    if (!thresholds) {
        return;
    }
    number(
        "--enter",
        "speech begins here: with adaptive a score from 0 to 1 (default 0.5), with fixed a level "
        "in dB from -140 to 0 (default -45)",
        options_.enter);
    number("--stay", "and goes on above this (default: 0.1, or 5 dB, below --enter)",
           options_.stay);
    milliseconds("--onset", "how long it must last before it counts (default: one frame)",
                 options_.onset);
    milliseconds("--hangover", "how long a pause must last before it counts (default 40ms)",
                 options_.hangover);
}

void Adder::segments() {
    group_ = "Segments";
    value("--align", "both|onset|none",
          "what is taken off the times: delay, onset and hang-over (both, the default), delay and "
          "onset (onset), or nothing (none)",
          [&options = options_](const std::string& text) {
              using segments::Align;
              options.align = choice<Align>(text, {{align_name(Align::kBoth), Align::kBoth},
                                                   {align_name(Align::kOnset), Align::kOnset},
                                                   {align_name(Align::kNone), Align::kNone}});
          });
    value(
        "--preset", preset_names(),
        "segments as they are wanted for captions, for dictated text, for the turns of a call, or "
        "for an overview of long recordings; the options below override it, wherever they stand",
        [&options = options_](const std::string& text) {
            options.preset = choice<SegmentTimes>(text, presets());
        });
    const auto usually = [](const char* time) {
        return std::string(" (default ") + time + "; with --decision detector 0)";
    };
    const auto padding = [&](const char* time) {
        return options_.command == Command::kSplit ? usually(time)
               : options_.command == Command::kReport
                   ? std::string(" (default 0)")
                   : std::string(" (default 0; with srt and vtt ") + time + ")";
    };
    span("--min-gap", "join segments that are less than this apart" + usually(kUsualTimes.min_gap),
         options_.min_gap);
    span("--min-speech",
         "drop segments shorter than this, after joining" + usually(kUsualTimes.min_speech),
         options_.min_speech);
    span("--pad-start", "begin segments this much earlier" + padding(kUsualCuts.pad_start),
         options_.pad_start);
    span("--pad-end", "end segments this much later" + padding(kUsualCuts.pad_end),
         options_.pad_end);
    span("--max-speech", "split segments longer than this into equal parts (default 0: never)",
         options_.max_speech, kManySeconds);
}

void Adder::format(bool frames_only) {
    group_ = "Output";
    value("-f,--format", formats(frames_only),
          "format of the output (default: by the extension of -o, else text)",
          [&options = options_, frames_only](const std::string& text) {
              ResultFormat format{};
              try {
                  format = result_format(text);
              } catch (const std::invalid_argument&) {
                  throw std::invalid_argument("'" + text + "' is none of " + formats(frames_only));
              }
              if (frames_only && !is_live(format)) {
                  throw std::invalid_argument("'" + text + "' is none of " + formats(true));
              }
              options.format = format;
              options.format_is_given = true;
          });
    if (!frames_only) {
        flag("--json", "the same as -f json", options_.json);
    }
}

void Adder::overwriting() {
    group_ = "Output";
    flag("--no-clobber", "overwrite nothing: an output that is there already is an error",
         options_.no_clobber);
    flag("--force", "overwrite, as without --no-clobber", options_.force);
}

void Adder::output(const char* type, const std::string& about) {
    group_ = "Output";
    text("-o,--output", type, about, options_.output);
}

void Adder::file_id() {
    group_ = "Output";
    value(
        "--file-id", "stem|path",
        "with rttm: a recording is named there by its name without folder and extension (stem, the "
        "default) or as on the command line (path)",
        [&options = options_](const std::string& text) {
            options.file_id_is_path = choice<bool>(text, {{"stem", false}, {"path", true}});
        });
}

void Adder::progress() {
    group_ = "Output";
    value("--progress", "auto|always|never",
          "show a progress bar on standard error; auto (default): only on a terminal",
          [&options = options_](const std::string& text) {
              options.progress = choice<Progress>(text, {{"auto", Progress::kAuto},
                                                         {"always", Progress::kAlways},
                                                         {"never", Progress::kNever}});
          });
    flag("-q,--quiet", "no warnings; errors are still reported", options_.quiet);
    flag("--strict",
         "write nothing about a recording that is damaged or cut; else what comes before the fault "
         "is worked on and written, with an error and status 1",
         options_.strict);
}

void Adder::check() {
    group_ = "Output";
    flag("--check",
         "print nothing; exit with 0 if there is speech, 1 if there is none, 2 on an error",
         options_.check);
}

void Adder::batch() {
    group_ = "Many files";
    value("-j,--jobs", "N", "work on N recordings at once (default 1); 0: one for each processor",
          [&options = options_](const std::string& text) {
              options.jobs = whole_number(text, 0, kMostJobs);
          });
    text("--files-from", "FILE",
         "read more names of recordings from FILE, one on each line; - is standard input",
         options_.files_from);
    flag("--recursive", "of a folder take all recordings in it and below, by their extensions",
         options_.recursive);
    flag("-0,--null", "the names that --files-from reads end with a zero byte, not with a newline",
         options_.null_separated);
    flag("--fail-fast", "stop at the first recording that fails", options_.fail_fast);
    text("--resume", "MANIFEST",
         "write to MANIFEST what is finished; when run again, skip what it lists",
         options_.manifest);
}

void Adder::pieces() {
    group_ = "Output";
    value("--template", "NAME",
          "names of the files, " + options_.piece_name() +
              " unless given. {stem}: the recording's name; {ext}: the extension of its format; "
              "{channel}: with --each-channel, which one, and else no field; {index}: 1 for the "
              "first segment; {start} {end}: seconds; {start_samples} "
              "{end_samples}: samples. A width, as in {index:04}, fills up with zeros",
          [&options = options_](const std::string& pattern) {
              const NameTemplate valid(pattern);
              options.name_template = pattern;
          });
    flag("--cleaned", "cut the cleaned recording instead of the recording itself",
         options_.cleaned);
}

void Adder::page_audio() {
    group_ = "Output";
    value(
        "--audio", "mp3|flac|none",
        "the sound in the page, before and after: MP3 (default), which is small; FLAC, to the bit; "
        "or none, which makes the page light",
        [&options = options_](const std::string& text) {
            options.page_audio = choice<EmbeddedAudio>(text, {{"mp3", EmbeddedAudio::kMp3},
                                                              {"flac", EmbeddedAudio::kFlac},
                                                              {"none", EmbeddedAudio::kNone}});
        });
}

void Adder::score() {
    group_ = "Output";
    value("-f,--format", "text|csv",
          "format of the output (default: by the extension of -o, else text)",
          [&options = options_](const std::string& text) {
              options.format = choice<ResultFormat>(
                  text, {{"text", ResultFormat::kText}, {"csv", ResultFormat::kCsv}});
              options.format_is_given = true;
          });
    output("FILE", "write to FILE, not to standard output");
    value("--collar", "TIME",
          "what lies so near to a start or an end in REFERENCE does not count (default 0)",
          [&options = options_](const std::string& text) {
              options.collar = Span(text, Span::Unit::kSeconds);
              check_is_not_milliseconds(text, kFewSeconds);
              if (options.collar.unit() == Span::Unit::kSamples) {
                  throw std::invalid_argument("'" + text + "': write 250ms or 0.25s");
              }
          });
}

void Adder::rows() {
    value("--every", "N", "run every Nth row only, beginning with the first",
          [&options = options_](const std::string& text) {
              options.every = whole_number(text, 1, kMostRows);
          });
}

void Adder::help() {
    group_ = "Other";
    flag("--no-config", "leave the configuration file unread", options_.no_config);
    flag("-h,--help", "print this and exit", options_.help);
}

/** A parser that stores into `options`, which must outlive it. */
std::unique_ptr<CLI::App> make_parser(Command command, Options& options) {
    auto app = std::make_unique<CLI::App>();
    app->set_help_flag();
    options.command = command;
    app->add_option("FILE", options.files);
    Adder add(*app, options);
    switch (command) {
        case Command::kDetect:
            add.format(false);
            add.output(
                "FILE",
                "write to FILE, not to standard output; DIR/ gets a file for each recording");
            add.file_id();
            add.check();
            break;
        case Command::kFrames:
            add.format(true);
            add.output("FILE", "write to FILE, not to standard output");
            break;
        case Command::kClean:
            break;
        case Command::kSplit:
            add.output("DIR", "the folder for the files; made where there is none");
            add.pieces();
            break;
        case Command::kReport:
            add.output("PAGE.html", "the page");
            add.page_audio();
            break;
        case Command::kScore:
            add.score();
            add.overwriting();
            add.help();
            return app;
        case Command::kSelftest:
            add.rows();
            add.help();
            return app;
    }
    // What reads sound has these in common.
    add.overwriting();
    add.progress();
    if (command == Command::kDetect) {
        add.batch();
    }
    add.decision(command != Command::kClean);
    if (command != Command::kFrames && command != Command::kClean) {
        add.segments();
    }
    add.input();
    if (command != Command::kReport) {
        add.each_channel();
    }
    add.help();
    return app;
}

}  // namespace

std::vector<OptionText> option_texts(Command command) {
    Options unused;
    const std::unique_ptr<CLI::App> parser = make_parser(command, unused);
    std::vector<OptionText> list;
    for (const CLI::Option* option : std::as_const(*parser).get_options()) {
        if (!option->get_positional()) {
            const bool has_letter = !option->get_snames().empty();
            const bool is_flag = option->get_items_expected_max() == 0;
            list.push_back({has_letter ? option->get_snames().front() : "",
                            option->get_lnames().front(), is_flag ? "" : option->get_type_name(),
                            option->get_description(), option->get_group()});
        }
    }
    return list;
}

bool parse_words(Options& options, Command command, const std::vector<std::string>& words) {
    std::vector<std::string> backwards(words.size());  // as CLI11 takes them
    std::transform(words.rbegin(), words.rend(), backwards.begin(), marked);
    const std::unique_ptr<CLI::App> parser = make_parser(command, options);
    try {
        parser->parse(backwards);
    } catch (const CLI::ParseError& error) {
        throw std::invalid_argument(error.what());
    }
    std::transform(options.files.begin(), options.files.end(), options.files.begin(), unmarked);
    const bool reads_sound = command != Command::kSelftest && command != Command::kScore;
    return reads_sound && parser->count("--raw") > 0;
}

}  // namespace korvane::tool
