/**
 * The signal that the measurements run on.
 */
#ifndef KORVANE_BENCH_NOISY_SPEECH_H
#define KORVANE_BENCH_NOISY_SPEECH_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace korvane::bench {

/**
 * Speech in noise: the spoken clips of Debian's alsa-utils one after the other, over and over, at
 * -20 dB, and white noise 12 dB below that. The second channel has the same speech, quieter and a
 * millisecond late, and noise of its own. The same arguments give the same samples.
 *
 * @param rate      Hz
 * @param channels  1 or 2
 * @param frames    samples per channel
 * @return          frames * channels samples, interleaved
 *
 * Throws std::runtime_error where the clips are missing.
 */
std::vector<int16_t> noisy_speech(int rate, int channels, std::size_t frames);

}  // namespace korvane::bench

#endif
