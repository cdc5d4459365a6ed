/** korvane-vad: speech segments, frames, cleaned and split recordings, and a page about them. */
#include "korvane_vad.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>
#include <vector>

#include "tools/cli/completions.h"
#include "tools/cli/help.h"
#include "tools/cli/interruption.h"
#include "tools/cli/options.h"
#include "tools/commands.h"
#include "tools/files/failure.h"
#include "tools/files/text_output.h"

// The library hands its log lines to this function of its host. They would only blur the messages
// of a command, so they end here.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
extern "C" __attribute__((visibility("default"), format(printf, 3, 4))) int __android_log_print(
    int /*priority*/, const char* /*tag*/, const char* /*format*/, ...) {
    return 0;
}

namespace {

using namespace korvane::tool;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;

/** Without the three standard streams a file opened later would take their place. What is written to a standard output
 * that was closed still fails. */
void fill_standard_streams() {
    for (const int descriptor : {STDIN_FILENO, STDERR_FILENO, STDOUT_FILENO}) {
        if (fcntl(descriptor, F_GETFD) != -1) {
            continue;
        }
        const int null = open("/dev/null", descriptor == STDERR_FILENO ? O_RDWR : O_RDONLY);
        if (null != descriptor) {
            dup2(null, descriptor);
            close(null);
        }
    }
}

void print(const std::string& text) {
    TextOutput output("");
    output.write(text);
    output.commit();
}

int report_failure(const std::exception& error, int status) {
    std::fprintf(stderr, "korvane-vad: %s\n", error.what());
    return status;
}

int run_words(const std::vector<std::string>& words) {
    const std::string first = words.empty() ? "" : words.front();
    if (first == "--help" || first == "-h") {
        print(general_help());
        return 0;
    }
    if (first == "--version" || first == "-V") {
        print(std::string("korvane-vad " KORVANE_VERSION "\nlibrary: \"") +
              VoiceActivityDetectionVersion() + "\"\n");
        return 0;
    }
    if (first == "--completions") {
        print(completions(words.size() == 2 ? words[1] : ""));
        return 0;
    }
    Options options;
    try {
        options = parse_options(words);
    } catch (const Failure& error) {
        return report_failure(error,
                              kExitUsage);  // of the configuration; for --check, 1 is an answer
    }
    if (options.help) {
        print(command_help(options.command));
        return 0;
    }
    try {
        fill_standard_streams();
        return run(options);
    } catch (const UsageError&) {
        throw;
    } catch (const ReaderGone&) {
        throw;
    } catch (const Interrupted&) {
        return 128 + interrupted_by();
    } catch (const std::exception& error) {
        const int status = options.check ? kExitUsage : kExitFailure;
        return report_failure(error, interrupted_by() != 0 ? 128 + interrupted_by() : status);
    }
}

}  // namespace

int main(int argc, char** argv) {
    // A closed pipe and a file-size limit are to be errors like others, not sudden deaths.
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
    try {
        handle_interruptions();
        return run_words(std::vector<std::string>(argv + (argc > 0 ? 1 : 0), argv + argc));
    } catch (const UsageError& error) {
        std::fprintf(stderr, "korvane-vad: %s\n%s", error.what(),
                     usage_line(error.command).c_str());
        return kExitUsage;
    } catch (const ReaderGone&) {
        return 128 + SIGPIPE;
    } catch (const std::exception& error) {
        return report_failure(error, kExitFailure);
    }
}
