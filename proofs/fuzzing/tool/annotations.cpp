// What `score` reads: any file gives speech within the range of times, or an error, and what was read
// agrees with itself.

#include "tools/score/annotations.h"

#include "input_file.h"
#include "tools/files/failure.h"
#include "tools/score/score.h"

using namespace korvane::tool;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    FuzzedDataProvider data(input, size);
    const auto collar = data.ConsumeIntegralInRange<int64_t>(0, 1'000'000'000'000'000);
    const InputFile file(data.ConsumeRemainingBytesAsString());
    std::vector<Annotation> list;
    try {
        list = read_annotations(file.path());
    } catch (const Failure&) {
        return 0;
    }
    for (const Annotation& annotation : list) {
        require(annotation.channel >= 1, "channels count from 1");
        int64_t total = 0;
        for (const Stretch& stretch : annotation.speech) {
            require(stretch.start >= 0 && stretch.start <= stretch.end &&
                        stretch.end <= 2'000'000'000'000'000,
                    "times are in range");
            total += stretch.end - stretch.start;
        }
        for (const int64_t around : {int64_t{0}, collar}) {
            const Score score = score_of(annotation, annotation, around);
            require(score.missed == 0 && score.false_alarm == 0 && score.f1() == 1 &&
                        score.detection_cost() == 0,
                    "no speech is far from itself");
            require(0 <= score.speech && score.speech <= score.scored && score.speech <= total,
                    "no more speech is scored than there is");
        }
    }
    return 0;
}
