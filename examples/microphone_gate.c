/* A gate: passes the cleaned sound while somebody speaks, and silence otherwise.
 *
 *     arecord -q -t raw -f S16_LE -r 16000 -c 1 | microphone_gate | aplay -q -t raw -f S16_LE -r 16000 -c 1
 */
#include <korvane_stream.h>
#include <stdio.h>
#include <string.h>

enum { RATE = 16000, FRAME = RATE / 100 };

int main(void) {
    KorvaneStreamConfig config;
    KorvaneStream* stream;
    int16_t samples[FRAME];
    int32_t error = korvane_stream_defaults(&config, RATE, 1);
    stream = error == KORVANE_OK ? korvane_stream_create(&config, &error) : NULL;
    if (stream == NULL) {
        fprintf(stderr, "microphone_gate: %s\n", korvane_stream_error_text(error));
        return 1;
    }
    while (fread(samples, sizeof *samples, FRAME, stdin) == FRAME) {
        /* What comes back is as old as what was decided, so the gate cuts the sound where it says. */
        if (korvane_stream_process(stream, samples, samples, FRAME) == 0) {
            memset(samples, 0, sizeof samples);
        }
        if (fwrite(samples, sizeof *samples, FRAME, stdout) != FRAME) {
            break;
        }
    }
    korvane_stream_destroy(stream);
    return 0;
}
