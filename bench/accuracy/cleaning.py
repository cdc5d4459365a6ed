"""Measures what cleaning does to speech in noise.

    cleaning.py WORK PROGRAMS [--record]

Takes the test half's sessions with noise; WORK and PROGRAMS are those of measure.py. Prints a table; --record puts it into
docs/accuracy.md.
"""
import sys
from pathlib import Path

import numpy as np
from scipy import signal

from corpus import RATIOS, Half
from detectors import HERE, run, samples_at
from measure import half, heading, record, row
from sources import FRAME, RATE, Store

# How each is run: the rate it takes, and its program.
CLEANERS = {"this library": (16000, lambda work, programs: [programs / "accuracy_streams", "cleaned", 16000]),
            "RNNoise": (48000, lambda work, programs: ["node", HERE / "peers/peers.mjs", work / "npm", "rnnoise", "cleaned"])}
STOI_RATE = 10000
LENGTH, HOP = 256, 128  # of STOI's frames, samples
STRETCH = 30  # frames that are compared at a time: 384 ms
LOUDEST_ERROR = 10**(15 / 20)


def stoi(clean, heard):
    """Short-time objective intelligibility, 0..1: how much the envelopes of `heard` in bands of a third of an octave
    resemble those of the clean speech (Taal, Hendriks, Heusdens and Jensen, IEEE TASLP 19(7), 2011)."""
    window = np.hanning(LENGTH + 2)[1:-1]
    count = (len(clean) - LENGTH) // HOP
    at = np.arange(count)[:, None] * HOP + np.arange(LENGTH)
    frames = clean[at] * window
    energy = 20 * np.log10(np.linalg.norm(frames, axis=1) + 1e-12)
    loud = energy > energy.max() - 40

    def envelopes(x):
        """Bands by frames, of the frames that have speech, put together again as if there were no others."""
        kept = x[at][loud] * window
        joined = np.zeros((len(kept) - 1) * HOP + LENGTH)
        for i, frame in enumerate(kept):
            joined[i * HOP:i * HOP + LENGTH] += frame
        spectrum = np.fft.rfft(joined[at[:len(kept) - 1]] * window, 512)
        centres = 150 * 2**(np.arange(15) / 3)
        f = np.arange(257) * STOI_RATE / 512
        edge = lambda x: np.argmin(np.abs(f - x))
        return np.sqrt([np.sum(np.abs(spectrum[:, edge(c * 2**(-1 / 6)):edge(c * 2**(1 / 6))])**2, axis=1)
                        for c in centres])

    x, y = envelopes(clean), envelopes(heard)
    likeness = []
    for end in range(STRETCH, x.shape[1] + 1):
        a, b = x[:, end - STRETCH:end], y[:, end - STRETCH:end]
        b = b * (np.linalg.norm(a, axis=1) / (np.linalg.norm(b, axis=1) + 1e-12))[:, None]
        b = np.minimum(b, a * (1 + LOUDEST_ERROR))
        a, b = (v - v.mean(axis=1, keepdims=True) for v in (a, b))
        likeness.append(np.sum(a * b, axis=1) / (np.linalg.norm(a, axis=1) * np.linalg.norm(b, axis=1) + 1e-12))
    return np.mean(likeness)


def without_delay(sound, original):
    """Of as many samples as the original, moved to where the two are most alike."""
    n = len(original)
    alike = signal.correlate(original.astype(float), sound[:n].astype(float), "full", "fft")
    delay = int(np.argmax(np.abs(alike[n - 1 - RATE // 10:n + RATE // 10]))) - RATE // 10
    return np.roll(sound[:n], delay)


def speech_to_pause(sound, truth):
    """Level of the frames with speech above that of the others, in dB."""
    power = np.mean(sound[:len(truth) * FRAME].reshape(-1, FRAME).astype(float)**2, axis=1)
    return 10 * np.log10(power[truth].mean() / (power[~truth].mean() + 1e-12))


def main(work, programs, *options):
    work, programs = Path(work), Path(programs)
    source = Half(Store(work / "store"), "test")
    items = [(i, *item) for i, item in enumerate(half(work / "test")) if item[0]["group"] == "noise"]
    folder = work / "cleaned"
    folder.mkdir(exist_ok=True)
    heard = {"as it came": [samples for _, _, samples, _ in items]}
    for name, (rate, program) in CLEANERS.items():
        pairs = [(samples_at(folder, session, samples, rate), folder / (session["name"] + "." + name.replace(" ", "-")))
                 for _, session, samples, _ in items]
        run(program(work, programs), pairs)
        heard[name] = [without_delay(signal.resample_poly(np.fromfile(out, "<i2").astype(float), RATE, rate), samples)
                       for (_, out), (_, _, samples, _) in zip(pairs, items)]
    clean = [signal.resample_poly(source.session(session, i)[2], STOI_RATE, RATE) for i, session, _, _ in items]
    lines = heading("", "speech to pause, dB", "STOI", *(f"{ratio} dB" for ratio in RATIOS))
    for name, sounds in heard.items():
        scores = np.array([stoi(c, signal.resample_poly(x.astype(float), STOI_RATE, RATE)) for c, x in zip(clean, sounds)])
        gaps = [speech_to_pause(x, truth) for x, (_, _, _, truth) in zip(sounds, items)]
        by_ratio = (scores[[session["ratio"] == ratio for _, session, _, _ in items]].mean() for ratio in RATIOS)
        lines.append(row(name, f"{np.mean(gaps):.1f}", f"{scores.mean():.3f}", *(f"{x:.3f}" for x in by_ratio)))
    print("\n".join(lines))
    if "--record" in options:
        record(lines, "cleaned sound")


if __name__ == "__main__":
    main(*sys.argv[1:])
