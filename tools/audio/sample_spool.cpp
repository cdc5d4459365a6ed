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

constexpr std::size_t kPieceValues = 131072;
constexpr int64_t kBytes = sizeof(int16_t);

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

SampleSpool::SampleSpool(const std::string& folder, int channels)
    : folder_(folder), channels_(static_cast<std::size_t>(channels)) {
    std::string name = folder + "/.korvane-vad-XXXXXX";
    const EndingSignalsDeferred deferred;
    descriptor_ = mkostemp(name.data(), O_CLOEXEC);
    if (descriptor_ < 0) {
        throw Failure(folder_, std::strerror(errno));
    }
    unlink(name.c_str());
}

SampleSpool::~SampleSpool() { close(descriptor_); }

void SampleSpool::append(const int16_t* samples, int64_t n) {
    pending_.insert(pending_.end(), samples, samples + static_cast<std::size_t>(n) * channels_);
    if (pending_.size() >= kPieceValues) {
        flush();
    }
}

void SampleSpool::flush() {
    const std::size_t bytes = pending_.size() * sizeof(int16_t);
    const auto* data = reinterpret_cast<const char*>(pending_.data());
    const bool done = move_all(bytes, [&](std::size_t at) {
        return pwrite(descriptor_, data + at, bytes - at,
                      flushed_ * kBytes + static_cast<off_t>(at));
    });
    if (!done) {
        throw Failure(folder_, std::strerror(errno));
    }
    flushed_ += static_cast<int64_t>(pending_.size());
    pending_.clear();
}

void SampleSpool::read(int64_t begin, int16_t* out, int64_t n) const {
    const int64_t first = begin * static_cast<int64_t>(channels_);
    const int64_t count = n * static_cast<int64_t>(channels_);
    const int64_t on_disk = std::clamp<int64_t>(flushed_ - first, 0, count);
    const auto bytes = static_cast<std::size_t>(on_disk * kBytes);
    auto* bytes_out = reinterpret_cast<char*>(out);
    const bool done = move_all(bytes, [&](std::size_t at) {
        return pread(descriptor_, bytes_out + at, bytes - at,
                     first * kBytes + static_cast<off_t>(at));
    });
    if (!done) {
        throw Failure(folder_, std::strerror(errno));
    }
    if (on_disk < count) {
        std::copy_n(pending_.begin() + (first + on_disk - flushed_), count - on_disk,
                    out + on_disk);
    }
}

}  // namespace korvane::tool
