#include "tools/audio/decoder_messages.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <string_view>

namespace korvane::tool {

namespace {

/** Zeros that fill up a file, and what tags begin with: ID3v1, APE, Lyrics3, ID3v2. */
bool is_no_sound(unsigned long header) {
    constexpr std::array<unsigned long, 5> kFirst = {0, 0x544147, 0x415045, 0x4C5952, 0x494433};
    return std::count(kFirst.begin(), kFirst.end(), header >> 8) != 0;
}

}  // namespace

DecoderMessages::DecoderMessages() : file_(memfd_create("messages", MFD_CLOEXEC)) {}

DecoderMessages::~DecoderMessages() { close(file_); }

DecoderMessages::Diversion::Diversion(const DecoderMessages& messages)
    : standard_error_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, STDERR_FILENO + 1)) {
    if (standard_error_ >= 0 && messages.file_ >= 0) {
        dup2(messages.file_, STDERR_FILENO);
    }
}

DecoderMessages::Diversion::~Diversion() {
    if (standard_error_ >= 0) {
        dup2(standard_error_, STDERR_FILENO);
        close(standard_error_);
    }
}

bool DecoderMessages::tell_of_damage() const {
    constexpr std::string_view kIllegal = "Illegal Audio-MPEG-Header ";
    constexpr std::string_view kSkipped = "Skipped ";
    constexpr std::size_t kMost = 65536;
    std::string text(kMost, '\0');
    const ssize_t size = pread(file_, text.data(), text.size(), 0);
    text.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
    if (text.find("dequantization failed") != std::string::npos) {
        return true;
    }
    for (std::size_t at = text.find(kIllegal); at != std::string::npos;) {
        const unsigned long header = std::strtoul(text.c_str() + at + kIllegal.size(), nullptr, 16);
        const std::size_t next = text.find(kIllegal, at + 1);
        const std::string_view about = std::string_view(text).substr(at, next - at);
        if (about.find(kSkipped) != std::string_view::npos && !is_no_sound(header)) {
            return true;
        }
        at = next;
    }
    return false;
}

}  // namespace korvane::tool
