// Recordings with a header, from a file and from a pipe: whatever it says, the samples that are handed out
// are what the tool can take.

#include "input_file.h"
#include "tools/audio/audio_source.h"
#include "tools/files/failure.h"

using namespace korvane::tool;

namespace {

constexpr int64_t kMostSamples = 20000;  // a few bytes of header may stand for hours of silence

}  // namespace

// What the decoders themselves forget when a file is damaged.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libsndfile\nleak:libvorbis\nleak:libFLAC\nleak:libopus\nleak:libogg\nleak:"
           "libmpg123";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    FuzzedDataProvider data(input, size);
    SourceOptions options;
    options.downmix = data.ConsumeBool();
    options.resample = data.ConsumeBool();
    for (int left = data.ConsumeIntegralInRange(0, 3); left > 0; --left) {
        options.channels.push_back(data.ConsumeIntegralInRange(1, 8));
    }
    const bool live = data.ConsumeBool();
    const auto piece = data.ConsumeIntegralInRange<int64_t>(20, 5000);
    const std::string bytes = data.ConsumeRemainingBytesAsString();
    const InputFile file(bytes);
    if (live) {
        pipe_to_standard_input(bytes);
    }
    try {
        const std::unique_ptr<AudioSource> source = open_source(live ? "-" : file.path(), options);
        const SourceInfo& info = source->info();
        require(info.rate >= 1 && info.rate < 50000, "the rate suits the detector");
        require(info.channels == 1 || info.channels == 2, "one or two channels are handed out");
        require(!info.length || *info.length >= 0, "a length is not negative");
        int64_t taken = 0;
        for (int64_t count = 1; count > 0 && taken < kMostSamples; taken += count) {
            std::vector<int16_t> samples(static_cast<size_t>(piece * info.channels));
            count = source->read(samples.data(), piece);
            require(count >= 0 && count <= piece, "no more is handed out than was asked for");
        }
        require(taken >= kMostSamples || !info.length || taken == *info.length,
                "a sound end is at the length");
    } catch (const Failure& failure) {
        require(*failure.what() != '\0', "a failure says something");
    }
    return 0;
}
