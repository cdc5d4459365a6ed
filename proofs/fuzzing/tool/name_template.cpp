// Patterns for names of files, and what is taken from paths.

#include "tools/cli/name_template.h"

#include <stdexcept>

#include "input_file.h"

using namespace korvane::tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    FuzzedDataProvider data(input, size);
    PieceName piece;
    piece.index = data.ConsumeIntegralInRange<int64_t>(1, INT64_MAX);
    piece.start = data.ConsumeIntegralInRange<int64_t>(0, 1'000'000'000'000);
    piece.end = data.ConsumeIntegralInRange<int64_t>(0, 1'000'000'000'000);
    piece.rate = data.ConsumeIntegralInRange(1, 49999);
    const std::string path = data.ConsumeRandomLengthString();
    piece.stem = stem_of(path);
    piece.extension = extension_of_path(path);
    const std::string pattern = data.ConsumeRemainingBytesAsString();
    require(piece.stem.find('/') == std::string::npos, "a stem is no path");
    require(piece.extension.find('/') == std::string::npos, "an extension is no path");
    try {
        const NameTemplate name_template(pattern);
        const std::string name = name_template.fill(piece);
        require(name.find('/') == std::string::npos, "a piece stays in its folder");
        require(pattern.find_first_of("{}") != std::string::npos || name == pattern,
                "text stays as it is");
    } catch (const std::invalid_argument&) {
    }
    return 0;
}
