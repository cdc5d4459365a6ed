#include "program.h"

#include <fuzzer/FuzzedDataProvider.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <utility>

#include "dsp/instruction_set.h"
#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "library_state.h"

namespace korvane {

namespace {

using test::LibraryState;

// A program ends with its input, or when its calls have had this many samples.
constexpr int kMostSamples = 700;
constexpr int kCallCost = 40;  // in samples, of a call by itself

constexpr int kLevels = 17;
constexpr size_t kMostPerCall = 2 * KORVANE_VAD_MAX_FRAME;

/** Noise at level 0, full scale, and half of it from level to level, down to silence. */
struct Noise {
    std::vector<int16_t> at[kLevels];

    Noise() {
        uint32_t state = 1;
        for (int level = 0; level < kLevels; ++level) {
            for (size_t i = 0; i < 2 * kMostPerCall; ++i) {
                state = state * 1664525U + 1013904223U;
                at[level].push_back(
                    static_cast<int16_t>(static_cast<int16_t>(state >> 16) >> level));
            }
        }
    }
};

/** Samples for one call, in memory of their own up to their last byte, so that a step beyond is
 * seen. They begin at any even address: a few guard values lie in front. */
class Samples {
  public:
    Samples(FuzzedDataProvider& input, int count)
        : front_(input.ConsumeIntegralInRange<size_t>(0, 7)),
          memory_(front_ + static_cast<size_t>(std::max(count, 0))) {
        static const Noise noise;
        std::fill_n(memory_.begin(), front_, kGuard);
        const int level = input.ConsumeIntegralInRange(0, kLevels - 1);
        const size_t period = std::min(size(), input.ConsumeIntegralInRange<size_t>(0, 6));
        if (period == 0) {
            const size_t start = input.ConsumeIntegralInRange<size_t>(0, kMostPerCall);
            std::copy_n(noise.at[level].begin() + static_cast<ptrdiff_t>(start), size(), data());
            return;
        }
        for (size_t i = 0; i < period; ++i) {
            data()[i] = static_cast<int16_t>(input.ConsumeIntegral<int16_t>() >> level);
        }
        for (size_t filled = period; filled < size();) {  // the pattern over and over
            const size_t n = std::min(filled, size() - filled);
            std::copy_n(data(), n, data() + filled);
            filled += n;
        }
    }
    int16_t* data() { return memory_.data() + front_; }
    const int16_t* data() const { return memory_.data() + front_; }
    size_t size() const { return memory_.size() - front_; }
    bool operator==(const Samples& other) const { return memory_ == other.memory_; }
    bool guards_intact() const {
        return std::all_of(memory_.begin(), memory_.begin() + static_cast<ptrdiff_t>(front_),
                           [](int16_t x) { return x == kGuard; });
    }

  private:
    static constexpr int16_t kGuard = 0x5AA5;
    size_t front_;
    std::vector<int16_t> memory_;
};

/** A host that makes its calls as the input says and writes down what they give back. */
struct Host {
    FuzzedDataProvider input;
    std::vector<uint8_t>& record;
    std::unique_ptr<VadHandle> handle = std::make_unique<VadHandle>();
    std::vector<int32_t> words = std::vector<int32_t>(kFrameSize);  // of the transforms
    int samples_left = kMostSamples;

    template <class T>
    void note(const T* values, size_t count) {
        const auto* const bytes = reinterpret_cast<const uint8_t*>(values);
        record.insert(record.end(), bytes, bytes + count * sizeof(T));
    }
    void note(int value) { note(&value, 1); }
    void note(const Samples& samples) {
        note(samples.data(), samples.size());
        require(samples.guards_intact(), "nothing is written in front of the samples");
    }

    /** Any rate, more often one at which something changes. */
    uint32_t rate() {
        if (input.ConsumeBool()) {
            return input.ConsumeIntegral<uint32_t>();
        }
        return input.PickValueInArray<uint32_t>({0, 1, 8000, 9999, 10000, 16000, 19999, 20000,
                                                 22050, 24999, 25000, 44100, 48000, 49999, 50000,
                                                 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF});
    }
    /** A channel mode or layout, also one that there is not. */
    int mode() {
        const int choice = input.ConsumeIntegralInRange(0, 7);
        return choice < 7 ? choice % 3 + 1 : input.ConsumeIntegral<int>();
    }
    /** The number of samples of a call: usual ones, and none, and fewer than none. */
    int count(int most) {
        const int choice = input.ConsumeIntegralInRange(0, 15);
        const int n = choice == 0   ? input.ConsumeIntegralInRange(INT32_MIN, 0)
                      : choice == 1 ? input.ConsumeIntegralInRange(0, most)
                      : choice < 6  ? 96 * choice
                                    : input.ConsumeIntegralInRange(1, 300);
        samples_left -= std::max(n, 0);
        return n;
    }
};

void process_frame(Host& host) {
    VadHandle& vad = *host.handle;
    const int mode = vad.channel_mode;
    const int n = vad.frame_length;
    const bool processed = n >= 1 && n <= KORVANE_VAD_MAX_FRAME && mode >= 1 && mode <= 3;
    const int total = !processed ? 0 : mode == 1 ? n : 2 * n;
    host.samples_left -= total;

    Samples frame(host.input, total);
    const Samples given = frame;
    host.note(VoiceActivityDetectionInOutConfig(&vad, frame.data()));
    const auto before = std::make_unique<VadHandle>(vad);
    const int speech = VoiceActivityDetectionExe(&vad);
    host.note(speech);
    host.note(frame);
    host.note(vad.ch0_work, processed ? static_cast<size_t>(n) : 0);
    host.note(vad.ch1_work, processed && mode != 1 ? static_cast<size_t>(n) : 0);

    require(speech == 0 || speech == 1, "the decision is 0 or 1");
    require(mode == 2 || frame == given, "only mode 2 writes to the host's buffer");
    require(vad.samples == before->samples && vad.frame_length == n && vad.channel_mode == mode &&
                vad.sampling_rate == before->sampling_rate,
            "a frame leaves the configuration as it is");
    const int written0 = processed ? n : 0;
    const int written1 = processed && mode != 1 ? n : 0;
    require(
        std::equal(vad.ch0_work + written0, std::end(vad.ch0_work), before->ch0_work + written0) &&
            std::equal(vad.ch1_work + written1, std::end(vad.ch1_work),
                       before->ch1_work + written1),
        "a work buffer keeps what lies beyond the frame");
}

void detector_call(Host& host) {
    VadHandle* const vad = host.handle.get();
    switch (host.input.ConsumeIntegralInRange(0, 15)) {
        case 0:
            host.note(VoiceActivityDetectionInit());
            break;
        case 1:
            host.note(VoiceActivityDetectionSamplingRateConfig(vad, host.rate()));
            break;
        case 2:
            host.note(VoiceActivityDetectionFrameLengthConfig(
                vad, host.input.ConsumeIntegral<uint32_t>()));
            break;
        case 3:
            host.note(VoiceActivityDetectionChannelModeConfig(vad, host.mode()));
            break;
        case 4: {
            const uint32_t rate = host.rate();
            const uint32_t length = host.input.ConsumeIntegral<uint16_t>();
            const int mode = host.mode();
            host.note(VoiceActivityDetectionConfigAll(vad, rate, length, vad->samples, mode));
            break;
        }
        case 5:
            host.note(VoiceActivityDetectionParamConfig(host.input.ConsumeBool() ? vad : nullptr));
            break;
        case 6: {
            const std::string_view version = VoiceActivityDetectionVersion();
            host.note(version.data(), version.size());
            break;
        }
        case 7:
        case 8: {  // a usual length
            const int length = host.count(KORVANE_VAD_MAX_FRAME);
            host.note(VoiceActivityDetectionFrameLengthConfig(vad, static_cast<uint32_t>(length)));
            break;
        }
        default:
            process_frame(host);
    }
}

void suppressor_call(Host& host) {
    FuzzedDataProvider& input = host.input;
    switch (input.ConsumeIntegralInRange(0, 7)) {
        case 0: {
            const int level = input.ConsumeBool() ? input.ConsumeIntegralInRange(0, 9)
                                                  : input.ConsumeIntegral<int>();
            Tolu_NRSS_Init(level, static_cast<int32_t>(host.rate()));
            host.note(osf, osf == nullptr ? 0 : kBins);
            break;
        }
        case 1:
            Tolu_NRSS_BufInit();
            break;
        case 2: {
            const int n = host.count(2000);
            Samples x(input, n);
            Tolu_NRSS_Buffered(x.data(), x.data(), n);
            host.note(x);
            break;
        }
        case 3: {
            const int n = host.count(1500);
            Samples x(input, n);
            Samples y(input, n);
            Tolu_NRSS_Buffered(x.data(), y.data(), n);
            host.note(x);
            host.note(y);
            break;
        }
        case 4: {
            const int n = host.count(1500);
            const int mode = host.mode();
            Samples x(input, mode == 2 ? 2 * std::max(n, 0) : n);
            Tolu_NRSS_EXE(x.data(), n, mode);
            host.note(x);
            break;
        }
        case 5: {
            const int n = host.count(1500);
            Samples x(input, 2 * std::max(n, 0));
            Tolu_NRSS(x.data(), n);
            host.note(x);
            break;
        }
        case 6: {
            const int n = host.count(500);
            Samples x(input, n);
            Samples y(input, n);
            const size_t length = 2 * x.size();
            const auto pairs = std::make_unique_for_overwrite<int16_t[]>(length);
            Tolu_NRSS_Interleave(pairs.get(), x.data(), input.ConsumeBool() ? x.data() : y.data(),
                                 n);
            host.note(pairs.get(), length);
            break;
        }
        default: {
            const int n = host.count(2000);
            Samples x(input, n);
            Samples y(input, n);
            Tolu_NRSS_Nonintlvd(x.data(), input.ConsumeBool() ? x.data() : y.data(), n);
            host.note(x);
            host.note(y);
        }
    }
}

void decision_call(Host& host) {
    FuzzedDataProvider& input = host.input;
    const int choice = input.ConsumeIntegralInRange(0, 15);
    if (choice == 0) {
        OLM_VOR_Init();
    } else if (choice == 1) {
        OLM_VOR_SetFs(input.ConsumeIntegral<int>());
    } else {
        const int n = host.count(KORVANE_VAD_MAX_FRAME);
        Samples x(input, n);
        Samples y(input, n);
        const Samples given[] = {x, y};
        const int channels = input.ConsumeIntegralInRange(0, 2);
        const int speech = OLM_VOR(x.data(),
                                   channels == 0   ? nullptr
                                   : channels == 1 ? x.data()
                                                   : y.data(),
                                   n);
        host.note(speech);
        require(speech == 0 || speech == 1, "the decision is 0 or 1");
        require(x == given[0] && y == given[1], "the decision only reads");
    }
}

void transform_call(Host& host) {
    FuzzedDataProvider& input = host.input;
    const auto transform = input.ConsumeBool() ? real_fft288 : real_ifft288;
    host.samples_left -= kFrameSize;
    if (input.ConsumeBool()) {  // new values; else what the transform before left
        const auto pattern =
            input.ConsumeBytes<uint8_t>(input.ConsumeIntegralInRange<size_t>(0, 12));
        const int level = input.ConsumeIntegralInRange(0, 31);
        uint32_t noise = input.ConsumeIntegral<uint32_t>();
        for (size_t i = 0; i < host.words.size(); ++i) {
            noise = noise * 1664525U + 1013904223U;
            const uint32_t drawn =
                pattern.empty() ? noise ^ noise << 16 : uint32_t{pattern[i % pattern.size()]} << 24;
            host.words[i] = static_cast<int32_t>(drawn) >> level;
        }
    }
    if (input.ConsumeBool()) {
        transform(host.words.data(), host.words.data());
    } else {
        const std::vector<int32_t> given = host.words;
        const auto out = std::make_unique_for_overwrite<int32_t[]>(kFrameSize);
        transform(out.get(), host.words.data());
        require(host.words == given, "a transform only reads its input");
        std::copy_n(out.get(), kFrameSize, host.words.begin());
    }
    host.note(host.words.data(), kFrameSize);
}

void make_call(Host& host, Calls calls) {
    static constexpr Calls kGroups[] = {Calls::kDetector, Calls::kSuppressor, Calls::kDecision,
                                        Calls::kTransforms};
    switch (calls) {
        case Calls::kDetector:
            return detector_call(host);
        case Calls::kSuppressor:
            return suppressor_call(host);
        case Calls::kDecision:
            return decision_call(host);
        case Calls::kTransforms:
            if (host.input.ConsumeIntegralInRange(0, 15) == 0) {
                fft288_init();
            }
            return transform_call(host);
        case Calls::kUnpreparedTransforms:
            return transform_call(host);
        case Calls::kAll:
            return make_call(host, host.input.PickValueInArray(kGroups));
    }
}

/** Streams that have run for a while, their noise estimates formed and their gains at work: one of
 * each rate class in silence, one amid speech. */
std::vector<LibraryState> make_streams() {
    std::vector<LibraryState> streams;
    VadHandle vad{};
    std::array<int16_t, 960> frame;
    vad.channel_mode = 3;
    vad.frame_length = 475;  // none ends where a block does, so a short program completes one
    vad.samples = frame.data();
    uint32_t noise = 1;
    const auto hear = [&](int frames, int level) {
        for (int i = 0; i < frames; ++i) {
            for (int16_t& x : frame) {
                noise = noise * 1664525U + 1013904223U;
                x = static_cast<int16_t>(static_cast<int16_t>(noise >> 16) >> level);
            }
            VoiceActivityDetectionExe(&vad);
        }
        streams.push_back(LibraryState::take());
    };
    for (const uint32_t rate : {8000U, 16000U, 22050U, 48000U}) {
        test::forget_everything();
        VoiceActivityDetectionInit();
        VoiceActivityDetectionSamplingRateConfig(&vad, rate);
        hear(90, 7);
        hear(6, 1);
    }
    return streams;
}

/** Puts the library into the state in which the program finds it. */
void begin(FuzzedDataProvider& input) {
    static const std::vector<LibraryState> streams = make_streams();
    const auto sets = instruction_sets();
    const InstructionSet& last = sets.back();
    // A byte in every build, however many sets it has, so that all builds run the same program.
    const InstructionSet& set = sets[input.ConsumeIntegral<uint8_t>() % sets.size()];
    use_instruction_set(set.runs_here() ? &set : &last);
    fft288_init();
    const size_t which = input.ConsumeIntegralInRange<size_t>(0, streams.size());
    if (which == 0) {
        test::forget_everything();
        return;
    }
    streams[which - 1].restore();
    if (input.ConsumeIntegralInRange(0, 15) == 0) {
        nrss_state.frame_count = INT32_MAX - 5;  // as after months
    }
}

/** Notes the state that the next call would find. */
void note_state(Host& host) {
    test::add_pipeline_state(nrss_state, [&](const auto* values, int count) {
        host.note(values, static_cast<size_t>(count));
    });
    const NrssStreamState& stream = nrss_stream_state;
    for (const int32_t position : {stream.read_pos, stream.write_pos, stream.fill}) {
        host.note(position);
    }
    host.note(stream.ring_ch0, kRingSize);
    host.note(stream.ring_ch1, kRingSize);
    for (const int value : {static_cast<int>(vor_state.speech), vor_state.countdown,
                            vor_state.onset_samples, vor_state.hangover_samples}) {
        host.note(value);
    }
}

}  // namespace

const std::vector<uint8_t>& run_program(Calls calls, const uint8_t* input, size_t size) {
    static std::vector<uint8_t> record;  // kept for its memory
    record.clear();
    Host host{FuzzedDataProvider(input, size), record};
    if (calls != Calls::kUnpreparedTransforms) {
        begin(host.input);
    }
    messages.clear();
    while (host.input.remaining_bytes() > 0 && host.samples_left > 0) {
        make_call(host, calls);
        host.samples_left -= kCallCost;
    }
    host.note(messages.data(), messages.size());
    host.note(&twd576[0][0], 2 * 144);
    note_state(host);
    return record;
}

}  // namespace korvane
