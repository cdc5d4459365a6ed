// Each stage on its own and the whole, for every instruction set of this machine and for one lane: Google
// Benchmark.
//
// Names are STAGE/INSTRUCTION SET/...; "frame" is the time of one frame of 288 values, "block"
// that of 576 samples a channel.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "bench/noisy_speech.h"
#include "bench/stage_forms.h"
#include "dsp/fft288.h"
#include "dsp/instruction_set.h"
#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "nrss/pipeline/block_pipeline.h"

// Where the library's log goes meanwhile: nowhere.
extern "C" int __android_log_print(int /*priority*/, const char* /*tag*/, const char* /*format*/,
                                   ...) {
    return 0;
}

namespace korvane {

std::vector<StageForms>& stage_forms() {
    static std::vector<StageForms> forms;
    return forms;
}

namespace {

using benchmark::Counter;
using benchmark::State;

constexpr int kLevel = 9;
constexpr int kStartUpSeconds = 3;
constexpr int kSignalSeconds = 10;
constexpr int kBlock = kStageBlock;

/** The set of this name in the library, if it runs there; else null. */
const InstructionSet* set_in_library(const std::string& name) {
    for (const InstructionSet& set : instruction_sets()) {
        if (name == set.name && set.runs_here()) {
            return &set;
        }
    }
    return nullptr;
}

/** Time of one of the `count` units that an iteration does. */
void report(State& state, const char* unit, int count = 1) {
    state.counters[unit] = Counter(count, Counter::kIsIterationInvariantRate | Counter::kInvert);
}

/** Speech in noise, channel by channel: whole blocks, enough for start-up and measurement. */
class Blocks {
  public:
    Blocks(int rate, int channels) : channels_(channels) {
        blocks_ = kSignalSeconds * rate / kBlock;
        start_up_blocks_ = kStartUpSeconds * rate / kBlock + 1;
        const auto samples = static_cast<size_t>(blocks_) * kBlock;
        const auto interleaved = bench::noisy_speech(rate, channels, samples);
        for (size_t i = 0; i < interleaved.size(); ++i) {
            planar_[i % static_cast<size_t>(channels)].push_back(interleaved[i]);
        }
    }

    int start_up_blocks() const { return start_up_blocks_; }

    /** The next block in x[channel]; for one channel x[1] is x[0]. */
    std::array<int16_t*, 2> next() {
        for (int c = 0; c < channels_; ++c) {
            const auto& from = planar_[static_cast<size_t>(c)];
            std::copy_n(from.begin() + position_ * kBlock, kBlock, block_[c]);
        }
        position_ = position_ + 1 == blocks_ ? 0 : position_ + 1;
        return {block_[0], block_[channels_ - 1]};
    }

  private:
    int channels_;
    int blocks_;
    int start_up_blocks_;
    int position_ = 0;
    std::array<std::vector<int16_t>, 2> planar_;
    int16_t block_[2][kBlock] = {};
};

/** A suppressor as it is after the start-up of a stream. */
NrssState started_up(int rate, Blocks& blocks) {
    NrssState s{};
    NRSS_Init(s, kLevel, rate);
    for (int i = 0; i < blocks.start_up_blocks(); ++i) {
        const auto x = blocks.next();
        NRSS_Nonintlvd(s, x[0], x[1], kBlock);
    }
    return s;
}

// ---- Transforms ---------------------------------------------------------------------------------

void transform(State& state, void (*run)(int32_t*, const int32_t*)) {
    std::vector<int32_t> in(kFrameSize);
    std::vector<int32_t> out(kFrameSize);
    for (size_t i = 0; i < in.size(); ++i) {
        in[i] = static_cast<int32_t>(i * i * 977 % 65536) - 32768;
    }
    for (auto _ : state) {
        run(out.data(), in.data());
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    report(state, "frame");
}

void batch(State& state, void (*run)(), int frames) {
    for (auto _ : state) {
        run();
        benchmark::ClobberMemory();
    }
    report(state, "frame", frames);
}

// ---- Gain engine --------------------------------------------------------------------------------

void gain_engine(State& state, const StageForms& stages) {
    constexpr int kRate = 16000;
    Blocks blocks(kRate, 1);
    NrssState s = started_up(kRate, blocks);
    // Powers of that stream: about those of its noise.
    std::vector<std::array<int32_t, kRowSize>> powers(100);
    uint32_t seed = 1;
    for (auto& power : powers) {
        for (int k = 0; k < kBins; ++k) {
            seed = seed * 1664525 + 1013904223;
            power[static_cast<size_t>(k)] =
                s.noise[k] / 2 + static_cast<int32_t>(seed >> 12) % (s.noise[k] + 1);
        }
    }
    size_t i = 0;
    for (auto _ : state) {
        stages.gain_engine(s, powers[i].data());
        benchmark::ClobberMemory();
        i = i + 1 == powers.size() ? 0 : i + 1;
    }
    report(state, "frame");
}

// ---- Filter bank and framing --------------------------------------------------------------------

void filter_bank(State& state, const StageForms& stages, int channels) {
    constexpr int kRate = 48000;
    Blocks blocks(kRate, channels);
    NrssState s{};
    const auto x = blocks.next();
    for (auto _ : state) {
        stages.filter_bank(s, x.data(), channels);
        benchmark::ClobberMemory();
    }
    report(state, "block");
}

void framing(State& state, const StageForms& stages) {
    for (auto _ : state) {
        stages.framing();
        benchmark::ClobberMemory();
    }
    report(state, "frame");
}

// ---- The whole ----------------------------------------------------------------------------------

void block_core(State& state, const StageForms& stages, int rate, int channels) {
    Blocks blocks(rate, channels);
    NrssState s = started_up(rate, blocks);
    for (auto _ : state) {
        const auto x = blocks.next();
        stages.process_blocks(s, x[0], x[1], kBlock);
        benchmark::ClobberMemory();
    }
    report(state, "block");
}

void detector(State& state, const InstructionSet* set, int rate, int channels) {
    use_instruction_set(set);
    const int length = rate / 100;
    const auto samples = static_cast<size_t>(length) * static_cast<size_t>(channels);
    const auto signal =
        bench::noisy_speech(rate, channels, static_cast<size_t>(rate) * kSignalSeconds);
    const size_t frames = signal.size() / samples;
    static VadHandle vad;
    std::vector<int16_t> frame(samples);
    VoiceActivityDetectionInit();
    VoiceActivityDetectionChannelModeConfig(&vad, channels);
    VoiceActivityDetectionSamplingRateConfig(&vad, static_cast<uint32_t>(rate));
    VoiceActivityDetectionFrameLengthConfig(&vad, static_cast<uint32_t>(samples));
    VoiceActivityDetectionInOutConfig(&vad, frame.data());
    size_t position = 0;
    const auto process_next = [&] {
        std::copy_n(signal.data() + position * samples, samples, frame.data());
        position = position + 1 == frames ? 0 : position + 1;
        benchmark::DoNotOptimize(VoiceActivityDetectionExe(&vad));
    };
    for (int i = 0; i < 100 * kStartUpSeconds; ++i) {
        process_next();
    }
    for (auto _ : state) {
        process_next();
    }
    report(state, "block", length);
    state.counters["block"].value /= kBlock;
}

void initialisation(State& state, const InstructionSet* set) {
    use_instruction_set(set);
    for (auto _ : state) {
        VoiceActivityDetectionInit();
        benchmark::ClobberMemory();
    }
}

void register_all() {
    const auto add = [](const std::string& name, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), run);
    };
    for (const StageForms& stages : stage_forms()) {
        const std::string name = stages.set;
        const InstructionSet* const set = set_in_library(name);
        if (set == nullptr && name != "plain") {
            continue;  // not on this machine
        }
        const std::string slash_name = "/" + name;
        add("real_fft288" + slash_name, [=](State& s) { transform(s, stages.real_fft288); });
        add("real_ifft288" + slash_name, [=](State& s) { transform(s, stages.real_ifft288); });
        add("forward_batch" + slash_name,
            [=](State& s) { batch(s, stages.forward_batch, stages.batch_frames); });
        add("inverse_batch" + slash_name,
            [=](State& s) { batch(s, stages.inverse_batch, stages.batch_frames); });
        add("framing" + slash_name, [=](State& s) { framing(s, stages); });
        add("gain_engine" + slash_name, [=](State& s) { gain_engine(s, stages); });
        for (const int channels : {1, 2}) {
            const std::string slash_channels = "/channels:" + std::to_string(channels);
            add("filter_bank" + slash_name + slash_channels,
                [=](State& s) { filter_bank(s, stages, channels); });
            for (const int rate : {8000, 16000, 22050, 48000}) {
                add("block_core" + slash_name + "/" + std::to_string(rate) + slash_channels,
                    [=](State& s) { block_core(s, stages, rate, channels); });
            }
            for (const int rate : {16000, 48000}) {
                if (set != nullptr) {
                    add("detector" + slash_name + "/" + std::to_string(rate) + slash_channels,
                        [=](State& s) { detector(s, set, rate, channels); });
                }
            }
        }
        if (set != nullptr) {
            add("initialisation" + slash_name, [=](State& s) { initialisation(s, set); });
        }
    }
}

}  // namespace
}  // namespace korvane

int main(int argc, char** argv) {
    korvane::register_all();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 2;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
