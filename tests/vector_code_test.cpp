// Many lanes against one: the same samples and the same state, bit by bit.

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "dsp/fft288.h"
#include "instruction_sets.h"
#include "library_state.h"
#include "signals.h"

namespace korvane {

namespace {

TEST(InstructionSet, IsTheFirstThatTheMachineHas) {
    use_instruction_set(nullptr);
    EXPECT_STREQ(instruction_set().name, test::sets_here().front().name);
#if defined(KORVANE_SIMD) && defined(__x86_64__)
    const bool wide = __builtin_cpu_supports("avx2") != 0;
    EXPECT_STREQ(instruction_set().name, wide ? "avx2" : "sse2");
#endif
    const InstructionSet& last = instruction_sets().back();
    use_instruction_set(&last);
    EXPECT_EQ(&instruction_set(), &last);
    use_instruction_set(nullptr);
}

TEST(VectorCode, TransformsGiveTheSameBits) {
    constexpr int32_t kGuard = 0x5A5A5A5A;
    for (const InstructionSet& set : test::sets_here()) {
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
                (forward ? plain::real_fft288 : plain::real_ifft288)(expected, in);
                int32_t out[kFrameSize + 2];
                std::fill(std::begin(out), std::end(out), kGuard);
                const auto transform = forward ? set.real_fft288 : set.real_ifft288;
                transform(out + 1, in);
                ASSERT_EQ(0, std::memcmp(out + 1, expected, sizeof expected))
                    << set.name << (forward ? " forward " : " inverse ") << frame;
                ASSERT_TRUE(out[0] == kGuard && out[kFrameSize + 1] == kGuard) << set.name;
                std::memcpy(out + 1, in, sizeof in);
                transform(out + 1, out + 1);
                ASSERT_EQ(0, std::memcmp(out + 1, expected, sizeof expected)) << "in place";
            }
        }
    }
}

std::vector<int32_t> kept(const NrssState& s) {
    std::vector<int32_t> all;
    test::add_pipeline_state(
        s, [&](const auto* values, int count) { all.insert(all.end(), values, values + count); });
    return all;
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
    for (const InstructionSet& set : test::sets_here()) {
        for (const int32_t rate : {8000, 16000, 22050, 48000}) {
            NrssState one{};
            NRSS_Init(one, 1 + static_cast<int32_t>(draw(&seed) % 9), rate);
            NrssState many = one;
            for (int call = 0; call < 700; ++call) {
                const int32_t n = call % 3 != 0 ? 576 : static_cast<int32_t>(draw(&seed) % 2000);
                const bool two_channels = draw(&seed) % 3 != 0;
                std::vector<int16_t> expected[2];
                std::vector<int16_t> x[2];
                for (int c = 0; c < 2; ++c) {
                    expected[c].assign(static_cast<size_t>(n) + 1, kGuard);
                    fill(expected[c], n, seed);
                    x[c] = expected[c];
                }
                const int second = two_channels ? 1 : 0;
                plain::process_blocks(one, expected[0].data(), expected[second].data(), n);
                set.process_blocks(many, x[0].data(), x[second].data(), n);
                ASSERT_TRUE(x[0] == expected[0] && x[1] == expected[1] && kept(many) == kept(one))
                    << set.name << ", " << rate << " Hz, call " << call << ", n " << n;
            }
        }
    }
}

}  // namespace

}  // namespace korvane
