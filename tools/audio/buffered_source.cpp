#include "tools/audio/buffered_source.h"

#include <algorithm>
#include <utility>

#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

constexpr int64_t kPieceFrames = 65536;
constexpr int64_t kPieceSamples = 2 * kPieceFrames;  // of all channels, however many a header names

}  // namespace

int64_t BufferedSource::read(int16_t* out, int64_t n) {
    const auto wanted = static_cast<std::size_t>(n * info_.channels);
    std::size_t filled = 0;
    while (filled < wanted) {
        if (used_ == piece_.size()) {
            if (ended_) {
                break;
            }
            refill(n - static_cast<int64_t>(filled) / info_.channels);
            used_ = 0;
            continue;
        }
        const std::size_t count = std::min(wanted - filled, piece_.size() - used_);
        std::copy_n(piece_.data() + used_, count, out + filled);
        used_ += count;
        filled += count;
    }
    if (filled == 0 && fault_) {
        std::rethrow_exception(fault_);
    }
    return static_cast<int64_t>(filled) / info_.channels;
}

InputSource::InputSource(const std::string& name, OriginalListener original)
    : input_(name), original_(std::move(original)) {
    info_.name = name;
}

void InputSource::refill(int64_t wanted) {
    const int64_t most = std::clamp<int64_t>(kPieceSamples / info_.channels, 1, kPieceFrames);
    const int64_t frames = input_.live() ? std::min(wanted, most) : most;
    piece_.resize(static_cast<std::size_t>(frames * info_.channels));
    const int64_t count = read_piece(piece_.data(), frames);
    piece_.resize(static_cast<std::size_t>(count * info_.channels));
    frames_read_ += count;
    if (count == frames) {
        return;
    }
    ended_ = true;
    if (input_.interrupted()) {
        return;
    }
    try {
        check_end(frames_read_);
        if (frames_read_ == 0) {
            throw Failure(input_name(info_.name), "holds no samples");
        }
    } catch (const Failure&) {
        fault_ = std::current_exception();
    }
}

}  // namespace korvane::tool
