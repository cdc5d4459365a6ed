/* Reads a recording and does nothing with it: what a file costs without the detector.
 *
 *     read_wav FILE
 */
#include <sndfile.h>
#include <stdio.h>

enum { kPiece = 65536 };

static short samples[kPiece];

int main(int argc, char** argv) {
    SF_INFO info = {0};
    SNDFILE* const file = argc == 2 ? sf_open(argv[1], SFM_READ, &info) : NULL;
    if (file == NULL) {
        fprintf(stderr, "usage: read_wav FILE\n");
        return 2;
    }
    long long total = 0;
    for (sf_count_t n; (n = sf_read_short(file, samples, kPiece)) > 0;) {
        total += n;
    }
    sf_close(file);
    return total == (long long)info.frames * info.channels ? 0 : 1;
}
