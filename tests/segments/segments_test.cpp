#include "segments/segments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace korvane::segments {

void PrintTo(const Segment& s, std::ostream* out) {
    *out << s.start << ".." << s.end << " at " << s.decided_at << (s.open ? " open" : "");
}

namespace {

using List = std::vector<Segment>;
using Flags = std::vector<bool>;

void append(List& list, const List& more) { list.insert(list.end(), more.begin(), more.end()); }

// ---- The rules once more, each over the whole list and in the plainest way there is ----

List align_all(const Timing& t, Align align, const Flags& flags, int64_t length) {
    List list;
    const int64_t frames = std::ssize(flags);
    for (int64_t first = 0, previous_end = -1; first < frames; ++first) {
        if (!flags[static_cast<std::size_t>(first)]) {
            continue;
        }
        int64_t end = first;  // the first frame without speech
        while (end < frames && flags[static_cast<std::size_t>(end)]) {
            ++end;
        }
        Segment s{first * t.frame, end * t.frame, (first + 1) * t.frame, end == frames};
        if (align != Align::kNone) {
            s.start = std::max(s.decided_at - t.onset, (previous_end + 1) * t.frame) - t.delay;
            s.end -= t.delay;
        }
        if (align == Align::kBoth) {
            s.end -= t.hangover - t.frame;
        }
        s.start = std::max<int64_t>(s.start, 0);
        s.end = s.open ? length : std::min(s.end, length);
        if (s.start < s.end) {
            list.push_back(s);
        }
        previous_end = end;
        first = end;
    }
    return list;
}

List merge_all(List list, int64_t gap_below) {
    for (std::size_t i = 0; i + 1 < list.size();) {
        if (list[i + 1].start - list[i].end < gap_below) {
            list[i].end = std::max(list[i].end, list[i + 1].end);
            list[i].open |= list[i + 1].open;
            list.erase(list.begin() + static_cast<std::ptrdiff_t>(i) + 1);
        } else {
            ++i;
        }
    }
    return list;
}

List split_all(const List& list, int64_t most) {
    List parts;
    for (const Segment& s : list) {
        int64_t count = 1;
        while (most != 0 && count * most < s.end - s.start) {
            ++count;
        }
        std::vector<int64_t> sizes(static_cast<std::size_t>(count), 0);
        for (int64_t i = 0; i < s.end - s.start; ++i) {
            ++sizes[static_cast<std::size_t>(i % count)];  // dealt out like cards
        }
        int64_t start = s.start;
        for (const int64_t size : sizes) {
            parts.push_back({start, start + size, s.decided_at, false});
            start += size;
        }
        parts.back().open = s.open;
    }
    return parts;
}

List batch(const Timing& t, const Rules& r, const Flags& flags, int64_t length) {
    List list = merge_all(align_all(t, r.align, flags, length), r.min_gap);
    std::erase_if(list, [&](const Segment& s) { return s.end - s.start < r.min_speech; });
    for (Segment& s : list) {
        s.start = std::max<int64_t>(s.start - r.pad_start, 0);
        s.end = std::min(s.end + r.pad_end, length);
    }
    return split_all(merge_all(list, 1), r.max_speech);
}

// ---- What is tested ----

List segments_of(const Timing& t, const Rules& r, const Flags& flags, int64_t length) {
    Segmenter segmenter(t, r);
    for (const bool flag : flags) {
        segmenter.add(flag);
    }
    segmenter.finish(length);
    return segmenter.take();
}

Flags flags_of(const std::string& text) {
    Flags flags;
    for (const char c : text) {
        flags.push_back(c == '1');
    }
    return flags;
}

// ---- Random traces ----

class Random {
  public:
    explicit Random(uint64_t seed) : engine_(seed) {}
    /** 0..most, all alike. */
    int64_t upto(int64_t most) {
        return static_cast<int64_t>(engine_() % static_cast<uint64_t>(most + 1));
    }
    /** 0 in every second case, else 1..most. */
    int64_t rule(int64_t most) { return upto(1) == 0 ? 0 : 1 + upto(most - 1); }

    Flags flags(int64_t frames, int64_t change_one_in) {
        Flags result;
        bool flag = upto(3) == 0;
        for (int64_t i = 0; i < frames; ++i) {
            flag = flag != (upto(change_one_in - 1) == 0);
            result.push_back(flag);
        }
        return result;
    }

  private:
    std::mt19937_64 engine_;
};

struct Case {
    Timing timing;
    Rules rules;
    Flags flags;
    int64_t length = 0;
};

/** Rules of a few frames up to a third of the trace; any length for which the frames are as many as
 * it takes. */
Case random_case(Random& random, const Timing& timing, int64_t frames) {
    const int64_t scale = timing.frame * (1 + random.upto(frames / 3));
    Case c;
    c.timing = timing;
    c.rules = {static_cast<Align>(random.upto(2)),
               random.rule(scale),
               random.rule(scale),
               random.rule(scale),
               random.rule(scale),
               random.rule(scale)};
    c.flags = random.flags(frames, 1 + random.upto(20));
    const int64_t least = std::max<int64_t>((frames - 1) * timing.frame - timing.delay + 1, 0);
    c.length = least + random.upto(frames * timing.frame - least);
    return c;
}

Timing random_timing(Random& random) {
    const int64_t frame = 1 + random.upto(random.upto(1) == 0 ? 7 : 4095);
    return {frame, random.upto(3 * frame), frame * (1 + random.upto(4)),
            frame * (1 + random.upto(20))};
}

constexpr Timing kTen{10, 25, 30, 40};  // a run of 3 frames to begin, of 4 to end
constexpr Timing kPlain{10, 0, 10, 10};

TEST(Segmenter, CasesWorkedOutByHand) {
    // Loud in frames 4..7, so declared by frame 6 and ended by frame 11.
    const char* const apart = "000000111110000000";
    const char* const open = "0000001111";
    const char* const three = "0100110000001111000000";
    const struct {
        Timing timing;
        Rules rules;
        const char* flags;
        int64_t length;
        List expected;
    } cases[] = {
        {kTen, {Align::kNone}, apart, 155, {{60, 110, 70, false}}},
        {kTen, {Align::kOnset}, apart, 155, {{15, 85, 70, false}}},
        {kTen, {Align::kBoth}, apart, 155, {{15, 55, 70, false}}},
        {kTen, {Align::kNone}, open, 70, {{60, 70, 70, true}}},
        {kTen, {Align::kOnset}, open, 70, {{15, 70, 70, true}}},
        {kTen, {Align::kBoth}, open, 70, {{15, 70, 70, true}}},
        // Declared only while zeros flush: nothing of it lies in the input as the frames go.
        {kTen, {Align::kNone}, "0000000001", 70, {}},
        // A gap as long as min_gap stays, the merged segment is long enough, the padding joins no
        // more.
        {kPlain,
         {Align::kNone, 20},
         three,
         220,
         {{10, 20, 20, false}, {40, 60, 50, false}, {120, 160, 130, false}}},
        {kPlain, {Align::kNone, 21, 41, 5, 7}, three, 220, {{5, 67, 20, false}}},
        // Dropped before padding could have saved it; padded segments that touch become one.
        {kPlain, {Align::kNone, 0, 20, 30, 30}, three, 220, {{10, 190, 50, false}}},
        // 181 samples in parts of at most 48; the longer ones first.
        {kPlain,
         {Align::kNone, 0, 20, 30, 31, 48},
         three,
         220,
         {{10, 56, 50, false}, {56, 101, 50, false}, {101, 146, 50, false}, {146, 191, 50, false}}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(segments_of(c.timing, c.rules, flags_of(c.flags), c.length), c.expected)
            << "case " << &c - cases;
    }
}

TEST(Segmenter, AnswersAsSoonAsSpeechIsDeclared) {
    Segmenter segmenter(kTen, {});
    std::vector<Onset> onsets;
    for (const bool flag : flags_of("001101")) {
        if (const auto onset = segmenter.add(flag)) {
            onsets.push_back(*onset);
        }
    }
    EXPECT_EQ(onsets, (std::vector<Onset>{{0, 30}, {25, 60}}));
}

TEST(Segmenter, RandomTracesEqualThePlainBatchWheneverTheyAreTaken) {
    Random random(1);
    int64_t total = 0;
    for (int i = 0; i < 8000; ++i) {
        // Every frame length that a detector takes, and smaller delays and runs than it has.
        const Timing timing =
            i < 4096 ? timing_of(i % 2 == 0 ? 8000 : 48000, 1 + i) : random_timing(random);
        const Case c = random_case(random, timing, 1 + random.upto(120));
        const int64_t one_in = 1 + random.upto(9);
        Segmenter segmenter(c.timing, c.rules);
        List list;
        for (const bool flag : c.flags) {
            segmenter.add(flag);
            if (random.upto(one_in - 1) == 0) {
                append(list, segmenter.take());
            }
        }
        segmenter.finish(c.length);
        append(list, segmenter.take());
        ASSERT_EQ(list, batch(c.timing, c.rules, c.flags, c.length)) << "case " << i;
        ASSERT_EQ(segmenter.take(), List{});
        int64_t previous = 0;
        for (const Segment& s : list) {
            ASSERT_TRUE(previous <= s.start && s.start < s.end && s.end <= c.length)
                << "case " << i;
            ASSERT_TRUE(c.rules.max_speech == 0 || s.end - s.start <= c.rules.max_speech);
            previous = s.end;
        }
        total += std::ssize(list);
    }
    EXPECT_GT(total, 4000);  // the traces have something in them
}

/** The segments with which the results of all futures begin: up to `horizon` further frames, and
 * every length with which the frames are as many as it takes. Stops early at `enough`. */
List common_to_all_futures(const Case& c, int horizon, std::size_t enough) {
    List common;
    bool first = true;
    for (int more = 0; more <= horizon; ++more) {
        for (int bits = 0; bits < 1 << more; ++bits) {
            Flags flags = c.flags;
            for (int k = 0; k < more; ++k) {
                flags.push_back((bits >> k & 1) != 0);
            }
            const int64_t fed = std::ssize(flags) * c.timing.frame;
            const int64_t least = std::max<int64_t>(fed - c.timing.frame - c.timing.delay + 1, 0);
            for (int64_t length = least; length <= fed; ++length) {
                const List list = batch(c.timing, c.rules, flags, length);
                const auto same =
                    std::mismatch(common.begin(), common.end(), list.begin(), list.end());
                common = first ? list : List(common.begin(), same.first);
                first = false;
                if (common.size() <= enough) {
                    return common;
                }
            }
        }
    }
    return common;
}

TEST(Segmenter, HandsOutASegmentOnceNoFutureCanChangeItAndNotLater) {
    Random random(4);
    int64_t before_the_end = 0;
    for (int i = 0; i < 3000; ++i) {
        const int64_t frame = 1 + random.upto(2);
        Case c;
        c.timing = {frame, random.upto(5), frame * (1 + random.upto(2)),
                    frame * (1 + random.upto(2))};
        c.rules = {static_cast<Align>(i % 3), random.rule(5), random.rule(4), random.rule(4),
                   random.rule(4)};
        // Without alignment the input's end, which the zeros hide for as long as the delay, may still
        // make a segment of the frames in between too short to count.
        const int64_t late = c.rules.align == Align::kNone ? c.timing.delay + frame - 1 : 0;
        Segmenter segmenter(c.timing, c.rules);
        List taken;
        std::vector<std::size_t> settled;  // by the number of frames
        for (const bool flag : random.flags(20, 2)) {
            c.flags.push_back(flag);
            segmenter.add(flag);
            append(taken, segmenter.take());
            List common = common_to_all_futures(c, 9, taken.size());
            settled.push_back(common.size());
            common.resize(std::min(common.size(), taken.size()));
            ASSERT_EQ(taken, common) << "case " << i;
            ASSERT_GE(taken.size(), settled[static_cast<std::size_t>(std::max<int64_t>(
                                        std::ssize(settled) - 1 - late / frame, 0))])
                << "case " << i;
        }
        before_the_end += std::ssize(taken);
    }
    EXPECT_GT(before_the_end, 3000);
}

TEST(Segmenter, CountsBeyond32Bits) {
    // 2^21 frames of 4096 samples, and rules that would overflow if they were added blindly.
    const Timing timing = timing_of(8000, 4096);
    Segmenter segmenter(timing, {Align::kBoth, INT64_MAX, 1, INT64_MAX, INT64_MAX, INT64_MAX});
    constexpr int64_t kFrames = int64_t{1} << 21;
    for (int64_t i = 0; i < kFrames; ++i) {
        segmenter.add(i == 100 || i == kFrames - 5);
    }
    // The end of the first segment before its start, that of the second beyond: one frame of speech
    // is less than any hang-over.
    segmenter.finish(kFrames * 4096 - 720);
    EXPECT_EQ(segmenter.take(), List{});

    Segmenter long_speech(timing, {Align::kOnset, 0, 0, 0, 0, (int64_t{1} << 32) - 400});
    for (int64_t i = 0; i < kFrames; ++i) {
        long_speech.add(true);
    }
    const int64_t length = kFrames * 4096 - 720;  // 2^33 - 720, three parts
    long_speech.finish(length);
    const int64_t third = length / 3;  // and two samples over
    EXPECT_EQ(long_speech.take(), (List{{0, third + 1, 4096, false},
                                        {third + 1, 2 * third + 2, 4096, false},
                                        {2 * third + 2, length, 4096, true}}));
}

TEST(Segmenter, RefusesWhatMakesNoSense) {
    for (const Timing& timing :
         {Timing{0, 0, 1, 1}, Timing{4097, 0, 4097, 4097}, Timing{10, -1, 10, 10},
          Timing{10, 0, 9, 10}, Timing{10, 0, 10, 9}}) {
        EXPECT_THROW(Segmenter(timing, {}), std::invalid_argument);
    }
    EXPECT_THROW(Segmenter(kTen, {Align::kBoth, 0, 0, 0, -1}), std::invalid_argument);
    for (const auto& [rate, frame] :
         std::vector<std::pair<int, int>>{{0, 160}, {50000, 160}, {8000, 0}, {8000, 4097}}) {
        EXPECT_THROW(timing_of(rate, frame), std::invalid_argument);
    }
    Segmenter segmenter(kTen, {});
    for (int i = 0; i < 6; ++i) {
        segmenter.add(true);
    }
    EXPECT_THROW(segmenter.finish(25), std::invalid_argument);  // five frames flush 25 samples
    segmenter.finish(26);
    EXPECT_THROW(segmenter.finish(26), std::logic_error);
    EXPECT_THROW(segmenter.add(false), std::logic_error);
    EXPECT_EQ(segmenter.take(), (List{{0, 26, 10, true}}));
    EXPECT_THROW(Segmenter(kTen, {}).finish(-1), std::invalid_argument);
}

}  // namespace
}  // namespace korvane::segments
