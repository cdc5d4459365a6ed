// Prints when somebody speaks on standard input, the loudest level and the highest score meanwhile.
//
//     arecord -q -t raw -f S16_LE -r 16000 -c 1 | speech_times

#include <korvane_stream.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <memory>

namespace {

constexpr int kRate = 16000;

struct Utterance {
    float loudest = -140;
    float highest = 0;
};

void on_result(void* user, const KorvaneStreamResult* result) {
    auto& utterance = *static_cast<Utterance*>(user);
    if (result->speech != 0) {
        utterance.loudest = std::max(utterance.loudest, result->level_db);
        utterance.highest = std::max(utterance.highest, result->score);
    }
}

void on_event(void* user, const KorvaneStreamEvent* event) {
    auto& utterance = *static_cast<Utterance*>(user);
    if (event->kind == KORVANE_SPEECH_END) {
        std::printf("%.2f..%.2f s, %.1f dB, score %.2f\n", double(event->start) / kRate,
                    double(event->position) / kRate, utterance.loudest, utterance.highest);
        std::fflush(stdout);
        utterance = {};
    }
}

}  // namespace

int main() {
    Utterance utterance;
    KorvaneStreamConfig config;
    int32_t error = korvane_stream_defaults(&config, kRate, 1);
    config.user = &utterance;
    config.on_result = on_result;
    config.on_event = on_event;
    config.min_gap_ms = 300;  // shorter pauses are within an utterance
    const std::unique_ptr<KorvaneStream, decltype(&korvane_stream_destroy)> stream(
        error == KORVANE_OK ? korvane_stream_create(&config, &error) : nullptr,
        korvane_stream_destroy);
    if (stream == nullptr) {
        std::fprintf(stderr, "speech_times: %s\n", korvane_stream_error_text(error));
        return 1;
    }
    std::array<int16_t, 512> samples;
    for (size_t n = 0; (n = std::fread(samples.data(), 2, samples.size(), stdin)) > 0;) {
        korvane_stream_process(stream.get(), samples.data(), nullptr, static_cast<int32_t>(n));
    }
    korvane_stream_end(stream.get(), nullptr);
}
