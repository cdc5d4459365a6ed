#include "tools/audio/file_window.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace korvane::tool {

SNDFILE* FileWindow::open(SF_INFO& format) {
    SF_VIRTUAL_IO io{};
    io.get_filelen = [](void* window) -> sf_count_t { return of(window).claimed_; };
    io.seek = [](sf_count_t offset, int whence, void* window) -> sf_count_t {
        return of(window).seek(offset, whence);
    };
    io.read = [](void* bytes, sf_count_t count, void* window) -> sf_count_t {
        return of(window).read(bytes, count);
    };
    io.tell = [](void* window) -> sf_count_t { return of(window).at_; };
    return sf_open_virtual(&io, SFM_READ, &format, this);
}

int64_t FileWindow::seek(int64_t offset, int whence) {
    const int64_t from = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? at_ : claimed_;
    if (from + offset < 0) {
        return -1;
    }
    at_ = from + offset;  // beyond the end too, where there is nothing to read, as in a file
    return at_;
}

int64_t FileWindow::read(void* bytes, int64_t count) {
    if (at_ >= size_ &&
        at_ + count == claimed_) {  // the MPEG decoder believes an end with 128 bytes before it
        std::memset(bytes, 0, static_cast<std::size_t>(count));
        at_ = claimed_;
        return count;
    }
    const auto wanted = static_cast<std::size_t>(std::clamp<int64_t>(size_ - at_, 0, count));
    const std::size_t got = file_->read_at(start_ + at_, bytes, wanted);
    at_ += static_cast<int64_t>(got);
    return static_cast<int64_t>(got);
}

}  // namespace korvane::tool
