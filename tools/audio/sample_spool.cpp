#include "tools/audio/sample_spool.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "tools/files/ending_signals.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

constexpr std::size_t kPieceBytes = 262144;

/** Moves all bytes; `step` is one pread or pwrite. False with errno set where it cannot. */
template <typename Step>
bool move_all(std::size_t bytes, Step step) {
    for (std::size_t done = 0; done < bytes;) {
        const ssize_t count = step(done);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            errno = count == 0 ? EIO : errno;
            return false;
        }
        done += static_cast<std::size_t>(count);
    }
    return true;
}

}  // namespace

SampleSpool::SampleSpool(const std::string& folder, int64_t frame_bytes)
    : folder_(folder), frame_bytes_(frame_bytes) {
    std::string name = folder + "/.korvane-vad-XXXXXX";
    const EndingSignalsDeferred deferred;
    descriptor_ = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        throw Failure(folder_, std::strerror(errno));
    }
    unlink(name.c_str());
}

SampleSpool::~SampleSpool() { close(descriptor_); }

void SampleSpool::append(const void* samples, int64_t n) {
    const auto* bytes = static_cast<const char*>(samples);
    pending_.insert(pending_.end(), bytes, bytes + n * frame_bytes_);
    if (pending_.size() >= kPieceBytes) {
        flush();
    }
}

void SampleSpool::flush() {
    const std::size_t bytes = pending_.size();
    const bool done = move_all(bytes, [&](std::size_t at) {
        return pwrite(descriptor_, pending_.data() + at, bytes - at,
                      flushed_ + static_cast<off_t>(at));
    });
    if (!done) {
        throw Failure(folder_, std::strerror(errno));
    }
    flushed_ += static_cast<int64_t>(bytes);
    pending_.clear();
}

void SampleSpool::read(int64_t begin, void* out, int64_t n) const {
    const int64_t first = begin * frame_bytes_;
    const int64_t count = n * frame_bytes_;
    const int64_t on_disk = std::clamp<int64_t>(flushed_ - first, 0, count);
    const auto bytes = static_cast<std::size_t>(on_disk);
    auto* bytes_out = static_cast<char*>(out);
    const bool done = move_all(bytes, [&](std::size_t at) {
        return pread(descriptor_, bytes_out + at, bytes - at, first + static_cast<off_t>(at));
    });
    if (!done) {
        throw Failure(folder_, std::strerror(errno));
    }
    if (on_disk < count) {
        std::copy_n(pending_.begin() + (first + on_disk - flushed_), count - on_disk,
                    bytes_out + on_disk);
    }
}

int64_t SampleSpool::length() const {
    return (flushed_ + static_cast<int64_t>(pending_.size())) / frame_bytes_;
}

}  // namespace korvane::tool
