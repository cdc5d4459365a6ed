// What single calls cost: instructions, time, stack.
//
//     costing instructions FORM RATE MODE SAMPLES   puts every call between two marks for a counter
//     costing time         FORM RATE MODE SAMPLES   prints the longest call in microseconds
//     costing stack        FORM                     prints the bytes of every exported call
//
// FORM is avx2, sse2, neon or plain, one that this build has. MODE is a channel mode of the
// detector, SAMPLES the samples per channel in a call. Linked from the core's objects, so that the
// form can be chosen.

#include <sys/syscall.h>
#include <ucontext.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "bench/paired_timing.h"
#include "dsp/instruction_set.h"
#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "signals.h"

// Keeps the messages off the terminal; what a host's log function costs is the host's.
extern "C" int __android_log_print(int /*priority*/, const char* /*tag*/, const char* /*format*/,
                                   ...) {
    return 0;
}

namespace {

[[noreturn]] void fail(const std::string& what) {
    std::fprintf(stderr, "costing: %s\n", what.c_str());
    std::exit(2);
}

/** The core runs in the named form from now on. */
void choose(const std::string& form) {
    for (const korvane::InstructionSet& set : korvane::instruction_sets()) {
        if (form == set.name && set.runs_here()) {
            korvane::use_instruction_set(&set);
            return;
        }
    }
    fail("this build or machine has no form " + form);
}

// ---- The costliest sound ------------------------------------------------------------------------

constexpr int kPart = 300 * 576;  // longer than the whole memory of the noise estimate

/** Parts that between them take every branch which depends on the sound. Steady tones at full
 * scale make powers of the low band wrap to negative values, for which the gains take their longer
 * way, and go on to do so while the faint noise after them has both channels' levels measured;
 * faint noise, unlike silence, also lets the noise estimate change its sub-window. */
std::vector<int16_t> costly_sound(uint32_t seed) {
    Signal parts[] = {
        {kSignalNoise, 0, 0, 0, 0, seed, 0},        {kSignalSquare, 32767, 37, 0, 0, seed, 0},
        {kSignalNoise, 0, 0, 0, 11, seed, 0},       {kSignalBursts, 30000, 22, 7000, 4, seed, 0},
        {kSignalSquare, 32767, 150, 0, 0, seed, 0}, {kSignalConstant, 0, 0, 0, 0, seed, 0},
        {kSignalGaps, 0, 0, 5000, 2, seed, 0},      {kSignalAlternate, 32767, 0, 0, 0, seed, 0}};
    std::vector<int16_t> sound(std::size(parts) * kPart);
    int16_t* at = sound.data();
    for (Signal& part : parts) {
        make_signal(&part, at, kPart);
        at += kPart;
    }
    return sound;
}

// ---- Every call on the way through it -----------------------------------------------------------

int16_t frame[2 * KORVANE_VAD_MAX_FRAME];
VadHandle vad;

void start_stream(int rate, int mode, int n) {
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(&vad, mode);
    VoiceActivityDetectionConfigAll(&vad, static_cast<uint32_t>(rate),
                                    static_cast<uint32_t>(mode == 1 ? n : 2 * n), frame, mode);
}

/** Runs the sound through the detector, n samples a call; around each call begin and end. */
template <class Begin, class End>
void run_stream(int rate, int mode, int n, Begin begin, End end) {
    static const std::vector<int16_t> ch0 = costly_sound(5);
    static const std::vector<int16_t> ch1 = costly_sound(6);
    start_stream(rate, mode, n);
    for (size_t at = 0; at + static_cast<size_t>(n) <= ch0.size(); at += static_cast<size_t>(n)) {
        if (mode == 2) {
            Tolu_NRSS_Interleave(frame, &ch0[at], &ch1[at], n);
        } else {
            std::copy_n(&ch0[at], n, frame);
            std::copy_n(&ch1[at], mode == 1 ? 0 : n, frame + n);
        }
        begin();
        VoiceActivityDetectionExe(&vad);
        end();
    }
}

/** A system call without effect that the counter recognises. */
void mark(int begin) { syscall(SYS_getppid, 0x6D61726B, begin); }

/** In every pass each call's time is taken, by this thread's processor time; its shortest of all
 * passes is what it takes undisturbed. The longest of these. */
double longest_call(int rate, int mode, int n) {
    constexpr int kPasses = 15;
    std::vector<double> shortest;
    korvane::bench::pin_to_one_processor();
    for (int pass = 0; pass < kPasses; ++pass) {
        size_t call = 0;
        double start = 0;
        run_stream(
            rate, mode, n, [&] { start = korvane::bench::thread_seconds(); },
            [&] {
                const double time = korvane::bench::thread_seconds() - start;
                if (pass == 0) {
                    shortest.push_back(time);
                }
                shortest[call] = std::min(shortest[call], time);
                ++call;
            });
    }
    return *std::max_element(shortest.begin(), shortest.end());
}

// ---- Stack --------------------------------------------------------------------------------------

constexpr size_t kStackSize = 1 << 16;
constexpr unsigned char kPaint = 0xA5;
alignas(64) unsigned char stack[kStackSize];
ucontext_t host;
ucontext_t guest;
void (*guest_call)();
const unsigned char* guest_frame;

void enter_guest() {
    guest_frame = static_cast<const unsigned char*>(__builtin_frame_address(0));
    guest_call();
    asm volatile("");  // not the last thing to do here, so that this frame stays
}

/** Bytes of a painted stack that a call has overwritten, from the frame of its caller on. */
size_t stack_of(void (*call)()) {
    std::fill_n(stack, kStackSize, kPaint);
    getcontext(&guest);
    guest.uc_stack.ss_sp = stack;
    guest.uc_stack.ss_size = kStackSize;
    guest.uc_link = &host;
    makecontext(&guest, enter_guest, 0);
    guest_call = call;
    swapcontext(&host, &guest);
    const unsigned char* const deepest =
        std::find_if(stack, stack + kStackSize, [](unsigned char byte) { return byte != kPaint; });
    return static_cast<size_t>(guest_frame - deepest);
}

int16_t other[KORVANE_VAD_MAX_FRAME];
int32_t spectrum[288];
int current_rate;

struct ExportedCall {
    const char* name;
    void (*make)();
};

// In an order in which each finds the suppressor at work or, where it is to set it up, an
// initialisation just before it.
const ExportedCall exported_calls[] = {
    {"VoiceActivityDetectionExe", [] { VoiceActivityDetectionExe(&vad); }},
    {"Tolu_NRSS", [] { Tolu_NRSS(frame, KORVANE_VAD_MAX_FRAME); }},
    {"Tolu_NRSS_EXE", [] { Tolu_NRSS_EXE(frame, KORVANE_VAD_MAX_FRAME, 2); }},
    {"Tolu_NRSS_Buffered", [] { Tolu_NRSS_Buffered(frame, other, KORVANE_VAD_MAX_FRAME); }},
    {"Tolu_NRSS_Nonintlvd", [] { Tolu_NRSS_Nonintlvd(frame, other, 4032); }},
    {"Tolu_NRSS_Nonintlvd", [] { Tolu_NRSS_Nonintlvd(frame, frame, 4032); }},
    {"Tolu_NRSS_Interleave", [] { Tolu_NRSS_Interleave(frame, other, other, 4096); }},
    {"real_fft288", [] { real_fft288(spectrum, spectrum); }},
    {"real_ifft288", [] { real_ifft288(spectrum, spectrum); }},
    {"OLM_VOR", [] { OLM_VOR(frame, other, 576); }},
    {"VoiceActivityDetectionInit", [] { VoiceActivityDetectionInit(); }},
    {"VoiceActivityDetectionConfigAll",
     [] {
         VoiceActivityDetectionConfigAll(&vad, static_cast<uint32_t>(current_rate), 4096, frame,
                                         vad.channel_mode);
     }},
    {"VoiceActivityDetectionInit", [] { VoiceActivityDetectionInit(); }},
    {"VoiceActivityDetectionSamplingRateConfig",
     [] { VoiceActivityDetectionSamplingRateConfig(&vad, static_cast<uint32_t>(current_rate)); }},
    {"VoiceActivityDetectionChannelModeConfig",
     [] { VoiceActivityDetectionChannelModeConfig(&vad, vad.channel_mode); }},
    {"VoiceActivityDetectionFrameLengthConfig",
     [] { VoiceActivityDetectionFrameLengthConfig(&vad, 4096); }},
    {"VoiceActivityDetectionInOutConfig", [] { VoiceActivityDetectionInOutConfig(&vad, frame); }},
    {"VoiceActivityDetectionParamConfig", [] { VoiceActivityDetectionParamConfig(&vad); }},
    {"VoiceActivityDetectionVersion", [] { VoiceActivityDetectionVersion(); }},
    {"OLM_VOR_Init", [] { OLM_VOR_Init(); }},
    {"OLM_VOR_SetFs", [] { OLM_VOR_SetFs(current_rate); }},
    {"Tolu_NRSS_Init", [] { Tolu_NRSS_Init(9, current_rate); }},
    {"Tolu_NRSS_BufInit", [] { Tolu_NRSS_BufInit(); }},
    {"fft288_init", [] { fft288_init(); }},
};

/** The deepest of every call, in all modes and rate classes. */
std::map<std::string, size_t> stack_of_all() {
    std::map<std::string, size_t> deepest;
    const auto measure_all = [&] {
        for (const auto& [name, make] : exported_calls) {
            deepest[name] = std::max(deepest[name], stack_of(make));
        }
    };
    // Before any initialisation the threshold is 0 dB; this is so close to it that the logarithm
    // decides.
    std::fill(std::begin(frame), std::end(frame), int16_t{-32768});
    frame[0] = -32767;
    std::copy_n(frame, 305, other);
    deepest["OLM_VOR"] = stack_of([] { OLM_VOR(frame, other, 305); });
    for (const int rate : {8000, 16000, 22050, 48000}) {
        for (const int mode : {1, 2, 3}) {
            current_rate = rate;
            run_stream(
                rate, mode, 2000, [] {}, [] {});
            measure_all();
        }
    }
    return deepest;
}

}  // namespace

int main(int argc, char** argv) {
    const std::string what = argc > 2 ? argv[1] : "";
    if (what == "stack" && argc == 3) {
        choose(argv[2]);
        for (const auto& [name, bytes] : stack_of_all()) {
            std::printf("%s\t%zu\n", name.c_str(), bytes);
        }
        return 0;
    }
    if (argc != 6 || (what != "instructions" && what != "time")) {
        fail("usage: costing instructions|time FORM RATE MODE SAMPLES, or costing stack FORM");
    }
    const int rate = std::atoi(argv[3]);
    const int mode = std::atoi(argv[4]);
    const int n = std::atoi(argv[5]);
    if (mode < 1 || mode > 3 || n < 1 || n > KORVANE_VAD_MAX_FRAME) {
        fail("MODE is 1 to 3, SAMPLES 1 to 4096");
    }
    choose(argv[2]);
    if (what == "time") {
        std::printf("%.1f\n", longest_call(rate, mode, n) * 1e6);
    } else {
        run_stream(
            rate, mode, n, [] { mark(1); }, [] { mark(0); });
    }
    return 0;
}
