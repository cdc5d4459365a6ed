/* Times the block core on a synthetic sound, mono at 16 kHz. Prints the shortest of many short rounds and the
 * middle one, in microseconds for a block of 576 samples. A round is over before another process gets the
 * processor, most of the time, so that other work on the machine disturbs few of them. */
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "korvane_nrss.h"
#include "signals.h"

enum { kBlock = 576, kBlocks = 500, kPerRound = 50, kWarmUp = 100, kRounds = 400 };

static int16_t sound[kBlocks][kBlock];
static double times[kRounds];

/* Keeps the library's message off the terminal. */
__attribute__((visibility("default"))) int __android_log_print(int priority, const char* tag,
                                                               const char* format, ...);
int __android_log_print(int priority, const char* tag, const char* format, ...) {
    (void)priority, (void)tag, (void)format;
    return 0;
}

static void make_sound(void) {
    Signal bursts = {kSignalBursts, 9000, 37, 7000, 4, 5, 0};
    Signal noise = {kSignalNoise, 0, 0, 0, 5, 6, 0};
    for (int b = 0; b < kBlocks; ++b) {
        int16_t hum[kBlock];
        make_signal(&bursts, sound[b], kBlock);
        make_signal(&noise, hum, kBlock);
        for (int i = 0; i < kBlock; ++i) {
            sound[b][i] = (int16_t)(sound[b][i] / 2 + hum[i] / 2);
        }
    }
}

static double microseconds(void) {
    struct timespec t;
    clock_gettime(CLOCK_MONOTONIC, &t);
    return 1e6 * (double)t.tv_sec + 1e-3 * (double)t.tv_nsec;
}

static double time_round(int round) {
    static int16_t block[kBlock];
    const double start = microseconds();
    for (int b = 0; b < kPerRound; ++b) {
        memcpy(block, sound[(round * kPerRound + b) % kBlocks], sizeof block);
        Tolu_NRSS_Nonintlvd(block, block, kBlock);
    }
    return (microseconds() - start) / (int)kPerRound;
}

static int compare(const void* a, const void* b) {
    const double x = *(const double*)a;
    const double y = *(const double*)b;
    return (x > y) - (x < y);
}

int main(void) {
    make_sound();
    Tolu_NRSS_Init(9, 16000);
    for (int i = 0; i < kWarmUp; ++i) {
        time_round(i); /* past the start-up, and until an engine has compiled the module for good */
    }
    for (int i = 0; i < kRounds; ++i) {
        times[i] = time_round(i);
    }
    qsort(times, kRounds, sizeof times[0], compare);
    printf("%.3f %.3f\n", times[0], times[kRounds / 2]);
    return 0;
}
