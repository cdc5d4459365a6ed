// Each stage on its own and the whole, in every form that this machine runs: Google Benchmark.
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
#include "detector/detector.h"
#include "dsp/fft288.h"
#include "dsp/filter_bank.h"
#include "dsp/instruction_set.h"
#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "nrss/gain/spectral_gain.h"
#include "nrss/pipeline/block_pipeline.h"
#include "nrss/pipeline/framing.h"

// Where the library's log goes meanwhile: nowhere.
extern "C" int __android_log_print(int /*priority*/, const char* /*tag*/, const char* /*format*/,
                                   ...) {
    return 0;
}

namespace korvane {
namespace {

using benchmark::Counter;
using benchmark::State;

constexpr int kLevel = 9;
constexpr int kStartUpSeconds = 3;
constexpr int kSignalSeconds = 10;
constexpr int kBlock = kStageBlock;

struct Form {
    InstructionSet set;
    const char* name;
    const StageForms* vector_stages;  // null in plain code
    Transform forward;
    Transform inverse;
    ProcessBlocks process_blocks;
};

/** What this build contains and this machine has. */
std::vector<Form> available_forms() {
    std::vector<Form> forms = {{InstructionSet::kPlain, "plain", nullptr, real_fft288_plain,
                                real_ifft288_plain, process_blocks_plain}};
#if defined(KORVANE_SIMD) && defined(__x86_64__)
    forms.push_back({InstructionSet::kSse2, "sse2", &sse2::stage_forms, sse2::real_fft288,
                     sse2::real_ifft288, sse2::process_blocks});
    if (instruction_set() == InstructionSet::kAvx2) {
        forms.push_back({InstructionSet::kAvx2, "avx2", &avx2::stage_forms, avx2::real_fft288,
                         avx2::real_ifft288, avx2::process_blocks});
    }
#elif defined(KORVANE_SIMD) && defined(__aarch64__)
    forms.push_back({InstructionSet::kNeon, "neon", &neon::stage_forms, neon::real_fft288,
                     neon::real_ifft288, neon::process_blocks});
#endif
    return forms;
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

/** Leaves the suppressor as it is after the start-up of a stream. */
void start_up(InstructionSet set, int rate, Blocks& blocks) {
    force_instruction_set(set);
    Tolu_NRSS_Init(kLevel, rate);
    for (int i = 0; i < blocks.start_up_blocks(); ++i) {
        const auto x = blocks.next();
        Tolu_NRSS_Nonintlvd(x[0], x[1], kBlock);
    }
}

// ---- Transforms ---------------------------------------------------------------------------------

void transform(State& state, InstructionSet set, void (*run)(int32_t*, const int32_t*)) {
    force_instruction_set(set);
    fft288_init();
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

/** One frame as the gain engine takes it, in plain code and in vectors. */
struct SpectralFrame {
    int32_t spectrum[kFrameWords];
    int32_t power[kRowSize];
};

/** Frames of a stream at 16 kHz past its start-up, and the suppressor's state there. */
std::vector<SpectralFrame> start_up_frames() {
    constexpr int kRate = 16000;
    Blocks blocks(kRate, 1);
    start_up(InstructionSet::kPlain, kRate, blocks);
    std::vector<SpectralFrame> frames(100);
    int32_t windowed[2][kFrameWords] = {};
    for (SpectralFrame& frame : frames) {
        const auto x = blocks.next();
        NRSS_WindowFrame(x[0], windowed[0], windowed[1]);
        NRSS_WindowFrame(x[0] + kHopSize, windowed[1], windowed[0]);
        real_fft288(frame.spectrum, windowed[1]);
        for (int k = 0; k < kBins; ++k) {
            const int32_t re = frame.spectrum[2 * k] >>= 8;
            const int32_t im = frame.spectrum[2 * k + 1] >>= 8;
            const auto square = [](int32_t a) {
                return static_cast<uint32_t>(a) * static_cast<uint32_t>(a);
            };
            frame.power[k] = static_cast<int32_t>(square(re) + square(im) + 2);
        }
    }
    return frames;
}

void gain_engine(State& state, const StageForms* vector_stages) {
    const std::vector<SpectralFrame> frames = start_up_frames();
    size_t i = 0;
    for (auto _ : state) {
        if (vector_stages == nullptr) {
            NRSS_SpectralGain(exported_stream.suppressor, frames[i].spectrum, kBins, 0);
        } else {
            vector_stages->gain_engine(frames[i].power);
        }
        benchmark::ClobberMemory();
        i = i + 1 == frames.size() ? 0 : i + 1;
    }
    report(state, "frame");
}

// ---- Filter bank and framing --------------------------------------------------------------------

void filter_bank_plain(int16_t* const* x, int channels) {
    NrssState& s = exported_stream.suppressor;
    int32_t* const split_state[2] = {s.split_state_ch0, s.split_state_ch1};
    int32_t* const merge_state[2] = {s.merge_state_ch0, s.merge_state_ch1};
    BandPair bands;
    for (int c = 0; c < channels; ++c) {
        for (int start = 0; start < kBlock; start += 2 * kBandSize) {
            NRSS_SplitBands(x[c] + start, split_state[c], bands, 2 * kBandSize);
            NRSS_MergeBands(bands, x[c] + start, merge_state[c], 2 * kBandSize);
        }
    }
}

void filter_bank(State& state, const StageForms* vector_stages, int channels) {
    constexpr int kRate = 48000;
    Blocks blocks(kRate, channels);
    Tolu_NRSS_Init(kLevel, kRate);
    const auto x = blocks.next();
    for (auto _ : state) {
        if (vector_stages == nullptr) {
            filter_bank_plain(x.data(), channels);
        } else if (channels == 1) {
            vector_stages->filter_bank_mono(x.data());
        } else {
            vector_stages->filter_bank_stereo(x.data());
        }
        benchmark::ClobberMemory();
    }
    report(state, "block");
}

void framing_plain(State& state) {
    Tolu_NRSS_Init(kLevel, 16000);
    int32_t a[kFrameWords] = {};
    int32_t b[kFrameWords] = {};
    int16_t x[kHopSize];
    std::fill_n(x, kHopSize, static_cast<int16_t>(1000));
    for (auto _ : state) {
        NRSS_WindowFrame(x, a, b);
        NRSS_OverlapAdd(a, b, x);
        benchmark::ClobberMemory();
    }
    report(state, "frame");
}

// ---- The whole ----------------------------------------------------------------------------------

void block_core(State& state, InstructionSet set, ProcessBlocks process_blocks, int rate,
                int channels) {
    Blocks blocks(rate, channels);
    start_up(set, rate, blocks);
    for (auto _ : state) {
        const auto x = blocks.next();
        process_blocks(exported_stream.suppressor, x[0], x[1], kBlock);
        benchmark::ClobberMemory();
    }
    report(state, "block");
}

void detector(State& state, InstructionSet set, int rate, int channels) {
    force_instruction_set(set);
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

void initialisation(State& state, InstructionSet set) {
    force_instruction_set(set);
    for (auto _ : state) {
        VoiceActivityDetectionInit();
        benchmark::ClobberMemory();
    }
}

void register_all() {
    const auto add = [](const std::string& name, auto run) {
        benchmark::RegisterBenchmark(name.c_str(), run);
    };
    for (const Form& form : available_forms()) {
        const InstructionSet set = form.set;
        const StageForms* const stages = form.vector_stages;
        // A build with vector code runs the plain form only where it is called by name.
        const bool whole = stages != nullptr || available_forms().size() == 1;
        const std::string slash_name = std::string("/") + form.name;
        add("real_fft288" + slash_name, [=](State& s) { transform(s, set, form.forward); });
        add("real_ifft288" + slash_name, [=](State& s) { transform(s, set, form.inverse); });
        if (stages != nullptr) {
            const int frames = stages->batch_frames;
            add("forward_batch" + slash_name,
                [=](State& s) { batch(s, stages->forward_batch, frames); });
            add("inverse_batch" + slash_name,
                [=](State& s) { batch(s, stages->inverse_batch, frames); });
        } else {
            add("framing" + slash_name, framing_plain);
        }
        add("gain_engine" + slash_name, [=](State& s) { gain_engine(s, stages); });
        for (const int channels : {1, 2}) {
            const std::string slash_channels = "/channels:" + std::to_string(channels);
            add("filter_bank" + slash_name + slash_channels,
                [=](State& s) { filter_bank(s, stages, channels); });
            for (const int rate : {8000, 16000, 22050, 48000}) {
                add("block_core" + slash_name + "/" + std::to_string(rate) + slash_channels,
                    [=](State& s) { block_core(s, set, form.process_blocks, rate, channels); });
            }
            for (const int rate : {16000, 48000}) {
                if (!whole) {
                    continue;
                }
                add("detector" + slash_name + "/" + std::to_string(rate) + slash_channels,
                    [=](State& s) { detector(s, set, rate, channels); });
            }
        }
        if (whole) {
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
