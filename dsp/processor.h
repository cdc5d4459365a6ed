/**
 * What the processor can do, beyond what every one of its kind can. Asked anew at each call.
 */
#ifndef KORVANE_DSP_PROCESSOR_H
#define KORVANE_DSP_PROCESSOR_H

namespace korvane {

/** Whether the processor has AVX2 and the operating system saves its registers. */
bool has_avx2();

}  // namespace korvane

#endif
