"""What the tests of the built korvane-vad share.

The command is taken from KORVANE_VAD_TOOL (words as in a shell, so that an emulator may come first).
"""

import os
import re
import shlex
import shutil
import struct
import subprocess
import tempfile
import time
import unittest
import wave
from array import array
from itertools import accumulate

TOOL = shlex.split(os.environ["KORVANE_VAD_TOOL"])
os.environ["XDG_CONFIG_HOME"] = "/none"  # nobody's settings
ALSA = "/usr/share/sounds/alsa/Front_Center.wav"  # 48 kHz mono, "front center"
DETECTOR = ("--decision", "detector")  # one segment for a whole prompt, its pauses being short for it
PROMPT = "/usr/share/asterisk/sounds/en_US_f_Allison/agent-user.wav"  # 8 kHz mono


def read_wav(path):
    """Rate, channels and 16-bit samples, interleaved."""
    with wave.open(path) as file:
        assert file.getsampwidth() == 2
        samples = array("h", file.readframes(file.getnframes()))
        return file.getframerate(), file.getnchannels(), samples


def write_wav(path, rate, channels, samples):
    with wave.open(path, "wb") as file:
        file.setnchannels(channels)
        file.setsampwidth(2)
        file.setframerate(rate)
        file.writeframes(array("h", samples).tobytes())


def wav_header(rate, channels, data_bytes):
    return b"RIFF" + struct.pack(
        "<I4s4sIHHIIHH4sI", 36 + data_bytes, b"WAVE", b"fmt ", 16, 1, channels, rate,
        2 * channels * rate, 2 * channels, 16, b"data", data_bytes)


def low_pass(x):
    """Two moving averages of 16 samples: what is left lies below 1/16 of the rate, where the allpass
    filter of the two-band path delays by 3 samples to within a third. Sounds above lag behind."""
    for _ in range(2):
        sums = list(accumulate(x, initial=0))
        x = [b - a for a, b in zip(sums, sums[16:])]
    return x


def best_lag(x, y, reach):
    """The lag, within +-reach, at which y resembles x most, both low-passed."""
    x, y = low_pass(x), low_pass(y)
    inner = x[reach:len(x) - reach]

    def product(lag):
        return sum(map(lambda a, b: a * b, inner, y[reach + lag:]))

    return max(range(-reach, reach + 1), key=product)


def loud_samples(samples, level_db):
    """First and last sample beyond a level in dB of full scale."""
    loud = [i for i, x in enumerate(samples) if abs(x) > 32768 * 10 ** (level_db / 20)]
    return loud[0], loud[-1]


class ToolTest(unittest.TestCase):
    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="korvane-vad-test-")
        self.addCleanup(shutil.rmtree, self.folder)

    def path(self, name):
        return os.path.join(self.folder, name)

    def wait_until(self, condition, seconds=60):
        deadline = time.monotonic() + seconds
        while not condition():
            self.assertLess(time.monotonic(), deadline)
            time.sleep(0.01)

    def run_tool(self, *arguments, **options):
        options.setdefault("stdout", subprocess.PIPE)
        done = subprocess.run(TOOL + list(arguments), stderr=subprocess.PIPE, text=True, timeout=120,
                              **options)
        # What a build for proofs/coverage says where a test keeps its counts from being written.
        done.stderr = re.sub("^LLVM Profile .*\n", "", done.stderr, flags=re.M)
        return done

    def start(self, *words, **options):
        """The tool at work, with pipes to it; it ends with the test, whatever comes of that."""
        tool = subprocess.Popen(TOOL + list(words), bufsize=0, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                                stderr=subprocess.PIPE, **options)
        for end in (tool.stdin.close, tool.stdout.close, tool.stderr.close, tool.wait, tool.kill):
            self.addCleanup(end)
        return tool

    def segments(self, *arguments):
        """Runs the tool, which must succeed and say nothing on stderr, and parses what it prints."""
        done = self.run_tool(*arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        lines = done.stdout.splitlines()
        if lines == ["no speech"]:
            return []
        self.assertEqual(lines[0].split(), ["start", "end", "duration"])
        rows = [tuple(float(word) for word in line.split()) for line in lines[1:]]
        self.assertTrue(rows)
        for start, end, duration in rows:
            self.assertLess(start, end)
            # Each figure is rounded on its own: half a millisecond each, and their binary error.
            self.assertLessEqual(abs(end - start - duration), 0.0015 + 1e-9)
        return rows

    def segments_and_cleaned(self, recording, out, *arguments):
        done = self.run_tool("clean", recording, out)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        return self.segments(recording, *arguments)

    def fails(self, file, reason, *arguments, code=1, **options):
        """Runs the tool, which must print `korvane-vad: FILE: REASON` and nothing else."""
        done = self.run_tool(*arguments, **options)
        self.assertEqual(done.returncode, code, done.stderr)
        self.assertFalse(done.stdout)
        self.assertEqual(done.stderr.count("\n"), 1, done.stderr)
        self.assertTrue(done.stderr.startswith(f"korvane-vad: {file}: "), done.stderr)
        self.assertIn(reason, done.stderr)

    def convert(self, name, *effects, source=ALSA, options=()):
        subprocess.run(["sox", "-D", source, *options, self.path(name), *effects], check=True)
        return self.path(name)
