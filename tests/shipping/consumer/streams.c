/* A host of the library for many streams; with the detector's decisions it prints what detector.c prints. */
#include <korvane_stream.h>
#include <stdio.h>

#include "test_signal.h"

int main(void) {
    KorvaneStreamConfig config;
    int32_t error = korvane_stream_defaults(&config, kRate, 1);
    config.decision = KORVANE_DECISION_DETECTOR;
    config.restore_level = 0;
    KorvaneStream* stream = error == KORVANE_OK ? korvane_stream_create(&config, &error) : NULL;
    if (stream == NULL) {
        puts(korvane_stream_error_text(error));
        return 1;
    }
    int16_t frame[kFrame];
    uint32_t seed = 1;
    uint32_t digest = 2166136261U;
    for (int i = 0; i < kFrames; ++i) {
        next_frame(frame, i, &seed);
        putchar(korvane_stream_process(stream, frame, frame, kFrame) == 1 ? '1' : '0');
        digest = add_to_digest(digest, frame);
    }
    korvane_stream_destroy(stream);
    printf("\n%08lx\n", (unsigned long)digest);
    return 0;
}
