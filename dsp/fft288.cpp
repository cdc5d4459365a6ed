#include "dsp/fft288.h"

#include "dsp/fft288_kernels.h"
#include "dsp/instruction_set.h"

namespace korvane {

namespace {

/** How the passes of the 144-point transform find their values. */
struct Permutation {
    int32_t fft_bitrev16[kColumns];
    int32_t fft_col_stride;  // elements from row to row
};

// The 144-point result with index k stands, after both passes, at row fft_digitrev9[4k mod 9] and
// column fft_bitrev16[9k mod 16]: 4 is the inverse of 16 modulo 9, and 9 its own inverse modulo 16.
constexpr Permutation kInitialised = {{0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15},
                                      kColumns};
constexpr Permutation kBeforeInit = {};  // meaningless, but within the work area
constexpr int32_t fft_digitrev9[kRows] = {0, 3, 6, 1, 4, 7, 2, 5, 8};

// Where dft16 leaves spectral line l.
constexpr int line_position(int line) { return 4 * (line % 4) + line / 4; }

using Work = Complex<int32_t>[kComplexSize];  // 9 rows by 16 columns, row-major

/** Where element m of a 144-point sequence enters the work area. */
Complex<int32_t>& entry(Work& work, int m) { return work[kColumns * (m % kRows) + m % kColumns]; }

/** Where element k of the 144-point result is found. */
template <const Permutation& kOrder>
const Complex<int32_t>& result(const Work& work, int k) {
    return work[kColumns * fft_digitrev9[4 * k % kRows] + kOrder.fft_bitrev16[9 * k % kColumns]];
}

/** The 144-point transform of the work area: a 16-point pass on each row, stored bit-reversed, and
 * a 9-point pass on each column, stored digit-reversed. */
template <Direction kDirection, const Permutation& kOrder>
void transform144(Work& work) {
    for (int row = 0; row < kRows; ++row) {
        Complex<int32_t>* const base = work + kColumns * row;
        Complex<int32_t> a[kColumns];
        for (int i = 0; i < kColumns; ++i) {
            a[i] = base[i];
        }
        dft16<kDirection>(a);
        for (int j = 0; j < kColumns; ++j) {
            base[j] = a[line_position(kOrder.fft_bitrev16[j])];
        }
    }
    for (int column = 0; column < kColumns; ++column) {
        Complex<int32_t>* const base = work + column;
        Complex<int32_t> e[kRows];
        for (int i = 0; i < kRows; ++i) {
            e[i] = base[kOrder.fft_col_stride * i];
        }
        dft9<kDirection>(e);
        for (int i = 0; i < kRows; ++i) {
            base[kOrder.fft_col_stride * i] = e[i];
        }
    }
}

template <const Permutation& kOrder>
void forward_transform(int32_t* out, const int32_t* in) {
    Work work;
    for (int m = 0; m < kComplexSize; ++m) {
        entry(work, m) = {in[2 * m], in[2 * m + 1]};
    }
    transform144<Direction::kForward, kOrder>(work);

    const Complex<int32_t> dc = result<kOrder>(work, 0);
    out[0] = add_wrap(dc.re, dc.im);
    out[1] = sub_wrap(dc.re, dc.im);
    const Complex<int32_t> middle = result<kOrder>(work, kComplexSize / 2);
    out[kComplexSize] = middle.re;
    out[kComplexSize + 1] = neg_wrap(middle.im);
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        Complex<int32_t> a = result<kOrder>(work, k);
        Complex<int32_t> b = result<kOrder>(work, mirrored);
        split<int32_t>(a, b, twd576[2 * k][0], twd576[2 * k][1]);
        out[2 * k] = a.re;
        out[2 * k + 1] = a.im;
        out[2 * mirrored] = b.re;
        out[2 * mirrored + 1] = b.im;
    }
}

template <const Permutation& kOrder>
void inverse_transform(int32_t* out, const int32_t* in) {
    Work work;
    // The split run backwards. DC and Nyquist are not halved, unlike every other bin.
    entry(work, 0) = {add_wrap(in[0], in[1]), sub_wrap(in[0], in[1])};
    entry(work, kComplexSize / 2) = {in[kComplexSize], neg_wrap(in[kComplexSize + 1])};
    for (int k = 1; k < kComplexSize / 2; ++k) {
        const int mirrored = kComplexSize - k;
        Complex<int32_t> a = {in[2 * k], in[2 * k + 1]};
        Complex<int32_t> b = {in[2 * mirrored], in[2 * mirrored + 1]};
        unsplit<int32_t>(a, b, twd576[2 * k][0], twd576[2 * k][1]);
        entry(work, k) = a;
        entry(work, mirrored) = b;
    }
    transform144<Direction::kInverse, kOrder>(work);
    for (int m = 0; m < kComplexSize; ++m) {
        const Complex<int32_t> z = result<kOrder>(work, m);
        out[2 * m] = z.re;
        out[2 * m + 1] = z.im;
    }
}

// The forms behind the exported transforms; fft288_init chooses.
constinit Transform forward = forward_transform<kBeforeInit>;
constinit Transform inverse = inverse_transform<kBeforeInit>;

}  // namespace

void real_fft288_plain(int32_t* out, const int32_t* in) {
    forward_transform<kInitialised>(out, in);
}

void real_ifft288_plain(int32_t* out, const int32_t* in) {
    inverse_transform<kInitialised>(out, in);
}

}  // namespace korvane

extern "C" {

void fft288_init(void) {
    using namespace korvane;
#if defined(KORVANE_SIMD) && defined(__x86_64__)
    const bool wide = instruction_set() == InstructionSet::kAvx2;
    forward = wide ? avx2::real_fft288 : sse2::real_fft288;
    inverse = wide ? avx2::real_ifft288 : sse2::real_ifft288;
#elif defined(KORVANE_SIMD) && defined(__aarch64__)
    forward = neon::real_fft288;
    inverse = neon::real_ifft288;
#else
    forward = real_fft288_plain;
    inverse = real_ifft288_plain;
#endif
}

void real_fft288(int32_t* out, const int32_t* in) { korvane::forward(out, in); }

void real_ifft288(int32_t* out, const int32_t* in) { korvane::inverse(out, in); }

}  // extern "C"
