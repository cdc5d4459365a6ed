/* A host without a log function: log_child PID. Its process id, as the library sees it, is PID, so
 * that the form of a line can be compared whatever the system's process ids are. */
#include <stdlib.h>

#include "korvane_vad.h"

static int pid;

__attribute__((visibility("default"))) int getpid(void);

int getpid(void) { return pid; }

int main(int argc, char** argv) {
    static VadHandle vad;
    pid = argc == 2 ? atoi(argv[1]) : 0;
    VoiceActivityDetectionInit();
    VoiceActivityDetectionConfigAll(&vad, 4294967295u, 320, NULL, -1);
    return 0;
}
