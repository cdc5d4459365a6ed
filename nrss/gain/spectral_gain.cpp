#include "nrss/gain/spectral_gain.h"

#include <algorithm>

#include "dsp/fixed_point.h"
#include "nrss/gain/nrss_state.h"
#include "nrss/gain/tables.h"

namespace korvane {

namespace {

constexpr int32_t kOneQ30 = 0x3FFFFFFF;
constexpr int32_t kOneQ15 = 32767;

/**
 * One step of a recursive average, alpha*old + (1 - alpha)*next, formed as next + alpha*(old - next)
 * with one added against the truncation.
 *
 * @param alpha  Q15
 * @param next   the new value; the average rests one above it
 */
int32_t average(int32_t old, int32_t next, int32_t alpha) {
    return add_wrap(add_wrap(next, 1), mul_q15(sub_wrap(old, next), alpha));
}

/** Power of one complex bin; unsigned, since it may need the 32nd bit, and modulo 2^32. */
uint32_t bin_power(int32_t re, int32_t im) {
    const auto square = [](int32_t v) {
        return static_cast<uint32_t>(v) * static_cast<uint32_t>(v);
    };
    return square(re) + square(im);
}

/** Updates both power averages and returns the energy of the frame, in units of 128. */
int32_t track_power(NrssState& s, const int32_t* spectrum, int32_t n, int32_t bins) {
    uint32_t energy = 0;
    for (int k = 0; k < n; ++k) {
        // The 2 keeps a silent bin's power above zero.
        const uint32_t power = bin_power(spectrum[2 * k], spectrum[2 * k + 1]) + 2;
        const int32_t p = static_cast<int32_t>(power);
        s.psd_fast[k] = average(s.psd_fast[k], p, s.alpha_fast);
        s.psd_slow[k] = average(s.psd_slow[k], p, s.alpha_slow);
        energy += power >> 7;
    }
    for (int k = n; k < bins; ++k) {
        const int32_t p = spectrum[2 * k];
        s.psd_fast[k] = average(s.psd_fast[k], p, s.alpha_fast);
        s.psd_slow[k] = average(s.psd_slow[k], p, s.alpha_slow);
        energy += static_cast<uint32_t>(p >> 7);
    }
    return static_cast<int32_t>(energy);
}

/** Feeds the minimum search: the current row takes the minimum of psd_slow; when its sub-window is
 * full, the oldest row becomes the current one and starts from psd_slow itself. */
void track_minimum(NrssState& s, int32_t bins) {
    if (s.subwin_count >= s.subwin_len) {
        std::rotate(s.min_win_row, s.min_win_row + kSubWindows - 1, s.min_win_row + kSubWindows);
        std::copy_n(s.psd_slow, bins, s.min_win_row[0]);
        s.subwin_count = 0;
        s.noise_ready = 1;
    } else {
        int32_t* const row = s.min_win_row[0];
        for (int k = 0; k < bins; ++k) {
            row[k] = std::min(row[k], s.psd_slow[k]);
        }
    }
}

/** Noise power: the minimum over all sub-windows, times 1.15 for the bias of a minimum. The factor is
 * 18841/16384; the minimum takes two bits for it and wraps from 2^29 on. */
void estimate_noise(NrssState& s, int32_t bins) {
    for (int k = 0; k < bins; ++k) {
        const int32_t minimum = std::min(std::min(s.min_win_row[0][k], s.min_win_row[1][k]),
                                         std::min(s.min_win_row[2][k], s.min_win_row[3][k]));
        s.noise[k] = mul_shr(shl_wrap(minimum, 2), 18841, 16);
    }
}

/** Target over-subtraction factor, Q14, for a noise-to-power ratio x in Q15, 2049..32767 or 2048. */
int32_t osub_target(const int32_t* coef, int32_t x) {
    const int32_t* const c = x < kOsubBreakpoint ? coef : coef + 3;
    const int32_t slope = add_wrap(shl_wrap(mul_shr(x, c[0], 16), 1), c[1]);
    return add_wrap(c[2], shl_wrap(mul_shr(slope, x, 16), 1));
}

/** Over-subtraction factors: the lower a bin's signal-to-noise ratio, the more is subtracted. */
void update_oversubtraction(NrssState& s, int32_t bins) {
    for (int k = 0; k < bins; ++k) {
        const int32_t ratio = ratio_q30(s.noise[k], s.psd_slow[k]);
        const int32_t x = std::max(ratio > kOneQ30 ? kOneQ15 : ratio >> 15, 2048);
        s.osub[k] = average(s.osub[k], osub_target(s.osub_coef, x), s.alpha_osub);
    }
}

/** gain = 1 - weight * factor * sqrt(noise / power), not below the floor. */
void compute_gains(NrssState& s, int32_t bins) {
    const int16_t* const weight = osf;
    for (int k = 0; k < bins; ++k) {
        const int32_t root = sqrt_q15(ratio_q30(s.noise[k], s.psd_fast[k]));
        const int32_t factor = mul_shr(weight[k], s.osub[k], 13) & ~3;  // Q16
        const int32_t gain = sub_wrap(kOneQ15, mul_shr(factor, root, 16));
        // Compared in 32 bits, cut to 16 afterwards.
        s.gain[k] = static_cast<int16_t>(gain > s.gain_floor ? gain : s.gain_floor);
    }
}

/** A run of bins whose gains are replaced by the mean over `reach` neighbours on either side. */
struct SmoothedRun {
    int first;
    int last;
    int reach;
    uint32_t reciprocal;  // 1 / (2 * reach + 1), Q16, truncated
};

constexpr SmoothedRun kSmoothedRuns[] = {{2, 33, 1, 21845}, {34, 65, 2, 13107}, {66, 129, 3, 9362}};

/** Smooths the gains across frequency, wider towards higher bins, as hearing's resolution is. Keeps
 * a running sum; every sum is taken over gains as they were before any was replaced. */
void smooth_gains(NrssState& s) {
    std::copy_n(s.gain, kGains, s.gain_scratch);
    const int32_t* const u = s.gain_scratch;
    for (const auto& [first, last, reach, reciprocal] : kSmoothedRuns) {
        int32_t sum = 0;
        for (int k = first - reach; k < first + reach; ++k) {
            sum += u[k];
        }
        for (int k = first; k <= last; ++k) {
            sum += u[k + reach];
            s.gain[k] = static_cast<int16_t>(static_cast<uint32_t>(sum) * reciprocal >> 16);
            sum -= u[k - reach];
        }
    }
}

}  // namespace

int32_t ratio_q30(int32_t noise, int32_t power) {
    if (noise >= power) {
        return kOneQ30;
    }
    // A power that has wrapped to a negative value has e = 0 and is shifted right; a power of 0
    // (above a negative noise) has e = 32 and gives 0.
    const int e = leading_zeros(power);
    const int32_t s = shl_any(power, e - 2);  // 2^29..2^30-1 for a positive power
    const int32_t d = sub_wrap(0x7FFFFFFF, shl_wrap(s, 1));
    const int32_t q = add_wrap(sub_wrap(0x7FFFFFFF, s), shl_wrap(mul_shr(d >> 16, d, 16), 1));
    const int32_t reciprocal = q >> 16;  // 2^14 / (s/2^30)
    return shl_any(mul_shr(reciprocal, noise, 16), e);
}

int32_t sqrt_q15(int32_t ratio) {
    // A negative ratio (from powers that have wrapped) has e = 0: m is then -2, a right shift by 2,
    // while the result's shift rounds (e - 1)/2 toward zero.
    const int e = leading_zeros(ratio);
    const int m = (e - 1) & ~1;
    const int32_t z = sub_wrap(shl_any(ratio, m), kOneQ30);  // normalised argument minus one, Q30
    const int32_t h = z >> 1;
    const int32_t z17 = z >> 17;
    const int32_t square = mul_shr(z17, h, 16);                        // z^2/16
    const int32_t cube = mul_shr(shl_wrap(square, 1), z17, 14) & ~3;  // z^3/16
    const int32_t v =
        add_wrap(sub_wrap(add_wrap(kOneQ30, h), shl_wrap(square, 1)), cube);
    return std::min(v >> ((e - 1) / 2 + 15), kOneQ15);
}

const int16_t* NRSS_Gains() { return nrss_state.gain; }

void NRSS_SpectralGain(const int32_t* spectrum, int32_t n, int32_t extra_bins) {
    NrssState& s = nrss_state;
    const int32_t bins = n + extra_bins;

    s.subwin_count = add_wrap(s.subwin_count, 1);
    // Counts only to tell the start-up; it stops rather than wrap, which after 2^31 frames (223 days at
    // 16 kHz) would send a running suppressor back into its start-up.
    s.frame_count += s.frame_count < INT32_MAX ? 1 : 0;
    const int32_t energy = track_power(s, spectrum, n, bins);
    if (s.frame_count < s.startup_frames) {
        return;
    }
    if (energy >= 1) {  // a silent frame must not pull the minimum down
        track_minimum(s, bins);
    }
    estimate_noise(s, bins);
    if (s.noise_ready != 1) {
        return;
    }
    update_oversubtraction(s, bins);
    compute_gains(s, bins);
    smooth_gains(s);
}

}  // namespace korvane
