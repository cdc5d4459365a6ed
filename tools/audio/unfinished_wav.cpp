#include "tools/audio/unfinished_wav.h"

#include <array>
#include <cstring>

namespace korvane::tool {

namespace {

struct Chunk {
    std::array<char, 4> name;  // of W64 the first four bytes of a longer one
    int64_t size;              // bytes behind the head
    int64_t next;              // where the next one begins
};

template <typename T>
T little_endian(const uint8_t* bytes) {
    T value = 0;
    for (std::size_t i = sizeof(T); i-- > 0;) {
        value = static_cast<T>(value << 8 | bytes[i]);
    }
    return value;
}

/** The chunk at a place of the file, if there is room for its head. */
std::optional<Chunk> chunk_at(InputDescriptor& file, int64_t at, bool wave64) {
    uint8_t head[24];
    const std::size_t size = wave64 ? 24 : 8;
    if (file.read_at(at, head, size) != size) {
        return std::nullopt;
    }
    Chunk chunk{};
    std::memcpy(chunk.name.data(), head, chunk.name.size());
    if (wave64) {  // the size counts the head
        const auto whole = static_cast<int64_t>(little_endian<uint64_t>(head + 16));
        chunk.size = whole < 24 || whole > INT64_MAX / 2 ? 0 : whole - 24;
        chunk.next = at + 24 + (chunk.size + 7) / 8 * 8;
    } else {
        chunk.size = little_endian<uint32_t>(head + 4);
        chunk.next = at + 8 + (chunk.size + 1) / 2 * 2;
    }
    return chunk;
}

bool is_named(const Chunk& chunk, const char* name) {
    return std::memcmp(chunk.name.data(), name, chunk.name.size()) == 0;
}

/** Whether chunks fill the file from here to its end; zeros are none. */
bool has_chunks(InputDescriptor& file, int64_t at, bool wave64) {
    while (at < file.size()) {
        const std::optional<Chunk> chunk = chunk_at(file, at, wave64);
        if (!chunk || chunk->name[0] < ' ' || chunk->next > file.size() + 1) {
            return false;
        }
        at = chunk->next;
    }
    return true;
}

}  // namespace

std::optional<int64_t> start_of_unfinished_samples(InputDescriptor& file) {
    char magic[4];
    if (file.read_at(0, magic, sizeof magic) != sizeof magic) {
        return std::nullopt;
    }
    const bool wave64 = std::memcmp(magic, "riff", 4) == 0;
    if (!wave64 && std::memcmp(magic, "RIFF", 4) != 0) {
        return std::nullopt;
    }
    const int64_t head = wave64 ? 24 : 8;
    for (int64_t at = wave64 ? 40 : 12; at < file.size();) {
        const std::optional<Chunk> chunk = chunk_at(file, at, wave64);
        if (!chunk) {
            break;
        }
        if (is_named(*chunk, "data")) {
            const bool no_length = chunk->size == 0 || (!wave64 && chunk->size >= kUnknownBytes);
            const bool ends_there =
                chunk->next <= file.size() && has_chunks(file, chunk->next, wave64);
            return no_length && !ends_there ? std::optional(at + head) : std::nullopt;
        }
        at = chunk->next;
    }
    return std::nullopt;
}

}  // namespace korvane::tool
