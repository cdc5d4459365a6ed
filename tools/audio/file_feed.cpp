#include "tools/audio/file_feed.h"

#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "tools/files/ending_signals.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

constexpr std::size_t kPieceBytes = 65536;

}  // namespace

FileFeed::FileFeed(InputDescriptor& file, int64_t offset) {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends_) != 0) {
        throw Failure("the decoder's input", std::strerror(errno));
    }
    const EndingSignalsDeferred
        deferred;  // for the thread for good: they are the main thread's to take
    feeder_ = std::thread([this, &file, offset] { feed(file, offset); });
}

FileFeed::~FileFeed() {
    end();
    close(ends_[0]);
    close(ends_[1]);
}

void FileFeed::end() {
    if (feeder_.joinable()) {
        shutdown(ends_[0], SHUT_RDWR);
        feeder_.join();
    }
}

void FileFeed::feed(InputDescriptor& file, int64_t offset) const {
    std::vector<char> piece(kPieceBytes);
    for (bool reading = true; reading;) {
        const std::size_t count = file.read_at(offset, piece.data(), piece.size());
        offset += static_cast<int64_t>(count);
        reading = count == piece.size();
        for (std::size_t sent = 0; sent < count;) {
            // Without a signal where nobody reads any more.
            const ssize_t more = send(ends_[1], piece.data() + sent, count - sent, MSG_NOSIGNAL);
            if (more >= 0) {
                sent += static_cast<std::size_t>(more);
            } else if (errno != EINTR) {
                return;
            }
        }
    }
    shutdown(ends_[1], SHUT_WR);
}

}  // namespace korvane::tool
