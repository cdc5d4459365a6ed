/**
 * Which form of the vector code this machine runs.
 */
#ifndef KORVANE_DSP_INSTRUCTION_SET_H
#define KORVANE_DSP_INSTRUCTION_SET_H

namespace korvane {

enum class InstructionSet { kUnknown, kPlain, kSse2, kAvx2, kNeon };

/** The widest that this build contains and this machine has. Asks the processor the first time,
 * remembers the answer; never kUnknown. */
InstructionSet instruction_set();

/** Makes instruction_set() answer `set`, one of this build that this machine has: for tests and
 * measurements. kUnknown asks the processor again. The transforms follow at fft288_init. */
void force_instruction_set(InstructionSet set);

}  // namespace korvane

#endif
