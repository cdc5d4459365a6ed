// The two transforms that only hosts of libKorvaneVAD call. The table of instruction sets names them, so
// the linker would keep them, 10 kB; it takes these instead.
#include <cstdint>

namespace korvane::KORVANE_ISA {

void real_fft288(int32_t* out, const int32_t* in);
void real_ifft288(int32_t* out, const int32_t* in);

void real_fft288(int32_t* /*out*/, const int32_t* /*in*/) { __builtin_trap(); }
void real_ifft288(int32_t* /*out*/, const int32_t* /*in*/) { __builtin_trap(); }

}  // namespace korvane::KORVANE_ISA
