/* Every exported name, called from C99 through the shared library, each with a result that can be
 * known without running it. Exit code 0 when all hold. It defines no log function of its own. */
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "korvane_nrss.h"
#include "korvane_vad.h"

#define CHECK(condition)                                                     \
    do {                                                                     \
        if (!(condition)) {                                                  \
            printf("%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
            exit(1);                                                         \
        }                                                                    \
    } while (0)

static int all_equal(const int16_t* x, int n, int16_t value) {
    for (int i = 0; i < n; ++i) {
        if (x[i] != value) {
            return 0;
        }
    }
    return 1;
}

static void handle_layout(void) {
    CHECK(offsetof(VadHandle, samples) == 0);
    CHECK(offsetof(VadHandle, frame_length) == sizeof(int16_t*));
    CHECK(offsetof(VadHandle, sampling_rate) == offsetof(VadHandle, frame_length) + 4);
    CHECK(offsetof(VadHandle, channel_mode) == offsetof(VadHandle, sampling_rate) + 4);
    CHECK(offsetof(VadHandle, ch0_work) == offsetof(VadHandle, channel_mode) + 2);
    CHECK(offsetof(VadHandle, ch1_work) == offsetof(VadHandle, ch0_work) + 2 * 4096);
}

/* The library as loaded: no initialisation has run yet. */
static void before_any_initialisation(VadHandle* vad) {
    int16_t pairs[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    CHECK(osf == NULL);
    /* No first initialisation is pending, so a rate does not reach the suppressor. */
    CHECK(VoiceActivityDetectionSamplingRateConfig(vad, 48000) == 0);
    CHECK(osf == NULL);
    Tolu_NRSS(pairs, 4);
    CHECK(pairs[0] == 1 && pairs[7] == 8);
    Tolu_NRSS_Nonintlvd(pairs, pairs, 8);
    CHECK(pairs[0] == 1 && pairs[7] == 8);
    OLM_VOR_SetFs(48000);
    const int16_t full = -32768;
    const int16_t less = 32767;
    CHECK(OLM_VOR(&less, NULL, 1) == 0);
    CHECK(OLM_VOR(&full, NULL, 1) == 1);
}

static void transforms(void) {
    int32_t x[288] = {1000}; /* an impulse: 1000 in every bin, to the truncations of the products */
    int32_t spectrum[288];
    fft288_init();
    real_fft288(spectrum, x);
    for (int k = 0; k < 144; ++k) {
        CHECK(labs(spectrum[2 * k] - 1000) <= 8);
    }
    memset(spectrum, 0, sizeof spectrum);
    spectrum[0] = 7; /* DC alone: exact */
    real_ifft288(x, spectrum);
    CHECK(x[0] == 7 && x[1] == 7 && x[287] == 7);
    CHECK(twd576[0][0] == 32767 && twd576[0][1] == 0);
    CHECK(twd576[48][0] == 28378 && twd576[48][1] == -16384); /* 30 degrees */
}

static void suppressor(void) {
    static int16_t ch0[1152];
    static int16_t ch1[1152];
    static int16_t pairs[2304];
    for (int i = 0; i < 1152; ++i) {
        ch0[i] = (int16_t)(i + 1);
        ch1[i] = (int16_t)(-i - 1);
    }
    Tolu_NRSS_Init(0, 16000); /* off: a pure delay */
    Tolu_NRSS_BufInit();
    Tolu_NRSS_Interleave(pairs, ch0, ch1, 1152);
    CHECK(pairs[2] == 2 && pairs[3] == -2 && pairs[2303] == -1152);
    Tolu_NRSS_Buffered(ch0, ch1, 1152);
    CHECK(all_equal(ch0, 576, 0) && ch0[576] == 1 && ch1[1151] == -576);
    Tolu_NRSS_EXE(pairs, 1152, 2);
    CHECK(pairs[0] == 577 && pairs[1] == -577 && pairs[1152] == 1 && pairs[1153] == -1);

    Tolu_NRSS_Init(9, 16000);
    CHECK(osf != NULL && osf[0] == 32767 && osf[143] == 16384);
    for (int i = 0; i < 1152; ++i) {
        ch0[i] = 1000;
    }
    Tolu_NRSS_Nonintlvd(ch0, ch0, 1151); /* three sub-blocks of 288; what does not fill one stays */
    CHECK(!all_equal(ch0, 864, 1000) && all_equal(ch0 + 864, 288, 1000));
}

static void detector(VadHandle* vad) {
    static int16_t frame[320];
    CHECK(strcmp(VoiceActivityDetectionVersion(), "Korvane VAD v3.0 a64 2020.06.22)") == 0);
    CHECK(VoiceActivityDetectionInit() == 0);
    CHECK(VoiceActivityDetectionChannelModeConfig(vad, 1) == 0);
    CHECK(VoiceActivityDetectionSamplingRateConfig(vad, 16000) == 0);
    CHECK(VoiceActivityDetectionFrameLengthConfig(vad, 160) == 0);
    CHECK(VoiceActivityDetectionInOutConfig(vad, frame) == 0);
    CHECK(VoiceActivityDetectionParamConfig(vad) == 0);
    for (int i = 0; i < 160; ++i) {
        frame[i] = (int16_t)(i % 16 < 8 ? 8000 : -8000); /* 1 kHz */
    }
    for (int f = 0; f < 10; ++f) { /* 720 samples of delay, 480 of onset, in frames of 160 */
        CHECK(VoiceActivityDetectionExe(vad) == (f >= 6));
        CHECK(f >= 3 || all_equal(vad->ch0_work, 160, 0));
    }
    CHECK(VoiceActivityDetectionConfigAll(vad, 8000, 160, frame, 2) == 0);
    CHECK(vad->frame_length == 160 && vad->channel_mode == 2 && vad->sampling_rate == 8000);

    OLM_VOR_Init();
    OLM_VOR_SetFs(8000);
    for (int f = 0; f < 3; ++f) {
        CHECK(OLM_VOR(frame, f == 1 ? frame : NULL, 160) == (f == 2));
    }
}

int main(void) {
    static VadHandle vad;
    handle_layout();
    before_any_initialisation(&vad);
    transforms();
    suppressor();
    detector(&vad);
    return 0;
}
