// The command line: any words give options that hold together, or a UsageError.

#include "input_file.h"
#include "tools/cli/help.h"
#include "tools/cli/name_template.h"
#include "tools/cli/options.h"
#include "tools/files/failure.h"

using namespace korvane::tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    std::vector<std::string> words(1);
    for (size_t i = 0; i < size; ++i) {
        if (input[i] == '\n') {
            words.emplace_back();
        } else if (input[i] != '\0') {  // ends a word in any process
            words.back() += static_cast<char>(input[i]);
        }
    }
    Options options;
    try {
        options = parse_options(words);
    } catch (const UsageError& error) {
        require(*error.what() != '\0', "an error says something");
        return 0;
    }
    if (options.help) {
        require(!command_help(options.command).empty(), "there is help");
        return 0;
    }
    require(options.jobs >= 1 && options.jobs <= 256, "there is a number of jobs");
    require(!options.files.empty() || !options.files_from.empty() ||
                options.command == Command::kSelftest,
            "there is something to do");
    require(
        !options.source.raw || (options.source.raw->rate >= 1 && options.source.raw->channels >= 1),
        "raw samples have a rate and channels");
    require(options.source.channels.size() <= 2 || options.source.downmix ||
                options.source.each_channel,
            "two channels at most are judged together");
    require(!options.fingerprint().empty(), "options have a fingerprint");
    const NameTemplate pattern(options.piece_name());
    for (const int rate : {1, 16000, 49999}) {
        const korvane::segments::Rules rules = options.rules(rate);
        for (const int64_t samples :
             {rules.min_gap, rules.min_speech, rules.pad_start, rules.pad_end, rules.max_speech}) {
            require(samples >= 0 && samples <= 1'000'000'000'000'000, "times are in range");
        }
        try {
            const int frame = options.stream("x", rate, 1).frame_length;
            require(frame >= 1 && frame <= 4096, "a frame fits");
        } catch (const Failure&) {
        }
    }
    return 0;
}
