/* Prints the digest of all that streams answer on some sounds: results, events and cleaned samples. It must be the
 * same on every machine (proofs/architectures). Sounds and sums are in whole numbers, and nothing is allocated. */
#include <korvane_stream.h>

#include "kit.h"
#include "sha256.h"

enum { CHANNELS = 2, CALL = 441, SECONDS = 3, STREAM_SIZE = 32768 };

static Sha256 digest;
static _Alignas(KORVANE_STREAM_ALIGNMENT) unsigned char memory[STREAM_SIZE];

static void add(int64_t value) {
    unsigned char bytes[8];
    for (int i = 0; i < 8; ++i) {
        bytes[i] = (unsigned char)((uint64_t)value >> (8 * i));
    }
    sha256_add(&digest, bytes, sizeof bytes);
}

static void add_result(void* user, const KorvaneStreamResult* result) {
    (void)user;
    add(result->position);
    add(result->length);
    add(result->speech);
    add((int64_t)(result->score * 32768)); /* which are whole, as levels are 256ths */
    add((int64_t)(result->level_db * 256));
    add((int64_t)(result->noise_db * 256));
}

static void add_event(void* user, const KorvaneStreamEvent* event) {
    (void)user;
    add(event->kind);
    add(event->open);
    add(event->position);
    add(event->start);
}

/** The next sample of a resonance, factors in Q14. */
static int32_t resonate(int32_t* last, int32_t x, int32_t a, int32_t b) {
    const int32_t y = x + (int32_t)(((int64_t)a * last[0] - (int64_t)b * last[1]) >> 14);
    last[1] = last[0];
    last[0] = y;
    return y;
}

/** Sample `at`: syllables of a vowel in every other second, over noise that grows. */
static int16_t sound(int32_t at, int32_t rate) {
    static int32_t throat[2], mouth[2];
    static uint32_t seed = 1;
    const int voice = at / rate % 2 == 1 && at % (rate / 4) < rate / 6 && at % (rate / 120) == 0;
    const int32_t vowel =
        resonate(mouth, resonate(throat, voice ? 1000 : 0, 31366, 15878), 28028, 15753);
    seed = seed * 1664525U + 1013904223U;
    return (int16_t)(vowel % 16384 + (int32_t)(seed >> 16) % (10 + at / 100));
}

static void hear(int32_t rate, int32_t decision) {
    KorvaneStreamConfig config;
    KorvaneStream* const stream = (KorvaneStream*)memory;
    korvane_stream_defaults(&config, rate, CHANNELS);
    config.decision = decision;
    config.on_result = add_result;
    config.on_event = add_event;
    add(korvane_stream_init(stream, sizeof memory, &config));
    for (int32_t at = 0; at < SECONDS * rate; at += CALL) {
        int16_t x[CALL * CHANNELS];
        for (int32_t i = 0; i < CALL; ++i) {
            x[CHANNELS * i] = sound(at + i, rate);
            x[CHANNELS * i + 1] = (int16_t)(x[CHANNELS * i] / 3 + (at + i) % 7);
        }
        add(korvane_stream_process(stream, x, x, CALL));
        for (int32_t i = 0; i < CALL * CHANNELS; ++i) {
            add(x[i]);
        }
    }
    add(korvane_stream_end(stream, NULL));
}

int main(void) {
    static const int32_t rates[] = {8000, 16000, 22050, 48000};
    char hex[65];
    sha256_begin(&digest);
    for (int i = 0; i < 4; ++i) {
        hear(rates[i], KORVANE_DECISION_ADAPTIVE);
        hear(rates[i], KORVANE_DECISION_FIXED);
    }
    sha256_end(&digest, hex);
    conformance_print(hex);
    conformance_print("\n");
    return 0;
}
