#include "tools/files/ending_signals.h"

#include <array>

namespace korvane::tool {

namespace {

constexpr std::array kEndingSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

sigset_t ending_signals() {
    sigset_t set;
    sigemptyset(&set);
    for (const int signal : kEndingSignals) {
        sigaddset(&set, signal);
    }
    return set;
}

}  // namespace

void on_ending_signals(void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    action.sa_mask = ending_signals();
    for (const int signal : kEndingSignals) {
        struct sigaction before {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) {
            sigaction(signal, &action, nullptr);
        }
    }
}

EndingSignalsDeferred::EndingSignalsDeferred() {
    const sigset_t set = ending_signals();
    sigprocmask(SIG_BLOCK, &set, &before_);
}

EndingSignalsDeferred::~EndingSignalsDeferred() { sigprocmask(SIG_SETMASK, &before_, nullptr); }

}  // namespace korvane::tool
