#include "speech_segments.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace korvane::tool {
namespace {

std::vector<Segment> segments_of(const std::string& flags, int frame, int64_t delay,
                                 int64_t length) {
    SpeechSegments segments(frame, delay);
    for (const char flag : flags) {
        segments.add(flag == '1');
    }
    return segments.within(length);
}

using Segments = std::vector<Segment>;

TEST(SpeechSegments, RunsOfFramesMoveBackByTheDelay) {
    EXPECT_EQ(segments_of("0000011100100", 100, 250, 5000), (Segments{{250, 550}, {750, 850}}));
    EXPECT_EQ(segments_of("", 100, 250, 5000), Segments{});
    EXPECT_EQ(segments_of("0000", 100, 250, 5000), Segments{});
}

TEST(SpeechSegments, StayWithinTheRecording) {
    EXPECT_EQ(segments_of("0011111111", 100, 250, 600), (Segments{{0, 600}}));
    // Two frames wholly before the recording; the third reaches 50 samples into it.
    EXPECT_EQ(segments_of("1100", 100, 250, 600), Segments{});
    EXPECT_EQ(segments_of("1110", 100, 250, 600), (Segments{{0, 50}}));
    // A frame that begins where the recording ends, and one a sample earlier.
    EXPECT_EQ(segments_of("00000001", 100, 250, 450), Segments{});
    EXPECT_EQ(segments_of("00000001", 100, 250, 451), (Segments{{450, 451}}));
}

TEST(SpeechSegments, CountBeyond32Bits) {
    SpeechSegments segments(INT32_MAX, 720);
    for (int i = 0; i < 4; ++i) {
        segments.add(i == 3);
    }
    const int64_t begin = int64_t{3} * INT32_MAX - 720;
    EXPECT_EQ(segments.within(INT64_MAX), (Segments{{begin, begin + INT32_MAX}}));
}

TEST(Seconds, RoundToTheNearestMillisecondHalvesUp) {
    EXPECT_EQ(seconds(0, 8000), "0.000");
    EXPECT_EQ(seconds(3, 8000), "0.000");  // 0.375 ms
    EXPECT_EQ(seconds(4, 8000), "0.001");  // 0.5 ms
    EXPECT_EQ(seconds(7999, 8000), "1.000");
    EXPECT_EQ(seconds(44099, 44100), "1.000");
    EXPECT_EQ(seconds(44077, 44100), "0.999");  // 999.478 ms
    EXPECT_EQ(seconds(1, 3), "0.333");
    EXPECT_EQ(seconds(7, 1), "7.000");
    EXPECT_EQ(seconds(int64_t{49999} * 1000000000 + 1, 49999), "1000000000.000");
}

TEST(Frames, AreTenMillisecondsAndNeverEmpty) {
    EXPECT_EQ(frame_length(1), 1);
    EXPECT_EQ(frame_length(99), 1);
    EXPECT_EQ(frame_length(199), 1);
    EXPECT_EQ(frame_length(11025), 110);
    EXPECT_EQ(frame_length(49999), 499);
}

}  // namespace
}  // namespace korvane::tool
