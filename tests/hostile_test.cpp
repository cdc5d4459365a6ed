// What the headers promise to hosts that misbehave: calls touch nothing but what is stated, and
// what is refused touches nothing at all.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "fenced_pages.h"
#include "korvane_nrss.h"
#include "korvane_vad.h"
#include "library_state.h"
#include "numeric_models.h"

// Keeps the messages off the terminal.
extern "C" int __android_log_print(int /*priority*/, const char* /*tag*/, const char* /*format*/,
                                   ...) {
    return 0;
}

namespace korvane::test {
namespace {

constexpr int kLongest = KORVANE_VAD_MAX_FRAME;
constexpr Edge kEdges[] = {Edge::kFirst, Edge::kLast};

void fill_with_noise(FencedPages& pages, int samples, uint32_t seed) {
    const Samples x = bursts(samples, seed);
    std::copy(x.begin(), x.end(), pages.array<int16_t>(x.size(), Edge::kFirst));
}

/** Lets the suppressor work on calls of some lengths only: it sees nothing but the stream's own
 * ring, and it is nearly all that a call costs. All lengths around two whole blocks are among
 * them. */
void suppress_sometimes(int n) { nrss_state.level = n <= 1160 || n % 37 == 0 ? 9 : 0; }

// ---- Arrays at the edges of pages ---------------------------------------------------------------

TEST(AtTheEdgesOfPages, TransformsKeepToTheirArrays) {
    constexpr size_t kBytes = kFrameSize * sizeof(int32_t);
    FencedPages in(kBytes);
    FencedPages out(kBytes);
    fill_with_noise(in, static_cast<int>(kBytes / sizeof(int16_t)), 1);
    in.allow(PROT_READ);
    // In a process of its own this begins before the transforms are initialised.
    for (int pass = 0; pass < 2; ++pass) {
        for (const Edge edge : kEdges) {
            const int32_t* const x = in.array<int32_t>(kFrameSize, edge);
            int32_t* const y = out.array<int32_t>(kFrameSize, edge);
            for (const auto transform : {real_fft288, real_ifft288}) {
                transform(y, x);
                const std::vector<int32_t> apart(y, y + kFrameSize);
                std::copy_n(x, kFrameSize, y);
                transform(y, y);
                EXPECT_TRUE(std::equal(apart.begin(), apart.end(), y));
            }
        }
        fft288_init();
    }
}

/** A call of n samples per channel. */
struct Call {
    const char* name;
    size_t width;    // samples per channel in the first array: 1, or 2 for pairs
    bool only_read;  // both arrays
    std::function<void(int16_t* a, int16_t* b, int n)> make;
};

TEST(AtTheEdgesOfPages, CallsOfAllLengthsKeepToTheirArrays) {
    FencedPages first(2 * kLongest * sizeof(int16_t));
    FencedPages second(kLongest * sizeof(int16_t));
    FencedPages pairs(2 * kLongest * sizeof(int16_t));
    const Call calls[] = {
        {"one channel", 1, false, [](auto* a, auto*, int n) { Tolu_NRSS_EXE(a, n, 1); }},
        {"pairs", 2, false, [](auto* a, auto*, int n) { Tolu_NRSS_EXE(a, n, 2); }},
        {"two arrays", 1, false, [](auto* a, auto* b, int n) { Tolu_NRSS_Buffered(a, b, n); }},
        {"one array", 1, false, [](auto* a, auto*, int n) { Tolu_NRSS_Buffered(a, a, n); }},
        {"blocks", 1, false, [](auto* a, auto* b, int n) { Tolu_NRSS_Nonintlvd(a, b, n); }},
        {"level", 1, true, [](auto* a, auto*, int n) { OLM_VOR(a, nullptr, n); }},
        {"levels", 1, true, [](auto* a, auto* b, int n) { OLM_VOR(a, b, n); }},
        {"interleave", 1, true,
         [&](auto* a, auto* b, int n) {
             for (const Edge edge : kEdges) {
                 Tolu_NRSS_Interleave(pairs.array<int16_t>(2 * static_cast<size_t>(n), edge), a, b,
                                      n);
             }
         }},
    };
    for (const Call& call : calls) {
        SCOPED_TRACE(call.name);
        forget_everything();
        OLM_VOR_Init();
        Tolu_NRSS_BufInit();
        Tolu_NRSS_Init(9, 16000);
        for (FencedPages* const pages : {&first, &second}) {
            pages->allow(PROT_READ | PROT_WRITE);
            fill_with_noise(*pages, kLongest, 2);
            pages->allow(call.only_read ? PROT_READ : PROT_READ | PROT_WRITE);
        }
        for (int n = 1; n <= kLongest; ++n) {
            suppress_sometimes(n);
            const auto size = static_cast<size_t>(n);
            for (const Edge edge : kEdges) {
                call.make(first.array<int16_t>(call.width * size, edge),
                          second.array<int16_t>(size, edge), n);
            }
        }
    }
}

TEST(AtTheEdgesOfPages, FramesOfAllLengthsAndModesKeepToFrameAndHandle) {
    FencedPages frame(2 * kLongest * sizeof(int16_t));
    FencedPages host(sizeof(VadHandle));
    VadHandle before;
    for (const int mode : {1, 2, 3}) {
        for (const Edge edge : kEdges) {
            frame.allow(PROT_READ | PROT_WRITE);
            fill_with_noise(frame, 2 * kLongest, 4);
            frame.allow(mode == 2 ? PROT_READ | PROT_WRITE : PROT_READ);
            VadHandle* const h = host.array<VadHandle>(1, edge);
            std::memset(static_cast<void*>(h), 0x33, sizeof *h);
            VoiceActivityDetectionInit();
            VoiceActivityDetectionChannelModeConfig(h, mode);
            VoiceActivityDetectionSamplingRateConfig(h, edge == Edge::kFirst ? 16000 : 48000);
            for (int n = 1; n <= kLongest; ++n) {
                const auto size = static_cast<size_t>(mode == 1 ? n : 2 * n);
                suppress_sometimes(n);
                VoiceActivityDetectionFrameLengthConfig(h, static_cast<uint32_t>(size));
                VoiceActivityDetectionInOutConfig(h, frame.array<int16_t>(size, edge));
                std::memcpy(&before, h, sizeof before);
                VoiceActivityDetectionExe(h);
                // The same but for the first n samples of the work buffers that the mode has.
                std::copy_n(h->ch0_work, n, before.ch0_work);
                std::copy_n(h->ch1_work, mode == 1 ? 0 : n, before.ch1_work);
                ASSERT_EQ(std::memcmp(&before, h, sizeof before), 0) << mode << ", " << n;
            }
        }
    }
}

// ---- What is refused ----------------------------------------------------------------------------

class Refused : public testing::Test {
  protected:
    Refused() : fence_(1) {
        forget_everything();
        fence_.allow(PROT_NONE);
        VoiceActivityDetectionInit();
        Samples x = bursts(6000, 5);
        Tolu_NRSS(x.data(), 3000);
    }

    /** A pointer that faults when it is followed. */
    int16_t* nowhere() { return fence_.array<int16_t>(1, Edge::kFirst); }

    /** The state but for the note of how many channels the last call had, which a call of the
     * stream without samples may make. */
    static std::string state() {
        nrss_stream_state.two_channel = 0;
        return library_state();
    }

  private:
    FencedPages fence_;
};

TEST_F(Refused, FramesAreNeitherReadNorNoted) {
    FencedPages host(sizeof(VadHandle));
    VadHandle* const h = host.array<VadHandle>(1, Edge::kLast);
    vor_state.speech = 1;  // so that a stray decision would show as 1
    const std::string before = state();
    VoiceActivityDetectionInOutConfig(h, nowhere());
    const auto expect_refused = [&] {
        host.allow(PROT_READ);
        ASSERT_EQ(VoiceActivityDetectionExe(h), 0) << h->channel_mode << " " << h->frame_length;
        host.allow(PROT_READ | PROT_WRITE);
    };
    for (int n = -32768; n <= 32767; n = n == 0 ? KORVANE_VAD_MAX_FRAME + 1 : n + 1) {
        h->channel_mode = static_cast<uint16_t>((n + 32769) % 3 + 1);
        h->frame_length = static_cast<int16_t>(n);
        expect_refused();
    }
    h->frame_length = 160;
    for (int mode = 4; mode <= 0x10000; ++mode) {  // the last is 0 in 16 bits
        h->channel_mode = static_cast<uint16_t>(mode);
        expect_refused();
    }
    EXPECT_TRUE(state() == before);
}

TEST_F(Refused, CallsFollowNoPointer) {
    const std::string before = state();
    int16_t* const p = nowhere();
    for (int16_t* const q : {p, static_cast<int16_t*>(nullptr)}) {
        for (const int mode : {INT32_MIN, -1, 0, 3, 4, 0x10001, 0x10002, INT32_MAX}) {
            Tolu_NRSS_EXE(q, 576, mode);
        }
        for (const int n : {INT32_MIN, -576, -1, 0}) {
            Tolu_NRSS_EXE(q, n, 1);
            Tolu_NRSS_EXE(q, n, 2);
            Tolu_NRSS(q, n);
            Tolu_NRSS_Buffered(q, q, n);
            Tolu_NRSS_Buffered(p, nullptr, n);
            Tolu_NRSS_Interleave(q, q, q, n);
        }
        for (const int n : {INT32_MIN, -576, -1, 0, 1, 287}) {
            Tolu_NRSS_Nonintlvd(q, q, n);
            Tolu_NRSS_Nonintlvd(p, nullptr, n);
        }
        EXPECT_EQ(VoiceActivityDetectionParamConfig(nullptr), 0);
    }
    EXPECT_TRUE(state() == before);
    for (const int n : {INT32_MIN, -1, 0}) {
        EXPECT_EQ(OLM_VOR(p, nullptr, n), 0);
        EXPECT_EQ(OLM_VOR(p, p, n), 0);
    }
    Tolu_NRSS_Init(9, 48000);
    Tolu_NRSS_Nonintlvd(p, nullptr, 575);
    Tolu_NRSS_Init(0, 48000);
    Tolu_NRSS_Nonintlvd(p, nullptr, INT32_MAX);
}

// ---- Before initialisation, and rates and levels out of range -----------------------------------

/** What the suppressor makes of sound; after another stream at the rate it keeps, if any. */
Samples suppress(Samples sound, int32_t level, int32_t rate, int32_t kept = 0) {
    forget_everything();
    if (kept != 0) {
        Tolu_NRSS_Init(5, kept);
    }
    Tolu_NRSS_Init(level, rate);
    Tolu_NRSS_Nonintlvd(sound.data(), sound.data(), static_cast<int32_t>(sound.size()));
    return sound;
}

TEST(OutOfOrder, EveryRateAndLevelCountsAsOneInRange) {
    const Samples sound = bursts(120000, 7);
    const Samples quietest = suppress(sound, 9, 8000);
    EXPECT_TRUE(quietest != suppress(sound, 8, 8000));
    for (const int32_t rate : {INT32_MIN, -1, 0, 9999, 50000, INT32_MAX}) {  // the first, if none
        EXPECT_TRUE(suppress(sound, INT32_MAX, rate) == quietest) << rate;
        EXPECT_TRUE(suppress(sound, -1, rate) == sound) << rate;
    }
    EXPECT_TRUE(suppress(sound, INT32_MIN, 16000) == sound);
    for (const auto& [rate, like] : {std::pair{10000, 16000},
                                     {19999, 16000},
                                     {20000, 22050},
                                     {24999, 22050},
                                     {25000, 48000},
                                     {49999, 48000}}) {
        const Samples expected = suppress(sound, 9, like);
        EXPECT_TRUE(suppress(sound, 10, rate) == expected) << rate;
        EXPECT_TRUE(suppress(sound, 9, 50000, rate) == expected) << rate;
    }
}

TEST(OutOfOrder, BeforeTheFirstInitSoundComesStraightBack) {
    const Samples sound = bursts(600, 6);
    static VadHandle h;
    for (const uint32_t rate : {0U, 16000U, 48000U}) {
        VoiceActivityDetectionSamplingRateConfig(&h, 0);  // no longer the first since an Init
        forget_everything();
        Samples frame = sound;
        VoiceActivityDetectionSamplingRateConfig(&h, rate);
        VoiceActivityDetectionConfigAll(&h, rate, 600, frame.data(), 2);
        VoiceActivityDetectionExe(&h);
        EXPECT_EQ(frame, sound) << rate;
    }
}

// ---- More samples than an int can index ---------------------------------------------------------

/** Addresses for so many samples, all over the same few pages again and again; null where there is no
 * room. They stay until the process ends. */
int16_t* repeated_pages(size_t samples) {
    constexpr size_t kPeriod = size_t{2} << 20;
    const size_t size = (samples * sizeof(int16_t) + kPeriod - 1) / kPeriod * kPeriod;
    const int file = memfd_create("repeated pages", 0);
    void* const all =
        mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    bool good = file >= 0 && ftruncate(file, kPeriod) == 0 && all != MAP_FAILED;
    for (size_t at = 0; good && at < size; at += kPeriod) {
        good = mmap(static_cast<char*>(all) + at, kPeriod, PROT_READ | PROT_WRITE,
                    MAP_SHARED | MAP_FIXED | MAP_POPULATE, file, 0) != MAP_FAILED;
    }
    return good ? static_cast<int16_t*>(all) : nullptr;
}

TEST(HugeCalls, InterleavesMorePairsThanAnIntCanIndex) {
    constexpr int kPairs = (1 << 30) + 1;  // the last pair begins at sample 2^31
    int16_t* const channel = sizeof(void*) < 8 ? nullptr : repeated_pages(kPairs);
    int16_t* const pairs = channel == nullptr ? nullptr : repeated_pages(2 * size_t{kPairs});
    if (pairs == nullptr) {
        GTEST_SKIP() << "no room for 6 GiB of addresses";
    }
    channel[0] = 1234;  // the same place as the last sample
    Tolu_NRSS_Interleave(pairs, channel, channel, kPairs);
    EXPECT_EQ(pairs[size_t{1} << 31], 1234);
    EXPECT_EQ(pairs[(size_t{1} << 31) + 1], 1234);
}

}  // namespace
}  // namespace korvane::test
