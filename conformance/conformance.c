/*
 * Conformance: runs every row of a table of calls through the library and compares what comes out
 * with the digest in the row. The digests come from two models of the system that were written
 * separately from this library and agree with each other.
 *
 *     conformance table.tsv
 *
 * By hand: compile the .c files of this folder with include/ on the path and link the library.
 *
 * A C program on the public headers alone: it builds and runs wherever the library does. Exit code
 * 0 when every row matches, 1 when one does not, 2 when the table cannot be read.
 */
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "sha256.h"
#include "signals.h"

enum { kBlock = 576, kFrame = 288 };

typedef struct Row {
    int number;
    char call[16];
    int32_t rate;
    int32_t level;
    int mode;
    int32_t chunk;
    int32_t samples;
    char signal[2][64];
    char digest[65];
} Row;

/* The host's own log function: the library must find it, and the table's thousands of configuration
 * messages stay off the terminal. */
static long messages;

__attribute__((visibility("default"))) int __android_log_print(int priority, const char* tag,
                                                               const char* format, ...);

int __android_log_print(int priority, const char* tag, const char* format, ...) {
    messages += priority == 4 && strcmp(tag, "OLM_VOR_a64") == 0 && format[0] != '\0';
    return 0;
}

static void* allocate(size_t count, size_t size) {
    void* const p = calloc(count > 0 ? count : 1, size);
    if (p == NULL) {
        fprintf(stderr, "conformance: out of memory\n");
        exit(2);
    }
    return p;
}

static void add_u16(Sha256* sha, const int16_t* x, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        const uint16_t v = (uint16_t)x[i];
        const uint8_t bytes[2] = {(uint8_t)v, (uint8_t)(v >> 8)};
        sha256_add(sha, bytes, sizeof bytes);
    }
}

static void add_u32(Sha256* sha, const int32_t* x, int32_t n) {
    for (int32_t i = 0; i < n; ++i) {
        const uint32_t v = (uint32_t)x[i];
        const uint8_t bytes[4] = {(uint8_t)v, (uint8_t)(v >> 8), (uint8_t)(v >> 16),
                                  (uint8_t)(v >> 24)};
        sha256_add(sha, bytes, sizeof bytes);
    }
}

static void add_flag(Sha256* sha, int flag) {
    const uint8_t byte = (uint8_t)flag;
    sha256_add(sha, &byte, 1);
}

/* Puts the library into the same state before every row, whatever the row before did. */
static void prepare(void) {
    static int16_t silence[2][kBlock];
    memset(silence, 0, sizeof silence);
    Tolu_NRSS_Init(9, 48000);
    Tolu_NRSS_Nonintlvd(silence[0], silence[1], kBlock);
    Tolu_NRSS_BufInit();
    OLM_VOR_Init();
}

static void run_transform(const Row* row, int32_t shift, uint32_t seed, Sha256* sha) {
    void (*const transform)(int32_t*, const int32_t*) =
        strcmp(row->call, "forward") == 0 ? real_fft288 : real_ifft288;
    int32_t in[kFrame];
    int32_t out[kFrame];
    fft288_init();
    for (int32_t frame = 0; frame < row->samples / kFrame; ++frame) {
        for (int i = 0; i < kFrame; ++i) {
            in[i] = (int32_t)draw(&seed) >> shift;
        }
        transform(out, in);
        add_u32(sha, out, kFrame);
    }
}

static void run_core(const Row* row, int16_t* ch0, int16_t* ch1, Sha256* sha) {
    Tolu_NRSS_Init(row->level, row->rate);
    for (int32_t at = 0; at < row->samples; at += row->chunk) {
        const int32_t n = row->samples - at < row->chunk ? row->samples - at : row->chunk;
        Tolu_NRSS_Nonintlvd(ch0 + at, row->mode == 1 ? ch0 + at : ch1 + at, n);
        add_u16(sha, ch0 + at, n);
        if (row->mode == 2) {
            add_u16(sha, ch1 + at, n);
        }
    }
}

static void run_stream(const Row* row, int16_t* ch0, int16_t* ch1, Sha256* sha) {
    int16_t* const pairs = allocate((size_t)row->chunk * 2, sizeof *pairs);
    Tolu_NRSS_Init(row->level, row->rate);
    for (int32_t at = 0; at < row->samples; at += row->chunk) {
        const int32_t n = row->samples - at < row->chunk ? row->samples - at : row->chunk;
        if (row->mode == 2) {
            Tolu_NRSS_Interleave(pairs, ch0 + at, ch1 + at, n);
            Tolu_NRSS_EXE(pairs, n, 2);
            add_u16(sha, pairs, 2 * n);
        } else {
            Tolu_NRSS_Buffered(ch0 + at, row->mode == 1 ? ch0 + at : ch1 + at, n);
            add_u16(sha, ch0 + at, n);
            if (row->mode == 3) {
                add_u16(sha, ch1 + at, n);
            }
        }
    }
    free(pairs);
}

static void run_decision(const Row* row, const int16_t* ch0, const int16_t* ch1, Sha256* sha) {
    for (int32_t at = 0; at + row->chunk <= row->samples; at += row->chunk) {
        add_flag(sha, OLM_VOR(ch0 + at, row->mode == 1 ? NULL : ch1 + at, row->chunk));
    }
}

static void run_detector(const Row* row, const int16_t* ch0, const int16_t* ch1, Sha256* sha) {
    VadHandle* const vad = allocate(1, sizeof *vad);
    int16_t* const frame = allocate((size_t)row->chunk * 2, sizeof *frame);
    const size_t bytes = (size_t)row->chunk * sizeof *frame;
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(vad, row->mode);
    VoiceActivityDetectionSamplingRateConfig(vad, (uint32_t)row->rate);
    VoiceActivityDetectionFrameLengthConfig(
        vad, (uint32_t)(row->mode == 1 ? row->chunk : 2 * row->chunk));
    for (int32_t at = 0; at + row->chunk <= row->samples; at += row->chunk) {
        if (row->mode == 2) {
            Tolu_NRSS_Interleave(frame, ch0 + at, ch1 + at, row->chunk);
        } else {
            memcpy(frame, ch0 + at, bytes);
            if (row->mode == 3) {
                memcpy(frame + row->chunk, ch1 + at, bytes);
            }
        }
        VoiceActivityDetectionInOutConfig(vad, frame);
        add_flag(sha, VoiceActivityDetectionExe(vad));
        add_u16(sha, vad->ch0_work, row->chunk);
        if (row->mode != 1) {
            add_u16(sha, vad->ch1_work, row->chunk);
        }
    }
    free(frame);
    free(vad);
}

/* Runs one row and writes the digest of what came out; returns 0 where the row makes no sense. */
static int run_row(const Row* row, char digest[65]) {
    Signal signals[2];
    const int two = strcmp(row->signal[1], "-") != 0;
    if (!parse_signal(row->signal[0], &signals[0]) ||
        (two && !parse_signal(row->signal[1], &signals[1])) || two != (row->mode != 1) ||
        row->chunk < 1 || row->samples < 0) {
        return 0;
    }
    int16_t* channel[2];
    for (int c = 0; c < 2; ++c) {
        channel[c] = allocate((size_t)row->samples, sizeof *channel[c]);
        if (c == 0 || two) {
            make_signal(&signals[c], channel[c], row->samples);
        }
    }
    int known = 1;
    Sha256 sha;
    sha256_begin(&sha);
    prepare();
    if (strcmp(row->call, "forward") == 0 || strcmp(row->call, "inverse") == 0) {
        run_transform(row, signals[0].s, signals[0].seed, &sha);
    } else if (strcmp(row->call, "core") == 0) {
        run_core(row, channel[0], channel[1], &sha);
    } else if (strcmp(row->call, "stream") == 0) {
        run_stream(row, channel[0], channel[1], &sha);
    } else if (strcmp(row->call, "decision") == 0) {
        run_decision(row, channel[0], channel[1], &sha);
    } else if (strcmp(row->call, "detector") == 0) {
        run_detector(row, channel[0], channel[1], &sha);
    } else {
        known = 0;
    }
    sha256_end(&sha, digest);
    free(channel[0]);
    free(channel[1]);
    return known;
}

int main(int argc, char** argv) {
    FILE* const table = argc == 2 ? fopen(argv[1], "r") : NULL;
    if (table == NULL) {
        fprintf(stderr, "usage: conformance table.tsv\n");
        return 2;
    }
    char line[512];
    char expected_all[65] = "";
    int rows = 0;
    int failed = 0;
    Sha256 all;
    sha256_begin(&all);
    if (fgets(line, sizeof line, table) == NULL) { /* the heading */
        fprintf(stderr, "conformance: %s is empty\n", argv[1]);
        return 2;
    }
    while (fgets(line, sizeof line, table) != NULL) {
        Row row;
        if (strncmp(line, "all\t", 4) == 0) {
            const char* const last = strrchr(line, '\t') + 1;
            sscanf(last, "%64[0-9a-f]", expected_all);
            continue;
        }
        char digest[65];
        if (sscanf(line,
                   "%d\t%15[a-z]\t%" SCNd32 "\t%" SCNd32 "\t%d\t%" SCNd32 "\t%" SCNd32
                   "\t%63s\t%63s\t%64[0-9a-f]",
                   &row.number, row.call, &row.rate, &row.level, &row.mode, &row.chunk,
                   &row.samples, row.signal[0], row.signal[1], row.digest) != 10 ||
            !run_row(&row, digest)) {
            fprintf(stderr, "conformance: cannot read this row: %s", line);
            return 2;
        }
        sha256_add(&all, digest, 64);
        ++rows;
        if (strcmp(digest, row.digest) != 0) {
            ++failed;
            printf("row %d differs: %s", row.number, line);
        }
    }
    fclose(table);
    char digest[65];
    sha256_end(&all, digest);
    if (strcmp(digest, expected_all) != 0 && failed == 0) {
        printf("the table is incomplete\n");
        ++failed;
    }
    if (messages == 0) {
        printf("the library did not find the host's log function\n");
        ++failed;
    }
    printf("%d rows, %d differ; digest %s\n", rows, failed, digest);
    return failed == 0 ? 0 : 1;
}
