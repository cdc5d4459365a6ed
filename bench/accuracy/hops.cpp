// What the network gets and gives, hop by hop:
//
//     hops RATE CHANNELS <SAMPLES >HOPS
//
// SAMPLES are 16-bit, interleaved. For each hop HOPS has its score and then the inputs, all int16.

#include <cstdio>
#include <cstdlib>

#include "nrss/pipeline/block_pipeline.h"
#include "speech/speech_score.h"

int main(int argc, char** argv) {
    constexpr int kBlock = 576;  // a batch of hops or two at every rate
    if (argc != 3) {
        return 2;
    }
    const int rate = std::atoi(argv[1]);
    const size_t channels = std::atoi(argv[2]) == 2 ? 2 : 1;
    korvane::NrssState suppressor{};
    korvane::SpeechScore speech;
    korvane::NRSS_Init(suppressor, 9, rate);
    korvane::speech_init(speech, rate);
    suppressor.speech = &speech;
    int16_t frame[2 * kBlock];
    while (std::fread(frame, 2 * channels, kBlock, stdin) == kBlock) {
        int16_t split[2][kBlock];
        for (size_t i = 0; i < channels * kBlock; ++i) {
            split[i % channels][i / channels] = frame[i];
        }
        korvane::NRSS_Nonintlvd(suppressor, split[0], split[channels - 1], kBlock);
        for (int hop = 0; hop < speech.hops.count; ++hop) {
            std::fwrite(&speech.hops.score[hop], 2, 1, stdout);
            std::fwrite(speech.inputs[hop], 2, korvane::kSpeechInputs, stdout);
        }
        speech.hops.count = 0;
    }
    return std::ferror(stdin) != 0 || std::fflush(stdout) != 0 ? 1 : 0;
}
