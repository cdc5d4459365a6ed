#include "tools/batch/manifest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <nlohmann/json.hpp>

#include "tools/files/failure.h"
#include "tools/files/write_all.h"

namespace korvane::tool {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kHeader = R"({"korvane-vad manifest":1})";

// Names of files are bytes, JSON knows only characters. Where bytes are no UTF-8 the line says
// "bytes" and holds each byte as the character of that number.

bool is_utf8(const std::string& text) {
    try {
        (void)Json(text).dump();
        return true;
    } catch (const Json::exception&) {
        return false;
    }
}

std::string characters_from_bytes(const std::string& bytes) {
    std::string text;
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte < 0x80) {
            text += c;
        } else {
            text += static_cast<char>(0xC0 | byte >> 6);
            text += static_cast<char>(0x80 | (byte & 0x3F));
        }
    }
    return text;
}

std::string bytes_from_characters(const std::string& text) {
    std::string bytes;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto lead = static_cast<unsigned char>(text[i]);
        if (lead >= 0x80 && i + 1 < text.size()) {
            const auto rest = static_cast<unsigned char>(text[++i]);
            bytes += static_cast<char>(lead << 6 | (rest & 0x3F));
        } else {
            bytes += text[i];
        }
    }
    return bytes;
}

}  // namespace

std::optional<FileState> state_of(const std::string& path) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
        return std::nullopt;
    }
    return FileState{status.st_size,
                     status.st_mtim.tv_sec * int64_t{1'000'000'000} + status.st_mtim.tv_nsec};
}

Manifest::Manifest(const std::string& path, const std::string& options)
    : path_(path), options_(options) {
    descriptor_ = open(path.c_str(), O_RDWR | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (descriptor_ < 0) {
        fail();
    }
    try {
        struct stat status {};
        if (fstat(descriptor_, &status) != 0) {
            fail();
        }
        if (!S_ISREG(status.st_mode)) {  // a device may have no end
            throw Failure(path_, "not a regular file");
        }
        // Not flock: its locks pass to the workers, which outlive a run that is killed for a moment.
        struct flock whole {};
        whole.l_type = F_WRLCK;
        if (fcntl(descriptor_, F_SETLK, &whole) != 0) {
            if (errno == EAGAIN || errno == EACCES) {
                throw Failure(path_, "another run is using this manifest");
            }
            fail();
        }
        load(read_all());
    } catch (...) {
        close(descriptor_);
        throw;
    }
}

Manifest::~Manifest() { close(descriptor_); }

std::string Manifest::read_all() const {
    std::string text;
    char piece[65536];
    for (;;) {
        const ssize_t count =
            pread(descriptor_, piece, sizeof piece, static_cast<off_t>(text.size()));
        if (count > 0) {
            text.append(piece, static_cast<std::size_t>(count));
        } else if (count == 0) {
            return text;
        } else if (errno != EINTR) {
            fail();
        }
    }
}

void Manifest::load(const std::string& text) {
    // Only what a run of ours may have left behind is touched: nothing, or a torn first line.
    const std::string header = std::string(kHeader) + "\n";
    if (text.compare(0, header.size(), header) != 0 && header.compare(0, text.size(), text) != 0) {
        throw Failure(path_, "is not a manifest of korvane-vad");
    }
    const std::size_t last = text.rfind('\n');
    const std::size_t whole = last == std::string::npos ? 0 : last + 1;
    int64_t number = 1;
    for (std::size_t begin = header.size(); begin < whole;) {
        const std::size_t end = text.find('\n', begin);
        load_line(text.substr(begin, end - begin), ++number);
        begin = end + 1;
    }
    if (whole < text.size() && ftruncate(descriptor_, static_cast<off_t>(whole)) != 0) {
        fail();
    }
    if (whole == 0) {
        append(header);
    }
}

void Manifest::load_line(const std::string& line, int64_t number) {
    try {
        const Json entry = Json::parse(line);
        const bool bytes = entry.value("bytes", false);
        const auto text = [&](const char* key) {
            const auto value = entry.at(key).get<std::string>();
            return bytes ? bytes_from_characters(value) : value;
        };
        if (entry.at("options").get<std::string>() == options_) {
            // get would take fractions, and numbers that no integer holds.
            entries_[text("file")] = {{entry.at("size").get_ref<const int64_t&>(),
                                       entry.at("changed").get_ref<const int64_t&>()},
                                      {entry.at("speech").get<bool>(), text("result")}};
        }
    } catch (const Json::exception&) {
        throw Failure(path_, "line " + std::to_string(number) + " is damaged");
    }
}

std::optional<Finding> Manifest::find(const std::string& name, const FileState& state) const {
    const auto entry = entries_.find(name);
    if (entry == entries_.end() || entry->second.state != state) {
        return std::nullopt;
    }
    return entry->second.finding;
}

void Manifest::add(const std::string& name, const FileState& state, const Finding& finding) {
    const bool bytes = !is_utf8(name) || !is_utf8(finding.text);
    const auto text = [&](const std::string& value) {
        return bytes ? characters_from_bytes(value) : value;
    };
    Json entry;
    entry["file"] = text(name);
    if (bytes) {
        entry["bytes"] = true;
    }
    entry["size"] = state.size;
    entry["changed"] = state.changed;
    entry["options"] = options_;
    entry["speech"] = finding.speech;
    entry["result"] = text(finding.text);
    append(entry.dump() + "\n");
}

void Manifest::append(const std::string& line) {
    if (!write_all(descriptor_, line)) {
        fail();
    }
}

void Manifest::fail() const { throw Failure(path_, std::strerror(errno)); }

}  // namespace korvane::tool
