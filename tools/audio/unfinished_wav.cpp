#include "tools/audio/unfinished_wav.h"

#include <array>
#include <bit>
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

template <typename T>
T big_endian(const uint8_t* bytes) {
    T value = 0;
    for (std::size_t i = 0; i < sizeof(T); ++i) {
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

/** Where the samples of an AU file begin whose header says that there are none. */
std::optional<int64_t> start_of_unfinished_au(InputDescriptor& file) {
    uint8_t head[12];
    if (file.read_at(0, head, sizeof head) != sizeof head) {
        return std::nullopt;
    }
    const bool big = std::memcmp(head, ".snd", 4) == 0;
    if (!big && std::memcmp(head, "dns.", 4) != 0) {
        return std::nullopt;
    }
    const uint32_t start = big ? big_endian<uint32_t>(head + 4) : little_endian<uint32_t>(head + 4);
    const uint32_t size = big ? big_endian<uint32_t>(head + 8) : little_endian<uint32_t>(head + 8);
    return size == 0 && start < file.size() ? std::optional<int64_t>(start) : std::nullopt;
}

/** Of RF64: the bytes of samples, which have no place in the chunk itself. */
int64_t size_in_ds64(InputDescriptor& file, int64_t at) {
    uint8_t sizes[16];
    if (file.read_at(at + 8, sizes, sizeof sizes) != sizeof sizes) {
        return 0;
    }
    return static_cast<int64_t>(little_endian<uint64_t>(sizes + 8));  // negative: a placeholder
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

/** What a CAF file's description says; no format where that is not linear PCM. */
SF_INFO format_of_caf(const uint8_t* description) {
    const auto rate = std::bit_cast<double>(big_endian<uint64_t>(description));
    const auto flags = big_endian<uint32_t>(description + 12);
    const auto channels = big_endian<uint32_t>(description + 24);
    const auto bits = big_endian<uint32_t>(description + 28);
    const bool is_float = (flags & 1) != 0;
    int encoding = 0;
    if (is_float) {
        encoding = bits == 32 ? SF_FORMAT_FLOAT : bits == 64 ? SF_FORMAT_DOUBLE : 0;
    } else {
        encoding = bits == 8    ? SF_FORMAT_PCM_S8
                   : bits == 16 ? SF_FORMAT_PCM_16
                   : bits == 24 ? SF_FORMAT_PCM_24
                   : bits == 32 ? SF_FORMAT_PCM_32
                                : 0;
    }
    SF_INFO format{};
    if (std::memcmp(description + 8, "lpcm", 4) == 0 && encoding != 0 && rate >= 1 && rate < 1e9 &&
        channels >= 1 && channels <= 1024) {
        format.samplerate = static_cast<int>(rate);
        format.channels = static_cast<int>(channels);
        format.format =
            SF_FORMAT_RAW | encoding | ((flags & 2) != 0 ? SF_ENDIAN_LITTLE : SF_ENDIAN_BIG);
    }
    return format;
}

}  // namespace

std::optional<int64_t> start_of_unfinished_samples(InputDescriptor& file) {
    char magic[4];
    if (file.read_at(0, magic, sizeof magic) != sizeof magic) {
        return std::nullopt;
    }
    const bool wave64 = std::memcmp(magic, "riff", 4) == 0;
    const bool rf64 = std::memcmp(magic, "RF64", 4) == 0;
    if (!wave64 && !rf64 && std::memcmp(magic, "RIFF", 4) != 0) {
        return start_of_unfinished_au(file);
    }
    const int64_t head = wave64 ? 24 : 8;
    for (int64_t at = wave64 ? 40 : 12; at < file.size();) {
        const std::optional<Chunk> chunk = chunk_at(file, at, wave64);
        if (!chunk) {
            break;
        }
        if (rf64 && is_named(*chunk, "ds64") && size_in_ds64(file, at) > 0) {
            return std::nullopt;
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

std::optional<OpenEndedCaf> find_open_ended_caf(InputDescriptor& file) {
    constexpr int64_t kHead = 12;  // bytes, of a chunk
    OpenEndedCaf caf;
    uint8_t bytes[32];  // as long as the description
    if (file.read_at(0, bytes, 4) != 4 || std::memcmp(bytes, "caff", 4) != 0) {
        return std::nullopt;
    }
    for (int64_t at = 8; file.read_at(at, bytes, kHead) == kHead;) {
        const auto size = static_cast<int64_t>(big_endian<uint64_t>(bytes + 4));
        if (std::memcmp(bytes, "data", 4) == 0) {
            caf.start = at + kHead + 4;  // behind a count of edits
            return size == -1 && caf.samples.format != 0 ? std::optional(caf) : std::nullopt;
        }
        if (size < 0 || size > file.size()) {
            break;
        }
        if (std::memcmp(bytes, "desc", 4) == 0 &&
            file.read_at(at + kHead, bytes, sizeof bytes) == sizeof bytes) {
            caf.samples = format_of_caf(bytes);
        }
        at += kHead + size;
    }
    return std::nullopt;
}

}  // namespace korvane::tool
