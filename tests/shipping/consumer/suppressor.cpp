/* A host in C++ that calls the detector's two halves itself; it prints what detector.c prints. */
#include <korvane_nrss.h>
#include <korvane_vad.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "test_signal.h"

int main() {
    std::vector<int16_t> frame(kFrame);
    uint32_t seed = 1;
    uint32_t digest = 2166136261U;
    std::string flags;

    OLM_VOR_Init();
    Tolu_NRSS_BufInit();
    Tolu_NRSS_Init(9, kRate);
    if (osf == nullptr || osf[0] != 32767 || twd576[0][0] != 32767) {
        std::puts("the library's tables are not what its header says");
        return 1;
    }
    for (int i = 0; i < kFrames; ++i) {
        next_frame(frame.data(), i, &seed);
        Tolu_NRSS_EXE(frame.data(), kFrame, 1);
        flags += OLM_VOR(frame.data(), nullptr, kFrame) != 0 ? '1' : '0';
        digest = add_to_digest(digest, frame.data());
    }
    std::printf("%s\n%08lx\n", flags.c_str(), static_cast<unsigned long>(digest));
    return 0;
}
