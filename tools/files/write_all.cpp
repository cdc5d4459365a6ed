#include "tools/files/write_all.h"

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace korvane::tool {

bool write_all(int descriptor, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        if (count < 0 && errno != EINTR) {
            return false;
        }
        bytes.remove_prefix(count > 0 ? static_cast<std::size_t>(count) : 0);
    }
    return true;
}

}  // namespace korvane::tool
