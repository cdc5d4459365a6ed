// The vector forms of the block pipeline and of the transforms against the plain ones: the same
// samples and the same state, bit by bit.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "dsp/instruction_set.h"
#include "library_state.h"
#include "nrss/pipeline/block_pipeline.h"
#include "signals.h"

namespace korvane {

namespace {

struct Form {
    const char* name;
    ProcessBlocks process_blocks;
    Transform forward;
    Transform inverse;
};

std::vector<Form> vector_forms() {
    force_instruction_set(InstructionSet::kUnknown);
    std::vector<Form> forms;
#if defined(KORVANE_SIMD) && defined(__x86_64__)
    forms.push_back({"sse2", sse2::process_blocks, sse2::real_fft288, sse2::real_ifft288});
    if (instruction_set() == InstructionSet::kAvx2) {
        forms.push_back({"avx2", avx2::process_blocks, avx2::real_fft288, avx2::real_ifft288});
    }
#elif defined(KORVANE_SIMD) && defined(__aarch64__)
    forms.push_back({"neon", neon::process_blocks, neon::real_fft288, neon::real_ifft288});
#endif
    return forms;
}

#if defined(__x86_64__)
TEST(InstructionSet, IsTheWidestOfTheMachine) {
    force_instruction_set(InstructionSet::kUnknown);
    const bool wide = __builtin_cpu_supports("avx2") != 0;
    EXPECT_EQ(instruction_set(), wide ? InstructionSet::kAvx2 : InstructionSet::kSse2);
}
#endif

TEST(VectorCode, TransformsGiveTheSameBits) {
    constexpr int32_t kGuard = 0x5A5A5A5A;
    fft288_init();
    for (const Form& form : vector_forms()) {
        uint32_t seed = 7;
        for (int frame = 0; frame < 2000; ++frame) {
            int32_t in[kFrameSize];
            for (int32_t& v : in) {
                // Every level, and the values at which a doubled operand wraps.
                const uint32_t kind = draw(&seed) % 16;
                v = static_cast<int32_t>(draw(&seed)) >> (frame % 24);
                v = kind == 0 ? 0x40000000 : kind == 1 ? -0x40000000 : kind == 2 ? INT32_MIN : v;
            }
            for (const bool forward : {true, false}) {
                int32_t expected[kFrameSize];
                (forward ? real_fft288_plain : real_ifft288_plain)(expected, in);
                int32_t out[kFrameSize + 2];
                std::fill(std::begin(out), std::end(out), kGuard);
                const Transform transform = forward ? form.forward : form.inverse;
                transform(out + 1, in);
                ASSERT_EQ(0, std::memcmp(out + 1, expected, sizeof expected))
                    << form.name << (forward ? " forward " : " inverse ") << frame;
                ASSERT_TRUE(out[0] == kGuard && out[kFrameSize + 1] == kGuard) << form.name;
                std::memcpy(out + 1, in, sizeof in);
                transform(out + 1, out + 1);
                ASSERT_EQ(0, std::memcmp(out + 1, expected, sizeof expected)) << "in place";
            }
        }
    }
}

std::vector<int32_t> pipeline_state() {
    std::vector<int32_t> state;
    test::add_pipeline_state(
        [&](const auto* values, int count) { state.insert(state.end(), values, values + count); });
    return state;
}

/** Samples that drive the pipeline hard: noise at a level that changes from call to call, tones at
 * full scale that stop, silence. */
void fill(std::vector<int16_t>& x, int32_t n, uint32_t& seed) {
    static const Signal kinds[] = {
        {kSignalNoise, 0, 0, 0, 0, 0, 0},         {kSignalNoise, 0, 0, 0, 9, 0, 0},
        {kSignalSquare, 32767, 37, 0, 0, 0, 0},   {kSignalSquare, 9000, 76, 0, 0, 0, 0},
        {kSignalBursts, 30000, 22, 700, 4, 0, 0}, {kSignalGaps, 0, 0, 500, 2, 0, 0},
        {kSignalConstant, -32768, 0, 0, 0, 0, 0}, {kSignalConstant, 0, 0, 0, 0, 0, 0},
        {kSignalAlternate, 32767, 0, 0, 0, 0, 0}};
    Signal signal = kinds[draw(&seed) % std::size(kinds)];
    signal.seed = draw(&seed) | 1;
    make_signal(&signal, x.data(), n);
}

TEST(VectorCode, PipelineGivesTheSameBits) {
    constexpr int16_t kGuard = 0x5A5A;
    uint32_t seed = 99;
    for (const Form& form : vector_forms()) {
        for (const int32_t rate : {8000, 16000, 22050, 48000}) {
            Tolu_NRSS_Init(1 + static_cast<int32_t>(draw(&seed) % 9), rate);
            for (int call = 0; call < 700; ++call) {
                const int32_t n = call % 3 != 0 ? 576 : static_cast<int32_t>(draw(&seed) % 2000);
                const bool two_channels = draw(&seed) % 3 != 0;
                std::vector<int16_t> plain[2];
                std::vector<int16_t> vector[2];
                for (int c = 0; c < 2; ++c) {
                    plain[c].assign(static_cast<size_t>(n) + 1, kGuard);
                    fill(plain[c], n, seed);
                    vector[c] = plain[c];
                }
                const auto before = test::LibraryState::take();
                process_blocks_plain(nrss_state, plain[0].data(),
                                     plain[two_channels ? 1 : 0].data(), n);
                const std::vector<int32_t> expected = pipeline_state();
                before.restore();
                form.process_blocks(nrss_state, vector[0].data(),
                                    vector[two_channels ? 1 : 0].data(), n);
                for (int c = 0; c < 2; ++c) {
                    ASSERT_EQ(vector[c], plain[c]) << form.name << ", " << rate << " Hz, call "
                                                   << call << ", n " << n << ", channel " << c;
                }
                ASSERT_EQ(pipeline_state(), expected)
                    << form.name << ", " << rate << " Hz, call " << call;
            }
        }
    }
}

}  // namespace

}  // namespace korvane
