#include "dsp/fft288.h"

#include "dsp/fft288_kernels.h"
#include "dsp/instruction_set.h"

namespace korvane {

namespace {

// The 144-point result with index k stands, after both passes, at row fft_digitrev9[4k mod 9] and
// column fft_bitrev16[9k mod 16]: 4 is the inverse of 16 modulo 9, and 9 its own inverse modulo 16.
constexpr int32_t kBitrev16[kColumns] = {0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15};
constexpr int32_t fft_digitrev9[kRows] = {0, 3, 6, 1, 4, 7, 2, 5, 8};

// Where dft16 leaves spectral line l.
constexpr int line_position(int line) { return 4 * (line % 4) + line / 4; }

constinit Complex<int32_t> fft_work[kComplexSize] = {};  // 9 rows by 16 columns, row-major
constinit int32_t fft_bitrev16[kColumns] = {};           // zero until fft288_init
constinit int32_t fft_col_stride = 0;  // elements from row to row: 16 once initialised

/** Where element m of a 144-point sequence enters the work area. */
Complex<int32_t>& entry(int m) { return fft_work[kColumns * (m % kRows) + m % kColumns]; }

/** Where element k of the 144-point result is found. */
const Complex<int32_t>& result(int k) {
    return fft_work[kColumns * fft_digitrev9[4 * k % kRows] + fft_bitrev16[9 * k % kColumns]];
}

/** The 144-point transform of fft_work: a 16-point pass on each row, stored bit-reversed, and a
 * 9-point pass on each column, stored digit-reversed. */
template <Direction kDirection>
void transform144() {
    for (int row = 0; row < kRows; ++row) {
        Complex<int32_t>* const base = fft_work + kColumns * row;
        Complex<int32_t> a[kColumns];
        for (int i = 0; i < kColumns; ++i) {
            a[i] = base[i];
        }
        dft16<kDirection>(a);
        for (int j = 0; j < kColumns; ++j) {
            base[j] = a[line_position(fft_bitrev16[j])];
        }
    }
    for (int column = 0; column < kColumns; ++column) {
        Complex<int32_t>* const base = fft_work + column;
        Complex<int32_t> e[kRows];
        for (int i = 0; i < kRows; ++i) {
            e[i] = base[fft_col_stride * i];
        }
        dft9<kDirection>(e);
        for (int i = 0; i < kRows; ++i) {
            base[fft_col_stride * i] = e[i];
        }
    }
}

// The forms in use: plain until fft288_init chooses.
constinit Transform forward = real_fft288_plain;
constinit Transform inverse = real_ifft288_plain;

/** The forms for this machine. */
void choose_transforms() {
#if defined(KORVANE_SIMD) && defined(__x86_64__)
    const bool wide = instruction_set() == InstructionSet::kAvx2;
    forward = wide ? avx2::real_fft288 : sse2::real_fft288;
    inverse = wide ? avx2::real_ifft288 : sse2::real_ifft288;
#elif defined(KORVANE_SIMD) && defined(__aarch64__)
    forward = neon::real_fft288;
    inverse = neon::real_ifft288;
#endif
}

}  // namespace

void real_fft288_plain(int32_t* out, const int32_t* in) {
    for (int m = 0; m < kComplexSize; ++m) {
        entry(m) = {in[2 * m], in[2 * m + 1]};
    }
    transform144<Direction::kForward>();

    const Complex<int32_t> dc = result(0);
    out[0] = add_wrap(dc.re, dc.im);
    out[1] = sub_wrap(dc.re, dc.im);
    const Complex<int32_t> middle = result(kComplexSize / 2);
    out[kComplexSize] = middle.re;
    out[kComplexSize + 1] = neg_wrap(middle.im);
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        Complex<int32_t> a = result(k);
        Complex<int32_t> b = result(mirrored);
        split<int32_t>(a, b, twd576[2 * k][0], twd576[2 * k][1]);
        out[2 * k] = a.re;
        out[2 * k + 1] = a.im;
        out[2 * mirrored] = b.re;
        out[2 * mirrored + 1] = b.im;
    }
}

void real_ifft288_plain(int32_t* out, const int32_t* in) {
    // The split run backwards. DC and Nyquist are not halved, unlike every other bin.
    entry(0) = {add_wrap(in[0], in[1]), sub_wrap(in[0], in[1])};
    entry(kComplexSize / 2) = {in[kComplexSize], neg_wrap(in[kComplexSize + 1])};
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        Complex<int32_t> a = {in[2 * k], in[2 * k + 1]};
        Complex<int32_t> b = {in[2 * mirrored], in[2 * mirrored + 1]};
        unsplit<int32_t>(a, b, twd576[2 * k][0], twd576[2 * k][1]);
        entry(k) = a;
        entry(mirrored) = b;
    }
    transform144<Direction::kInverse>();
    for (int m = 0; m < kComplexSize; ++m) {
        const Complex<int32_t> z = result(m);
        out[2 * m] = z.re;
        out[2 * m + 1] = z.im;
    }
}

}  // namespace korvane

extern "C" {

void fft288_init(void) {
    using namespace korvane;
    for (int i = 0; i < kColumns; ++i) {
        fft_bitrev16[i] = kBitrev16[i];
    }
    fft_col_stride = kColumns;
    choose_transforms();
}

void real_fft288(int32_t* out, const int32_t* in) { korvane::forward(out, in); }

void real_ifft288(int32_t* out, const int32_t* in) { korvane::inverse(out, in); }

}  // extern "C"
