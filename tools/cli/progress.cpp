#include "tools/cli/progress.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "tools/cli/interruption.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

constexpr auto kBetween = std::chrono::milliseconds(100);
constexpr auto kBeforeFirst = std::chrono::milliseconds(300);
constexpr int kUsualWidth = 80;
constexpr int kLongestBar = 40;

std::string clock_time(double seconds) {
    const auto whole = static_cast<long long>(std::min(std::ceil(seconds), 3.6e6));
    char text[32];
    if (whole >= 3600) {
        std::snprintf(text, sizeof text, "%lld:%02lld:%02lld", whole / 3600, whole / 60 % 60,
                      whole % 60);
    } else {
        std::snprintf(text, sizeof text, "%lld:%02lld", whole / 60, whole % 60);
    }
    return text;
}

int terminal_width() {
    winsize size{};
    if (ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0) {
        return size.ws_col;
    }
    return kUsualWidth;
}

bool set(const char* variable) {
    const char* value = std::getenv(variable);
    return value != nullptr && *value != '\0';
}

bool able_terminal() {
    const char* term = std::getenv("TERM");
    return isatty(STDERR_FILENO) == 1 && term != nullptr && std::strcmp(term, "dumb") != 0;
}

void say(const std::string& text) {
    [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, text.data(), text.size());
}

}  // namespace

std::string progress_line(int width, double fraction, double times, double seconds,
                          const std::string& note, bool colour) {
    char speed[48];
    std::snprintf(speed, sizeof speed, "%.*fx real time", times < 9.95 ? 1 : 0, times);
    std::string words = speed;
    std::string percent;
    if (fraction >= 0) {
        fraction = std::min(fraction, 1.0);
        char text[16];
        std::snprintf(text, sizeof text, "%3.0f %% ", std::floor(fraction * 100));
        percent = text;
        if (fraction > 0) {
            words += ", " + clock_time(seconds * (1 - fraction) / fraction) + " left";
        }
    }
    words += note.empty() ? "" : ", " + note;
    // A character in the last column would make some terminals begin another line.
    const auto columns = static_cast<std::size_t>(std::max(width - 1, 0));
    const std::size_t used = percent.size() + words.size() + 3;  // brackets and a space
    if (fraction >= 0 && columns >= used + 4) {
        const std::size_t length = std::min<std::size_t>(columns - used, kLongestBar);
        const auto full = static_cast<std::size_t>(fraction * static_cast<double>(length));
        const char* const on = colour ? "\033[32m" : "";
        const char* const off = colour ? "\033[0m" : "";
        const std::string bar =
            "[" + (on + std::string(full, '=')) + off + std::string(length - full, ' ') + "] ";
        return bar + percent + words;
    }
    return (percent + words).substr(0, columns);
}

void warn(const Options& options, const std::string& name, const std::string& what) {
    if (!what.empty() && !options.quiet && !options.check) {
        std::fprintf(stderr, "korvane-vad: warning: %s\n", Failure(name, what).what());
    }
}

ProgressBar::ProgressBar(Progress when, bool quiet)
    : shown_(when == Progress::kAlways || (when == Progress::kAuto && !quiet && able_terminal())),
      colour_(!set("NO_COLOR")),
      next_(start_ + (when == Progress::kAlways ? std::chrono::milliseconds(0) : kBeforeFirst)) {}

void ProgressBar::update(double fraction, double sound_seconds, const std::string& note) {
    if (!shown_) {
        return;
    }
    const Clock::time_point now = Clock::now();
    if (now < next_) {
        return;
    }
    next_ = now + kBetween;
    const double seconds = std::max(std::chrono::duration<double>(now - start_).count(), 1e-3);
    wipe_line_on_interruption(true);
    on_line_ = true;
    say("\r" +
        progress_line(terminal_width(), fraction, sound_seconds / seconds, seconds, note, colour_) +
        "\033[K");
}

void ProgressBar::wipe() {
    if (on_line_) {
        say("\r\033[K");
        on_line_ = false;
        wipe_line_on_interruption(false);
    }
}

}  // namespace korvane::tool
