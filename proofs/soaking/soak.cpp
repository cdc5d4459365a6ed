// One process on one endless stream at 48 kHz, through two builds of the library.
//
//     soak mono|interleaved|planar SAMPLES LIBRARY PLAIN_LIBRARY
//
// The stream repeats a lap of six seconds, always cut into the same frames of all sorts of lengths.
// What comes back must be the same from both builds, frame by frame; and once the start-up is over,
// the same lap after lap, so that a counter that reaches its end would show, even one that both
// builds have. No memory may be asked for after the first laps, and the process must not grow.

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "signals.h"

// ---- The allocator, counted ---------------------------------------------------------------------

static long allocations;  // there is one thread

extern "C" {
// The C library's own, under its other names.
void* __libc_malloc(size_t size);
void* __libc_calloc(size_t count, size_t size);
void* __libc_realloc(void* old, size_t size);
void* __libc_memalign(size_t alignment, size_t size);

void* malloc(size_t size) {
    ++allocations;
    return __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    ++allocations;
    return __libc_calloc(count, size);
}
void* realloc(void* old, size_t size) {
    ++allocations;
    return __libc_realloc(old, size);
}
void* memalign(size_t alignment, size_t size) {
    ++allocations;
    return __libc_memalign(alignment, size);
}
void* aligned_alloc(size_t alignment, size_t size) {
    ++allocations;
    return __libc_memalign(alignment, size);
}
int posix_memalign(void** out, size_t alignment, size_t size) {
    ++allocations;
    *out = __libc_memalign(alignment, size);
    return *out == nullptr ? 12 : 0;  // ENOMEM
}

// Keeps the messages off the terminal.
__attribute__((visibility("default"))) int __android_log_print(int /*priority*/,
                                                               const char* /*tag*/,
                                                               const char* /*format*/, ...) {
    return 0;
}
}

namespace {

[[noreturn]] void fail(const char* what, int64_t samples) {
    std::printf("soak: %s after %" PRId64 " samples\n", what, samples);
    std::exit(1);
}

// ---- The process's memory -----------------------------------------------------------------------

/** What the system says about the memory of this process. */
struct Memory {
    char maps[1 << 16];  // every mapping with its bounds
    long resident;       // kB
};

/** The text of a file of /proc, cut to the room there is. */
void read_text(const char* path, char* text, size_t room) {
    const int file = open(path, O_RDONLY);
    size_t size = 0;
    for (ssize_t got = 1; file >= 0 && got > 0 && size < room - 1;
         size += static_cast<size_t>(got)) {
        got = std::max<ssize_t>(read(file, text + size, room - 1 - size), 0);
    }
    text[size] = '\0';
    close(file);
}

void look_at(Memory& memory) {
    char rollup[2048];
    read_text("/proc/self/maps", memory.maps, sizeof memory.maps);
    read_text("/proc/self/smaps_rollup", rollup, sizeof rollup);
    const char* const line = std::strstr(rollup, "Rss:");
    memory.resident = line == nullptr ? 0 : std::atol(line + 4);
    if (memory.resident == 0 || std::strlen(memory.maps) > sizeof memory.maps - 2) {
        fail("the memory cannot be read", 0);
    }
}

// ---- The stream ---------------------------------------------------------------------------------

constexpr int kRate = 48000;
constexpr int kPart = 36000;  // as many frames as a sub-window of the noise estimate has
constexpr int kLap = 8 * kPart;
constexpr int kSettled = 3;  // laps after which every lap must be like the last one

int16_t lap_input[2][kLap];
int frame_lengths[kLap];
int frames_in_lap;

/** Soft and loud noise, bursts, gaps, a tone at full scale that stops, which makes powers wrap, and
 * a stretch of silence. */
void make_lap() {
    const Signal parts[2][8] = {{{kSignalConstant, 0, 0, 0, 0, 1, 0},
                                 {kSignalNoise, 0, 0, 0, 8, 2, 0},
                                 {kSignalBursts, 30000, 22, 7000, 4, 3, 0},
                                 {kSignalGaps, 0, 0, 5000, 2, 4, 0},
                                 {kSignalNoise, 0, 0, 0, 0, 5, 0},
                                 {kSignalSquare, 32767, 37, 0, 0, 6, 0},
                                 {kSignalConstant, 0, 0, 0, 0, 7, 0},
                                 {kSignalTone, 9000, 480, 0, 0, 8, 0}},
                                {{kSignalConstant, 0, 0, 0, 0, 1, 0},
                                 {kSignalNoise, 0, 0, 0, 6, 9, 0},
                                 {kSignalSquare, 32767, 37, 0, 0, 6, 0},
                                 {kSignalImpulses, 0, 600, 0, 0, 1, 0},
                                 {kSignalAlternate, 32767, 0, 0, 0, 1, 0},
                                 {kSignalGaps, 0, 0, 900, 1, 10, 0},
                                 {kSignalNoise, 0, 0, 0, 11, 11, 0},
                                 {kSignalBursts, 20000, 90, 3000, 6, 12, 0}}};
    for (int c = 0; c < 2; ++c) {
        for (int part = 0; part < 8; ++part) {
            Signal signal = parts[c][part];
            make_signal(&signal, lap_input[c] + part * kPart, kPart);
        }
    }
    uint32_t seed = 77;
    for (int at = 0; at < kLap; at += frame_lengths[frames_in_lap++]) {
        const uint32_t longest = KORVANE_VAD_MAX_FRAME >> draw(&seed) % 7;
        const int n = 1 + static_cast<int>(draw(&seed) % longest);
        frame_lengths[frames_in_lap] = std::min(n, kLap - at);
    }
}

// ---- The builds ---------------------------------------------------------------------------------

/** A build of the library with a stream of its own, on its own handle and frame. */
struct Build {
    decltype(&VoiceActivityDetectionExe) process;
    decltype(&VoiceActivityDetectionFrameLengthConfig) configure_length;
    VadHandle vad;
    int16_t frame[2 * KORVANE_VAD_MAX_FRAME];
};

template <class Function>
void look_up(void* library, const char* name, Function*& function) {
    void* const address = dlsym(library, name);
    if (address == nullptr) {
        std::fprintf(stderr, "soak: %s\n", dlerror());
        std::exit(2);
    }
    std::memcpy(&function, &address, sizeof address);
}

void start(Build& build, const char* path, int mode) {
    void* const library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        std::fprintf(stderr, "soak: %s\n", dlerror());
        std::exit(2);
    }
    decltype(&VoiceActivityDetectionInit) init;
    decltype(&VoiceActivityDetectionConfigAll) configure;
    look_up(library, "VoiceActivityDetectionInit", init);
    look_up(library, "VoiceActivityDetectionConfigAll", configure);
    look_up(library, "VoiceActivityDetectionExe", build.process);
    look_up(library, "VoiceActivityDetectionFrameLengthConfig", build.configure_length);
    init();
    configure(&build.vad, kRate, 0, build.frame, mode);
}

/** Puts n samples per channel of the lap into the frame, as the mode wants them. */
void lay_out(Build& build, int at, int n) {
    int16_t* const frame = build.frame;
    if (build.vad.channel_mode == 2) {
        for (int i = 0; i < n; ++i) {
            frame[2 * i] = lap_input[0][at + i];
            frame[2 * i + 1] = lap_input[1][at + i];
        }
    } else {
        std::copy_n(lap_input[0] + at, n, frame);
        std::copy_n(lap_input[1] + at, build.vad.channel_mode == 1 ? 0 : n, frame + n);
    }
    build.configure_length(&build.vad,
                           static_cast<uint32_t>(build.vad.channel_mode == 1 ? n : 2 * n));
}

bool same(const int16_t* a, const int16_t* b, int n) {
    return std::memcmp(a, b, static_cast<size_t>(n) * sizeof *a) == 0;
}

Build vector_build;
Build plain_build;
Memory first_memory;
Memory memory;

/** What a lap brought once the start-up was over. */
int16_t lap_output[2][kLap];
int lap_flags[kLap];

/** One lap through both builds. */
void run_lap(int64_t lap) {
    Build& a = vector_build;
    Build& b = plain_build;
    const int channels = a.vad.channel_mode == 1 ? 1 : 2;
    int at = 0;
    for (int f = 0; f < frames_in_lap; ++f) {
        const int n = frame_lengths[f];
        const int64_t done = lap * kLap + at;
        lay_out(a, at, n);
        lay_out(b, at, n);
        const int flag = a.process(&a.vad);
        if (flag != b.process(&b.vad) || !same(a.vad.ch0_work, b.vad.ch0_work, n) ||
            !same(a.vad.ch1_work, b.vad.ch1_work, channels == 1 ? 0 : n) ||
            !same(a.frame, b.frame, channels * n)) {
            fail("the builds differ", done);
        }
        const int16_t* const out[2] = {a.vad.ch0_work, a.vad.ch1_work};
        if (lap < kSettled) {
            for (int c = 0; c < channels; ++c) {
                std::copy_n(out[c], n, lap_output[c] + at);
            }
            lap_flags[f] = flag;
        } else if (flag != lap_flags[f] || !same(out[0], lap_output[0] + at, n) ||
                   !same(out[1], lap_output[1] + at, channels == 1 ? 0 : n)) {
            fail("a lap differs from those before", done);
        }
        at += n;
    }
}

/** Whether both answers and more than silence came back, so that comparing laps means something. */
bool lap_is_telling() {
    const auto [least, most] = std::minmax_element(lap_flags, lap_flags + frames_in_lap);
    return *least == 0 && *most == 1 &&
           std::count(lap_output[0], lap_output[0] + kLap, int16_t{0}) < kLap / 2;
}

}  // namespace

int main(int argc, char** argv) {
    const char* const modes[] = {"", "mono", "interleaved", "planar"};
    int mode = 3;
    while (mode > 0 && (argc != 5 || std::strcmp(argv[1], modes[mode]) != 0)) {
        --mode;
    }
    const int64_t laps = mode == 0 ? 0 : (std::atoll(argv[2]) + kLap - 1) / kLap;
    if (laps <= kSettled) {
        std::fprintf(stderr, "usage: soak mono|interleaved|planar SAMPLES LIBRARY PLAIN_LIBRARY\n");
        return 2;
    }
    make_lap();
    start(vector_build, argv[3], mode);
    start(plain_build, argv[4], mode);
    if (vector_build.process == plain_build.process || allocations == 0) {
        fail("the builds are one, or the allocator is not counted", 0);
    }
    static char line[BUFSIZ];
    std::setvbuf(stdout, line, _IOLBF, sizeof line);

    int64_t lap = 0;
    for (; lap < kSettled; ++lap) {
        run_lap(lap);
    }
    if (!lap_is_telling()) {
        fail("the lap is too quiet", 0);
    }
    const long allocated_before = allocations;
    look_at(memory);  // so that its own pages are there
    look_at(first_memory);
    const int64_t interval = std::max<int64_t>(laps / 200, 1);
    int readings = 1;
    for (; lap < laps; ++lap) {
        run_lap(lap);
        if (lap % interval == 0 || lap == laps - 1) {
            look_at(memory);
            ++readings;
            if (memory.resident > first_memory.resident ||
                std::strcmp(memory.maps, first_memory.maps) != 0) {
                fail("the process has grown", lap * kLap);
            }
            if (allocations != allocated_before) {
                fail("memory was asked for", lap * kLap);
            }
        }
    }
    const int64_t samples = laps * kLap;
    std::printf("%" PRId64 " samples per channel (%.1f h), the same as the plain build's, %" PRId64
                " laps alike; %ld allocations at the start, none after; %ld kB resident, the same "
                "mappings in %d readings; %.0f s of processor time\n",
                samples, static_cast<double>(samples) / kRate / 3600, laps - kSettled, allocations,
                first_memory.resident, readings,
                static_cast<double>(std::clock()) / CLOCKS_PER_SEC);
    return 0;
}
