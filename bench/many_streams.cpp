// What streams cost: to begin one, its memory, the decision `adaptive` against `detector`, and how many of
// 16 kHz mono one processor runs in real time when their records do not fit its cache.
//
//     many_streams [STREAMS]    5000 unless given

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "korvane_stream.h"
#include "paired_timing.h"

namespace {

constexpr int kRate = 16000;
constexpr int kFrame = kRate / 100;

/** Ten seconds: noise, and louder noise that comes and goes. */
std::vector<int16_t> sound() {
    std::vector<int16_t> x(10 * kRate);
    uint32_t seed = 1;
    for (std::size_t i = 0; i < x.size(); ++i) {
        seed = seed * 1664525U + 1013904223U;
        x[i] =
            static_cast<int16_t>(static_cast<int16_t>(seed >> 16) >> (i / kRate % 2 == 0 ? 8 : 2));
    }
    return x;
}

KorvaneStreamConfig config_of(int32_t decision) {
    KorvaneStreamConfig config;
    korvane_stream_defaults(&config, kRate, 1);
    config.decision = decision;
    return config;
}

KorvaneStream* begin(const KorvaneStreamConfig& config) {
    int32_t error = 0;
    KorvaneStream* const stream = korvane_stream_create(&config, &error);
    if (stream == nullptr) {
        std::fprintf(stderr, "many_streams: %s\n", korvane_stream_error_text(error));
        std::exit(1);
    }
    return stream;
}

/** Seconds of this processor for a second of sound in each of many streams, 10 ms of one after the other. */
double second_of_each(std::vector<KorvaneStream*>& streams, const std::vector<int16_t>& x) {
    const double before = korvane::bench::thread_seconds();
    for (int frame = 0; frame < 100; ++frame) {
        std::size_t at = 0;
        for (KorvaneStream* const stream : streams) {
            at = (at + 7919 * kFrame) % (x.size() - kFrame);
            korvane_stream_process(stream, x.data() + at, nullptr, kFrame);
        }
    }
    return korvane::bench::thread_seconds() - before;
}

}  // namespace

int main(int argc, char** argv) {
    const int processor = korvane::bench::pin_to_one_processor();
    const std::size_t count = argc > 1 ? std::stoul(argv[1]) : 5000;
    const std::vector<int16_t> x = sound();
    std::printf("processor %d; a stream takes %zu bytes\n", processor, korvane_stream_size());

    const KorvaneStreamConfig adaptive = config_of(KORVANE_DECISION_ADAPTIVE);
    const KorvaneStreamConfig detector = config_of(KORVANE_DECISION_DETECTOR);
    const double before = korvane::bench::thread_seconds();
    std::vector<KorvaneStream*> streams(count);
    std::ranges::generate(streams, [&] { return begin(adaptive); });
    std::printf("to begin one, allocated: %.2f us\n",
                (korvane::bench::thread_seconds() - before) / static_cast<double>(count) * 1e6);

    KorvaneStream* const one[] = {begin(detector), begin(adaptive)};
    const auto run = [&](KorvaneStream* stream) {
        return korvane::bench::in_this_thread([stream, &x] {
            for (std::size_t at = 0; at + kFrame <= x.size(); at += kFrame) {
                korvane_stream_process(stream, x.data() + at, nullptr, kFrame);
            }
        });
    };
    const auto times = korvane::bench::alternate(run(one[0]), run(one[1]));
    std::printf("10 ms: detector %.3f us, adaptive %.3f us; ratio %.3f (%.3f to %.3f)\n",
                times.first.median * 1e3, times.second.median * 1e3, times.ratio.median,
                times.ratio.min, times.ratio.max);

    second_of_each(streams, x);
    std::vector<double> seconds(5);
    std::ranges::generate(seconds, [&] { return second_of_each(streams, x); });
    const auto summary = korvane::bench::summarise(seconds);
    std::printf("%zu streams, %.0f MB: a second of each takes %.3f s (%.3f to %.3f)\n", count,
                static_cast<double>(count * korvane_stream_size()) / 1e6, summary.median,
                summary.min, summary.max);
    for (KorvaneStream* const stream : streams) {
        korvane_stream_destroy(stream);
    }
    std::ranges::for_each(one, korvane_stream_destroy);
}
