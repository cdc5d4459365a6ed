#include "kit.h"

#include <stddef.h>

#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "sha256.h"

enum { kBlock = 576, kFrame = 288, kLongestChunk = 19200, kLongestText = 512 };

static VadHandle vad;
static int16_t frame[2 * KORVANE_VAD_MAX_FRAME];
static int16_t channel0[kLongestChunk];
static int16_t channel1[kLongestChunk];

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
    for (int i = 0; i < kBlock; ++i) {
        channel0[i] = 0;
        channel1[i] = 0;
    }
    Tolu_NRSS_Init(9, 48000);
    Tolu_NRSS_Nonintlvd(channel0, channel1, kBlock);
    Tolu_NRSS_BufInit();
    OLM_VOR_Init();
}

static void run_transform(const ConformanceRow* row, Sha256* sha) {
    void (*const transform)(int32_t*, const int32_t*) =
        row->call == kCallForward ? real_fft288 : real_ifft288;
    uint32_t state = row->signal[0].seed;
    int32_t in[kFrame];
    int32_t out[kFrame];
    fft288_init();
    for (int32_t at = 0; at + kFrame <= row->samples; at += kFrame) {
        for (int i = 0; i < kFrame; ++i) {
            in[i] = (int32_t)draw(&state) >> row->signal[0].s;
        }
        transform(out, in);
        add_u32(sha, out, kFrame);
    }
}

static void run_core(const ConformanceRow* row, int16_t* ch0, int16_t* ch1, int32_t n,
                     Sha256* sha) {
    Tolu_NRSS_Nonintlvd(ch0, row->mode == 1 ? ch0 : ch1, n);
    add_u16(sha, ch0, n);
    if (row->mode == 2) {
        add_u16(sha, ch1, n);
    }
}

static void run_stream(const ConformanceRow* row, int16_t* ch0, int16_t* ch1, int32_t n,
                       Sha256* sha) {
    if (row->mode == 2) {
        Tolu_NRSS_Interleave(frame, ch0, ch1, n);
        Tolu_NRSS_EXE(frame, n, 2);
        add_u16(sha, frame, 2 * n);
        return;
    }
    Tolu_NRSS_Buffered(ch0, row->mode == 1 ? ch0 : ch1, n);
    add_u16(sha, ch0, n);
    if (row->mode == 3) {
        add_u16(sha, ch1, n);
    }
}

static void begin_detector(const ConformanceRow* row) {
    unsigned char* const bytes = (unsigned char*)&vad;
    for (size_t i = 0; i < sizeof vad; ++i) {
        bytes[i] = 0;
    }
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(&vad, row->mode);
    VoiceActivityDetectionSamplingRateConfig(&vad, (uint32_t)row->rate);
    VoiceActivityDetectionFrameLengthConfig(
        &vad, (uint32_t)(row->mode == 1 ? row->chunk : 2 * row->chunk));
}

static void run_detector(const ConformanceRow* row, const int16_t* ch0, const int16_t* ch1,
                         int32_t n, Sha256* sha) {
    if (row->mode == 2) {
        Tolu_NRSS_Interleave(frame, ch0, ch1, n);
    } else {
        for (int32_t i = 0; i < n; ++i) {
            frame[i] = ch0[i];
            frame[n + i] = ch1[i];
        }
    }
    VoiceActivityDetectionInOutConfig(&vad, frame);
    add_flag(sha, VoiceActivityDetectionExe(&vad));
    add_u16(sha, vad.ch0_work, n);
    if (row->mode != 1) {
        add_u16(sha, vad.ch1_work, n);
    }
}

/* Runs the row piece by piece. */
static void run_pieces(const ConformanceRow* row, Sha256* sha) {
    const int whole_only = row->call == kCallDecision || row->call == kCallDetector;
    Signal signal0 = row->signal[0];
    Signal signal1 = row->signal[1];
    for (int32_t at = 0; at < row->samples; at += row->chunk) {
        const int32_t rest = row->samples - at;
        const int32_t n = rest < row->chunk ? rest : row->chunk;
        if (whole_only && n < row->chunk) {
            return;
        }
        /* At the end of their arrays: seldom aligned, and an access beyond is one beyond the array. */
        int16_t* const ch0 = channel0 + kLongestChunk - n;
        int16_t* const ch1 = channel1 + kLongestChunk - n;
        make_signal(&signal0, ch0, n);
        make_signal(&signal1, ch1, n);
        if (row->call == kCallCore) {
            run_core(row, ch0, ch1, n, sha);
        } else if (row->call == kCallStream) {
            run_stream(row, ch0, ch1, n, sha);
        } else if (row->call == kCallDecision) {
            add_flag(sha, OLM_VOR(ch0, row->mode == 1 ? NULL : ch1, n));
        } else {
            run_detector(row, ch0, ch1, n, sha);
        }
    }
}

static void run_row(const ConformanceRow* row, char digest[65]) {
    Sha256 sha;
    sha256_begin(&sha);
    prepare();
    if (row->call == kCallForward || row->call == kCallInverse) {
        run_transform(row, &sha);
    } else {
        if (row->call == kCallDetector) {
            begin_detector(row);
        } else if (row->call != kCallDecision) {
            Tolu_NRSS_Init(row->level, row->rate);
        }
        run_pieces(row, &sha);
    }
    sha256_end(&sha, digest);
}

static int same_digest(const char* x, const char* y) {
    int i = 0;
    while (i < 64 && x[i] == y[i]) {
        ++i;
    }
    return i == 64;
}

static char* add_text(char* end, const char* text) {
    while (*text != '\0') {
        *end++ = *text++;
    }
    *end = '\0';
    return end;
}

/* The text, and the number after it. */
static char* add_number(char* end, const char* text, int32_t number) {
    char digits[12];
    char* first = digits + sizeof digits - 1;
    *first = '\0';
    for (; number > 9; number /= 10) {
        *--first = (char)('0' + number % 10);
    }
    *--first = (char)('0' + number);
    return add_text(add_text(end, text), first);
}

static void print_difference(const ConformanceRow* row, const char* got,
                             void (*print)(const char* text)) {
    static const char* const calls[] = {"forward", "inverse",  "core",
                                        "stream",  "decision", "detector"};
    char text[kLongestText];
    char* end = add_number(text, "row ", row->number);
    end = add_text(add_text(end, " differs, the first to do so: "), calls[row->call]);
    end = add_number(end, ", rate ", row->rate);
    end = add_number(end, ", level ", row->level);
    end = add_number(end, ", mode ", row->mode);
    end = add_number(end, ", pieces of ", row->chunk);
    end = add_number(end, " of ", row->samples);
    end = add_text(add_text(end, " samples\n  expected "), row->digest);
    add_text(add_text(add_text(end, "\n  got      "), got), "\n");
    print(text);
}

int conformance_run(const ConformanceTable* table, int32_t step, void (*print)(const char* text)) {
    int32_t rows = 0;
    int32_t differing = 0;
    char digest[65];
    Sha256 all;
    sha256_begin(&all);
    for (int32_t i = 0; i < table->count; i += step) {
        const ConformanceRow* const row = &table->rows[i];
        run_row(row, digest);
        sha256_add(&all, digest, 64);
        ++rows;
        if (!same_digest(digest, row->digest) && ++differing == 1) {
            print_difference(row, digest, print);
        }
    }
    sha256_end(&all, digest);
    const int whole = step > 1 || differing > 0 || same_digest(digest, table->digest);
    if (!whole) {
        print("the table is not the one that its digest is of\n");
    }
    char text[kLongestText];
    char* const end = add_number(add_number(text, "", rows), " rows, ", differing);
    add_text(add_text(add_text(end, " differ; digest "), digest), "\n");
    print(text);
    return differing == 0 && whole;
}
