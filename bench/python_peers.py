"""What bench/python measures: the least, middle and most seconds of several runs that take turns."""
import ctypes
import platform
import statistics
import time

import numpy as np

import korvane_vad
from korvane_vad.__main__ import read_wav

RATE = 16000
CHUNK = RATE // 50  # 20 ms, as detectors in Python are called
TURNS = 7


def hour():
    """Prompts of a telephone system over noise, at 16 kHz by doubling: an hour of int16."""
    prompt = np.repeat(read_wav("/usr/share/asterisk/sounds/en_US_f_Allison/vm-intro.wav")[0][:, 0], 2)
    noise = np.random.default_rng(3).normal(0, 100, 3600 * RATE)
    return np.clip(np.resize(prompt, noise.size) + noise, -32768, 32767).astype(np.int16)


def speexdsp(samples):
    """SpeexDSP's preprocessor with its detector, a call for each 20 ms."""
    lib = ctypes.CDLL("libspeexdsp.so.1")
    lib.speex_preprocess_state_init.restype = ctypes.c_void_p
    run = lib.speex_preprocess_run
    run.argtypes = [ctypes.c_void_p, ctypes.c_void_p]
    state = ctypes.c_void_p(lib.speex_preprocess_state_init(CHUNK, RATE))
    lib.speex_preprocess_ctl(state, 4, ctypes.byref(ctypes.c_int(1)))  # SPEEX_PREPROCESS_SET_VAD
    work = samples.copy()
    flags = [run(state, work.ctypes.data + 2 * at) for at in range(0, work.size, CHUNK)]
    lib.speex_preprocess_state_destroy(state)
    return sum(flags)


def in_chunks(samples):
    """This package, a call for each 20 ms."""
    with korvane_vad.Stream(RATE) as stream:
        return sum(stream.process(samples[at:at + CHUNK]).speech for at in range(0, samples.size, CHUNK))


def resident():
    """Kilobytes of memory."""
    with open("/proc/self/status", encoding="ascii") as status:
        return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))


def main():
    """Prints the table and the memory."""
    samples = hour()
    real = (samples / 32768).astype(np.float32)
    rows = {
        "detect, int16": lambda: korvane_vad.detect(samples, RATE),
        "detect, float32": lambda: korvane_vad.detect(real, RATE),
        "frames, int16": lambda: korvane_vad.frames(samples, RATE),
        "clean, int16": lambda: korvane_vad.clean(samples, RATE),
        "Stream, 20 ms a call": lambda: in_chunks(samples),
        "SpeexDSP, 20 ms a call": lambda: speexdsp(samples),
    }
    times = {name: [] for name in rows}
    for turn in range(TURNS + 1):
        for name, run in rows.items():
            begun = time.perf_counter()
            run()
            if turn > 0:
                times[name].append(time.perf_counter() - begun)
    print("| an hour at 16 kHz | seconds | least | most | times real time |")
    print("|---|---:|---:|---:|---:|")
    for name, taken in times.items():
        middle = statistics.median(taken)
        print(f"| {name} | {middle:.3f} | {min(taken):.3f} | {max(taken):.3f} | {3600 / middle:.0f} |")
    with korvane_vad.Stream(RATE, frames=True, cleaned=True) as stream:
        for hours in range(10):
            for at in range(0, samples.size, RATE):
                stream.process(samples[at:at + RATE])
            if hours == 0:
                first = resident()
    print(f"a stream of 10 hours: {resident() - first} kB more after the last than after the first")
    print(f"Python {platform.python_version()}, NumPy {np.__version__}")


if __name__ == "__main__":
    main()
