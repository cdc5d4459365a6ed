#include "cleaned_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "failure.h"

namespace korvane::tool {

namespace {

constexpr int64_t kHeaderBytes = 44;
// RIFF's size field counts 36 header bytes besides the samples.
constexpr int64_t kMaxSamples = (int64_t{UINT32_MAX} - 36) / 2;
constexpr std::size_t kPieceSamples = 131072;
constexpr std::array kEndingSignals = {SIGHUP, SIGINT, SIGQUIT, SIGTERM};

// What the signal handler has to remove, empty when there is nothing. Changed only while the
// signals are blocked.
char doomed[PATH_MAX];

void remove_and_die(int signal) {
    if (doomed[0] != '\0') {
        unlink(doomed);
    }
    raise(signal);  // the default action, restored by SA_RESETHAND, once this handler returns
}

class SignalsBlocked {
  public:
    SignalsBlocked() {
        sigset_t set;
        sigemptyset(&set);
        for (const int signal : kEndingSignals) {
            sigaddset(&set, signal);
        }
        sigprocmask(SIG_BLOCK, &set, &before_);
    }
    ~SignalsBlocked() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;

  private:
    sigset_t before_{};
};

void handle_ending_signals() {
    struct sigaction action {};
    action.sa_handler = remove_and_die;
    action.sa_flags = static_cast<int>(SA_RESETHAND);
    for (const int signal : kEndingSignals) {
        struct sigaction before {};
        sigaction(signal, nullptr, &before);
        if (before.sa_handler != SIG_IGN) {  // nohup and the like stay in force
            sigaction(signal, &action, nullptr);
        }
    }
}

}  // namespace

TemporaryFile::TemporaryFile(const std::string& target) {
    const std::string folder = std::filesystem::path(target).parent_path();
    name_ = (folder.empty() ? "." : folder) + "/.korvane-vad-XXXXXX";
    if (name_.size() >= sizeof doomed) {
        throw Failure(target, std::strerror(ENAMETOOLONG));
    }
    handle_ending_signals();
    const SignalsBlocked blocked;
    descriptor_ = mkostemp(name_.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        throw Failure(target, std::strerror(errno));
    }
    std::copy_n(name_.c_str(), name_.size() + 1, doomed);
}

TemporaryFile::~TemporaryFile() {
    const SignalsBlocked blocked;
    if (doomed[0] != '\0') {
        unlink(doomed);
        doomed[0] = '\0';
    }
    close(descriptor_);
}

bool TemporaryFile::rename_to(const std::string& target) {
    const SignalsBlocked blocked;
    if (std::rename(name_.c_str(), target.c_str()) != 0) {
        return false;
    }
    doomed[0] = '\0';
    return true;
}

CleanedFile::CleanedFile(const std::string& path, int rate, int channels)
    : path_(path), target_(path), channels_(channels) {
    if (char* resolved = realpath(path.c_str(), nullptr)) {
        target_ = resolved;
        std::free(resolved);
    }
    const mode_t mask = umask(0);
    umask(mask);
    mode_t mode = 0666 & ~mask;
    struct stat status {};
    if (stat(target_.c_str(), &status) == 0) {
        if (!S_ISREG(status.st_mode)) {
            throw Failure(path_, "not a regular file");
        }
        if (access(target_.c_str(), W_OK) != 0) {
            fail_with_errno();
        }
        mode = status.st_mode & 07777;
    }
    temporary_ = std::make_unique<TemporaryFile>(target_);
    if (fchmod(temporary_->descriptor(), mode) != 0) {
        fail_with_errno();
    }
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
    file_.reset(sf_open_fd(temporary_->descriptor(), SFM_WRITE, &info, SF_FALSE));
    if (!file_) {
        throw Failure(path_, sf_strerror(nullptr));
    }
}

void CleanedFile::write(const int16_t* samples, int64_t n) {
    const int64_t count = n * channels_;
    if (count > kMaxSamples - samples_written_) {
        throw Failure(path_, "the recording is too long for a WAV file (4 GiB)");
    }
    samples_written_ += count;
    pending_.insert(pending_.end(), samples, samples + count);
    if (pending_.size() >= kPieceSamples) {
        flush();
    }
}

void CleanedFile::flush() {
    const auto count = static_cast<sf_count_t>(pending_.size());
    errno = 0;
    if (sf_write_short(file_.get(), pending_.data(), count) != count) {
        fail_with_errno();
    }
    pending_.clear();
}

void CleanedFile::finish() {
    flush();
    errno = 0;
    if (sf_close(file_.release()) != 0 || fsync(temporary_->descriptor()) != 0) {
        fail_with_errno();
    }
    // libsndfile does not report whether it could write the header.
    struct stat status {};
    if (fstat(temporary_->descriptor(), &status) != 0 ||
        status.st_size != kHeaderBytes + 2 * samples_written_) {
        throw Failure(path_, "could not be written completely");
    }
}

void CleanedFile::commit() {
    if (!temporary_->rename_to(target_)) {
        fail_with_errno();
    }
}

void CleanedFile::fail_with_errno() const {
    throw Failure(path_, errno != 0 ? std::strerror(errno) : "cannot be written");
}

}  // namespace korvane::tool
