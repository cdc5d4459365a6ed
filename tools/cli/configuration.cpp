#include "tools/cli/configuration.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <string_view>

#include "tools/audio/input_descriptor.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

// What names files, or is of one run alone.
constexpr std::array<std::string_view, 8> kNotForAllRuns = {
    "output", "files-from", "resume", "help", "force", "check", "json", "no-config"};

std::string trimmed(const std::string& text) {
    constexpr const char* kSpace = " \t\r";
    const std::size_t first = text.find_first_not_of(kSpace);
    return first == std::string::npos
               ? ""
               : text.substr(first, text.find_last_not_of(kSpace) - first + 1);
}

bool has_option(Command command, const std::string& word) {
    const std::vector<OptionText> list = option_texts(command);
    return std::any_of(list.begin(), list.end(),
                       [&word](const OptionText& option) { return option.word == word; });
}

bool has_option_anywhere(const std::string& word) {
    const std::vector<CommandText>& commands = command_texts();
    return std::any_of(commands.begin(), commands.end(),
                       [&word](const CommandText& text) { return has_option(text.command, word); });
}

}  // namespace

std::string configuration_path() {
    const char* folder = std::getenv("XDG_CONFIG_HOME");
    if (folder != nullptr && *folder != '\0') {
        return std::string(folder) + "/korvane-vad/config";
    }
    const char* home = std::getenv("HOME");
    return home != nullptr && *home != '\0' ? std::string(home) + "/.config/korvane-vad/config"
                                            : "";
}

std::vector<std::string> configured_words(const std::string& path, Command command) {
    if (access(path.c_str(), F_OK) != 0 && (errno == ENOENT || errno == ENOTDIR)) {
        return {};
    }
    std::istringstream file(text_of_file(path));
    std::vector<std::string> words;
    std::string section;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        line = trimmed(line.substr(0, line.find('#')));
        const auto fail = [&](const std::string& reason) {
            throw Failure(path, "line " + std::to_string(number) + ": " + reason);
        };
        if (line.empty()) {
            continue;
        }
        if (line.front() == '[') {
            section = line.back() == ']' ? line.substr(1, line.size() - 2) : "";
            const std::vector<CommandText>& commands = command_texts();
            if (std::none_of(commands.begin(), commands.end(),
                             [&](const CommandText& text) { return section == text.name; })) {
                fail("'" + line + "' is no [COMMAND]");
            }
            continue;
        }
        const std::size_t equals = line.find('=');
        const std::string word = trimmed(line.substr(0, equals));
        if (std::count(kNotForAllRuns.begin(), kNotForAllRuns.end(), word) != 0) {
            fail("'" + word + "' belongs on the command line");
        }
        const bool own = section == text_of(command).name;
        if (own ? !has_option(command, word) : !has_option_anywhere(word)) {
            fail("'" + word + "' is no option" + (own ? " of " + section : ""));
        }
        if (own || (section.empty() && has_option(command, word))) {
            words.push_back("--" + word);
            if (equals != std::string::npos) {
                words.back() += "=" + trimmed(line.substr(equals + 1));
            }
        }
    }
    return words;
}

}  // namespace korvane::tool
