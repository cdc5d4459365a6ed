#include "dsp/fft288.h"

extern "C" const int16_t twd576[144][2] = {
#include "dsp/twd576_values.inc"
};
