#include "tools/batch/recordings.h"

#include <algorithm>
#include <filesystem>
#include <sstream>

#include "tools/audio/input_descriptor.h"
#include "tools/audio/sink_format.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

/** All recordings in a folder and below, in the order of their names; anything else stays as it is. */
std::vector<std::string> in_folder(const std::string& name, bool any_extension) {
    std::error_code error;
    if (!std::filesystem::is_directory(name, error)) {
        return {name};
    }
    std::vector<std::string> names;
    std::filesystem::recursive_directory_iterator entry(name, error);
    for (; !error && entry != std::filesystem::recursive_directory_iterator();
         entry.increment(error)) {
        std::error_code unknown;  // what it is: that is told when it is opened
        if (entry->path().filename().string().front() == '.') {
            entry.disable_recursion_pending();
        } else if ((entry->is_regular_file(unknown) || unknown) &&
                   (any_extension || is_sound_name(entry->path().string()))) {
            names.push_back(entry->path().string());
        }
    }
    if (error) {
        throw Failure(name, error.message());
    }
    if (names.empty()) {
        throw Failure(name, "no recording is in it, by their extensions");
    }
    std::sort(names.begin(), names.end());
    return names;
}

std::vector<std::string> with_folders_open(const std::vector<std::string>& names,
                                           const Options& options) {
    std::vector<std::string> all;
    for (const std::string& name : names) {
        const bool any = options.source.raw || options.source.by_ffmpeg;
        const std::vector<std::string> inside =
            options.recursive ? in_folder(name, any) : std::vector<std::string>{name};
        all.insert(all.end(), inside.begin(), inside.end());
    }
    return all;
}

}  // namespace

std::vector<std::string> recordings(const Options& options) {
    std::vector<std::string> names = options.files;
    if (options.files_from.empty()) {
        return with_folders_open(names, options);
    }
    InputDescriptor list(options.files_from);
    std::string text;
    char piece[65536];
    while (const std::size_t count = list.read(piece, sizeof piece)) {
        text.append(piece, count);
    }
    list.check();
    if (!options.null_separated && text.find('\0') != std::string::npos) {
        throw Failure(input_name(options.files_from),
                      "holds zero bytes; --null takes them as ends of names");
    }
    std::istringstream lines(text);
    for (std::string name; std::getline(lines, name, options.null_separated ? '\0' : '\n');) {
        if (!name.empty()) {
            names.push_back(name);
        }
    }
    return with_folders_open(names, options);
}

}  // namespace korvane::tool
