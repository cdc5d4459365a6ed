/* A host in C: the flag of each frame, and a digest of the cleaned samples. */
#include <korvane_vad.h>
#include <stdio.h>

#include "test_signal.h"

int main(void) {
    static VadHandle vad;
    int16_t frame[kFrame];
    uint32_t seed = 1;
    uint32_t digest = 2166136261U;

    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(&vad, 1);
    VoiceActivityDetectionSamplingRateConfig(&vad, kRate);
    VoiceActivityDetectionFrameLengthConfig(&vad, kFrame);
    VoiceActivityDetectionInOutConfig(&vad, frame);
    for (int i = 0; i < kFrames; ++i) {
        next_frame(frame, i, &seed);
        putchar(VoiceActivityDetectionExe(&vad) ? '1' : '0');
        digest = add_to_digest(digest, vad.ch0_work);
    }
    printf("\n%08lx\n", (unsigned long)digest);
    return 0;
}
