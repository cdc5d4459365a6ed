// Framing, and the block pipeline on both its paths.
#include "nrss/pipeline/block_pipeline.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "instruction_sets.h"
#include "library_state.h"
#include "nrss/pipeline/framing.h"
#include "numeric_models.h"

namespace korvane {
namespace {

using test::Random;
using test::Samples;
using Channels = std::array<Samples, 2>;

constexpr size_t kHop = kHopSize;
constexpr int kRates[] = {8000, 16000, 22050, 48000};  // the last one on two bands

/** One lane, and every set that this machine runs. */
std::vector<InstructionSet> sets() {
    std::vector<InstructionSet> all = test::sets_here();
    all.push_back(test::kPlain);
    return all;
}

void start_fresh(int level, int rate) {
    test::forget_everything();
    Tolu_NRSS_Init(level, rate);
}

/** Two channels, or one where ch1 is empty. */
Channels cleaned(Channels x) {
    int16_t* const ch0 = x[0].data();
    Tolu_NRSS_Nonintlvd(ch0, x[1].empty() ? ch0 : x[1].data(), static_cast<int32_t>(x[0].size()));
    return x;
}

TEST(Framing, OverlapAddSaturatesTheSumAndWrapsItsDouble) {
    const auto in_order = [](const auto* work, int m) -> const auto& { return work[m]; };
    for (const int32_t value : {40000, -40000, (1 << 30) - 1, -(1 << 30), 1 << 30}) {
        plain::Lanes<2> frame[kHop];
        std::fill_n(frame, kHop, plain::Lanes<2>(value, value));
        FrameMemory memory{};
        std::fill_n(memory.tail, kHop, value);
        Samples out(kHop);
        const Signal signal{out.data(), &memory};
        plain::NRSS_OverlapAdd<1, 1>(frame, &signal, in_order);
        const bool wrapped = value == 1 << 30;  // doubling it gives -2^31
        EXPECT_EQ(out, Samples(kHop, value > 0 && !wrapped ? 32767 : -32768)) << value;
    }
}

// A full-scale tone that stops: the noise estimate wraps and gains turn negative. The digests
// (64-bit FNV-1a of the samples' bytes) come from two models that were written on their own.
TEST(Pipeline, WrappedGainsAreTheModels) {
    const struct {
        int half_period;
        int amplitudes[3];
        int changes[2];  // at these hops of 288 samples
        int blocks;      // of 576 samples
        uint64_t digest;
    } cases[] = {{22, {32640, 28830, 24746}, {186, 188}, 177, 0x063165ecf83222da},
                 {76, {30161, 15651, 30161}, {186, 187}, 183, 0xb769eb240ea122be}};
    for (const InstructionSet& set : sets()) {
        for (const auto& [half_period, amplitudes, changes, blocks, digest] : cases) {
            Samples x;
            for (int i = 0; i < 576 * blocks; ++i) {
                const int a =
                    amplitudes[(i / 288 >= changes[0] ? 1 : 0) + (i / 288 >= changes[1] ? 1 : 0)];
                x.push_back(static_cast<int16_t>(i / half_period % 2 != 0 ? -a : a));
            }
            start_fresh(9, 48000);
            set.process_blocks(nrss_state, x.data(), x.data(), 576 * blocks);
            uint64_t hash = 0xcbf29ce484222325;
            for (const int16_t v : x) {
                const auto bits = static_cast<uint16_t>(v);
                hash = (hash ^ (bits & 0xFFU)) * 0x100000001b3;
                hash = (hash ^ (bits >> 8U)) * 0x100000001b3;
            }
            EXPECT_EQ(hash, digest) << half_period;
        }
    }
}

// ---- Calls --------------------------------------------------------------------------------------

TEST(Pipeline, OneChannelIsChannelZeroOfTwoAndLeavesChannelOneAlone) {
    for (const int rate : kRates) {
        Random random(32);
        const Samples x = random.noise(576 * 140, 6000);  // gains are at work after a third
        start_fresh(9, rate);
        const Samples one = cleaned({x})[0];
        EXPECT_LT(test::rms(one, x.size() - 5760), test::rms(one) / 4);
        start_fresh(9, rate);
        EXPECT_EQ(cleaned({x, random.noise(x.size(), 6000)})[0], one);
        start_fresh(9, rate);
        EXPECT_EQ(cleaned({x, x}), (Channels{one, one}));

        const auto run = [&](bool between) {  // the gains are open all the while
            start_fresh(9, rate);
            const Samples first = Random(33).noise(576, 9000);
            cleaned({first, x});
            if (between) {
                cleaned({random.noise(1152, 9000)});
            }
            return cleaned({first, first})[1];
        };
        EXPECT_EQ(run(true), run(false));
    }
}

TEST(Pipeline, OnlyWholeSubBlocksAreTouched) {
    const Samples x = Random(34).noise(1300, 9000);
    for (const InstructionSet& set : sets()) {
        for (const int rate : kRates) {
            start_fresh(9, rate);
            Samples whole = x;
            set.process_blocks(nrss_state, whole.data(), whole.data(), 1152);
            const int sub_block = rate == 48000 ? 576 : 288;
            for (const int n : {600, 1151, 1152, 1300, 0, 1, sub_block - 1, -1, -576, INT32_MIN}) {
                start_fresh(9, rate);
                const std::string before = test::library_state();
                Channels channels{x, x};
                set.process_blocks(nrss_state, channels[0].data(), channels[1].data(), n);
                Samples expected = x;
                std::copy_n(whole.begin(), std::max(n / sub_block, 0) * sub_block,
                            expected.begin());
                EXPECT_EQ(channels, (Channels{expected, expected})) << n;
                EXPECT_EQ(test::library_state() == before, n < sub_block) << n;
            }
            Tolu_NRSS_Init(0, rate);
            const std::string before = test::library_state();
            EXPECT_EQ(cleaned({x, x}), (Channels{x, x}));
            EXPECT_TRUE(test::library_state() == before);
        }
    }
}

// ---- Initialisation -----------------------------------------------------------------------------

// What lies between: another rate, two channels, gains at work.
void leave_history(int rate) {
    Random random(35);
    start_fresh(5, rate);
    cleaned({random.noise(576 * 150, 15000), random.noise(576 * 150, 15000)});
}

// The memory of the high band's framing outlives an initialisation whole: the last hop and the tail of the
// last processed frame. All else is as fresh.
TEST(Pipeline, OnlyHighBandFramesSurviveInitialisation) {
    Random random(36);
    const Channels x{random.noise(576 * 60, 9000), random.noise(576 * 60, 9000)};
    start_fresh(9, 16000);
    const Channels fresh = cleaned(x);
    for (const int rate : kRates) {
        leave_history(rate);
        Tolu_NRSS_Init(9, 16000);
        EXPECT_EQ(cleaned(x), fresh) << rate;
    }

    leave_history(48000);
    const auto kept = std::to_array(nrss_state.high_frames);
    Tolu_NRSS_Init(9, 48000);
    const Channels again = cleaned(x);
    for (const bool input : {false, true}) {
        for (const bool tail : {false, true}) {
            start_fresh(9, 48000);
            for (size_t c = 0; c < 2; ++c) {
                FrameMemory& memory = nrss_state.high_frames[c];
                memory = kept[c];
                std::fill_n(memory.last_hop, input ? 0 : kHop, int16_t{0});
                std::fill_n(memory.tail, tail ? 0 : kHop, 0);
            }
            const Channels other = cleaned(x);
            for (size_t c = 0; c < 2; ++c) {  // what is missing is heard at once
                EXPECT_EQ(std::equal(again[c].begin(), again[c].begin() + 288, other[c].begin()),
                          input && tail);
            }
            EXPECT_EQ(other == again, input && tail);
        }
    }
    // A detour over the full-band path and level 0 does not touch them either.
    leave_history(48000);
    Tolu_NRSS_Init(9, 16000);
    cleaned(x);
    Tolu_NRSS_Init(0, 48000);
    Tolu_NRSS_Init(9, 48000);
    EXPECT_EQ(cleaned(x), again);
}

}  // namespace
}  // namespace korvane
