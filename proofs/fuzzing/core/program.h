/**
 * Programs of calls: what a fuzzer's input means to the core.
 *
 * A program is run twice, by the build with vector code and by the plain one. Their names differ
 * (see CMakeLists.txt), so both live in one process; what the calls gave back must not differ.
 */
#ifndef KORVANE_PROOFS_FUZZING_PROGRAM_H
#define KORVANE_PROOFS_FUZZING_PROGRAM_H

#include <cstddef>
#include <cstdint>
#include <vector>

/** The calls that a program is made of. */
enum class Calls {
    kDetector,
    kSuppressor,
    kDecision,
    kTransforms,
    kUnpreparedTransforms,  // fft288_init never runs in this process
    kAll,
};

namespace korvane {

/** Runs the program that an input means. Returns all that the calls gave back: samples, flags,
 * values, messages, and at the end the state. */
const std::vector<uint8_t>& run_program(Calls calls, const uint8_t* input, size_t size);

}  // namespace korvane

/** Ends the process, for a fuzzer to see, unless a promise of the library was kept. */
void require(bool kept, const char* promise);

/** The messages logged since it was emptied. */
extern std::vector<char> messages;

#endif
