#include "tools/audio/ffmpeg_source.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>

#include "tools/audio/input_descriptor.h"
#include "tools/audio/sndfile_source.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

std::string last_line(int file) {
    std::array<char, 4096> bytes{};
    const off_t size = lseek(file, 0, SEEK_END);
    const auto room = static_cast<off_t>(bytes.size());
    const ssize_t count = pread(file, bytes.data(), bytes.size(), size > room ? size - room : 0);
    std::string text(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    text.erase(text.find_last_not_of('\n') + 1);
    return text.substr(text.rfind('\n') + 1);
}

}  // namespace

FfmpegSource::FfmpegSource(const std::string& name, const OriginalListener& original)
    : name_(input_name(name)), messages_(memfd_create("ffmpeg", MFD_CLOEXEC)) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        throw Failure(name_, std::strerror(errno));
    }
    start(ends[1]);
    close(ends[1]);
    try {
        decoded_ = std::make_unique<SndfileSource>("/dev/fd/" + std::to_string(ends[0]), original);
        close(ends[0]);
    } catch (const Interrupted&) {
        close(ends[0]);
        throw;
    } catch (const Failure&) {
        close(ends[0]);
        check_end();
        throw Failure(name_, "ffmpeg finds no sound in it");
    }
    info_ = decoded_->info();
    info_.name = name;
    info_.bit_exact = false;
    info_.is_decoded = true;
}

FfmpegSource::~FfmpegSource() {
    decoded_.reset();
    if (process_ > 0) {
        kill(process_, SIGKILL);
        waitpid(process_, nullptr, 0);
    }
    close(messages_);
}

void FfmpegSource::start(int output) {
    const std::string input = name_ == input_name("-") ? "pipe:0" : "file:" + name_;
    std::array<std::string, 12> words = {"ffmpeg", "-v",    "error", "-xerror", "-i",        input,
                                         "-map",   "0:a:0", "-f",    "wav",     "-bitexact", "-"};
    std::array<char*, words.size() + 1> arguments{};
    std::transform(words.begin(), words.end(), arguments.begin(),
                   [](std::string& word) { return word.data(); });
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, messages_, STDERR_FILENO);
    const int error =
        posix_spawnp(&process_, "ffmpeg", &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        process_ = 0;
        throw Failure(name_, error == ENOENT ? "--decoder ffmpeg needs ffmpeg, which is not "
                                               "installed (Debian: apt-get install ffmpeg)"
                                             : std::string("ffmpeg: ") + std::strerror(error));
    }
}

/** ffmpeg has given all that it will. */
void FfmpegSource::check_end() {
    if (process_ == 0) {
        return;
    }
    int status = 0;
    while (waitpid(process_, &status, 0) < 0 && errno == EINTR) {
    }
    process_ = 0;
    if (status != 0) {
        throw Failure(name_, "ffmpeg: " + last_line(messages_));
    }
}

int64_t FfmpegSource::read(int16_t* out, int64_t n) {
    int64_t count = 0;
    try {
        count = decoded_->read(out, n);
    } catch (const Failure&) {
        check_end();  // whose words say more
        throw;
    }
    if (count == 0 && n > 0) {
        check_end();
    }
    return count;
}

}  // namespace korvane::tool
