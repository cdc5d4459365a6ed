// The file of names: every name in it and nothing else.

#include <algorithm>

#include "input_file.h"
#include "tools/batch/recordings.h"
#include "tools/files/failure.h"

using namespace korvane::tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    FuzzedDataProvider data(input, size);
    Options options;
    options.null_separated = data.ConsumeBool();
    std::string text = data.ConsumeRemainingBytesAsString();
    const InputFile file(text);
    text.erase(0, text.starts_with("\xEF\xBB\xBF") ? 3 : 0);
    options.files_from = file.path();
    const char separator = options.null_separated ? '\0' : '\n';
    const bool sound = options.null_separated || text.find('\0') == std::string::npos;
    std::string whole = text + separator;
    whole.erase(std::unique(whole.begin(), whole.end(),
                            [&](char a, char b) { return a == separator && b == separator; }),
                whole.end());
    std::string joined = whole.front() == separator ? std::string(1, separator) : "";
    try {
        for (const std::string& name : recordings(options)) {
            joined += name + separator;
        }
        require(sound && joined == whole, "every name and nothing else");
    } catch (const Failure&) {
        require(!sound, "only zero bytes are refused");
    }
    return 0;
}
