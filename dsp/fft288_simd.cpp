// One transform in vectors. The row pass takes eight rows of the prime-factor work area side by side,
// four at a time, and row 0 with its butterflies in the lanes; the column pass takes the 16 columns
// side by side. Lanes are dealt out such that the mirror of a vector is a vector: the split works on
// what the column pass leaves, and its reverse leaves what the row pass takes, with no order in
// between. Loops stay loops on purpose: unrolled, a transform takes more room than the 2048 decoded
// operations that the processor it was measured on keeps at hand, and a seventh more time.

#include "dsp/fft288_batch.h"

namespace korvane::KORVANE_ISA {

namespace {

constexpr int kGroups = kColumns / 4;

/** Elements of four complex values, real and imaginary parts apart. */
KORVANE_INLINE Complex<Quad> separate(Quad a, Quad b) {
    return {even_lanes(a, b), odd_lanes(a, b)};
}

/** Places of four complex values in an array of pairs, lane by lane. */
struct Places {
    uint8_t lane[4];
};
KORVANE_INLINE Complex<Quad> gather(const int32_t* z, const Places& k) {
    const auto at = [&](int l) { return z + size_t{2} * k.lane[l]; };
    return separate(load_two_pairs(at(0), at(1)), load_two_pairs(at(2), at(3)));
}
KORVANE_INLINE void scatter(int32_t* z, const Places& k, Complex<Quad> a) {
    const auto at = [&](int l) { return z + size_t{2} * k.lane[l]; };
    store_two_pairs(at(0), at(1), zip_low(a.re, a.im));
    store_two_pairs(at(2), at(3), zip_high(a.re, a.im));
}

KORVANE_INLINE Complex<Quad> first_from(Complex<Quad> a, Complex<Quad> b) {
    return {first_of_cycle<4>(a.re, b.re), first_of_cycle<4>(a.im, b.im)};
}
/** Lanes 0, 3, 2, 1. */
KORVANE_INLINE Complex<Quad> backwards(Complex<Quad> a) {
    return {cycle<4>(reverse(a.re)), cycle<4>(reverse(a.im))};
}
KORVANE_INLINE void transpose(Complex<Quad>& a, Complex<Quad>& b, Complex<Quad>& c,
                              Complex<Quad>& d) {
    transpose(a.re, b.re, c.re, d.re);
    transpose(a.im, b.im, c.im, d.im);
}

// ---- Passes -------------------------------------------------------------------------------------

/** Lines of a row in the groups of four that go through the column pass together. Each lane of group
 * 1 holds the mirror of what group 0 holds there, group 3 that of group 2; but lines 8 and 0 are
 * their own mirrors. */
constexpr int kLines[kGroups][4] = {{4, 1, 2, 3}, {12, 15, 14, 13}, {8, 5, 6, 7}, {0, 11, 10, 9}};

/** The work area: between the passes by rows, after them by lines of the columns. */
using Area = Complex<Quad>[kRows][kGroups];

/** Rows 7, 5, 3, 1 go in the lanes of four 0, rows 2, 4, 6, 8 in those of four 1: in this order the
 * mirror of column c of one is column -c of the other. */
constexpr int row_of(int four, int lane) { return 7 - 5 * four + (4 * four - 2) * lane; }

/** Which element of the sequence enters at (row, column) of the work area. */
constexpr int element_at(int row, int column) { return (64 * row + 81 * column) % kComplexSize; }

/** The row pass of one four, whose columns are in a. */
template <Direction kDirection>
KORVANE_INLINE void four_rows(Area area, int four, Complex<Quad>* a) {
    dft16<kDirection>(a);
    for (int group = 0; group < kGroups; ++group) {
        Complex<Quad> x[4];
        for (int i = 0; i < 4; ++i) {
            const int line = kLines[group][i];
            x[i] = a[4 * (line % 4) + line / 4];
        }
        transpose(x[0], x[1], x[2], x[3]);
        for (int l = 0; l < 4; ++l) {
            area[row_of(four, l)][group] = x[l];
        }
    }
}

/** The row pass of row 0, dft16 with its butterflies in the lanes: element 4q + l in lane l of x[q]. */
template <Direction kDirection>
KORVANE_INLINE void first_row(Area area, Complex<Quad>* x) {
    radix4<kDirection>(x[0], x[1], x[2], x[3]);
    const auto twist_lanes = [](Complex<Quad> a, Twiddle w1, Twiddle w2, Twiddle w3) {
        const Quad c = Quad::of(0, w1.c, w2.c, w3.c);
        const Quad s = Quad::of(0, w1.s, w2.s, w3.s);
        const Complex<Quad> d = twice(a);
        const Complex<Quad> t = quarter_turn<kDirection>(d);
        const Complex<Quad> by_c = {mul_half_q15(d.re, c), mul_half_q15(d.im, c)};
        const Complex<Quad> by_s = {mul_half_q15(t.re, s), mul_half_q15(t.im, s)};
        return first_from(a, add(by_c, by_s));
    };
    const Complex<Quad> turned = quarter_turn<kDirection>(x[2]);
    x[1] = twist_lanes(x[1], kW16_1, kW16_2, kW16_3);
    x[2] = twist_lanes(x[2], kW16_2, {0, 0}, kW16_6);
    x[3] = twist_lanes(x[3], kW16_3, kW16_6, kW16_9);
    const Quad exact = Quad::of(0, 0, -1, 0);  // W16^4 is a quarter turn
    x[2] = {select(exact, turned.re, x[2].re), select(exact, turned.im, x[2].im)};
    transpose(x[0], x[1], x[2], x[3]);
    radix4<kDirection>(x[0], x[1], x[2], x[3]);
    // x[p] now holds lines 4p to 4p + 3.
    area[0][0] = first_from(x[1], x[0]);
    area[0][1] = backwards(x[3]);
    area[0][2] = first_from(x[2], x[1]);
    area[0][3] = first_from(x[0], backwards(x[2]));
}

/** Where dft9 leaves a line. */
constexpr int position_of(int line) { return 3 * (line % 3) + line / 3; }

/** The column pass of one group: e[position_of(j)] is line j of it. */
template <Direction kDirection>
KORVANE_INLINE void four_columns(const Area area, int group, Complex<Quad>* e) {
    for (int row = 0; row < kRows; ++row) {
        e[row] = area[row][group];
    }
    dft9<kDirection>(e);
}

/** Which line of the whole stands at line j of the columns, line r of the rows. */
constexpr int line_at(int j, int r) { return (64 * (7 * j % kRows) + 9 * r) % kComplexSize; }

// ---- Order of the lanes -------------------------------------------------------------------------

/** Elements of fours 0 and 1, column by column. */
constexpr auto kElements = [] {
    std::array<std::array<Places, kColumns>, 2> elements{};
    for (unsigned four = 0; four < 2; ++four) {
        for (unsigned column = 0; column < kColumns; ++column) {
            for (int l = 0; l < 4; ++l) {
                elements[four][column].lane[l] = static_cast<uint8_t>(
                    element_at(row_of(static_cast<int>(four), l), static_cast<int>(column)));
            }
        }
    }
    return elements;
}();

/** Elements of row 0, four by four. */
constexpr auto kFirstRow = [] {
    std::array<Places, kColumns / 4> elements{};
    for (int column = 0; column < kColumns; ++column) {
        elements[static_cast<unsigned>(column / 4)].lane[column % 4] =
            static_cast<uint8_t>(element_at(0, column));
    }
    return elements;
}();

/** Lines of the result, group by group as the column pass leaves them. */
constexpr auto kResults = [] {
    std::array<std::array<Places, kRows>, kGroups> results{};
    for (unsigned group = 0; group < kGroups; ++group) {
        for (unsigned row = 0; row < kRows; ++row) {
            for (int l = 0; l < 4; ++l) {
                const int j = position_of(static_cast<int>(row));  // position_of is its own inverse
                results[group][row].lane[l] = static_cast<uint8_t>(line_at(j, kLines[group][l]));
            }
        }
    }
    return results;
}();

/** What twd576 holds, for the compiler. */
constexpr int16_t kTwiddles[144][2] = {
#include "dsp/twd576_values.inc"
};

/** What the split of two vectors that mirror each other takes. In each lane one of them holds a bin k
 * of the lower half, the other bin 144 - k. */
struct SplitLanes {
    // Entry 2k of twd576 in one word. Its sine is below zero in any case, so that the sign is free to
    // tell which vector holds k: the first one where it is clear.
    int32_t twiddle[4];
    Places lower;  // k
    Places upper;  // 144 - k

    /** A lane whose first vector holds this line. Lines 0 and 72 have no part in the split; their
     * lane goes along as line 72, with any factor. */
    constexpr void set(int lane, int line) {
        const int held = line == 0 ? kComplexSize / 2 : line;
        const bool mirrored = held > kComplexSize / 2;
        const int k = mirrored ? kComplexSize - held : held;
        const auto c = static_cast<uint32_t>(kTwiddles[2 * k % kComplexSize][0]);
        const auto s = static_cast<uint32_t>(kTwiddles[2 * k % kComplexSize][1]) & 0x7FFF;
        twiddle[lane] = static_cast<int32_t>((mirrored ? 0x80000000 : 0) | s << 16 | c);
        lower.lane[lane] = static_cast<uint8_t>(k);
        upper.lane[lane] = static_cast<uint8_t>(kComplexSize - k);
    }
};

struct NegateWhere {
    Quad mask;

    KORVANE_INLINE Quad operator()(Quad a) const { return negate_where(mask, a); }
};

/** The factors of a split, ready for use. */
struct SplitFactors {
    Quad c;
    Quad s;
    NegateWhere sign;

    KORVANE_INLINE explicit SplitFactors(const SplitLanes& lanes) {
        const Quad word = Quad::load(lanes.twiddle);
        c = bit_and(word, Quad::broadcast(0xFFFF));
        s = bit_or(asr<16>(word), Quad::broadcast(-32768));
        sign = {greater(Quad::broadcast(0), word)};
    }
};

/** Groups 0 and 2, line by line of the columns. */
constexpr auto kSplit = [] {
    std::array<std::array<SplitLanes, kRows>, 2> split{};
    for (unsigned half = 0; half < 2; ++half) {
        for (unsigned j = 0; j < kRows; ++j) {
            for (int l = 0; l < 4; ++l) {
                const bool taken_over = half == 1 && l == 0 && j > 4;  // by real_fft288
                const int line = kLines[taken_over ? 3 : 2 * half][l];
                split[half][j].set(l, line_at(static_cast<int>(j), line));
            }
        }
    }
    return split;
}();

/** Four 0, column by column, and row 0: columns 0 to 3 and 4 to 7. */
constexpr auto kUnsplit = [] {
    std::array<SplitLanes, kColumns + 2> split{};
    for (unsigned column = 0; column < kColumns; ++column) {
        for (int l = 0; l < 4; ++l) {
            split[column].set(l, element_at(row_of(0, l), static_cast<int>(column)));
        }
    }
    for (int column = 0; column < 8; ++column) {
        split[static_cast<unsigned>(kColumns + column / 4)].set(column % 4, element_at(0, column));
    }
    return split;
}();

}  // namespace

void real_fft288(int32_t* out, const int32_t* in) {
    constexpr auto kDirection = Direction::kForward;
    Area area;
    Complex<Quad> x[4];
    for (unsigned q = 0; q < 4; ++q) {
        x[q] = gather(in, kFirstRow[q]);
    }
    first_row<kDirection>(area, x);
    for (int four = 0; four < 2; ++four) {
        Complex<Quad> a[kColumns];
        for (unsigned column = 0; column < kColumns; ++column) {
            a[column] = gather(in, kElements[static_cast<unsigned>(four)][column]);
        }
        four_rows<kDirection>(area, four, a);
    }
    for (int group = 0; group < kGroups; ++group) {
        Complex<Quad> e[kRows];
        four_columns<kDirection>(area, group, e);
        for (int j = 0; j < kRows; ++j) {
            area[j][group] = e[position_of(j)];
        }
    }
    const Complex<Quad> middle = area[0][2];
    const Complex<Quad> dc = area[0][3];
    // Lane 0 of group 2 has its mirrors in group 2, that of group 3 in group 3. Exchanged in one of
    // two mirrored lines they stand as the other lanes do.
    for (int j = 5; j < kRows; ++j) {
        const Complex<Quad> a = area[j][2];
        const Complex<Quad> b = area[j][3];
        area[j][2] = first_from(b, a);
        area[j][3] = first_from(a, b);
    }
    for (int side = 0; side < 2; ++side) {
        for (int j = 0; j < kRows; ++j) {
            const SplitLanes& lanes = kSplit[static_cast<unsigned>(side)][static_cast<unsigned>(j)];
            const SplitFactors w(lanes);
            Complex<Quad> a = area[j][2 * side];
            Complex<Quad> b = area[j == 0 ? 0 : kRows - j][2 * side + 1];
            split(a, b, w.c, w.s, w.sign);
            scatter(out, lanes.lower, a);
            scatter(out, lanes.upper, b);
        }
    }
    out[0] = korvane::add_wrap(lane0(dc.re), lane0(dc.im));
    out[1] = korvane::sub_wrap(lane0(dc.re), lane0(dc.im));
    out[kComplexSize] = lane0(middle.re);
    out[kComplexSize + 1] = korvane::neg_wrap(lane0(middle.im));
}

void real_ifft288(int32_t* out, const int32_t* in) {
    constexpr auto kDirection = Direction::kInverse;
    Complex<Quad> fours[2][kColumns + 2];  // the last two are of row 0
    for (int column = 0; column < kColumns + 2; ++column) {
        const SplitLanes& lanes = kUnsplit[static_cast<unsigned>(column)];
        const SplitFactors w(lanes);
        Complex<Quad> a = gather(in, lanes.lower);
        Complex<Quad> b = gather(in, lanes.upper);
        unsplit(a, b, w.c, w.s, w.sign);
        fours[0][column] = a;
        fours[1][column < kColumns ? (kColumns - column) % kColumns : column] = b;
    }
    Area area;
    const Complex<Quad> dc = {single4(korvane::add_wrap(in[0], in[1])),
                              single4(korvane::sub_wrap(in[0], in[1]))};
    const Complex<Quad> middle = {single4(in[kComplexSize]),
                                  single4(korvane::neg_wrap(in[kComplexSize + 1]))};
    // The mirrors of columns 0 to 3 are columns 0, 15, 14, 13, those of 4 to 7 are 12, 11, 10, 9.
    const Complex<Quad> last = fours[1][kColumns];
    const Complex<Quad> third = fours[1][kColumns + 1];
    Complex<Quad> x[4] = {first_from(dc, fours[0][kColumns]), fours[0][kColumns + 1],
                          first_from(middle, backwards(third)), first_from(third, backwards(last))};
    first_row<kDirection>(area, x);
    for (int four = 0; four < 2; ++four) {
        four_rows<kDirection>(area, four, fours[four]);
    }
    for (int group = 0; group < kGroups; ++group) {
        Complex<Quad> e[kRows];
        four_columns<kDirection>(area, group, e);
        for (unsigned row = 0; row < kRows; ++row) {
            scatter(out, kResults[static_cast<unsigned>(group)][row], e[row]);
        }
    }
}

}  // namespace korvane::KORVANE_ISA
