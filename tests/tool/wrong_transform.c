/* Loaded before the library, this takes the place of its inverse transform. */
#include "korvane_nrss.h"

void real_ifft288(int32_t* out, const int32_t* in) {
    for (int i = 0; i < 288; ++i) {
        out[i] = in[i];
    }
}
