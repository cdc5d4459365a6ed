// This library beside its peers, in one run: prints the table of docs/benchmarks.md.
//
//     peers NAME=VALUE...
//
//     library=FILE   this library
//     first=FILE     its first build, in plain scalar code
//     tool=FILE      korvane-vad
//     reader=FILE    read_wav
//     hour=FILE      an hour of the signal, mono WAV at 16 kHz
//     arm_instructions=N  arm_core_instructions=N  arm_memory=N  arm_library=N
//                    what bench/arm_instructions/count prints
//
// Rows whose arguments are missing are left out, and said to be.
#include <fftw3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <random>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

#include "detectors.h"
#include "noisy_speech.h"
#include "paired_timing.h"

#ifdef KORVANE_BENCH_KISSFFT
extern "C" {
#include <kiss_fftr.h>
}
#endif

namespace korvane::bench {
namespace {

constexpr int kStartUpSeconds = 3;  // left out: the noise estimate forms, gains are open
constexpr int kSignalSeconds = 30;
constexpr int kTransformSize = 288;

// ---- The table ----------------------------------------------------------------------------------

enum class Better { kHigher, kLower };

struct Row {
    std::string what;
    std::string times;  // the two times behind a ratio
    Summary value;
    double must;
    double aim;
    Better better;
    const char* unit;
};

const char* verdict(const Row& row) {
    const auto reaches = [&](double mark) {
        return row.better == Better::kHigher ? row.value.median >= mark : row.value.median <= mark;
    };
    return reaches(row.aim) ? "aim" : reaches(row.must) ? "must" : "missed";
}

std::string number(double value) {
    char text[32];
    const int decimals = value >= 100 ? 0 : value >= 10 ? 1 : 2;
    std::snprintf(text, sizeof text, "%.*f", decimals, value);
    return text;
}

std::string duration(double seconds) {
    const char* const units[] = {"s", "ms", "µs", "ns"};
    int unit = 0;
    while (seconds < 1 && unit < 3) {
        seconds *= 1000;
        ++unit;
    }
    return number(seconds) + ' ' + units[unit];
}

class Table {
  public:
    Table() {
        std::puts("| | ours, other | median | min | max | must | aim | reached |");
        std::puts("|---|---|---|---|---|---|---|---|");
    }

    /** How many times our time the other takes, or the reverse. */
    void ratio(const std::string& what, const PairedTimes& times, double must, double aim) {
        row({what, pair(times.first, times.second), times.ratio, must, aim, Better::kHigher, "×"});
    }
    void inverse_ratio(const std::string& what, const PairedTimes& times, double must, double aim) {
        const Summary& r = times.ratio;
        row({what,
             pair(times.first, times.second),
             {1 / r.median, 1 / r.max, 1 / r.min},
             must,
             aim,
             Better::kLower,
             "×"});
    }
    void figure(const std::string& what, Summary value, double must, double aim, const char* unit) {
        row({what, "", value, must, aim, Better::kLower, unit});
    }
    void missing(const std::string& what, const char* why) {
        std::printf("| %s | %s | – | | | | | not measured |\n", what.c_str(), why);
    }

  private:
    static std::string pair(const Summary& ours, const Summary& other) {
        return duration(ours.median) + ", " + duration(other.median);
    }

    void row(const Row& r) {
        std::printf("| %s | %s | %s%s | %s | %s | %s | %s | %s |\n", r.what.c_str(),
                    r.times.c_str(), number(r.value.median).c_str(), r.unit,
                    number(r.value.min).c_str(), number(r.value.max).c_str(),
                    number(r.must).c_str(), number(r.aim).c_str(), verdict(r));
        std::fflush(stdout);
    }
};

// ---- Detectors over the signal ------------------------------------------------------------------

/** The signal in frames, round and round. */
class Stream {
  public:
    explicit Stream(Format format)
        : frame_samples_(format.frame_samples()),
          samples_(noisy_speech(
              format.rate, format.channels,
              static_cast<size_t>(kSignalSeconds) * static_cast<size_t>(format.rate))) {}

    size_t frames() const { return samples_.size() / frame_samples_; }
    const int16_t* frame(size_t i) const { return samples_.data() + i % frames() * frame_samples_; }

    /** Puts the start-up behind a fresh detector. */
    void start_up(Detector& detector) const {
        for (size_t i = 0; i < kStartUpSeconds * 100; ++i) {
            detector.process(frame(i));
        }
    }
    /** The whole signal once. */
    void play(Detector& detector) const {
        for (size_t i = 0; i < frames(); ++i) {
            detector.process(frame(i));
        }
    }

  private:
    size_t frame_samples_;
    std::vector<int16_t> samples_;
};

PairedTimes compare(const Stream& stream, Detector& ours, Detector& peer) {
    stream.start_up(ours);
    stream.start_up(peer);
    PairedTimes times = alternate(in_this_thread([&] { stream.play(ours); }),
                                  in_this_thread([&] { stream.play(peer); }));
    for (Summary* s : {&times.first, &times.second}) {  // per second of sound
        s->median /= kSignalSeconds;
        s->min /= kSignalSeconds;
        s->max /= kSignalSeconds;
    }
    return times;
}

/** Two builds of this library must give the same; a faster one that does not is no faster one. */
void require_same_output(const Stream& stream, Format format, OwnDetector& a, OwnDetector& b) {
    const size_t bytes = static_cast<size_t>(format.frame_length()) * sizeof(int16_t);
    for (size_t i = 0; i < stream.frames(); ++i) {
        const bool same_decision = a.process(stream.frame(i)) == b.process(stream.frame(i));
        if (!same_decision || std::memcmp(a.cleaned(0), b.cleaned(0), bytes) != 0) {
            throw std::runtime_error("the first build gives another output");
        }
    }
}

std::string in_words(Format format) {
    return std::to_string(format.rate / 1000) + " kHz " +
           (format.channels == 1 ? "mono" : "stereo");
}

// ---- Transforms ---------------------------------------------------------------------------------

/** Frames of 288 values, as many as stay in the first-level cache. */
template <class T>
std::vector<std::vector<T>> transform_inputs() {
    std::mt19937 random(1);
    std::vector<std::vector<T>> frames(4, std::vector<T>(kTransformSize));
    for (auto& frame : frames) {
        for (T& x : frame) {
            x = static_cast<T>(static_cast<int32_t>(random() >> 16) - 32768);
        }
    }
    return frames;
}

constexpr int kTransformsPerRun = 4000;

TimedRun own_transforms(const Library& library) {
    library.fft288_init();
    return in_this_thread([&library, in = transform_inputs<int32_t>(),
                           out = std::vector<int32_t>(kTransformSize)]() mutable {
        for (size_t i = 0; i < kTransformsPerRun; ++i) {
            library.real_fft288(out.data(), in[i % in.size()].data());
        }
    });
}

TimedRun fftw_transforms() {
    constexpr size_t kOutputSize = kTransformSize + 2;
    const auto inputs = transform_inputs<float>();
    // FFTW's own memory, aligned as it likes it; shared by the copies of the run.
    const auto allocate = [](size_t n) {
        return std::shared_ptr<float>(fftwf_alloc_real(n), fftwf_free);
    };
    const auto in = allocate(inputs.size() * kTransformSize);
    const auto out = allocate(kOutputSize);
    const auto spectrum = reinterpret_cast<fftwf_complex*>(out.get());
    const std::shared_ptr<std::remove_pointer_t<fftwf_plan>> plan(
        fftwf_plan_dft_r2c_1d(kTransformSize, in.get(), spectrum, FFTW_PATIENT),
        fftwf_destroy_plan);
    for (size_t f = 0; f < inputs.size(); ++f) {  // planning has overwritten the input
        std::copy(inputs[f].begin(), inputs[f].end(), in.get() + f * kTransformSize);
    }
    return in_this_thread([in, out, spectrum, plan, frames = inputs.size()] {
        for (size_t i = 0; i < kTransformsPerRun; ++i) {
            fftwf_execute_dft_r2c(plan.get(), in.get() + i % frames * kTransformSize, spectrum);
        }
    });
}

#ifdef KORVANE_BENCH_KISSFFT
static_assert(std::is_same_v<kiss_fft_scalar, int32_t>);

TimedRun kissfft_transforms() {
    const std::shared_ptr<std::remove_pointer_t<kiss_fftr_cfg>> plan(
        kiss_fftr_alloc(kTransformSize, 0, nullptr, nullptr), std::free);
    return in_this_thread([plan, in = transform_inputs<int32_t>(),
                           out = std::vector<kiss_fft_cpx>(kTransformSize / 2 + 1)]() mutable {
        for (size_t i = 0; i < kTransformsPerRun; ++i) {
            kiss_fftr(plan.get(), in[i % in.size()].data(), out.data());
        }
    });
}
#endif

PairedTimes per_transform(PairedTimes times) {
    for (Summary* s : {&times.first, &times.second}) {
        s->median /= kTransformsPerRun;
    }
    return times;
}

// ---- Start-up -----------------------------------------------------------------------------------

/** The first initialisation in a process, with caches as they happen to be, in µs. Each is measured
 * in a process of its own. */
Summary first_init_us(const std::string& path) {
    std::vector<double> times;
    for (int round = 0; round < kRounds; ++round) {
        int ends[2];
        if (pipe(ends) != 0) {
            throw std::runtime_error("pipe failed");
        }
        const pid_t child = fork();
        if (child == 0) {
            const Library library(path);
            const double start = thread_seconds();
            library.init();
            const double seconds = thread_seconds() - start;
            _exit(write(ends[1], &seconds, sizeof seconds) == sizeof seconds ? 0 : 1);
        }
        close(ends[1]);
        double seconds = 0;
        const bool answered = read(ends[0], &seconds, sizeof seconds) == sizeof seconds;
        close(ends[0]);
        int status = 0;
        if (child < 0 || waitpid(child, &status, 0) != child || !answered) {
            throw std::runtime_error("the first initialisation could not be timed");
        }
        times.push_back(seconds * 1e6);
    }
    return summarise(times);
}

/** Initialisations one after the other, in µs. */
Summary init_us(const Library& library) {
    constexpr int kInits = 1000;
    Summary s = repeat(in_this_thread([&] {
        for (int i = 0; i < kInits; ++i) {
            library.init();
        }
    }));
    for (double* t : {&s.median, &s.min, &s.max}) {
        *t *= 1e6 / kInits;
    }
    return s;
}

// ---- Worst case ---------------------------------------------------------------------------------

/**
 * Times every single call over the signal. Each pass starts a new stream, so call i does the same
 * work in every pass, and the least of its times is free of what the machine did besides.
 */
void worst_case_row(const std::string& what, const Stream& stream,
                    const std::function<std::unique_ptr<Detector>()>& make) {
    using Clock = std::chrono::steady_clock;
    constexpr int kPasses = 9;
    std::vector<double> least(stream.frames(), 1e9);
    double longest_of_all = 0;
    for (int pass = 0; pass < kPasses; ++pass) {
        const std::unique_ptr<Detector> detector = make();
        stream.start_up(*detector);
        for (size_t i = 0; i < stream.frames(); ++i) {
            const auto start = Clock::now();
            detector->process(stream.frame(i));
            const double t = std::chrono::duration<double>(Clock::now() - start).count();
            least[i] = std::min(least[i], t);
            longest_of_all = std::max(longest_of_all, t);
        }
    }
    double sum = 0;
    for (const double t : least) {
        sum += t;
    }
    std::sort(least.begin(), least.end());
    const auto rank = static_cast<size_t>(std::ceil(0.999 * static_cast<double>(least.size())));
    std::printf("| %s | %s | %s | %s | %s |\n", what.c_str(),
                duration(sum / static_cast<double>(least.size())).c_str(),
                duration(least[rank - 1]).c_str(), duration(least.back()).c_str(),
                duration(longest_of_all).c_str());
    std::fflush(stdout);
}

// ---- The run ------------------------------------------------------------------------------------

using Arguments = std::map<std::string, std::string>;

std::optional<std::string> argument(const Arguments& arguments, const char* name) {
    const auto found = arguments.find(name);
    return found == arguments.end() ? std::nullopt : std::optional(found->second);
}

std::string processor_name() {
    std::ifstream info("/proc/cpuinfo");
    std::string family;
    std::string model;
    for (std::string line; std::getline(info, line);) {  // "cpu family", "model", "model name"
        const std::string value = line.substr(std::min(line.find(':') + 2, line.size()));
        if (line.starts_with("cpu family")) {
            family = value;
        } else if (line.starts_with("model\t")) {
            model = value;
        } else if (line.starts_with("model name")) {  // makers of virtual machines shorten it
            return value + " (family " + family + ", model " + model + ")";
        }
    }
    return "unknown processor";
}

const char* instruction_set_name() {
#if defined(KORVANE_SIMD) && defined(__x86_64__)
    return __builtin_cpu_supports("avx2") ? "AVX2" : "SSE2";
#elif defined(KORVANE_SIMD) && defined(__aarch64__)
    return "NEON";
#else
    return "plain code";
#endif
}

void print_circumstances(int processor) {
    char date[32];
    const std::time_t now = std::time(nullptr);
    std::strftime(date, sizeof date, "%Y-%m-%d %H:%M UTC", std::gmtime(&now));
    std::printf(
        "Measured %s on %s, processor %d; the library runs %s; compiled by %s with `%s`, the first "
        "scalar build with `-O2`.\n",
        date, processor_name().c_str(), processor, instruction_set_name(), KORVANE_BENCH_COMPILER,
        KORVANE_BENCH_FLAGS);
}

void detector_rows(Table& table, const Library& library) {
    struct Mark {
        Format format;
        double must;
        double aim;
    };
    const auto row = [&](const char* peer, auto make_peer, const Mark& mark) {
        const Stream stream(mark.format);
        OwnDetector ours(library, mark.format);
        const std::unique_ptr<Detector> other = make_peer(mark.format);
        table.ratio(peer + (", " + in_words(mark.format)), compare(stream, ours, *other), mark.must,
                    mark.aim);
    };
    for (const Mark& mark : {Mark{{16000, 1}, 7, 12}, Mark{{16000, 2}, 8, 15},
                             Mark{{48000, 1}, 6, 10}, Mark{{48000, 2}, 8, 15}}) {
        row("SpeexDSP", make_speexdsp, mark);
    }
    for (const Mark& mark : {Mark{{16000, 1}, 8, 14}, Mark{{48000, 1}, 6, 10}}) {
        row("webrtc-audio-processing", make_webrtc, mark);
    }
}

void first_build_row(Table& table, const Library& library, const std::optional<std::string>& path) {
    const char* const what = "our first scalar build at -O2, 16 kHz mono";
    if (!path) {
        return table.missing(what, "no build of it");
    }
    const Format format{16000, 1};
    const Stream stream(format);
    const Library first(*path);
    OwnDetector ours(library, format);
    OwnDetector other(first, format);
    require_same_output(stream, format, ours, other);
    table.ratio(what, compare(stream, ours, other), 4.5, 8);
}

void transform_rows(Table& table, const Library& library) {
    const TimedRun ours = own_transforms(library);
    const char* const kissfft = "kissfft, int32, real transform of 288 points";
#ifdef KORVANE_BENCH_KISSFFT
    table.ratio(kissfft, per_transform(alternate(ours, kissfft_transforms())), 5, 7);
#else
    table.missing(kissfft, "no source of it");
#endif
    table.ratio("FFTW3, float, real transform of 288 points",
                per_transform(alternate(ours, fftw_transforms())), 0.5, 1);
}

void arm_row(Table& table, const Arguments& arguments, const char* name, const char* what,
             double unit_size, const char* unit, double must, double aim) {
    const auto counted = argument(arguments, name);
    if (!counted) {
        return table.missing(what, "no cross-build");
    }
    const double value = std::atof(counted->c_str()) / unit_size;
    table.figure(what, {value, value, value}, must, aim, unit);
}

void worst_cases(const Library& library) {
    std::puts("");
    std::puts("Single calls with 10 ms of sound:");
    std::puts("");
    std::puts("| | mean | 99.9 % | longest | longest, undisturbed or not |");
    std::puts("|---|---|---|---|---|");
    for (const Format format :
         {Format{16000, 1}, Format{16000, 2}, Format{48000, 1}, Format{48000, 2}}) {
        const Stream stream(format);
        worst_case_row("this library, " + in_words(format), stream,
                       [&] { return std::make_unique<OwnDetector>(library, format); });
        worst_case_row("SpeexDSP, " + in_words(format), stream,
                       [&] { return make_speexdsp(format); });
        if (format.channels == 1) {
            worst_case_row("webrtc-audio-processing, " + in_words(format), stream,
                           [&] { return make_webrtc(format); });
        }
    }
}

void run(const Arguments& arguments) {
    const auto path = argument(arguments, "library");
    if (!path) {
        throw std::runtime_error("library=FILE is missing");
    }
    const int processor = pin_to_one_processor();
    const Summary first_init = first_init_us(*path);
    const Library library(*path);

    print_circumstances(processor);
    std::puts("");
    Table table;
    detector_rows(table, library);
    first_build_row(table, library, argument(arguments, "first"));
    transform_rows(table, library);
    arm_row(table, arguments, "arm_instructions",
            "64-bit Arm, instructions for 576 samples, 16 kHz mono", 1, "", 100000, 58000);

    const char* const hour = "`korvane-vad` on an hour of 16 kHz mono against reading it";
    const auto tool = argument(arguments, "tool");
    const auto reader = argument(arguments, "reader");
    const auto recording = argument(arguments, "hour");
    if (tool && reader && recording) {
        table.inverse_ratio(
            hour, alternate(as_process({*tool, *recording}), as_process({*reader, *recording})), 40,
            25);
    } else {
        table.missing(hour, "no tool or no recording");
    }
    table.figure("start-up", init_us(library), 50, 10, " µs");
    arm_row(table, arguments, "arm_memory", "static memory, 64-bit Arm", 1000, " kB", 80, 48);
    arm_row(table, arguments, "arm_library", "stripped library, 64-bit Arm", 1000, " kB", 100, 64);

    std::puts("");
    std::printf("The first start-up of a process takes %s µs (%s to %s).\n",
                number(first_init.median).c_str(), number(first_init.min).c_str(),
                number(first_init.max).c_str());
    if (const auto core = argument(arguments, "arm_core_instructions")) {
        std::printf("Of the Arm instructions, %s are the block core's.\n", core->c_str());
    }
    worst_cases(library);
}

}  // namespace
}  // namespace korvane::bench

int main(int argc, char** argv) {
    korvane::bench::Arguments arguments;
    for (int i = 1; i < argc; ++i) {
        const std::string word = argv[i];
        const size_t equals = word.find('=');
        if (equals == std::string::npos) {
            std::fprintf(stderr, "peers: %s is not NAME=VALUE\n", argv[i]);
            return 2;
        }
        arguments[word.substr(0, equals)] = word.substr(equals + 1);
    }
    try {
        korvane::bench::run(arguments);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "peers: %s\n", e.what());
        return 1;
    }
}
