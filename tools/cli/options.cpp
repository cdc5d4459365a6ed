#include "tools/cli/options.h"

#include <algorithm>
#include <filesystem>
#include <numeric>
#include <optional>
#include <thread>
#include <utility>

#include "tools/cli/configuration.h"
#include "tools/cli/name_template.h"
#include "tools/cli/parser.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

/** What is wrong with the thresholds and times; empty where nothing is. */
std::string wrong_thresholds(const Options& options) {
    if (options.decision == KORVANE_DECISION_DETECTOR) {
        return options.enter || options.stay || options.onset || options.hangover
                   ? "--decision detector takes neither thresholds nor times"
                   : "";
    }
    const bool score = options.decision == KORVANE_DECISION_ADAPTIVE;
    const double least = score ? 0 : kLowestLevel;
    const double most = score ? 1 : 0;
    for (const std::optional<double>& limit : {options.enter, options.stay}) {
        if (limit && !(*limit >= least && *limit <= most)) {
            return score ? "--enter and --stay are scores from 0 to 1, with --decision fixed dB"
                         : "with --decision fixed, --enter and --stay are dB from -140 to 0";
        }
    }
    const auto [enter, stay] = options.thresholds();
    return stay > enter ? "--stay is above --enter" : "";
}

/** What is wrong with options that are each right; empty where nothing is. */
std::string contradiction(const Options& options) {
    const std::optional<RawFormat>& raw = options.source.raw;
    if (raw && raw->rate == 0) {
        return "--raw needs --rate";
    }
    if (raw && options.source.by_ffmpeg) {
        return "--raw needs no --decoder";
    }
    if (raw && raw->planar &&
        std::find(options.files.begin(), options.files.end(), "-") != options.files.end()) {
        return "--layout planar cannot be read from a stream";
    }
    if (options.source.each_channel && options.source.downmix) {
        return "--each-channel judges channels apart, --downmix makes one of them";
    }
    if (options.source.channels.size() > 2 && !options.source.downmix &&
        !options.source.each_channel) {
        return "--channels takes one or two, or more with --downmix or --each-channel";
    }
    if (!options.source.each_channel && NameTemplate(options.piece_name()).names_channel()) {
        return "{channel} in --template needs --each-channel";
    }
    if (options.null_separated && options.files_from.empty()) {
        return "--null needs --files-from";
    }
    const auto streams = std::count(options.files.begin(), options.files.end(), "-") +
                         (options.files_from == "-" ? 1 : 0);
    if (streams > 1 && options.command != Command::kClean) {
        return "standard input can be read only once";
    }
    if (options.check && (!options.output.empty() || !options.manifest.empty())) {
        return "--check prints nothing, so it goes with neither --output nor --resume";
    }
    return wrong_thresholds(options);
}

std::string missing_argument(const Options& options) {
    const std::size_t count = options.files.size();
    const bool one = options.command != Command::kDetect && options.command != Command::kClean;
    if (options.command == Command::kSelftest) {
        return count == 0 ? "" : "selftest takes no names";
    }
    if (options.command == Command::kClean) {
        return count == 2 ? "" : "clean needs two names: IN OUT";
    }
    if (options.command == Command::kScore) {
        return count == 2 ? "" : "score needs two names: REFERENCE HYPOTHESIS";
    }
    if (count == 0 && options.files_from.empty()) {
        return "no recording given";
    }
    if (one && count > 1) {
        return "more than one recording given";
    }
    if (options.output.empty() && options.command == Command::kSplit) {
        return "split needs -o DIR";
    }
    if (options.output.empty() && options.command == Command::kReport) {
        return "report needs -o PAGE.html";
    }
    return "";
}

/** How many letters have to be put in, left out or changed. */
std::size_t distance(const std::string& one, const std::string& other) {
    std::vector<std::size_t> row(other.size() + 1);
    std::iota(row.begin(), row.end(), std::size_t{0});
    for (std::size_t i = 0; i < one.size(); ++i) {
        std::size_t diagonal = std::exchange(row[0], i + 1);
        for (std::size_t j = 0; j < other.size(); ++j) {
            const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
            diagonal = row[j + 1];
            row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
        }
    }
    return row.back();
}

bool exists(const std::string& path) {
    std::error_code none;
    return std::filesystem::exists(std::filesystem::symlink_status(path, none));
}

/** Of the first word where it is neither a command nor a recording. */
std::string mistyped(const std::string& word) {
    if (exists(word)) {
        return "";
    }
    if (word == "help") {
        return "there is no recording 'help'; korvane-vad --help prints a summary";
    }
    for (const CommandText& text : command_texts()) {
        if (distance(word, text.name) <= 2) {
            return "'" + word + "' is neither a command nor a recording; " + text.name +
                   " is a command";
        }
    }
    return "";
}

/** Where a word that was taken for options is a file. */
std::string dash_hint(const std::vector<std::string>& words) {
    for (const std::string& word : words) {
        if (word.size() > 1 && word[0] == '-' && exists(word)) {
            return "; for the file write ./" + word;
        }
    }
    return "";
}

/** With --json as what it stands for, so that the last one of it and -f counts. */
std::vector<std::string> without_shorthand(std::vector<std::string> words) {
    const auto end = std::find(words.begin(), words.end(), "--");
    std::replace(words.begin(), end, std::string("--json"), std::string("--format=json"));
    return words;
}

/** Which of the command's formats the output's name stands for; else text. */
ResultFormat format_by_name(const Options& options) {
    const std::string extension = std::filesystem::path(options.output).extension();
    const bool has_all = options.command == Command::kDetect;
    for (const std::string& name : result_format_names()) {
        const ResultFormat format = result_format(name);
        const bool is_written =
            has_all ||
            (options.command == Command::kScore ? format == ResultFormat::kCsv : is_live(format));
        if (is_written && extension == extension_of(format)) {
            return format;
        }
    }
    return ResultFormat::kText;
}

Command command_of(std::vector<std::string>& words) {
    for (const CommandText& text : command_texts()) {
        if (!words.empty() && words.front() == text.name) {
            words.erase(words.begin());
            return text.command;
        }
    }
    return Command::kDetect;
}

}  // namespace

Options parse_options(const std::vector<std::string>& words) {
    std::vector<std::string> rest = without_shorthand(words);
    const Command command = command_of(rest);
    Options options;
    const auto check = [command](const std::string& problem) {
        if (!problem.empty()) {
            throw UsageError(command, problem);
        }
    };
    if (rest.size() == words.size() && !rest.empty()) {  // no command is named
        check(mistyped(rest.front()));
    }
    bool has_raw = false;
    const std::string configuration = configuration_path();
    if (std::count(rest.begin(), rest.end(), "--no-config") == 0 && command != Command::kSelftest) {
        try {
            has_raw = parse_words(options, command, configured_words(configuration, command));
        } catch (const std::invalid_argument& error) {
            throw Failure(configuration, error.what());
        }
    }
    try {
        has_raw = parse_words(options, command, rest) || has_raw;
    } catch (const std::invalid_argument& error) {
        throw UsageError(command, error.what() + dash_hint(rest));
    }
    if (options.help) {
        return options;
    }
    if (options.source.raw && !has_raw) {
        check("--rate, --channel-count and --layout need --raw");
    }
    if (!options.format_is_given) {
        options.format = format_by_name(options);
    }
    check(missing_argument(options));
    check(contradiction(options));
    if (options.jobs == 0) {
        options.jobs =
            std::clamp(static_cast<int>(std::thread::hardware_concurrency()), 1, kMostJobs);
    }
    return options;
}

}  // namespace korvane::tool
