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
    int16_t rest[720]; /* the delay at this rate: what is still inside when the input ends */
    size_t n;
    int frames_open = 0;
    int32_t error = korvane_stream_defaults(&config, RATE, 1);
    stream = error == KORVANE_OK ? korvane_stream_create(&config, &error) : NULL;
    if (stream == NULL) {
        fprintf(stderr, "microphone_gate: %s\n", korvane_stream_error_text(error));
        return 1;
    }
    while ((n = fread(samples, sizeof *samples, FRAME, stdin)) > 0) {
        /* An answer is ahead of the sound that comes back, by 576 samples at most. */
        if (korvane_stream_process(stream, samples, samples, (int32_t)n) > 0) {
            frames_open = 576 / FRAME + 1;
        } else if (frames_open > 0) {
            frames_open--;
        }
        if (frames_open == 0) {
            memset(samples, 0, sizeof samples);
        }
        if (fwrite(samples, sizeof *samples, n, stdout) != n) {
            break;
        }
    }
    if (korvane_stream_end(stream, rest) > 0) {
        fwrite(rest, sizeof *rest, sizeof rest / sizeof *rest, stdout);
    }
    korvane_stream_destroy(stream);
    return 0;
}
