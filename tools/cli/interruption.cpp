#include "tools/cli/interruption.h"

#include <unistd.h>

#include <array>

#include "tools/audio/audio_source.h"
#include "tools/files/ending_signals.h"
#include "tools/files/temporary_file.h"

namespace korvane::tool {

namespace {

std::array<volatile pid_t, 256> workers;
volatile sig_atomic_t bar_on_line = 0;
volatile sig_atomic_t stream_may_end = 0;
volatile sig_atomic_t ended_stream = 0;

// Only async-signal-safe calls. Not the destructors: the work may be in the middle of anything.
void handle(int signal) {
    if (stream_may_end != 0 && ended_stream == 0) {
        ended_stream = signal;
        interrupt_live_input();
        return;
    }
    for (const volatile pid_t& worker : workers) {
        if (worker != 0) {
            kill(worker, SIGKILL);
        }
    }
    remove_temporary_files();
    if (bar_on_line != 0) {
        constexpr char kWipe[] = "\r\033[K";
        [[maybe_unused]] const ssize_t written = write(STDERR_FILENO, kWipe, sizeof kWipe - 1);
    }
    _exit(128 + signal);
}

}  // namespace

void handle_interruptions() { on_ending_signals(handle, 0); }

void leave_interruptions_to_parent() {
    for (volatile pid_t& worker : workers) {
        worker = 0;
    }
    remove_temporary_files_on_signals();
}

void let_interruption_end_stream() { stream_may_end = 1; }

int interrupted_by() { return ended_stream; }

void wipe_line_on_interruption(bool holds_bar) { bar_on_line = holds_bar ? 1 : 0; }

void end_on_interruption(int slot, pid_t worker) {
    workers[static_cast<std::size_t>(slot)] = worker;
}

}  // namespace korvane::tool
