// The stream: what comes back depends on the samples alone, one block late.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "guarded_samples.h"
#include "korvane_nrss.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/stream/block_stream.h"

namespace korvane::test {
namespace {

struct Channels {
    Samples ch0;
    Samples ch1;
    bool operator==(const Channels&) const = default;
};

enum class Layout { kPlanar, kInterleaved, kPairs, kOnePointer, kMono };

bool is_mono(Layout layout) { return layout == Layout::kOnePointer || layout == Layout::kMono; }

void start(int level, int rate) {
    forget_everything();
    Tolu_NRSS_Init(level, rate);
    Tolu_NRSS_BufInit();
}

Channels make_input(int n) { return {bursts(n, 11), bursts(n, 12)}; }

Samples part(const Samples& x, size_t at, int n) {
    const auto begin = x.begin() + static_cast<std::ptrdiff_t>(at);
    return {begin, begin + n};
}

void append(Samples& to, const Samples& x) { to.insert(to.end(), x.begin(), x.end()); }

/** One call on n samples of the input from `at` on; its output is appended to out. */
void call(const Channels& in, size_t at, int n, Layout layout, Channels& out) {
    const int count = std::max(n, 0);
    GuardedSamples ch0(part(in.ch0, at, count));
    GuardedSamples ch1(part(in.ch1, at, count));
    GuardedSamples pairs(Samples(2 * static_cast<size_t>(count)));
    Tolu_NRSS_Interleave(pairs.data(), ch0.data(), ch1.data(), n);
    switch (layout) {
        case Layout::kPlanar:
            Tolu_NRSS_Buffered(ch0.data(), ch1.data(), n);
            break;
        case Layout::kInterleaved:
            Tolu_NRSS_EXE(pairs.data(), n, 2);
            break;
        case Layout::kPairs:
            Tolu_NRSS(pairs.data(), n);
            break;
        case Layout::kOnePointer:
            Tolu_NRSS_Buffered(ch0.data(), ch0.data(), n);
            break;
        case Layout::kMono:
            Tolu_NRSS_EXE(ch0.data(), n, 1);
            break;
    }
    ASSERT_TRUE(ch0.intact() && ch1.intact() && pairs.intact()) << "call of " << n;
    if (layout == Layout::kInterleaved || layout == Layout::kPairs) {
        for (int i = 0; i < count; ++i) {
            ch0.data()[i] = pairs.data()[2 * i];
            ch1.data()[i] = pairs.data()[2 * i + 1];
        }
    }
    append(out.ch0, ch0.samples());
    if (!is_mono(layout)) {
        append(out.ch1, ch1.samples());
    }
}

Channels stream(const Channels& in, const std::vector<int>& cuts, Layout layout) {
    Channels out;
    size_t at = 0;
    for (const int n : cuts) {
        call(in, at, n, layout, out);
        at += static_cast<size_t>(std::max(n, 0));
    }
    return out;
}

std::vector<int> equal_cuts(int total, int chunk) {
    std::vector<int> cuts(static_cast<size_t>(total / chunk), chunk);
    if (total % chunk != 0) {
        cuts.push_back(total % chunk);
    }
    return cuts;
}

/** Calls of all sorts of lengths, empty and negative ones included. */
std::vector<int> random_cuts(int total, uint32_t seed) {
    constexpr int kTelling[] = {-5, 0, 1, 161, 575, 576, 577, 1151, 1152, 1153, 4096};
    std::mt19937 generator(seed);
    std::vector<int> cuts;
    while (total > 0) {
        const auto r = static_cast<uint32_t>(generator());
        const int n =
            r % 2 == 0 ? kTelling[r / 2 % std::size(kTelling)] : static_cast<int>(r / 2 % 700);
        cuts.push_back(std::min(n, total));
        total -= std::max(cuts.back(), 0);
    }
    return cuts;
}

class StreamAtRate : public testing::TestWithParam<int> {};

// 44.1 kHz and 48 kHz share the two-band path, the others each have a class of their own.
INSTANTIATE_TEST_SUITE_P(Rates, StreamAtRate, testing::Values(8000, 16000, 22050, 48000),
                         testing::PrintToStringParamName());

TEST_P(StreamAtRate, IsTheBlockCoreOneBlockLateHoweverItIsCut) {
    constexpr int kTotal = 40 * kBlockSize;
    const Channels in = make_input(kTotal);

    start(9, GetParam());
    Channels core = in;
    Tolu_NRSS_Nonintlvd(core.ch0.data(), core.ch1.data(), kTotal);
    Channels expected{Samples(kBlockSize), Samples(kBlockSize)};
    append(expected.ch0, part(core.ch0, 0, kTotal - kBlockSize));
    append(expected.ch1, part(core.ch1, 0, kTotal - kBlockSize));
    const std::string core_state = bytes_of(nrss_state);

    std::vector<std::vector<int>> cuttings = {{kTotal}};
    for (const int chunk : {1, 160, 161, 575, 576, 577, 1000, 4096}) {
        cuttings.push_back(equal_cuts(kTotal, chunk));
    }
    for (uint32_t seed = 1; seed <= 12; ++seed) {
        cuttings.push_back(random_cuts(kTotal, seed));
    }
    for (size_t i = 0; i < cuttings.size(); ++i) {
        const std::vector<int>& cuts = cuttings[i];
        const Layout layout = i % 2 == 0 ? Layout::kPlanar : Layout::kInterleaved;
        start(9, GetParam());
        ASSERT_TRUE(stream(in, cuts, layout) == expected) << "cutting " << i;
        ASSERT_TRUE(bytes_of(nrss_state) == core_state) << "cutting " << i;
        ASSERT_EQ(nrss_stream_state.read_pos, 0);
    }
}

TEST_P(StreamAtRate, AllEntryPointsAgreeAndOneChannelIsChannelZeroOfTwo) {
    constexpr int kTotal = 20 * kBlockSize + 77;
    const Channels in = make_input(kTotal);
    const std::vector<int> cuts = equal_cuts(kTotal, 1000);
    start(9, GetParam());
    const Channels planar = stream(in, cuts, Layout::kPlanar);
    ASSERT_NE(planar.ch0, planar.ch1);
    for (const Layout layout : {Layout::kInterleaved, Layout::kPairs}) {
        start(9, GetParam());
        EXPECT_TRUE(stream(in, cuts, layout) == planar);
    }
    for (const Layout layout : {Layout::kOnePointer, Layout::kMono}) {
        start(9, GetParam());
        EXPECT_TRUE(stream(in, cuts, layout).ch0 == planar.ch0);
    }
}

TEST_P(StreamAtRate, LevelZeroIsAPureDelay) {
    constexpr int kTotal = 8 * kBlockSize + 31;
    const Channels in = {noise(kTotal, 1), noise(kTotal, 2)};
    for (const Layout layout : {Layout::kPlanar, Layout::kInterleaved}) {
        start(0, GetParam());
        const Channels out = stream(in, random_cuts(kTotal, 3), layout);
        EXPECT_EQ(part(out.ch0, 0, kBlockSize), Samples(kBlockSize));
        EXPECT_EQ(part(out.ch1, 0, kBlockSize), Samples(kBlockSize));
        const int rest = kTotal - kBlockSize;
        EXPECT_EQ(part(out.ch0, kBlockSize, rest), part(in.ch0, 0, rest));
        EXPECT_EQ(part(out.ch1, kBlockSize, rest), part(in.ch1, 0, rest));
    }
}

struct Step {
    int n;
    bool stereo;
};

/** The stream one sample at a time: a delay line of two blocks per channel. */
Channels sample_by_sample(const Channels& in, const std::vector<Step>& steps, size_t delay) {
    Samples ring0(kRingSize);
    Samples ring1(kRingSize);
    Channels out;
    size_t k = 0;
    for (const Step step : steps) {
        for (int i = 0; i < step.n; ++i, ++k) {
            const size_t at = (k + delay) % kRingSize;
            ring0[at] = in.ch0[k];
            ring1[at] = step.stereo ? in.ch1[k] : ring1[at];
            if (at % kBlockSize == kBlockSize - 1) {
                const size_t block = at + 1 - kBlockSize;
                Tolu_NRSS_Nonintlvd(&ring0[block], step.stereo ? &ring1[block] : &ring0[block],
                                    kBlockSize);
            }
            out.ch0.push_back(ring0[k % kRingSize]);
            if (step.stereo) {
                out.ch1.push_back(ring1[k % kRingSize]);
            }
        }
    }
    return out;
}

TEST(Stream, ChangingBetweenOneAndTwoChannelsGoesOnFromTheRings) {
    // The first two plans complete a block in the other mode than they filled it in.
    std::vector<std::vector<Step>> plans = {
        {{575, true}, {1, false}, {1000, true}, {1200, true}},
        {{575, false}, {1, true}, {1000, true}, {1200, true}},
        {{900, true}, {700, false}, {3000, true}, {1700, false}, {2500, true}}};
    for (uint32_t seed = 1; seed <= 10; ++seed) {
        plans.emplace_back();
        std::mt19937 generator(seed);
        for (const int n : random_cuts(10 * kBlockSize, seed)) {
            plans.back().push_back({std::max(n, 0), generator() % 3 != 0});
        }
    }
    const Channels in = make_input(8800);  // as long as the longest plan
    for (const int rate : {16000, 48000}) {
        for (const int level : {0, 9}) {
            for (size_t p = 0; p < plans.size(); ++p) {
                start(level, rate);
                const Channels expected = sample_by_sample(in, plans[p], kBlockSize);
                const std::string expected_state = bytes_of(nrss_state);
                start(level, rate);
                Channels out;
                size_t at = 0;
                for (const Step step : plans[p]) {
                    const std::string ring1 = bytes_of(nrss_stream_state.ring_ch1);
                    call(in, at, step.n, step.stereo ? Layout::kPlanar : Layout::kMono, out);
                    at += static_cast<size_t>(step.n);
                    if (!step.stereo) {
                        ASSERT_EQ(bytes_of(nrss_stream_state.ring_ch1), ring1);
                    }
                }
                EXPECT_TRUE(out == expected) << "rate " << rate << " plan " << p;
                EXPECT_TRUE(bytes_of(nrss_state) == expected_state);
            }
        }
    }
}

TEST(Stream, ChannelOneNeitherReadsNorChangesTheGainsOfChannelZero) {
    // Channel 1 against a channel 0 of silence: its own loudness must not open or close a gain.
    constexpr int kTotal = 100 * kBlockSize;
    Channels in = {noise(kTotal, 1, 9), noise(kTotal, 2)};
    start(9, 16000);
    const Channels loud = stream(in, {kTotal}, Layout::kPlanar);
    const std::string gains = bytes_of(nrss_state.gain);
    in.ch1 = Samples(kTotal);
    start(9, 16000);
    EXPECT_TRUE(stream(in, {kTotal}, Layout::kPlanar).ch0 == loud.ch0);
    EXPECT_EQ(bytes_of(nrss_state.gain), gains);
}

TEST(Stream, PositionsKeepTheirInvariantsAndBlocksAreCleanedWhenComplete) {
    const Channels in = make_input(30 * kBlockSize);
    for (uint32_t seed = 1; seed <= 4; ++seed) {
        start(9, 16000);
        const NrssStreamState& s = nrss_stream_state;
        Channels out;
        int total = 0;
        // Calls of one sample, then all sorts.
        std::vector<int> cuts(2 * kBlockSize + 3, 1);
        const std::vector<int> more = random_cuts(27 * kBlockSize, seed);
        cuts.insert(cuts.end(), more.begin(), more.end());
        for (const int n : cuts) {
            call(in, static_cast<size_t>(total), n, seed % 2 == 0 ? Layout::kMono : Layout::kPlanar,
                 out);
            total += std::max(n, 0);
            ASSERT_EQ(s.two_channel, seed % 2);
            ASSERT_EQ(s.read_pos, total % kRingSize);
            ASSERT_EQ(s.write_pos, (total + kBlockSize) % kRingSize);
            ASSERT_EQ(s.fill, total % kBlockSize);
            ASSERT_EQ(nrss_state.frame_count, total / kBlockSize * 4);  // hops of 144
        }
    }
}

TEST(Stream, NothingHappensForNoSamplesAndUnknownModes) {
    start(9, 16000);
    const Channels in = make_input(1000);
    stream(in, {1000}, Layout::kPlanar);
    GuardedSamples x(noise(64, 5));
    GuardedSamples y(noise(64, 6));
    const Samples x_before = x.samples();
    const Samples y_before = y.samples();

    const std::string before = library_state();
    for (const int mode : {0, 3, 4, -1, INT32_MIN, INT32_MAX, 0x10001, 0x10002}) {
        Tolu_NRSS_EXE(x.data(), 32, mode);
    }
    for (const int n : {0, -1, -576, INT32_MIN}) {
        Tolu_NRSS_EXE(x.data(), n, 2);
        Tolu_NRSS(x.data(), n);
        Tolu_NRSS_Buffered(x.data(), y.data(), n);
        Tolu_NRSS_Interleave(x.data(), y.data(), y.data(), n);
    }
    EXPECT_TRUE(library_state() == before);

    // One channel without samples is noted, pairs are not, and nothing else changes.
    Tolu_NRSS_EXE(x.data(), 0, 1);
    EXPECT_EQ(nrss_stream_state.two_channel, 0);
    Tolu_NRSS_EXE(x.data(), -2, 2);
    EXPECT_EQ(nrss_stream_state.two_channel, 0);
    nrss_stream_state.two_channel = 1;
    EXPECT_TRUE(library_state() == before);
    EXPECT_EQ(x.samples(), x_before);
    EXPECT_EQ(y.samples(), y_before);
}

TEST(Stream, BufInitEmptiesTheStreamAndLeavesTheSuppressor) {
    start(9, 16000);
    const Channels in = make_input(5000);
    stream(in, {5000}, Layout::kPlanar);
    const std::string suppressor = bytes_of(nrss_state);
    Tolu_NRSS_BufInit();
    EXPECT_TRUE(bytes_of(nrss_state) == suppressor);
    NrssStreamState empty = {};
    empty.two_channel = 1;
    empty.write_pos = kBlockSize;
    EXPECT_TRUE(bytes_of(nrss_stream_state) == bytes_of(empty));
    const Channels out = stream(in, {kBlockSize}, Layout::kPlanar);
    EXPECT_TRUE(out == (Channels{Samples(kBlockSize), Samples(kBlockSize)}));

    // The other way round, the suppressor's initialisation leaves the ring.
    const std::string ring = bytes_of(nrss_stream_state);
    Tolu_NRSS_Init(9, 48000);
    EXPECT_TRUE(bytes_of(nrss_stream_state) == ring);
}

TEST(Stream, BeforeBufInitSamplesComeStraightBack) {
    constexpr int kTotal = 10 * kBlockSize + 5;
    const Channels in = make_input(kTotal);
    for (const Layout layout : {Layout::kPlanar, Layout::kPairs}) {
        forget_everything();
        EXPECT_TRUE(stream(in, random_cuts(kTotal, 9), layout) == in);
    }
    // With the suppressor on, whole blocks come back cleaned at once.
    forget_everything();
    Tolu_NRSS_Init(9, 16000);
    Channels core = in;
    Tolu_NRSS_Nonintlvd(core.ch0.data(), core.ch1.data(), kTotal);
    forget_everything();
    Tolu_NRSS_Init(9, 16000);
    EXPECT_TRUE(stream(in, equal_cuts(kTotal, kBlockSize), Layout::kPlanar) == core);
}

TEST(Stream, InterleaveWritesPairsAndTouchesNoState) {
    start(9, 48000);
    const std::string before = library_state();
    for (const int n : {1, 2, 577, 4096}) {
        const Samples left = noise(n, 1);
        const Samples right = noise(n, 2);
        GuardedSamples pairs(Samples(2 * left.size()));
        Tolu_NRSS_Interleave(pairs.data(), left.data(), right.data(), n);
        GuardedSamples twins(Samples(2 * left.size()));
        Tolu_NRSS_Interleave(twins.data(), left.data(), left.data(), n);
        ASSERT_TRUE(pairs.intact() && twins.intact());
        for (size_t i = 0; i < left.size(); ++i) {
            ASSERT_EQ(pairs.samples()[2 * i], left[i]);
            ASSERT_EQ(pairs.samples()[2 * i + 1], right[i]);
            ASSERT_EQ(twins.samples()[2 * i + 1], left[i]);
        }
    }
    EXPECT_TRUE(library_state() == before);
}

}  // namespace
}  // namespace korvane::test
