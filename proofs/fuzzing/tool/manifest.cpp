// The record of finished recordings: any file is taken or refused, and what is noted is found again.

#include "tools/batch/manifest.h"

#include "input_file.h"
#include "tools/files/failure.h"

using namespace korvane::tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    FuzzedDataProvider data(input, size);
    const bool begun = data.ConsumeBool();
    const FileState state{data.ConsumeIntegral<int64_t>(), data.ConsumeIntegral<int64_t>()};
    const bool speech = data.ConsumeBool();
    const std::string name = data.ConsumeRandomLengthString();
    const std::string result = data.ConsumeRandomLengthString();
    const std::string text = data.ConsumeRemainingBytesAsString();
    const InputFile file((begun ? "{\"korvane-vad manifest\":1}\n" : "") + text);
    try {
        Manifest manifest(file.path(), "options");
        manifest.find(name, state);
        manifest.add(name, state, {speech, result});
    } catch (const Failure&) {
        return 0;
    }
    const Manifest manifest(file.path(), "options");  // what was taken and added to is sound
    const std::optional<Finding> found = manifest.find(name, state);
    require(found && found->speech == speech && found->text == result, "what was noted is found");
    require(!Manifest(file.path(), "others").find(name, state), "other options do not count");
    return 0;
}
