#include "dsp/fft288.h"

#include "dsp/fft288_kernels.h"

namespace korvane {

namespace {

// The 144-point result with index k stands, after both passes, at row kDigitrev9[4k mod 9] and column
// fft_bitrev16[9k mod 16]: 4 is the inverse of 16 modulo 9, and 9 its own inverse modulo 16.
constexpr int32_t kBitrev16[kColumns] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};
constexpr int32_t fft_digitrev9[kRows] = {0, 3, 6, 1, 4, 7, 2, 5, 8};

// Where dft16 leaves spectral line l.
constexpr int line_position(int line) { return 4 * (line % 4) + line / 4; }

constinit Complex fft_work[kComplexSize] = {};     // 9 rows by 16 columns, row-major
constinit int32_t fft_bitrev16[kColumns] = {};     // zero until fft288_init
constinit int32_t fft_col_stride = 0;              // elements from row to row: 16 once initialised

/** Where element m of a 144-point sequence enters the work area. */
Complex& entry(int m) { return fft_work[kColumns * (m % kRows) + m % kColumns]; }

/** Where element k of the 144-point result is found. */
const Complex& result(int k) {
    return fft_work[kColumns * fft_digitrev9[4 * k % kRows] + fft_bitrev16[9 * k % kColumns]];
}

/** The 144-point transform of fft_work: a 16-point pass on each row, stored bit-reversed, and a
 * 9-point pass on each column, stored digit-reversed. */
template <Direction kDirection>
void transform144() {
    for (int row = 0; row < kRows; ++row) {
        Complex* const base = fft_work + kColumns * row;
        Complex a[kColumns];
        for (int i = 0; i < kColumns; ++i) {
            a[i] = base[i];
        }
        dft16<kDirection>(a);
        for (int j = 0; j < kColumns; ++j) {
            base[j] = a[line_position(fft_bitrev16[j])];
        }
    }
    for (int column = 0; column < kColumns; ++column) {
        Complex* const base = fft_work + column;
        Complex e[kRows];
        for (int i = 0; i < kRows; ++i) {
            e[i] = base[fft_col_stride * i];
        }
        dft9<kDirection>(e);
        for (int i = 0; i < kRows; ++i) {
            base[fft_col_stride * i] = e[i];
        }
    }
}

/** Sums and differences of two mirrored bins, from which both directions build theirs. */
struct Mirrored {
    int32_t sr, dr, si, di;
};

Mirrored mirror(Complex a, Complex b) {
    return {add_wrap(a.re, b.re), sub_wrap(a.re, b.re), add_wrap(a.im, b.im),
            sub_wrap(a.im, b.im)};
}

}  // namespace

}  // namespace korvane

extern "C" {

void fft288_init(void) {
    using namespace korvane;
    for (int i = 0; i < kColumns; ++i) {
        fft_bitrev16[i] = kBitrev16[i];
    }
    fft_col_stride = kColumns;
}

void real_fft288(int32_t* out, const int32_t* in) {
    using namespace korvane;
    for (int m = 0; m < kComplexSize; ++m) {
        entry(m) = {in[2 * m], in[2 * m + 1]};
    }
    transform144<Direction::kForward>();

    // Even and odd samples travelled as real and imaginary part; the split takes their spectra apart.
    // The products are halved, as the sums are by their shift: X = (A + B*)/2 + W*(A - B*)/2i.
    const Complex dc = result(0);
    out[0] = add_wrap(dc.re, dc.im);
    out[1] = sub_wrap(dc.re, dc.im);
    const Complex middle = result(kComplexSize / 2);
    out[kComplexSize] = middle.re;
    out[kComplexSize + 1] = neg_wrap(middle.im);
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        const auto [sr, dr, si, di] = mirror(result(k), result(mirrored));
        const int32_t c = twd576[2 * k][0];
        const int32_t s = twd576[2 * k][1];  // minus the sine
        const int32_t t = add_wrap(mul_half_q15(dr, s), mul_half_q15(si, c));
        const int32_t u = add_wrap(mul_half_q15(neg_wrap(dr), c), mul_half_q15(si, s));
        out[2 * k] = add_wrap(sr >> 1, t);
        out[2 * k + 1] = add_wrap(u, di >> 1);
        out[2 * mirrored] = sub_wrap(sr >> 1, t);
        out[2 * mirrored + 1] = sub_wrap(add_wrap(u, di >> 1), di);
    }
}

void real_ifft288(int32_t* out, const int32_t* in) {
    using namespace korvane;
    // The split run backwards. DC and Nyquist are not halved, unlike every other bin.
    entry(0) = {add_wrap(in[0], in[1]), sub_wrap(in[0], in[1])};
    entry(kComplexSize / 2) = {in[kComplexSize], neg_wrap(in[kComplexSize + 1])};
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        const auto [sr, dr, si, di] =
            mirror({in[2 * k], in[2 * k + 1]}, {in[2 * mirrored], in[2 * mirrored + 1]});
        const int32_t c = twd576[2 * k][0];
        const int32_t s = twd576[2 * k][1];  // minus the sine
        const int32_t v = add_wrap(mul_half_q15(si, s), mul_half_q15(dr, c));
        const int32_t w = add_wrap(mul_half_q15(neg_wrap(dr), s), mul_half_q15(si, c));
        entry(k) = {sub_wrap(sr >> 1, w), add_wrap(v, di >> 1)};
        entry(mirrored) = {add_wrap(sr >> 1, w), sub_wrap(v, di >> 1)};
    }
    transform144<Direction::kInverse>();
    for (int m = 0; m < kComplexSize; ++m) {
        const Complex z = result(m);
        out[2 * m] = z.re;
        out[2 * m + 1] = z.im;
    }
}

}  // extern "C"
