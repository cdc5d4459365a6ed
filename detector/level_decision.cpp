#include "detector/level_decision.h"

#include <cmath>

#include "dsp/fixed_point.h"

namespace korvane {

namespace {

constexpr double kFullScaleSquare = 1073741824.0;  // 32768^2 is 0 dB
constexpr double kSilence = 1e-7;  // added to the RMS value, so that silence has a finite level

/** A level in dB, and two mean squares as fractions of full scale, 1e-9 to either side of the one
 * that has this level, (10^(decibels/20) - 1e-7)^2. A frame outside the two is decided without a
 * square root and a logarithm. They lie 4e-9 dB off the level, a hundred thousand times what the
 * rounding of any library's square root and logarithm adds up to. */
struct Threshold {
    double decibels;
    double surely_below;
    double surely_above;
};

constexpr Threshold threshold(double decibels, double amplitude) {
    const double rms = amplitude - kSilence;
    return {decibels, rms * rms * (1 - 1e-9), rms * rms * (1 + 1e-9)};
}

constexpr Threshold kEnter = threshold(-45.0, 5.6234132519034908e-3);  // 10^(-45/20)
constexpr Threshold kStay = threshold(-50.0, 3.1622776601683793e-3);   // 10^(-50/20)
constexpr Threshold kFullScale = threshold(0.0, 1.0);

uint64_t sum_of_squares(const int16_t* x, int n) {
    uint64_t sum = 0;
    for (int i = 0; i < n; ++i) {
        sum += static_cast<uint32_t>(x[i] * x[i]);
    }
    return sum;
}

double mean_square(uint64_t sum, int n) {
    return static_cast<double>(sum) / (static_cast<double>(n) * kFullScaleSquare);
}

double decibels(double mean_square) { return 20.0 * std::log10(std::sqrt(mean_square) + kSilence); }

/** Whether the level of a frame of n samples lies above a threshold; n is not 0. */
bool is_above(uint64_t sum, int n, const Threshold& t) {
    const double square = mean_square(sum, n);
    if (square < t.surely_below || square > t.surely_above) {
        return square > t.surely_above;
    }
    return decibels(square) > t.decibels;
}

/** That decides the next frame. */
const Threshold& threshold_now(const VorState& s) {
    const bool speech = s.speech != 0;
    const bool enabled = (speech ? s.stay_enabled : s.enter_enabled) != 0;
    return !enabled ? kFullScale : speech ? kStay : kEnter;
}

}  // namespace

double level_db(const int16_t* x, int n) { return decibels(mean_square(sum_of_squares(x, n), n)); }

void VOR_Init(VorState& s) {
    s = {.enter_enabled = 1,
         .stay_enabled = 1,
         .rate_enabled = 1,
         .onset_samples = 480,
         .hangover_samples = 19200,
         .speech = 0,
         .countdown = 0};
}

void VOR_SetFs(VorState& s) {
    // 10 ms and 400 ms at 48 kHz; other rates have the same counts.
    const double base = s.rate_enabled != 0 ? 48000.0 : 0.0;
    s.onset_samples = static_cast<int32_t>(std::floor(base * 0.01));
    s.hangover_samples = static_cast<int32_t>(std::floor(base * 0.4));
}

int VOR_Count(VorState& s, bool above, int n) {
    // A countdown runs while frames ask for the other decision; one that does not ends it.
    const bool speech = s.speech != 0;
    if (above == speech) {
        s.countdown = 0;
        return static_cast<int>(s.speech);
    }
    if (s.countdown == 0) {
        s.countdown = speech ? s.hangover_samples : s.onset_samples;
    }
    s.countdown = sub_wrap(s.countdown, n);
    if (s.countdown < 1) {
        s.speech = speech ? 0 : 1;
        s.countdown = 0;
    }
    return static_cast<int>(s.speech);
}

int VOR_DecideSquares(VorState& s, const uint64_t* squares, int channels, int n) {
    const Threshold& t = threshold_now(s);
    // Of two channels the louder counts.
    return VOR_Count(s, is_above(squares[0], n, t) || (channels == 2 && is_above(squares[1], n, t)),
                     n);
}

int VOR_Decide(VorState& s, const int16_t* ch0, const int16_t* ch1, int n) {
    if (n == 0) {  // such a frame has no level and asks for nothing
        return VOR_Count(s, s.speech != 0, n);
    }
    const Threshold& t = threshold_now(s);
    return VOR_Count(s,
                     is_above(sum_of_squares(ch0, n), n, t) ||
                         (ch1 != nullptr && is_above(sum_of_squares(ch1, n), n, t)),
                     n);
}

}  // namespace korvane
