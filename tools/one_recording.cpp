#include "tools/one_recording.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <memory>

#include "tools/cli/interruption.h"

namespace korvane::tool {

namespace {

/** A pipe, a device or a socket, by name or as standard input. */
bool is_stream(const std::string& name) {
    struct stat status {};
    const int failed = name == "-" ? fstat(STDIN_FILENO, &status) : stat(name.c_str(), &status);
    return failed == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode);
}

}  // namespace

bool is_live_input(const std::string& name) { return name == "-" || is_stream(name); }

void prepare_for_interruption(const std::string& name) {
    if (is_stream(name)) {
        let_interruption_end_stream();
    }
}

int status_after_stream() { return interrupted_by() != 0 ? 128 + interrupted_by() : 0; }

int status_after(const std::string& fault) {
    if (fault.empty()) {
        return status_after_stream();
    }
    std::fprintf(stderr, "korvane-vad: %s\n", fault.c_str());
    return std::max(status_after_stream(), 1);
}

ProgressBar bar_for(const Options& options, const std::string& input, bool prints_meanwhile) {
    return {options.progress,
            is_live_input(input) || (prints_meanwhile && isatty(STDOUT_FILENO) == 1)};
}

Tick drawing(ProgressBar& bar) {
    return [&bar](double fraction, double seconds) { bar.update(fraction, seconds, ""); };
}

std::vector<Listener> interleaving(
    int channels, const std::function<void(const int16_t* samples, int64_t n)>& next) {
    const auto together = std::make_shared<std::vector<int16_t>>();
    const auto width = static_cast<std::size_t>(channels);
    std::vector<Listener> listeners(width);
    for (std::size_t channel = 0; channel < width; ++channel) {
        listeners[channel].cleaned = [=](const int16_t* samples, int64_t n) {
            together->resize(static_cast<std::size_t>(n) * width);
            for (std::size_t i = 0; i < static_cast<std::size_t>(n); ++i) {
                (*together)[i * width + channel] = samples[i];
            }
            if (channel + 1 == width) {
                next(together->data(), n);
            }
        };
    }
    return listeners;
}

}  // namespace korvane::tool
