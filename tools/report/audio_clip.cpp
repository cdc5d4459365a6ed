#include "tools/report/audio_clip.h"

#include <sndfile.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>

namespace korvane::tool::report {

struct AudioClip::File {
    std::vector<uint8_t> bytes;
    std::size_t position = 0;
    SNDFILE* handle = nullptr;
};

namespace {

// libsndfile's view of a file that is a vector and only written.
template <typename File>
SF_VIRTUAL_IO memory_io() {
    SF_VIRTUAL_IO io{};
    io.get_filelen = [](void* user) {
        return static_cast<sf_count_t>(static_cast<File*>(user)->bytes.size());
    };
    io.tell = [](void* user) {
        return static_cast<sf_count_t>(static_cast<File*>(user)->position);
    };
    io.seek = [](sf_count_t offset, int whence, void* user) {
        auto* file = static_cast<File*>(user);
        const auto size = static_cast<sf_count_t>(file->bytes.size());
        const auto here = static_cast<sf_count_t>(file->position);
        const sf_count_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? here : size;
        file->position = static_cast<std::size_t>(std::clamp<sf_count_t>(from + offset, 0, size));
        return static_cast<sf_count_t>(file->position);
    };
    io.write = [](const void* from, sf_count_t n, void* user) {
        auto* file = static_cast<File*>(user);
        const auto count = static_cast<std::size_t>(n);
        file->bytes.resize(std::max(file->bytes.size(), file->position + count));
        std::copy_n(static_cast<const uint8_t*>(from), count, file->bytes.data() + file->position);
        file->position += count;
        return n;
    };
    return io;
}

[[noreturn]] void fail(SNDFILE* handle) {
    throw std::runtime_error(std::string("the report's audio: ") + sf_strerror(handle));
}

}  // namespace

AudioClip::AudioClip(int rate, int channels) : file_(std::make_unique<File>()) {
    SF_INFO info{};
    info.samplerate = rate;
    info.channels = channels;
    info.format = SF_FORMAT_FLAC | SF_FORMAT_PCM_16;
    SF_VIRTUAL_IO io = memory_io<File>();
    file_->handle = sf_open_virtual(&io, SFM_WRITE, &info, file_.get());
    if (file_->handle == nullptr) {
        fail(nullptr);
    }
}

AudioClip::~AudioClip() {
    if (file_->handle != nullptr) {
        sf_close(file_->handle);
    }
}

void AudioClip::add(const int16_t* samples, int64_t n) {
    if (sf_writef_short(file_->handle, samples, n) != n) {
        fail(file_->handle);
    }
}

int64_t AudioClip::size() const { return static_cast<int64_t>(file_->bytes.size()); }

const std::vector<uint8_t>& AudioClip::finish() {
    if (file_->handle != nullptr && sf_close(std::exchange(file_->handle, nullptr)) != 0) {
        fail(nullptr);
    }
    return file_->bytes;
}

}  // namespace korvane::tool::report
