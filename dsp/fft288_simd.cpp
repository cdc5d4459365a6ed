// One transform in vectors: rows 0..7 of the prime-factor work area side by side in the row pass
// (row 8 goes alone, in the integer units), then the 16 columns side by side in the column pass.

#include "dsp/fft288_batch.h"

namespace korvane::KORVANE_ISA {

namespace {

/** Two complex values, as they lie in memory: re, im, re, im. */
struct Pair {
    Quad v;
};

KORVANE_INLINE Pair load_pair(const int32_t* p) { return {Quad::load(p)}; }

/** Elements of four complex values, real and imaginary parts apart. */
KORVANE_INLINE Complex<Quad> separate(Pair a, Pair b) {
    return {even_lanes(a.v, b.v), odd_lanes(a.v, b.v)};
}

/** Four complex values from four places. */
KORVANE_INLINE Complex<Quad> gather(const int32_t* a, const int32_t* b, const int32_t* c,
                                    const int32_t* d) {
    return separate({load_two_pairs(a, b)}, {load_two_pairs(c, d)});
}

/** Where element m = (64*row + 81*column) mod 144 of the sequence lies in an array of pairs. */
constexpr int sequence_offset(int row, int column) {
    return 2 * ((64 * row + 81 * column) % kComplexSize);
}

/** Line at (row, column) of the work area after both passes: the inverse of result_index. */
constexpr auto line_at = [] {
    std::array<uint8_t, kComplexSize> line{};
    for (int k = 0; k < kComplexSize; ++k) {
        line[result_index[static_cast<unsigned>(k)]] = static_cast<uint8_t>(k);
    }
    return line;
}();

/** The 144-point transform of z[0..287], pairs in natural order, to out[0..287], likewise; out may
 * be z. */
template <Direction kDirection>
KORVANE_INLINE void transform144(int32_t* out, const int32_t* z) {
    Complex<Quad> rows[kRows][kColumns / 4];

    Complex<int32_t> last[kColumns];
    for (int column = 0; column < kColumns; ++column) {
        const int32_t* const p = z + sequence_offset(8, column);
        last[column] = {p[0], p[1]};
    }
    dft16<kDirection>(last);
    for (int group = 0; group < kColumns / 4; ++group) {
        const Complex<int32_t>* const p = last + 4 * group;
        rows[8][group] = {Quad::of(p[0].re, p[1].re, p[2].re, p[3].re),
                          Quad::of(p[0].im, p[1].im, p[2].im, p[3].im)};
    }

    for (int row = 0; row < 8; row += 4) {
        Complex<Quad> a[kColumns];
        for (int column = 0; column < kColumns; ++column) {
            a[column] =
                gather(z + sequence_offset(row, column), z + sequence_offset(row + 1, column),
                       z + sequence_offset(row + 2, column), z + sequence_offset(row + 3, column));
        }
        dft16<kDirection>(a);
        for (int group = 0; group < kColumns / 4; ++group) {
            Complex<Quad>* const p = a + 4 * group;
            transpose(p[0].re, p[1].re, p[2].re, p[3].re);
            transpose(p[0].im, p[1].im, p[2].im, p[3].im);
            for (int i = 0; i < 4; ++i) {
                rows[row + i][group] = p[i];
            }
        }
    }

    for (int group = 0; group < kColumns / 4; ++group) {
        Complex<Quad> e[kRows];
        for (int row = 0; row < kRows; ++row) {
            e[row] = rows[row][group];
        }
        dft9<kDirection>(e);
        for (int row = 0; row < kRows; ++row) {
            const uint8_t* const line = line_at.data() + kColumns * row + 4 * group;
            store_two_pairs(out + 2 * line[0], out + 2 * line[1], zip_low(e[row].re, e[row].im));
            store_two_pairs(out + 2 * line[2], out + 2 * line[3], zip_high(e[row].re, e[row].im));
        }
    }
}

/** Values k, k + 1, k + 2, k + 3 of an array of pairs, and how they go back. */
KORVANE_INLINE Complex<Quad> load_run(const int32_t* z, int k) {
    return separate(load_pair(z + 2 * k), load_pair(z + 2 * k + 4));
}
KORVANE_INLINE void store_run(int32_t* z, int k, Complex<Quad> a) {
    store(z + 2 * k, zip_low(a.re, a.im));
    store(z + 2 * k + 4, zip_high(a.re, a.im));
}
KORVANE_INLINE Complex<Quad> reversed(Complex<Quad> a) { return {reverse(a.re), reverse(a.im)}; }

/** Entries 2k, 2k + 2, 2k + 4, 2k + 6 of twd576. */
KORVANE_INLINE Complex<Quad> load_twiddles(int k) {
    int32_t entries[8];
    std::memcpy(entries, twd576[2 * k], sizeof entries);
    const Quad both = even_lanes(Quad::load(entries), Quad::load(entries + 4));
    return {bit_and(both, Quad::broadcast(0xFFFF)), asr<16>(both)};
}

// Bins 1..71 and their mirrors in runs of four; the last run goes over bin 68 again.
constexpr int kLastRun = kComplexSize / 2 - 4;
constexpr int run_start(int k) { return k < kLastRun ? k : kLastRun; }

constinit int32_t lines[kFrameSize] = {};

}  // namespace

void real_fft288(int32_t* out, const int32_t* in) {
    transform144<Direction::kForward>(lines, in);
    out[0] = korvane::add_wrap(lines[0], lines[1]);
    out[1] = korvane::sub_wrap(lines[0], lines[1]);
    out[kComplexSize] = lines[kComplexSize];
    out[kComplexSize + 1] = korvane::neg_wrap(lines[kComplexSize + 1]);
    for (int next = 1; next < kComplexSize / 2; next += 4) {
        const int k = run_start(next);
        const int mirrored = kComplexSize - k - 3;
        const Complex<Quad> w = load_twiddles(k);
        Complex<Quad> a = load_run(lines, k);
        Complex<Quad> b = reversed(load_run(lines, mirrored));
        split(a, b, w.re, w.im);
        store_run(out, k, a);
        store_run(out, mirrored, reversed(b));
    }
}

void real_ifft288(int32_t* out, const int32_t* in) {
    lines[0] = korvane::add_wrap(in[0], in[1]);
    lines[1] = korvane::sub_wrap(in[0], in[1]);
    lines[kComplexSize] = in[kComplexSize];
    lines[kComplexSize + 1] = korvane::neg_wrap(in[kComplexSize + 1]);
    for (int next = 1; next < kComplexSize / 2; next += 4) {
        const int k = run_start(next);
        const int mirrored = kComplexSize - k - 3;
        const Complex<Quad> w = load_twiddles(k);
        Complex<Quad> a = load_run(in, k);
        Complex<Quad> b = reversed(load_run(in, mirrored));
        unsplit(a, b, w.re, w.im);
        store_run(lines, k, a);
        store_run(lines, mirrored, reversed(b));
    }
    transform144<Direction::kInverse>(out, lines);
}

}  // namespace korvane::KORVANE_ISA
