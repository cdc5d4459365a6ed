#include "tools/batch/recordings.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <sstream>
#include <string_view>

#include "tools/audio/input_descriptor.h"
#include "tools/audio/sink_format.h"
#include "tools/files/failure.h"

namespace korvane::tool {

namespace {

/** By its name. Raw samples may have any; ffmpeg reads what is made by telephones, cameras and on the web. */
bool is_recording(const std::string& path, const SourceOptions& source) {
    constexpr std::array<std::string_view, 20> kOfFfmpeg = {
        "3gp", "aac", "ac3", "amr", "ape", "avi", "flv", "m4a",  "m4b", "mka",
        "mkv", "mov", "mp2", "mp4", "mpg", "spx", "ts",  "webm", "wma", "wmv"};
    return source.raw || is_sound_name(path) ||
           (source.by_ffmpeg &&
            std::count(kOfFfmpeg.begin(), kOfFfmpeg.end(), lower_extension(path)) != 0);
}

/** All recordings in a folder and below, in the order of their names; anything else stays as it is. */
std::vector<std::string> in_folder(const std::string& name, const SourceOptions& source) {
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
                   is_recording(entry->path().string(), source)) {
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
        const std::vector<std::string> inside =
            options.recursive ? in_folder(name, options.source) : std::vector<std::string>{name};
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
    const std::string text = text_of_file(options.files_from);
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
