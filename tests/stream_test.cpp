// The stream: what comes back depends on the samples alone, one block late.

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "korvane_nrss.h"
#include "library_state.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/stream/block_stream.h"
#include "numeric_models.h"

namespace korvane::test {
namespace {

struct Channels {
    Samples ch0, ch1;
    bool operator==(const Channels&) const = default;
};

enum Layout { kPlanar, kInterleaved, kPairs, kOnePointer, kMono, kLayouts };

struct Step {
    int n;
    Layout layout;
    bool stereo() const { return layout < kOnePointer; }
};
using Plan = std::vector<Step>;

void start(int level, int rate) {
    forget_everything();
    Tolu_NRSS_Init(level, rate);
    Tolu_NRSS_BufInit();
}

Channels make_input(int n) { return {bursts(n, 11), bursts(n, 12)}; }

/** Calls on the samples one after the other. */
Channels stream(const Channels& in, const Plan& plan) {
    Channels out;
    auto from0 = in.ch0.begin();
    auto from1 = in.ch1.begin();
    for (const Step& step : plan) {
        const int n = std::max(step.n, 0);
        Samples ch0(from0, from0 + n);
        Samples ch1(from1, from1 + n);
        Samples pairs(2 * static_cast<size_t>(n));
        from0 += n;
        from1 += n;
        Tolu_NRSS_Interleave(pairs.data(), ch0.data(), ch1.data(), step.n);
        const std::string ring1 = bytes_of(nrss_stream_state.ring_ch1);
        switch (step.layout) {
            case kPlanar:
                Tolu_NRSS_Buffered(ch0.data(), ch1.data(), step.n);
                break;
            case kInterleaved:
                Tolu_NRSS_EXE(pairs.data(), step.n, 2);
                break;
            case kPairs:
                Tolu_NRSS(pairs.data(), step.n);
                break;
            case kOnePointer:
                Tolu_NRSS_Buffered(ch0.data(), ch0.data(), step.n);
                break;
            default:
                Tolu_NRSS_EXE(ch0.data(), step.n, 1);
        }
        EXPECT_TRUE(step.stereo() || bytes_of(nrss_stream_state.ring_ch1) == ring1);
        for (size_t i = 0; i < ch0.size(); ++i) {
            const bool paired = step.layout == kInterleaved || step.layout == kPairs;
            out.ch0.push_back(paired ? pairs[2 * i] : ch0[i]);
            if (step.stereo()) {
                out.ch1.push_back(paired ? pairs[2 * i + 1] : ch1[i]);
            }
        }
    }
    return out;
}

/** The same, one sample at a time: a delay line of two blocks per channel. */
Channels sample_by_sample(const Channels& in, const Plan& plan) {
    Samples ring0(kRingSize), ring1(kRingSize);
    Channels out;
    size_t k = 0;
    for (const Step& step : plan) {
        for (int i = 0; i < step.n; ++i, ++k) {
            const size_t at = (k + kBlockSize) % kRingSize;
            ring0[at] = in.ch0[k];
            ring1[at] = step.stereo() ? in.ch1[k] : ring1[at];
            if (at % kBlockSize == kBlockSize - 1) {
                const size_t block = at + 1 - kBlockSize;
                Tolu_NRSS_Nonintlvd(&ring0[block], step.stereo() ? &ring1[block] : &ring0[block],
                                    kBlockSize);
            }
            out.ch0.push_back(ring0[k % kRingSize]);
            if (step.stereo()) {
                out.ch1.push_back(ring1[k % kRingSize]);
            }
        }
    }
    return out;
}

/** Calls of n samples, or of all sorts of lengths, empty and negative ones included. */
Plan make_plan(int total, int n, Layout layout, Random* random = nullptr) {
    constexpr int kTelling[] = {-5, 0, 1, 161, 575, 576, 577, 1151, 1152, 1153, 4096};
    Plan plan;
    while (total > 0) {
        if (random != nullptr) {
            n = random->between(0, 1) == 0 ? kTelling[random->between(0, 10)]
                                           : random->between(0, 700);
            layout = static_cast<Layout>(random->between(0, kLayouts - 1));
        }
        plan.push_back({std::min(n, total), layout});
        total -= std::max(plan.back().n, 0);
    }
    return plan;
}

TEST(Stream, IsTheBlockCoreOneBlockLateHoweverItIsCut) {
    constexpr int kTotal = 30 * kBlockSize;
    const Channels in = make_input(kTotal);
    // The first two plans complete a block in the other mode than they filled it in.
    std::vector<Plan> plans = {{{575, kPlanar}, {1, kMono}, {1000, kPlanar}, {1200, kPairs}},
                               {{575, kMono}, {1, kPlanar}, {1000, kPlanar}, {1200, kPairs}}};
    for (const int n : {1, 160, 161, 575, 576, 577, 1000, 4096, kTotal}) {
        plans.push_back(make_plan(kTotal, n, static_cast<Layout>(plans.size() % kLayouts)));
    }
    for (uint32_t seed = 1; seed <= 10; ++seed) {
        Random random(seed);
        plans.push_back(make_plan(kTotal, 0, kPlanar, &random));
    }
    for (const int rate : {8000, 16000, 22050, 48000}) {
        for (const int level : {0, 9}) {
            for (size_t p = 0; p < plans.size(); ++p) {
                start(level, rate);
                const Channels expected = sample_by_sample(in, plans[p]);
                const std::string expected_state = bytes_of(nrss_state);
                start(level, rate);
                EXPECT_TRUE(stream(in, plans[p]) == expected) << "rate " << rate << " plan " << p;
                EXPECT_TRUE(bytes_of(nrss_state) == expected_state);
            }
        }
    }
}

TEST(Stream, EachInitialisationLeavesTheOtherPart) {
    start(9, 16000);
    const Channels in = make_input(5000);
    stream(in, {{5000, kPlanar}});
    const std::string suppressor = bytes_of(nrss_state);
    Tolu_NRSS_BufInit();
    EXPECT_TRUE(bytes_of(nrss_state) == suppressor);
    const std::string ring = bytes_of(nrss_stream_state);
    start(9, 16000);
    nrss_stream_state.two_channel = 1;
    EXPECT_TRUE(bytes_of(nrss_stream_state) == ring);
    stream(in, {{1000, kPlanar}});
    const std::string filled = bytes_of(nrss_stream_state);
    Tolu_NRSS_Init(9, 48000);
    EXPECT_TRUE(bytes_of(nrss_stream_state) == filled);
}

// Nothing lies between store and return: whole blocks come back cleaned, others as they are.
TEST(Stream, BeforeBufInitSamplesComeBackAtOnce) {
    constexpr int kTotal = 10 * kBlockSize;
    const Channels in = make_input(kTotal);
    for (const int level : {0, 9}) {
        forget_everything();
        Tolu_NRSS_Init(level, 16000);
        Channels core = in;
        Tolu_NRSS_Nonintlvd(core.ch0.data(), core.ch1.data(), kTotal);
        forget_everything();
        Tolu_NRSS_Init(level, 16000);
        EXPECT_TRUE(stream(in, make_plan(kTotal, level == 0 ? 700 : kBlockSize, kPlanar)) == core);
    }
}

}  // namespace
}  // namespace korvane::test
