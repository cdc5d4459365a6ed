// The speech score: the same numbers however many lanes and hops go at a time, corners of the input, both
// channels.
#include "speech/speech_score.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "instruction_sets.h"
#include "nrss/gain/nrss_state.h"
#include "numeric_models.h"

namespace korvane::test {
namespace {

constexpr int kBlock = 576;

/** All scores of a sound of one channel or two; what is known of it at its end in `speech`. */
std::vector<int16_t> scores(SpeechScore& speech, const InstructionSet& set, int rate, Samples ch0,
                            Samples ch1) {
    NrssState suppressor{};
    NRSS_Init(suppressor, 9, rate);
    speech_init(speech, rate);
    suppressor.speech = &speech;
    std::vector<int16_t> all;
    for (size_t at = 0; at + kBlock <= ch0.size(); at += kBlock) {
        int16_t* const first = ch0.data() + at;
        set.process_blocks(suppressor, first, ch1.empty() ? first : ch1.data() + at, kBlock);
        all.insert(all.end(), speech.hops.score, speech.hops.score + speech.hops.count);
        speech.hops.count = 0;
    }
    return all;
}
std::vector<int16_t> scores(const InstructionSet& set, int rate, Samples ch0, Samples ch1 = {}) {
    SpeechScore speech;
    return scores(speech, set, rate, std::move(ch0), std::move(ch1));
}

TEST(SpeechScore, IsTheSameWithAnyNumberOfLanes) {
    for (const int rate : {8000, 16000, 24000, 48000}) {
        const Samples a = bursts(kBlock * 200, 1);
        const Samples b = bursts(kBlock * 200, 2);
        for (const InstructionSet& set : sets_here()) {
            EXPECT_EQ(scores(set, rate, a), scores(kPlain, rate, a)) << set.name << ' ' << rate;
            EXPECT_EQ(scores(set, rate, a, b), scores(kPlain, rate, a, b))
                << set.name << ' ' << rate;
        }
    }
}

TEST(SpeechScore, StandsAnySoundAndRate) {  // overflows are the sanitizers' to see
    Samples square(kBlock * 100);
    for (size_t i = 0; i < square.size(); ++i) {
        square[i] = i / 40 % 2 == 0 ? 32767 : -32768;
    }
    const Samples silence(kBlock * 100, 0);
    const Samples constant(kBlock * 100, -32768);
    for (const int rate : {1, 100, 8000, 24999, 25000, 49999}) {
        for (const Samples& x : {square, silence, constant}) {
            const auto all = scores(instruction_set(), rate, x, square);
            EXPECT_LT(all.back(), 16384) << rate;  // nothing of it is speech to the end
        }
    }
}

TEST(SpeechScore, IsAsQuietInSilenceAfterSoundAsWithoutIt) {
    for (const int rate : {8000, 16000, 48000}) {
        Samples sound = bursts(kBlock * 100, 6);
        sound.resize(kBlock * 1100, 0);
        SpeechScore after;
        SpeechScore without;
        const auto end = scores(after, instruction_set(), rate, sound, {}).back();
        scores(without, instruction_set(), rate, Samples(sound.size(), 0), {});
        EXPECT_NEAR(after.loudness_100, without.loudness_100, 1 << 20) << rate;  // 3 dB
        EXPECT_LT(end, 3277) << rate;
    }
}

TEST(SpeechScore, KeepsTheFirstOfMoreThanItHasRoomFor) {
    const Samples x = bursts(kBlock * 10, 5);
    std::vector<int16_t> expected = scores(instruction_set(), 16000, x);
    expected.resize(kMaxHopScores);
    auto suppressor = std::make_unique<NrssState>();
    SpeechScore speech;
    NRSS_Init(*suppressor, 9, 16000);
    speech_init(speech, 16000);
    suppressor->speech = &speech;
    Samples all = x;
    instruction_set().process_blocks(*suppressor, all.data(), all.data(), kBlock * 10);
    ASSERT_EQ(speech.hops.count, kMaxHopScores);
    EXPECT_TRUE(std::ranges::equal(speech.hops.score, expected));
}

TEST(SpeechScore, HearsChannelOneWhereChannelZeroIsQuiet) {
    const Samples quiet = [] {
        Samples x(kBlock * 300);
        Random random(3);
        std::ranges::generate(x, [&] { return static_cast<int16_t>(random.between(-10, 10)); });
        return x;
    }();
    const Samples loud = bursts(kBlock * 300, 4);
    const auto highest = [&](const Samples& x) {
        const auto all = scores(instruction_set(), 16000, quiet, x);
        return *std::ranges::max_element(all);
    };
    EXPECT_GT(highest(loud), highest(quiet) + 2000);
}

}  // namespace
}  // namespace korvane::test
