#include "tools/cli/help.h"

#include <algorithm>
#include <cctype>

namespace korvane::tool {

namespace {

constexpr std::size_t kColumns = 80;
constexpr std::size_t kOptionColumn = 27;
constexpr const char* kProgram = "korvane-vad";
constexpr const char* kSummary = "find the speech in recordings and live streams, and clean them";
constexpr const char* kWithoutCommand =
    "Without a command, detect is meant. Write ./NAME for a recording that has a command's name, "
    "and -- before one that begins with a dash.";
constexpr const char* kTimes =
    "A TIME is in seconds (0.25 or 0.25s), milliseconds (250ms) or samples (4000samples). The "
    "options for segments are applied in this order: --align, --min-gap, --min-speech, --pad-start "
    "and --pad-end, --max-speech. Segments that touch after padding are joined.";
struct ExitStatus {
    const char* status;
    const char* meaning;
};
constexpr ExitStatus kExitStatus[] = {
    {"0", "done; with --check: there is speech"},
    {"1",
     "a recording failed or the output could not be written; with --check: there is no speech; "
     "with selftest: a row differs"},
    {"2", "wrong usage, or a fault in the configuration; with --check: a recording failed"},
    {"141", "whoever read standard output wanted no more, as head does; nothing is said"},
    {"130",
     "interrupted by Ctrl-C (SIGINT); 143: by SIGTERM. The open segment of a stream is closed and "
     "written; files that are finished stay"}};
struct GeneralOption {
    const char* letter;
    const char* word;
    const char* about;
};
constexpr GeneralOption kGeneralOptions[] = {
    {"h", "help", "print a summary and exit"},
    {"V", "version", "print the version and exit"},
    {"", "completions bash|zsh|fish", "print the completions for a shell and exit"}};

constexpr GeneralOption kEnvironment[] = {
    {"", "XDG_CONFIG_HOME",
     "where the folder korvane-vad with the file config is; ~/.config without it"},
    {"", "TMPDIR",
     "where a stream is stored that cannot be read from front to back; /tmp without it"},
    {"", "NO_COLOR", "if it is set, the progress bar has no colours"}};
constexpr const char* kConfiguration =
    "Options for every run. A line is an option without its dashes, with = and its value if it "
    "takes one: min-gap = 0.5s. What stands behind [split] is for this command alone, what stands "
    "before such a line for every command that has the option. # begins a comment. The command "
    "line overrides it; --no-config leaves it unread.";

/** Words in lines of at most kColumns, those after the first indented; the first begins at
 * `column`. */
std::string wrapped(const std::string& text, std::size_t indent, std::size_t column) {
    std::string result;
    std::size_t begin = 0;
    bool first = true;
    while (begin < text.size()) {
        const std::size_t end = std::min(text.find(' ', begin), text.size());
        const std::size_t length = end - begin;
        if (!first && column + 1 + length > kColumns) {
            result += "\n" + std::string(indent, ' ');
            column = indent;
        } else if (!first) {
            result += ' ';
            ++column;
        }
        result.append(text, begin, length);
        column += length;
        first = false;
        begin = end + 1;
    }
    return result;
}

std::string paragraph(const std::string& text) { return wrapped(text, 0, 0) + "\n"; }

std::string names_of(const OptionText& option) {
    return (option.letter.empty() ? "    " : "-" + option.letter + ", ") + "--" + option.word +
           (option.type.empty() ? "" : " " + option.type);
}

/** A name and what it is, in two columns. */
std::string entry(const std::string& name, const std::string& about) {
    std::string line = "  " + name;
    if (line.size() + 2 > kOptionColumn) {
        line += "\n" + std::string(kOptionColumn, ' ');
    } else {
        line.resize(kOptionColumn, ' ');
    }
    return line + wrapped(about, kOptionColumn, kOptionColumn) + "\n";
}

std::string examples(const CommandText& text) {
    std::string result = "Examples:\n";
    for (const CommandText::Example& example : text.examples) {
        result += "  " + std::string(example.line) + "\n      " + example.does + "\n";
    }
    return result;
}

bool has_times(Command command) {
    return command != Command::kFrames && command != Command::kClean &&
           command != Command::kScore && command != Command::kSelftest;
}

// ---- roff ----------------------------------------------------------------------------------

std::string roff(const std::string& text) {
    std::string result;
    for (const char c : text) {
        if (c == '\\') {
            result += "\\e";
        } else if (c == '-') {
            result += "\\-";
        } else if (c == '\'') {
            result += "\\(aq";
        } else {
            result += c;
        }
    }
    return result.empty() || result.front() != '.' ? result : "\\&" + result;
}

std::string roff_option(const OptionText& option) {
    std::string line = ".TP\n\\fB";
    if (!option.letter.empty()) {
        line += "\\-" + option.letter + "\\fR, \\fB";
    }
    line += roff("--" + option.word) + "\\fR";
    if (!option.type.empty()) {
        line +=
            option.has_choices() ? " " + roff(option.type) : " \\fI" + roff(option.type) + "\\fR";
    }
    return line + "\n" + roff(option.about) + "\n";
}

std::string roff_command(const CommandText& text) {
    std::string page = ".SH \"" + std::string(text.name) + "\"\n.B " + roff(kProgram) + " " +
                       text.name + "\n" + roff(text.arguments) + "\n.PP\n" + roff(text.summary) +
                       ".\n";
    std::transform(page.begin() + 5,
                   page.begin() + 5 + static_cast<std::ptrdiff_t>(std::string(text.name).size()),
                   page.begin() + 5,
                   [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    for (const char* note : text.notes) {
        page += ".PP\n" + roff(note) + "\n";
    }
    std::string group;
    for (const OptionText& option : option_texts(text.command)) {
        if (option.group != group) {
            group = option.group;
            page += ".SS " + group + "\n";
        }
        page += roff_option(option);
    }
    return page;
}

// ---- shells --------------------------------------------------------------------------------

std::string files_and_environment() {
    std::string page = ".SH ENVIRONMENT\n";
    for (const GeneralOption& variable : kEnvironment) {
        page += ".TP\n.B " + roff(variable.word) + "\n" + roff(variable.about) + "\n";
    }
    page += ".SH FILES\n.TP\n.B " + roff("~/.config/korvane-vad/config") + "\n" +
            roff(kConfiguration) + "\n";
    return page + ".SH SEE ALSO\nffmpeg(1), sox(1), parallel(1)\n.PP\n" +
           roff("docs/tool.md, docs/audio.md and docs/batch.md in the sources") + "\n";
}

}  // namespace

std::string usage_line(Command command) {
    const CommandText& text = text_of(command);
    const std::string name = std::string(kProgram) + " " + text.name;
    return "usage: " + name + " " + text.arguments + "\n       " + name + " --help\n";
}

std::string general_help() {
    std::string help = "Examples:\n";
    for (const CommandText& text : command_texts()) {
        help += "  " + std::string(text.examples.front().line) + "\n      " +
                text.examples.front().does + "\n";
    }
    help += "\nusage: " + std::string(kProgram) + " [COMMAND] [OPTION...] ...\n\nCommands:\n";
    for (const CommandText& text : command_texts()) {
        help += entry(text.name, text.summary);
    }
    help += "\n" + paragraph(kWithoutCommand) + "\nOptions:\n";
    for (const GeneralOption& option : kGeneralOptions) {
        help += entry(names_of({option.letter, option.word, "", "", ""}), option.about);
    }
    help += entry("COMMAND --help", "print the command's examples and options");
    help += "\nExit status:\n";
    for (const ExitStatus& status : kExitStatus) {
        help += entry(status.status, status.meaning);
    }
    return help;
}

std::string command_help(Command command) {
    const CommandText& text = text_of(command);
    std::string help = examples(text) + "\nusage: " + kProgram + " " + text.name + " " +
                       text.arguments + "\n" + paragraph(text.summary);
    for (const char* note : text.notes) {
        help += "\n" + paragraph(note);
    }
    std::string group;
    for (const OptionText& option : option_texts(command)) {
        if (option.group != group) {
            group = option.group;
            help += "\n" + group + ":\n";
        }
        help += entry(names_of(option), option.about);
    }
    if (has_times(command)) {
        help += "\n" + paragraph(kTimes);
    }
    return help;
}

std::string manual_page() {
    std::string page = std::string(".TH KORVANE\\-VAD 1 \"\" \"Korvane VAD ") + KORVANE_VERSION +
                       "\" \"User Commands\"\n.SH NAME\n" + roff(kProgram) + " \\- " +
                       roff(kSummary) + "\n.SH SYNOPSIS\n";
    for (const CommandText& text : command_texts()) {
        page += ".B " + roff(kProgram) + " " + text.name + "\n" + roff(text.arguments) + "\n.br\n";
    }
    page += ".B " + roff(kProgram) + "\n\\-\\-help | \\-\\-version\n.SH EXAMPLES\n";
    for (const CommandText& text : command_texts()) {
        for (const CommandText::Example& example : text.examples) {
            page += ".PP\n.nf\n.B " + roff(example.line) + "\n.fi\n.RS\n" + roff(example.does) +
                    "\n.RE\n";
        }
    }
    page += ".SH DESCRIPTION\n" + roff(kWithoutCommand) + "\n.PP\n" + roff(kTimes) + "\n";
    for (const CommandText& text : command_texts()) {
        page += roff_command(text);
    }
    page += ".SH OPTIONS\n";
    for (const GeneralOption& option : kGeneralOptions) {
        page += roff_option({option.letter, option.word, "", option.about, ""});
    }
    page += ".SH EXIT STATUS\n";
    for (const ExitStatus& status : kExitStatus) {
        page += ".TP\n.B " + roff(status.status) + "\n" + roff(status.meaning) + "\n";
    }
    return page + files_and_environment();
}

}  // namespace korvane::tool
