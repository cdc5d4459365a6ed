/**
 * Which form of the vector code this machine runs.
 */
#ifndef KORVANE_DSP_INSTRUCTION_SET_H
#define KORVANE_DSP_INSTRUCTION_SET_H

namespace korvane {

enum class InstructionSet { kUnknown, kPlain, kSse2, kAvx2, kNeon };

/** The widest one that this build contains and this machine has. Asks the processor the first time,
 * remembers the answer; never kUnknown. */
InstructionSet instruction_set();

/** Makes instruction_set() answer `set`, which this machine must have: for tests and measurements.
 * kUnknown asks the processor again. What is chosen at initialisation follows at the next one. */
void force_instruction_set(InstructionSet set);

}  // namespace korvane

#endif
