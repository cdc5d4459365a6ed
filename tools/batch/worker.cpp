#include "tools/batch/worker.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>

#include "tools/cli/interruption.h"
#include "tools/files/ending_signals.h"
#include "tools/files/failure.h"
#include "tools/files/write_all.h"

namespace korvane::tool {

namespace {

// What a worker sends begins with one of these.
constexpr char kSpeech = 's';
constexpr char kNoSpeech = 'n';
constexpr char kFailed = 'f';
constexpr char kEnd = '\0';  // of a line before the result

std::string take_line(std::string& message) {
    const std::size_t end = std::min(message.find(kEnd), message.size());
    std::string line = message.substr(0, end);
    message.erase(0, end + 1);
    return line;
}

std::string message_about(const std::string& name, const Options& options, bool several,
                          WorkerState* state) {
    try {
        const Finding finding =
            find_speech(name, options, several, [state](double fraction, double seconds) {
                state->fraction.store(fraction, std::memory_order_relaxed);
                state->seconds.store(seconds, std::memory_order_relaxed);
            });
        return (finding.speech ? kSpeech : kNoSpeech) + finding.fault + kEnd + finding.doubt +
               kEnd + finding.text;
    } catch (const Failure& failure) {
        return kFailed + std::string(failure.what());
    } catch (const std::exception& error) {
        return kFailed + std::string(Failure(name, error.what()).what());
    }
}

}  // namespace

Worker::Worker(int slot, const std::string& name, const Options& options, bool several,
               WorkerState* state)
    : slot_(slot), name_(name) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw Failure("worker process", std::strerror(errno));
    }
    state->fraction = 0;
    state->seconds = 0;
    const EndingSignalsDeferred deferred;
    const pid_t parent = getpid();
    process_ = fork();
    if (process_ == 0) {
        leave_interruptions_to_parent();
        // Not even a parent that was killed outright leaves workers behind.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != parent) {
            _exit(1);
        }
        close(ends[0]);
        _exit(write_all(ends[1], message_about(name, options, several, state)) ? 0 : 1);
    }
    close(ends[1]);
    pipe_ = ends[0];
    if (process_ < 0) {
        const int error = errno;
        close(pipe_);
        throw Failure("worker process", std::strerror(error));
    }
    end_on_interruption(slot_, process_);
}

Worker::~Worker() {
    if (process_ > 0) {
        kill(process_, SIGKILL);
        while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
        }
        end_on_interruption(slot_, 0);
    }
    close(pipe_);
}

bool Worker::receive() {
    char piece[65536];
    const ssize_t count = read(pipe_, piece, sizeof piece);
    if (count > 0) {
        received_.append(piece, static_cast<std::size_t>(count));
    }
    return count == 0 || (count < 0 && errno != EINTR);
}

Outcome Worker::outcome() {
    int status = 0;
    {
        const EndingSignalsDeferred deferred;  // lest one kills another process of the same number
        while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
        }
        process_ = 0;
        end_on_interruption(slot_, 0);
    }
    Outcome outcome;
    if (status != 0 || received_.empty()) {
        outcome.failed = true;
        const std::string how = WIFSIGNALED(status)
                                    ? "signal " + std::to_string(WTERMSIG(status))
                                    : "status " + std::to_string(WEXITSTATUS(status));
        outcome.error = Failure(name_, "its worker process ended with " + how).what();
        return outcome;
    }
    outcome.failed = received_[0] == kFailed;
    outcome.finding.speech = received_[0] == kSpeech;
    received_.erase(0, 1);
    if (outcome.failed) {
        outcome.error = received_;
        return outcome;
    }
    outcome.finding.fault = take_line(received_);
    outcome.finding.doubt = take_line(received_);
    outcome.finding.text = received_;
    return outcome;
}

}  // namespace korvane::tool
