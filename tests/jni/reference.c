/* What the C interface gives for the streams on its input, in the machine's byte order. A stream is four
 * int32: sampling rate, channel mode, samples per channel in a frame, frames; and the frames. For each
 * frame come back the flag, as an int16, and the cleaned samples in the frame's own layout. */
#include <stdio.h>
#include <stdlib.h>

#include "korvane_vad.h"

static VadHandle vad;

static void write_sample(int16_t sample) {
    if (fwrite(&sample, sizeof sample, 1, stdout) != 1) {
        exit(1);
    }
}

static void write_frame(int speech, int n, int mode) {
    write_sample((int16_t)speech);
    for (int i = 0; i < n; ++i) {
        write_sample(vad.ch0_work[i]);
        if (mode == 2) {
            write_sample(vad.ch1_work[i]);
        }
    }
    for (int i = 0; mode == 3 && i < n; ++i) {
        write_sample(vad.ch1_work[i]);
    }
}

int main(void) {
    static int16_t frame[2 * KORVANE_VAD_MAX_FRAME];
    int32_t stream[4];
    while (fread(stream, sizeof stream, 1, stdin) == 1) {
        const int mode = stream[1];
        const int n = stream[2];
        const size_t samples = (size_t)(mode == 1 ? n : 2 * n);
        VoiceActivityDetectionInit();
        VoiceActivityDetectionChannelModeConfig(&vad, mode);
        VoiceActivityDetectionSamplingRateConfig(&vad, (uint32_t)stream[0]);
        VoiceActivityDetectionFrameLengthConfig(&vad, (uint32_t)samples);
        VoiceActivityDetectionInOutConfig(&vad, frame);
        for (int f = 0; f < stream[3]; ++f) {
            if (fread(frame, sizeof frame[0], samples, stdin) != samples) {
                return 1;
            }
            write_frame(VoiceActivityDetectionExe(&vad), n, mode);
        }
    }
    return fflush(stdout) == 0 ? 0 : 1;
}
