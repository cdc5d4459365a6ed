// Streams of any configuration under any calls. Wrong ones say so and touch nothing; the others give what one call
// with all the samples gives.

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "korvane_stream.h"

namespace {

void require(bool kept, const char* promise) {
    if (!kept) {
        std::fprintf(stderr, "broken: %s\n", promise);
        std::abort();
    }
}

/** Numbers from the input; zeros once it has ended. */
class Numbers {
  public:
    Numbers(const uint8_t* input, size_t size) : next_(input), end_(input + size) {}
    bool ended() const { return next_ == end_; }
    uint32_t bits() {
        uint32_t x = 0;
        for (int i = 0; i < 4; ++i) {
            x = x << 8 | (ended() ? 0U : *next_++);
        }
        return x;
    }
    int32_t below(uint32_t n) { return ended() ? 0 : static_cast<int32_t>(*next_++ * n / 256); }

  private:
    const uint8_t* next_;
    const uint8_t* end_;
};

struct Told {
    std::vector<int64_t> numbers;
    std::vector<int16_t> cleaned;
    bool operator==(const Told&) const = default;
};

void tell_result(void* user, const KorvaneStreamResult* r) {
    require(r->score >= 0 && r->score <= 1 && r->level_db >= -140 && r->noise_db >= -140,
            "scores and levels have their ranges");
    static_cast<Told*>(user)->numbers.insert(
        static_cast<Told*>(user)->numbers.end(),
        {r->position, r->length, r->speech, static_cast<int64_t>(r->score * 32768),
         static_cast<int64_t>(r->level_db * 256), static_cast<int64_t>(r->noise_db * 256)});
}

void tell_event(void* user, const KorvaneStreamEvent* e) {
    static_cast<Told*>(user)->numbers.insert(static_cast<Told*>(user)->numbers.end(),
                                             {e->kind, e->open, e->position, e->start});
}

/** Mostly one that makes sense. */
KorvaneStreamConfig any_config(Numbers& numbers) {
    static constexpr int32_t kRates[] = {8000, 16000, 24999, 25000, 48000, 1, 49999, 100};
    KorvaneStreamConfig c;
    const int32_t rate = kRates[numbers.below(8)];
    require(korvane_stream_defaults(&c, rate, 1 + numbers.below(2)) == KORVANE_OK,
            "defaults are right");
    c.decision = numbers.below(3);
    c.frame_length = 1 + numbers.below(256) * numbers.below(17);
    c.restore_level = numbers.below(2);
    int32_t* const times[] = {&c.onset_ms,      &c.hangover_ms,  &c.min_gap_ms, &c.min_speech_ms,
                              &c.max_speech_ms, &c.pad_start_ms, &c.pad_end_ms};
    for (int32_t* const time : times) {
        *time = numbers.below(2) * numbers.below(100);
    }
    if (numbers.below(8) == 7) {  // any bits in any place
        auto* const bytes = reinterpret_cast<unsigned char*>(&c);
        const uint32_t bits = numbers.bits();
        std::memcpy(bytes + 4 * (numbers.bits() % (offsetof(KorvaneStreamConfig, user) / 4)), &bits,
                    sizeof bits);
    }
    return c;
}

struct Host {
    KorvaneStreamConfig config;
    KorvaneStream* stream;
    Told told;
    std::vector<int16_t> heard;

    /** n samples per channel in one of three forms, or the end where `ending`. */
    void call(Numbers& numbers, std::vector<int16_t> x, int32_t n, bool ending) {
        const auto count = static_cast<size_t>(n);
        const auto channels = static_cast<size_t>(config.channels);
        const int form = numbers.below(3);
        std::vector<int16_t> apart(x.size());
        std::vector<float> floats(x.size());
        for (size_t i = 0; i < x.size(); ++i) {
            apart[i % channels * count + i / channels] = x[i];
            floats[i] = static_cast<float>(x[i]) / 32768;
        }
        int16_t* const planes[] = {apart.data(), apart.data() + (channels - 1) * count};
        int32_t answer = 0;
        if (form == 1) {
            answer = ending ? korvane_stream_end_planar(stream, planes)
                            : korvane_stream_process_planar(stream, planes, planes, n);
        } else if (form == 2) {
            answer = ending ? korvane_stream_end_float(stream, floats.data())
                            : korvane_stream_process_float(stream, floats.data(), floats.data(), n);
        } else {
            answer = ending ? korvane_stream_end(stream, x.data())
                            : korvane_stream_process(stream, x.data(), x.data(), n);
        }
        require(answer == 0 || answer == 1, "a call that is right is answered");
        for (size_t i = 0; i < x.size(); ++i) {
            const size_t place = i % channels * count + i / channels;
            const auto from_float = static_cast<int16_t>(floats[i] * 32768);
            told.cleaned.push_back(form == 1 ? apart[place] : form == 2 ? from_float : x[i]);
        }
    }

    void end(Numbers& numbers) {
        const int32_t delay = korvane_stream_delay(stream);
        call(numbers, std::vector<int16_t>(static_cast<size_t>(delay * config.channels)), delay,
             true);
        require(korvane_stream_process(stream, nullptr, nullptr, 0) == KORVANE_ERROR_ENDED &&
                    korvane_stream_end(stream, nullptr) == KORVANE_ERROR_ENDED,
                "an end is the end");
    }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* input, size_t size) {
    Numbers numbers(input, size);
    Host host;
    host.config = any_config(numbers);
    host.config.user = &host.told;
    host.config.on_result = tell_result;
    host.config.on_event = tell_event;
    int32_t error = 0;
    host.stream = korvane_stream_create(&host.config, &error);
    require((host.stream == nullptr) == (error < 0) && error >= KORVANE_ERROR_SCORE,
            "no stream without an error");
    if (host.stream == nullptr) {
        return 0;
    }
    uint32_t seed = numbers.bits();
    while (!numbers.ended() && host.heard.size() < 2000) {
        const int32_t n = numbers.below(2) == 0 ? numbers.below(16) : numbers.below(1200);
        const int shift = numbers.below(17);
        std::vector<int16_t> x(static_cast<size_t>(n * host.config.channels));
        for (int16_t& sample : x) {
            seed = seed * 1664525U + 1013904223U;
            sample = static_cast<int16_t>(static_cast<int32_t>(seed) >> (16 + shift % 16));
        }
        host.heard.insert(host.heard.end(), x.begin(), x.end());
        host.call(numbers, x, n, false);
        require(korvane_stream_process(host.stream, nullptr, nullptr, 1) == KORVANE_ERROR_NULL &&
                    korvane_stream_process(host.stream, x.data(), nullptr, -1 - n) ==
                        KORVANE_ERROR_COUNT,
                "a wrong call says so");
    }
    host.end(numbers);
    const Told in_pieces = host.told;
    host.told = {};
    require(korvane_stream_reset(host.stream) == KORVANE_OK, "a stream can begin anew");
    Numbers none(input, 0);
    host.call(none, host.heard, static_cast<int32_t>(host.heard.size()) / host.config.channels,
              false);
    host.end(none);
    require(host.told == in_pieces, "any pieces and forms give the same");
    korvane_stream_destroy(host.stream);
    return 0;
}
