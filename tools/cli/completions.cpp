#include "tools/cli/completions.h"

#include <algorithm>

namespace korvane::tool {

namespace {

bool takes_file(const OptionText& option) {
    return option.type == "FILE" || option.type == "MANIFEST" || option.type == "PAGE.html";
}

bool takes_folder(const OptionText& option) { return option.type == "DIR"; }

std::string choices(const OptionText& option) {
    std::string list = option.type;
    std::replace(list.begin(), list.end(), '|', ' ');
    return list;
}

/** Within single quotes of any shell. */
std::string quoted(const std::string& text) {
    std::string result = "'";
    for (const char c : text) {
        result += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return result + "'";
}

std::string command_names(const char* separator) {
    std::string names;
    for (const CommandText& text : command_texts()) {
        names += (names.empty() ? "" : separator) + std::string(text.name);
    }
    return names;
}

/** "-x" and "--word", with `between` between them. */
std::string both_names(const OptionText& option, const char* between) {
    return (option.letter.empty() ? "" : "-" + option.letter + between) + "--" + option.word;
}

std::string bash_case(const CommandText& text) {
    std::string words;
    std::string values;
    for (const OptionText& option : option_texts(text.command)) {
        words.append(words.empty() ? "" : " ").append(both_names(option, " "));
        const bool anything = !option.type.empty() && !takes_file(option) && !takes_folder(option);
        if (option.has_choices() || anything) {
            values.append(16, ' ').append(both_names(option, "|"));
            values.append(option.has_choices() ? ") values='" + choices(option) + "' ;;\n"
                                               : ") return ;;\n");
        }
    }
    return "        " + std::string(text.name) + ")\n            options='" + words +
           "'\n            case $before in\n" + values + "            esac ;;\n";
}

std::string zsh_escaped(const std::string& text) {
    std::string result;
    for (const char c : text) {
        result += (c == '[' || c == ']' || c == ':' || c == '\\') ? std::string("\\") + c
                                                                  : std::string(1, c);
    }
    return result;
}

std::string zsh_option(const OptionText& option) {
    std::string argument;
    if (!option.type.empty()) {
        const std::string action = option.has_choices()   ? "(" + choices(option) + ")"
                                   : takes_file(option)   ? "_files"
                                   : takes_folder(option) ? "_files -/"
                                                          : " ";
        argument = ":" + (option.has_choices() ? option.word : option.type) + ":" + action;
    }
    const std::string word = "--" + option.word + (option.type.empty() ? "" : "=");
    const std::string rest = quoted("[" + zsh_escaped(option.about) + "]" + argument);
    if (option.letter.empty()) {
        return quoted(word).substr(0, word.size() + 1) + rest.substr(1);
    }
    const std::string letter = "-" + option.letter + (option.type.empty() ? "" : "+");
    return "'(-" + option.letter + " --" + option.word + ")'{" + letter + "," + word + "}" + rest;
}

std::string fish_option(const OptionText& option, const std::string& condition) {
    std::string line = "complete -c korvane-vad -n " + quoted(condition);
    line += option.letter.empty() ? "" : " -s " + option.letter;
    line += " -l " + option.word;
    if (option.has_choices()) {
        line += " -x -a " + quoted(choices(option));
    } else if (takes_file(option) || takes_folder(option)) {
        line += " -r -F";
    } else if (!option.type.empty()) {
        line += " -x";
    }
    return line + " -d " + quoted(option.about) + "\n";
}

}  // namespace

std::string bash_completions() {
    std::string script =
        "# Completions for bash.\n"
        "_korvane_vad() {\n"
        "    local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}\n"
        "    local command=detect options='' values=''\n"
        "    COMPREPLY=()\n"
        "    if ((COMP_CWORD > 1)); then\n"
        "        case ${COMP_WORDS[1]} in " +
        command_names("|") +
        ") command=${COMP_WORDS[1]} ;; esac\n"
        "    fi\n"
        "    case $command in\n";
    for (const CommandText& text : command_texts()) {
        script += bash_case(text);
    }
    return script +
           "    esac\n"
           "    ((COMP_CWORD > 1)) || options+=' --version -V --completions'\n"
           "    [[ $COMP_CWORD != 2 || $before != --completions ]] || values='bash zsh fish'\n"
           "    if [[ $values ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$values\" -- \"$word\")\n"
           "    elif [[ $word == -* ]]; then\n"
           "        mapfile -t COMPREPLY < <(compgen -W \"$options\" -- \"$word\")\n"
           "    else\n"
           "        compopt -o filenames 2>/dev/null\n"
           "        mapfile -t COMPREPLY < <(compgen -f -- \"$word\"\n"
           "            ((COMP_CWORD > 1)) || compgen -W '" +
           command_names(" ") +
           "' -- \"$word\")\n"
           "    fi\n"
           "}\n"
           "complete -F _korvane_vad korvane-vad\n";
}

std::string zsh_completions() {
    std::string script = "#compdef korvane-vad\nlocal command=detect\nlocal -a commands=(\n";
    for (const CommandText& text : command_texts()) {
        script += "    " + quoted(std::string(text.name) + ":" + zsh_escaped(text.summary)) + "\n";
    }
    script +=
        ")\n"
        "if (( CURRENT == 2 )) && [[ $words[2] != -* ]]; then\n"
        "    _describe -t commands command commands\n"
        "    _files\n"
        "    return\n"
        "fi\n"
        "case $words[2] in " +
        command_names("|") +
        ") command=$words[2]; shift words; (( CURRENT-- )) ;; esac\n"
        "case $command in\n";
    for (const CommandText& text : command_texts()) {
        script += "    " + std::string(text.name) + ")\n        _arguments -s -S \\\n";
        for (const OptionText& option : option_texts(text.command)) {
            script += "            " + zsh_option(option) + " \\\n";
        }
        if (text.command == Command::kDetect) {
            script +=
                "            '(- :)'{-V,--version}'[print the version and exit]' \\\n"
                "            '(- :)--completions[print the completions for a shell and exit]"
                ":shell:(bash zsh fish)' \\\n";
        }
        script += "            '*:recording:_files' ;;\n";
    }
    return script + "esac\n";
}

std::string fish_completions() {
    std::string script = "# Completions for fish.\n";
    std::string others;
    for (const CommandText& text : command_texts()) {
        script += std::string("complete -c korvane-vad -n __fish_use_subcommand -a ") + text.name +
                  " -d " + quoted(text.summary) + "\n";
        others += text.command == Command::kDetect ? "" : " " + std::string(text.name);
    }
    script +=
        "complete -c korvane-vad -n __fish_use_subcommand -s V -l version"
        " -d 'print the version and exit'\n"
        "complete -c korvane-vad -n __fish_use_subcommand -l completions -x -a 'bash zsh fish'"
        " -d 'print the completions for a shell and exit'\n";
    for (const CommandText& text : command_texts()) {
        const std::string condition = text.command == Command::kDetect
                                          ? "not __fish_seen_subcommand_from" + others
                                          : "__fish_seen_subcommand_from " + std::string(text.name);
        for (const OptionText& option : option_texts(text.command)) {
            script += fish_option(option, condition);
        }
    }
    return script;
}

std::string completions(const std::string& shell) {
    if (shell == "bash") {
        return bash_completions();
    }
    if (shell == "zsh") {
        return zsh_completions();
    }
    if (shell == "fish") {
        return fish_completions();
    }
    throw UsageError(Command::kDetect, "--completions needs bash, zsh or fish");
}

}  // namespace korvane::tool
