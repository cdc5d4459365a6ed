#include "tools/files/text_output.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "tools/files/failure.h"
#include "tools/files/write_all.h"

namespace korvane::tool {

namespace {

constexpr std::size_t kPiece = 65536;

/** Something that cannot be renamed over: a device, a pipe, a terminal. */
bool is_special(const std::string& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

}  // namespace

void check_is_no_input(const std::string& output, const std::vector<std::string>& inputs) {
    if (output.empty() || output == "-") {
        return;
    }
    std::error_code none;
    const bool overwrites = std::filesystem::is_regular_file(output, none);
    for (const std::string& input : inputs) {
        const std::string file = input == "-" ? "/dev/stdin" : input;
        if (file == output || (overwrites && std::filesystem::equivalent(file, output, none))) {
            throw Failure(output, "is an input; the results would overwrite it");
        }
    }
}

void check_is_new(const std::string& output) {
    std::error_code none;
    const auto status = std::filesystem::symlink_status(output, none);
    if (std::filesystem::is_regular_file(status) || std::filesystem::is_symlink(status)) {
        throw Failure(output, "is there already; --force overwrites");
    }
}

TextOutput::TextOutput(const std::string& path) : name_(path) {
    if (path.empty() || path == "-") {
        name_ = "standard output";
        descriptor_ = STDOUT_FILENO;
    } else if (is_special(path)) {
        descriptor_ = open(path.c_str(), O_WRONLY | O_CLOEXEC);
        if (descriptor_ < 0) {
            fail();
        }
    } else {
        file_ = std::make_unique<TemporaryFile>(path);
        descriptor_ = file_->descriptor();
    }
}

TextOutput::~TextOutput() {
    if (!file_ && descriptor_ != STDOUT_FILENO) {
        close(descriptor_);
    }
}

void TextOutput::write(std::string_view text) {
    pending_ += text;
    if (pending_.size() >= kPiece) {
        flush();
    }
}

void TextOutput::flush() {
    if (!write_all(descriptor_, pending_)) {
        fail();
    }
    pending_.clear();
}

void TextOutput::commit() {
    flush();
    if (file_) {
        file_->commit();
    }
}

void TextOutput::fail() const {
    if (errno == EPIPE && descriptor_ == STDOUT_FILENO) {
        throw ReaderGone();
    }
    throw Failure(name_, std::strerror(errno));
}

}  // namespace korvane::tool
