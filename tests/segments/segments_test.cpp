#include "segments/segments.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <random>
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

/** A segmenter whose calls must go well. */
class Segments {
  public:
    Segments(const Timing& timing, const Rules& rules) {
        EXPECT_EQ(segmenter_init(segmenter_, timing, rules), Status::kOk);
    }
    std::optional<Onset> add(bool flag) {
        std::optional<Onset> onset;
        EXPECT_EQ(segmenter_add(segmenter_, flag, onset), Status::kOk);
        return onset;
    }
    void finish(int64_t length) { EXPECT_EQ(segmenter_finish(segmenter_, length), Status::kOk); }
    List take() {
        List list;
        for (Segment segment; segmenter_take(segmenter_, segment);) {
            list.push_back(segment);
        }
        return list;
    }
    /** Whether segments end that nobody has taken is for the segmenter to know. */
    bool has_room() const { return segmenter_.aligned_count < kMaxAligned - 1; }
    Segmenter& record() { return segmenter_; }

  private:
    Segmenter segmenter_;
};

List segments_of(const Timing& t, const Rules& r, const Flags& flags, int64_t length) {
    Segments segmenter(t, r);
    List list;
    for (const bool flag : flags) {
        segmenter.add(flag);
        append(list, segmenter.take());
    }
    segmenter.finish(length);
    append(list, segmenter.take());
    return list;
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

    /** Answers that a detector of this timing can give. */
    Flags flags(const Timing& t, int64_t frames, int64_t change_one_in) {
        Flags result;
        bool flag = false;
        int64_t changed_at = 0;
        for (int64_t i = 1; i <= frames; ++i) {
            if (i * t.frame - changed_at >= (flag ? t.hangover : t.onset) &&
                upto(change_one_in - 1) == 0) {
                flag = !flag;
                changed_at = i * t.frame;
            }
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
    c.flags = random.flags(timing, frames, 1 + random.upto(20));
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
    Segments segmenter(kTen, {});
    std::vector<Onset> onsets;
    for (const bool flag : flags_of("001111000111")) {
        if (const auto onset = segmenter.add(flag)) {
            onsets.push_back(*onset);
        }
    }
    EXPECT_EQ(onsets, (std::vector<Onset>{{0, 30}, {45, 100}}));
}

TEST(Segmenter, RandomTracesEqualThePlainBatchAsLongAsThereIsRoom) {
    Random random(1);
    int64_t total = 0;
    for (int i = 0; i < 8000; ++i) {
        // Every frame length that a detector takes; long traces of short frames, to hold a change.
        const Timing timing =
            i < 4096 ? timing_of(i % 2 == 0 ? 8000 : 48000, 1 + i) : random_timing(random);
        const int64_t runs = (timing.onset + timing.hangover) / timing.frame;
        const Case c =
            random_case(random, timing, 1 + random.upto(120 + std::min<int64_t>(3 * runs, 6000)));
        const int64_t one_in = 1 + random.upto(9);
        Segments segmenter(c.timing, c.rules);
        List list;
        for (const bool flag : c.flags) {
            segmenter.add(flag);
            if (!segmenter.has_room() || random.upto(one_in - 1) == 0) {
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

bool possible(const Timing& t, const Flags& flags) {
    bool before = false;
    int64_t changed_at = 0;
    for (std::size_t i = 0; i < flags.size(); ++i) {
        const int64_t fed = (static_cast<int64_t>(i) + 1) * t.frame;
        if (flags[i] != before) {
            if (fed - changed_at < (flags[i] ? t.onset : t.hangover)) {
                return false;
            }
            before = flags[i];
            changed_at = fed;
        }
    }
    return true;
}

/** The segments of all futures: up to `horizon` further frames, and every length with which the frames
 * are as many as it takes. */
std::vector<List> all_futures(const Case& c, int horizon) {
    std::vector<List> futures;
    for (int more = 0; more <= horizon; ++more) {
        for (int bits = 0; bits < 1 << more; ++bits) {
            Flags flags = c.flags;
            for (int k = 0; k < more; ++k) {
                flags.push_back((bits >> k & 1) != 0);
            }
            const int64_t fed = std::ssize(flags) * c.timing.frame;
            const int64_t least = std::max<int64_t>(fed - c.timing.frame - c.timing.delay + 1, 0);
            for (int64_t length = least; possible(c.timing, flags) && length <= fed; ++length) {
                futures.push_back(batch(c.timing, c.rules, flags, length));
            }
        }
    }
    return futures;
}

/** The segments with which all of them begin. */
List common_beginning(const std::vector<List>& lists) {
    List common = lists.front();
    for (const List& list : lists) {
        const auto same = std::mismatch(common.begin(), common.end(), list.begin(), list.end());
        common = List(common.begin(), same.first);
    }
    return common;
}

/** Where the segment behind the first `taken` begins, if that is the same in all of them. */
std::optional<int64_t> common_start(const std::vector<List>& lists, std::size_t taken) {
    for (const List& list : lists) {
        if (list.size() <= taken || list[taken].start != lists.front()[taken].start) {
            return std::nullopt;
        }
    }
    return lists.front()[taken].start;
}

TEST(Segmenter, SaysWhatNoFutureCanChangeAndNotLater) {
    Random random(4);
    int64_t segments = 0;
    int64_t starts = 0;
    for (int i = 0; i < 600; ++i) {
        const int64_t frame = 1 + random.upto(2);
        Case c;
        c.timing = {frame, random.upto(5), frame * (1 + random.upto(2)),
                    frame * (1 + random.upto(2))};
        c.rules = {static_cast<Align>(i % 3), random.rule(5), random.rule(4), random.rule(4),
                   random.rule(4)};
        // Without alignment the input's end, which the zeros hide for as long as the delay, may still
        // make a segment of the frames in between too short to count.
        const int64_t late = c.rules.align == Align::kNone ? c.timing.delay + frame - 1 : 0;
        Segments segmenter(c.timing, c.rules);
        List taken;
        std::optional<int64_t> start;      // of the segment to be taken next, once it is said
        std::vector<std::size_t> settled;  // by the number of frames
        for (const bool flag : random.flags(c.timing, 20, 2)) {
            c.flags.push_back(flag);
            segmenter.add(flag);
            const std::size_t before = taken.size();
            append(taken, segmenter.take());
            const std::vector<List> futures = all_futures(c, 8);
            List common = common_beginning(futures);
            settled.push_back(common.size());
            common.resize(std::min(common.size(), taken.size()));
            ASSERT_EQ(taken, common) << "case " << i;
            ASSERT_GE(taken.size(), settled[static_cast<std::size_t>(std::max<int64_t>(
                                        std::ssize(settled) - 1 - late / frame, 0))])
                << "case " << i;
            if (taken.size() > before) {
                ASSERT_TRUE(!start || *start == taken[before].start) << "case " << i;
                start.reset();
            }
            if (const auto begun = segmenter_begun(segmenter.record())) {
                ASSERT_FALSE(start) << "case " << i;
                start = begun;
                ++starts;
            }
            if (c.rules.align != Align::kNone) {
                ASSERT_EQ(start, common_start(futures, taken.size())) << "case " << i;
            }
        }
        segments += std::ssize(taken);
    }
    EXPECT_GT(segments, 600);
    EXPECT_GT(starts, 400);
}

TEST(Segmenter, CountsBeyond32Bits) {
    // 2^21 frames of 4096 samples, and rules that would overflow if they were added blindly.
    const Timing timing = timing_of(8000, 4096);
    constexpr int64_t kFrames = int64_t{1} << 21;
    const int64_t length = kFrames * 4096 - 720;  // 2^33 - 720, three parts
    const auto speak = [&](const Rules& rules, int64_t first, int64_t last) {
        Segments segmenter(timing, rules);
        for (int64_t i = 0; i < kFrames; ++i) {
            segmenter.add(first <= i && i <= last);
        }
        segmenter.finish(length);
        return segmenter.take();
    };
    constexpr int64_t kMost = INT64_MAX;
    EXPECT_EQ(speak({Align::kBoth, kMost, 1, kMost, kMost, kMost}, kFrames - 20, kFrames - 8),
              (List{{0, length, (kFrames - 19) * 4096, false}}));
    const int64_t third = length / 3;  // and two samples over
    EXPECT_EQ(speak({Align::kOnset, 0, 0, 0, 0, (int64_t{1} << 32) - 400}, 0, kFrames),
              (List{{0, third + 1, 4096, false},
                    {third + 1, 2 * third + 2, 4096, false},
                    {2 * third + 2, length, 4096, true}}));
}

TEST(Segmenter, RefusesWhatMakesNoSense) {
    const struct {
        Timing timing;
        Rules rules;
        Status status;
    } cases[] = {
        {{0, 0, 1, 1}, {}, Status::kFrame},
        {{4097, 0, 4097, 4097}, {}, Status::kFrame},
        {{10, -1, 10, 10}, {}, Status::kDelay},
        {{10, 63, 10, 10}, {}, Status::kDelay},
        {{10, 0, 9, 10}, {}, Status::kOnset},
        {{10, 0, 10, 9}, {}, Status::kHangover},
        {{10, 0, 10, INT64_MAX}, {}, Status::kHangover},
        {kTen, {Align::kBoth, 0, 0, 0, -1}, Status::kRule},
        {timing_of(0, 160), {}, Status::kFrame},
        {timing_of(50000, 160), {}, Status::kFrame},
        {timing_of(8000, 0), {}, Status::kFrame},
        {timing_of(8000, 4097), {}, Status::kFrame},
    };
    for (const auto& c : cases) {
        Segmenter s;
        EXPECT_EQ(segmenter_init(s, c.timing, c.rules), c.status) << "case " << &c - cases;
        EXPECT_STRNE(status_text(c.status), status_text(Status::kOk));
    }

    Segments segments(kTen, {});
    Segmenter& s = segments.record();
    std::optional<Onset> onset;
    EXPECT_EQ(segmenter_add(s, true, onset), Status::kTooSoon);
    for (const bool flag : flags_of("001111")) {
        segments.add(flag);
    }
    EXPECT_EQ(segmenter_finish(s, 25), Status::kLength);  // five frames flush 25 samples
    EXPECT_EQ(segmenter_finish(s, 26), Status::kOk);
    EXPECT_EQ(segmenter_finish(s, 26), Status::kEnded);
    EXPECT_EQ(segmenter_add(s, false, onset), Status::kEnded);
    EXPECT_EQ(segments.take(), (List{{0, 26, 30, true}}));
    EXPECT_EQ(segmenter_init(s, kTen, {}), Status::kOk);
    EXPECT_EQ(segmenter_finish(s, -1), Status::kLength);

    // Nobody takes what ends: the answer that there is no room for counts once there is.
    EXPECT_EQ(segmenter_init(s, kPlain, {}), Status::kOk);
    bool flag = false;
    int64_t frames = 0;
    while (segmenter_add(s, flag, onset) == Status::kOk) {
        flag = !flag;
        ++frames;
    }
    EXPECT_EQ(segmenter_add(s, flag, onset), Status::kNotTaken);
    EXPECT_EQ(segments.take().size(), std::size_t{kMaxAligned});
    EXPECT_EQ(segmenter_add(s, flag, onset), Status::kOk);
    segments.finish(10 * (frames + 1));
    EXPECT_EQ(segments.take().size(), 1U);
}

}  // namespace
}  // namespace korvane::segments
