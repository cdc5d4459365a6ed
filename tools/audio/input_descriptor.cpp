#include "tools/audio/input_descriptor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <thread>
#include <vector>

#include "tools/audio/audio_source.h"
#include "tools/files/failure.h"
#include "tools/files/write_all.h"

namespace korvane::tool {

namespace {

constexpr std::size_t kSpoolBytes = 1 << 18;
constexpr auto kBetweenLooks = std::chrono::milliseconds(10);

// For the signal handler that ends a live input, -1 where there is none.
volatile std::sig_atomic_t live_descriptor = -1;
volatile std::sig_atomic_t null_descriptor = -1;
volatile std::sig_atomic_t was_interrupted = 0;

int nameless_file() {
    std::error_code none;
    std::string name = std::filesystem::temp_directory_path(none) / "korvane-vad-XXXXXX";
    const int descriptor = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor >= 0) {
        unlink(name.c_str());
    }
    return descriptor;
}

/** What a socket or a pipe holds, up to `count` bytes and without taking it; -1 for anything else. */
ssize_t peek(int descriptor, void* bytes, std::size_t count) {
    const ssize_t received = recv(descriptor, bytes, count, MSG_PEEK);
    if (received >= 0 || errno != ENOTSOCK) {
        return received;
    }
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return -1;
    }
    ssize_t copied = tee(descriptor, ends[1], count, 0);
    if (copied > 0) {
        copied = read(ends[0], bytes, static_cast<std::size_t>(copied));
    }
    const int error = errno;
    close(ends[0]);
    close(ends[1]);
    errno = error;
    return copied;
}

}  // namespace

std::string input_name(const std::string& name) { return name == "-" ? "standard input" : name; }

// Another file in the place of the descriptor, and whoever reads it is at the end: the call that
// waits, which the signal has broken off, as well as one that was about to begin.
void interrupt_live_input() {
    const int error = errno;
    was_interrupted = 1;
    if (live_descriptor >= 0 && null_descriptor >= 0) {
        dup2(null_descriptor, live_descriptor);
    }
    errno = error;
}

InputDescriptor::InputDescriptor(const std::string& name) : name_(input_name(name)) {
    descriptor_ = name == "-" ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3)
                              : open(name.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
    if (descriptor_ < 0) {
        if (errno == EINTR) {  // while a named pipe waited for its other end
            throw Interrupted(name_);
        }
        throw Failure(name_, std::strerror(errno));
    }
    try {
        find_out_what_it_is();
    } catch (...) {
        close(descriptor_);
        throw;
    }
}

InputDescriptor::~InputDescriptor() {
    set_live(false);
    close(descriptor_);
}

void InputDescriptor::find_out_what_it_is() {
    struct stat status {};
    if (fstat(descriptor_, &status) != 0) {
        throw Failure(name_, std::strerror(errno));
    }
    if (S_ISDIR(status.st_mode)) {
        throw Failure(name_, std::strerror(EISDIR) +
                                 std::string("; detect --recursive takes the recordings in it"));
    }
    set_live(!S_ISREG(status.st_mode));
    if (!live_) {
        start_ = lseek(descriptor_, 0, SEEK_CUR);
        if (start_ < 0) {
            throw Failure(name_, std::strerror(errno));
        }
        size_ = status.st_size > start_ ? status.st_size - start_ : 0;
    }
}

void InputDescriptor::set_live(bool live) {
    if (live) {
        if (null_descriptor < 0) {
            null_descriptor = open("/dev/null", O_RDONLY | O_CLOEXEC);
        }
        live_descriptor = descriptor_;
        was_interrupted = 0;
    } else if (live_) {
        live_descriptor = -1;
    }
    live_ = live;
}

bool InputDescriptor::interrupted() const { return cut_off_ || (live_ && was_interrupted != 0); }

/** Reads to the full count or to the end, whatever pieces and signals come in between. */
template <typename Read>
std::size_t InputDescriptor::read_whole(std::size_t count, Read read_piece) {
    std::size_t done = 0;
    while (done < count && error_ == 0) {
        const ssize_t got = read_piece(done);
        if (got == 0) {
            break;
        }
        if (got > 0) {
            done += static_cast<std::size_t>(got);
        } else if (errno != EINTR) {
            error_ = errno;
        }
    }
    return done;
}

std::size_t InputDescriptor::read(void* bytes, std::size_t count) {
    return read_whole(count, [&](std::size_t done) {
        return ::read(descriptor_, static_cast<char*>(bytes) + done, count - done);
    });
}

std::size_t InputDescriptor::read_at(int64_t offset, void* bytes, std::size_t count) {
    return read_whole(count, [&](std::size_t done) {
        return pread(descriptor_, static_cast<char*>(bytes) + done, count - done,
                     start_ + offset + static_cast<int64_t>(done));
    });
}

void InputDescriptor::check() const {
    if (error_ != 0) {
        throw Failure(name_, std::strerror(error_));
    }
}

uint32_t InputDescriptor::peek_magic() const {
    uint8_t magic[4] = {};
    // Neither call waits for more than one byte, so they look again until there are four, or nobody
    // is left to write them.
    ssize_t count = 0;
    for (bool growing = true; growing && count != sizeof magic && !interrupted();) {
        if (count > 0) {
            std::this_thread::sleep_for(kBetweenLooks);
        }
        pollfd sender{descriptor_, POLLIN | POLLRDHUP, 0};
        growing = poll(&sender, 1, -1) < 0 || (sender.revents & (POLLHUP | POLLRDHUP)) == 0;
        count = peek(descriptor_, magic, sizeof magic);
        growing = count < 0 ? errno == EINTR : growing && count > 0;
    }
    if (count != sizeof magic) {
        return 0;
    }
    return uint32_t{magic[0]} << 24 | uint32_t{magic[1]} << 16 | uint32_t{magic[2]} << 8 | magic[3];
}

void InputDescriptor::spool() {
    const int file = nameless_file();
    const auto need = [](bool done) {
        if (!done) {
            throw Failure("temporary copy of the input", std::strerror(errno));
        }
    };
    need(file >= 0);
    try {
        std::vector<char> piece(kSpoolBytes);
        while (const std::size_t count = read(piece.data(), piece.size())) {
            need(write_all(file, {piece.data(), count}));
        }
        check();
        need(lseek(file, 0, SEEK_SET) == 0);
        cut_off_ = interrupted();
        set_live(false);
        need(dup3(file, descriptor_, O_CLOEXEC) >= 0);
    } catch (...) {
        close(file);
        throw;
    }
    close(file);
    find_out_what_it_is();
}

std::string text_of_file(const std::string& path) {
    InputDescriptor file(path);
    std::string text;
    char piece[65536];
    while (const std::size_t count = file.read(piece, sizeof piece)) {
        text.append(piece, count);
    }
    file.check();
    constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";  // as some editors put before UTF-8
    return text.starts_with(kByteOrderMark) ? text.substr(3) : text;
}

}  // namespace korvane::tool
