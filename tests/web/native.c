/* What the native library says, for the JavaScript package to say too.
 *
 *     native RATE CHANNELS DECISION <SAMPLES
 *
 * Takes 16-bit samples, interleaved. Prints a line for each frame and each event, and at last the cleaned samples
 * from the input's first one on. */
#include <korvane_stream.h>
#include <stdio.h>
#include <stdlib.h>

enum { MOST = 1 << 22 };

static int16_t samples[MOST];

static void on_result(void* user, const KorvaneStreamResult* r) {
    (void)user;
    printf("frame %lld %d %d %.9g %.9g %.9g\n", (long long)r->position, r->length, r->speech,
           r->score, r->level_db, r->noise_db);
}

static void on_event(void* user, const KorvaneStreamEvent* e) {
    (void)user;
    printf("event %d %d %lld %lld\n", e->kind, e->open, (long long)e->position,
           (long long)e->start);
}

int main(int argc, char** argv) {
    const int channels = argc == 4 ? atoi(argv[2]) : 0;
    KorvaneStreamConfig config;
    if (channels == 0 || korvane_stream_defaults(&config, atoi(argv[1]), channels) != KORVANE_OK) {
        return 2;
    }
    config.decision = atoi(argv[3]);
    config.on_result = on_result;
    config.on_event = on_event;
    KorvaneStream* const stream = korvane_stream_create(&config, NULL);
    const size_t count =
        fread(samples, 2, MOST / 2, stdin); /* room is left for what comes at the end */
    const int32_t delay = korvane_stream_delay(stream);
    korvane_stream_process(stream, samples, samples, (int32_t)count / channels);
    korvane_stream_end(stream, samples + count);
    printf("cleaned");
    for (size_t i = 0; i < count; ++i) {
        printf(" %d", samples[(size_t)(delay * channels) + i]);
    }
    printf("\n");
    korvane_stream_destroy(stream);
    return 0;
}
