/* Runs a mono stream at 16 kHz through the library, in blocks of 576 samples; what it executes is
 * counted from outside. Two runs that differ in the number of blocks differ in nothing else.
 *
 *     stream_blocks detector|core BLOCKS SIGNAL
 *
 * detector: frames of 10 ms through VoiceActivityDetectionExe, BLOCKS a multiple of 5 so that
 * frames and blocks end together. core: whole blocks through Tolu_NRSS_Nonintlvd. SIGNAL holds
 * bare 16-bit samples.
 */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "korvane_nrss.h"
#include "korvane_vad.h"

enum { kRate = 16000, kBlock = 576, kFrame = 160, kMaxSamples = 1 << 20 };

static int16_t stream[kMaxSamples];
static int16_t frame[kFrame];
static VadHandle vad;

static void run_detector(int samples) {
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(&vad, 1);
    VoiceActivityDetectionSamplingRateConfig(&vad, kRate);
    VoiceActivityDetectionFrameLengthConfig(&vad, kFrame);
    VoiceActivityDetectionInOutConfig(&vad, frame);
    for (int i = 0; i + kFrame <= samples; i += kFrame) {
        memcpy(frame, stream + i, sizeof frame);
        VoiceActivityDetectionExe(&vad);
    }
}

static void run_core(int samples) {
    Tolu_NRSS_Init(9, kRate);
    for (int i = 0; i < samples; i += kBlock) {
        Tolu_NRSS_Nonintlvd(stream + i, stream + i, kBlock);
    }
}

int main(int argc, char** argv) {
    if (argc != 4) {
        fprintf(stderr, "usage: stream_blocks detector|core BLOCKS SIGNAL\n");
        return 2;
    }
    const int samples = atoi(argv[2]) * kBlock;
    FILE* const file = fopen(argv[3], "rb");
    const size_t read = file == NULL ? 0 : fread(stream, sizeof stream[0], kMaxSamples, file);
    if (samples < 0 || read < (size_t)samples) {
        fprintf(stderr, "stream_blocks: %s does not hold %d samples\n", argv[3], samples);
        return 1;
    }
    (strcmp(argv[1], "core") == 0 ? run_core : run_detector)(samples);
    return 0;
}
