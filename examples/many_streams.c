/* A server with many callers: each has a stream, in memory of the server's own. A vowel in syllables stands in
 * for their voices, a second of it for each of them over faint noise; what is printed is where each spoke. */
#include <korvane_stream.h>
#include <stdio.h>
#include <stdlib.h>

enum { CALLERS = 8, RATE = 8000, PACKET = RATE / 50, SECONDS = 5 };

static void on_event(void* user, const KorvaneStreamEvent* event) {
    if (event->kind == KORVANE_SPEECH_END) {
        printf("caller %d spoke %.2f..%.2f s\n", *(const int*)user,
               (double)event->start / (double)RATE, (double)event->position / (double)RATE);
    }
}

/** The next sample of a resonance, which remembers two. */
static float resonate(float* memory, float x, float a, float b) {
    const float y = x + a * memory[0] - b * memory[1];
    memory[1] = memory[0];
    memory[0] = y;
    return y;
}

/** 20 ms of a caller's sound, `at` samples from its beginning. */
static void receive(int caller, int at, int16_t* packet) {
    static float memory[CALLERS][4];
    static uint32_t seed = 1;
    const int speaks = at / RATE == 1 + caller % 3;
    int i;
    for (i = 0; i < PACKET; ++i) {
        const int now = at + i;
        const float pulse = speaks && now % 2000 < 1400 && now % 65 == 0 ? 1200 : 0;
        const float throat = resonate(memory[caller], pulse, 1.727F, 0.939F);     /* 600 Hz */
        const float mouth = resonate(memory[caller] + 2, throat, 1.005F, 0.925F); /* 1300 Hz */
        seed = seed * 1664525U + 1013904223U;
        packet[i] = (int16_t)((int)mouth + (int)(seed >> 16) % 50 - 25);
    }
}

int main(void) {
    const size_t size = korvane_stream_size();
    unsigned char* memory = aligned_alloc(KORVANE_STREAM_ALIGNMENT, CALLERS * size);
    KorvaneStream* streams[CALLERS];
    int numbers[CALLERS];
    int16_t packet[PACKET];
    int caller;
    int at;
    if (memory == NULL) {
        return 1;
    }
    for (caller = 0; caller < CALLERS; ++caller) {
        KorvaneStreamConfig config;
        int32_t error = korvane_stream_defaults(&config, RATE, 1);
        streams[caller] = (KorvaneStream*)(memory + (size_t)caller * size);
        numbers[caller] = caller;
        config.user = &numbers[caller];
        config.on_event = on_event;
        config.min_gap_ms = 300;
        if (error == KORVANE_OK) {
            error = korvane_stream_init(streams[caller], size, &config);
        }
        if (error != KORVANE_OK) {
            fprintf(stderr, "many_streams: %s\n", korvane_stream_error_text(error));
            free(memory);
            return 1;
        }
    }
    for (at = 0; at < SECONDS * RATE; at += PACKET) {
        for (caller = 0; caller < CALLERS; ++caller) {
            receive(caller, at, packet);
            korvane_stream_process(streams[caller], packet, NULL, PACKET);
        }
    }
    for (caller = 0; caller < CALLERS; ++caller) {
        korvane_stream_end(streams[caller], NULL);
    }
    free(memory);
    return 0;
}
