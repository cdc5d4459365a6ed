/**
 * Vectors of N int32 lanes over the compilers' own vector types, for code that is written once for
 * every width.
 *
 * A source that uses them is compiled once for each instruction set. KORVANE_ISA names the set and the
 * namespace in which everything here lives, so that templates over these types never mix between sets;
 * KORVANE_LANES is the number of lanes of its registers, 1 for plain code.
 *
 *     Lanes<N>   N lanes: one register where N <= KORVANE_LANES, else two halves of N / 2 lanes
 *     I32<N>     Lanes<N>, but plain int32_t for N = 1
 *
 * Arithmetic has the names of dsp/fixed_point.h and gives its results lane by lane, bit by bit.
 * Operations for which the compilers find no good code by themselves have forms of their own in
 * dsp/lanes_x86.h, dsp/lanes_neon.h and dsp/lanes_wasm.h; what is here serves every processor.
 */
#ifndef KORVANE_DSP_LANES_H
#define KORVANE_DSP_LANES_H

#include "dsp/lanes_arithmetic.h"
#include "dsp/lanes_moves.h"
#include "dsp/lanes_samples.h"
#include "dsp/lanes_types.h"

#endif
