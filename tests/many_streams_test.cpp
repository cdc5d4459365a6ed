// Several streams in a process: each gives what it gives alone, whoever runs beside it.

#include <gtest/gtest.h>

#include <algorithm>
#include <thread>
#include <vector>

#include "detector/detector.h"
#include "korvane_nrss.h"
#include "nrss/pipeline/block_pipeline.h"
#include "numeric_models.h"

namespace korvane::test {
namespace {

constexpr int kFrame = 480;  // samples of all channels

/** A stream of a host: its detector, its handle, what went in and what came out. */
struct Stream {
    Detector detector{};
    VadHandle handle{};
    Samples in;
    Samples out;
    std::vector<int> flags;
    size_t at = 0;

    Stream(int rate, int mode, uint32_t seed) : in(bursts(kFrame * 90, seed)) {
        vad_init(detector);
        vad_configure_channel_mode(handle, mode);
        vad_configure_rate(detector, handle, static_cast<uint32_t>(rate));
        vad_configure_frame_length(handle, kFrame);
    }
    bool step() {
        Samples frame(in.begin() + static_cast<std::ptrdiff_t>(at),
                      in.begin() + static_cast<std::ptrdiff_t>(at + kFrame));
        handle.samples = frame.data();
        flags.push_back(vad_execute(detector, handle));
        const int n = handle.frame_length;
        out.insert(out.end(), handle.ch0_work, handle.ch0_work + n);
        out.insert(out.end(), handle.ch1_work,
                   handle.ch1_work + (handle.channel_mode == 1 ? 0 : n));
        at += kFrame;
        return at < in.size();
    }
    void run() {
        while (step()) {
        }
    }
};

std::vector<Stream> streams() {
    std::vector<Stream> all;
    for (const int rate : {8000, 16000, 24000, 48000}) {
        for (const int mode : {1, 2, 3}) {
            all.emplace_back(rate, mode, static_cast<uint32_t>(rate + mode));
        }
    }
    return all;
}

void expect_same(const std::vector<Stream>& got, const std::vector<Stream>& expected) {
    for (size_t i = 0; i < got.size(); ++i) {
        EXPECT_TRUE(got[i].flags == expected[i].flags && got[i].out == expected[i].out) << i;
    }
}

TEST(ManyStreams, GiveWhatEachGivesAlone) {
    std::vector<std::thread> threads;
    std::vector<Stream> at_once = streams();  // first, so that the threads settle the vector code
    threads.reserve(at_once.size());
    for (Stream& stream : at_once) {
        threads.emplace_back([&stream] { stream.run(); });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    std::vector<Stream> alone = streams();
    std::ranges::for_each(alone, &Stream::run);
    expect_same(at_once, alone);

    std::vector<Stream> in_turns = streams();
    while (std::ranges::count_if(in_turns, &Stream::step) > 0) {
    }
    expect_same(in_turns, alone);
}

TEST(ManyStreams, DoNotSeeTheWeightsThatAHostPutsInOsf) {
    static constexpr int16_t kSubtractNothing[kGains] = {};
    constexpr int kLength = 57600;
    Tolu_NRSS_Init(9, 16000);
    osf = kSubtractNothing;
    NrssState beside{};
    NRSS_Init(beside, 9, 16000);
    NrssState with_these_weights = beside;
    with_these_weights.osf = osf;
    const auto cleaned = [](const auto& clean) {
        Samples x = bursts(kLength, 1);
        clean(x.data());
        return x;
    };
    const auto exported = cleaned([&](auto* x) { Tolu_NRSS_Nonintlvd(x, x, kLength); });
    EXPECT_EQ(exported,
              cleaned([&](auto* x) { NRSS_Nonintlvd(with_these_weights, x, x, kLength); }));
    EXPECT_NE(exported, cleaned([&](auto* x) { NRSS_Nonintlvd(beside, x, x, kLength); }));
}

}  // namespace
}  // namespace korvane::test
