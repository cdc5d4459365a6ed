"""Runs the built korvane-vad on real speech and on everything that can go wrong.

The command is taken from KORVANE_VAD_TOOL (words as in a shell, so that an emulator may come first).
"""

import math
import os
import pathlib
import resource
import shlex
import shutil
import signal
import struct
import subprocess
import tempfile
import time
import unittest
import wave
from array import array
from itertools import accumulate

TOOL = shlex.split(os.environ["KORVANE_VAD_TOOL"])
ALSA = "/usr/share/sounds/alsa/Front_Center.wav"  # 48 kHz mono, "front center"
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

    def run_tool(self, *arguments, **options):
        options.setdefault("stdout", subprocess.PIPE)
        return subprocess.run(TOOL + list(arguments), stderr=subprocess.PIPE, text=True, timeout=120,
                              **options)

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


class Speech(ToolTest):
    def test_is_found_where_it_is_and_cleaned_in_place(self):
        # Digital silence, speech, digital silence. What the suppressor's overlapping frames of 288
        # values can do is to move sound by less than two of them: 576 samples, 1152 where the values
        # are those of a half-rate band.
        for recording in (PROMPT, self.convert("16k.wav", "rate", "16000"),
                          self.convert("44k.wav", "rate", "44100"), ALSA):
            with self.subTest(recording):
                rate, speech = read_wav(recording)[0::2]
                lead = 2 * rate + 77
                tail = 19200 + 2 * rate
                padded = [0] * lead + list(speech) + [0] * tail
                write_wav(self.path("in.wav"), rate, 1, padded)
                rows = self.segments(self.path("in.wav"), "--cleaned", self.path("out.wav"))
                spread = 576 if rate < 25000 else 1152
                frame = rate // 100
                first, _ = loud_samples(speech, -30)
                audible, last = loud_samples(speech, -55)
                start, end = rows[0][0] * rate, rows[-1][1] * rate
                # No frame with nothing in it is above -45 dB.
                self.assertGreaterEqual(start, lead + audible - spread - frame)
                # Once the voice is there, the onset takes 480 samples in whole frames; a fifth of a
                # second is the time it has to rise from its first sample beyond -30 dB.
                self.assertLessEqual(start, lead + first + rate / 5)
                # The hang-over follows the last frame above -50 dB, in whole frames.
                hangover = -(-19200 // frame) * frame
                self.assertLessEqual(end, lead + last + spread + hangover + frame)
                self.assertGreaterEqual(end, lead + first + hangover)
                self.assertLess(end, len(padded))
                out = read_wav(self.path("out.wav"))
                self.assertEqual((out[0], out[1], len(out[2])), (rate, 1, len(padded)))
                self.assertEqual(best_lag(speech, out[2][lead:lead + len(speech)], 40), 0)

                length = rate + 5  # speech that lasts to the end ends there
                write_wav(self.path("cut.wav"), rate, 1, speech[:length])
                self.assertEqual(self.segments(self.path("cut.wav"))[-1][1],
                                 math.floor(length / rate * 1000 + 0.5) / 1000)

    def test_in_the_last_samples_is_not_lost(self):
        # A tone of 80 ms at the very end: most of it is still in the delay when the input ends. It
        # begins somewhere in a frame; the first loud frame is that one or the next, or, where the
        # suppressor spreads the tone by one of its frames of 288 values, one before. Speech is
        # declared in the last frame of the onset. Figures are rounded to half a millisecond.
        for rate, spread in ((8000, 288), (16000, 288), (44100, 576), (48000, 576)):
            with self.subTest(rate):
                tone = [round(16000 * math.sin(2 * math.pi * 1000 * i / rate))
                        for i in range(8 * rate // 100)]
                write_wav(self.path("late.wav"), rate, 1, [0] * rate + tone)
                rows = self.segments(self.path("late.wav"))
                frame = rate // 100
                later = -(-480 // frame) * frame - frame
                self.assertLessEqual(rows[0][0] * rate, rate + frame + later + rate / 2000)
                self.assertGreaterEqual(rows[0][0] * rate,
                                        rate - spread - frame + later - rate / 2000)
                self.assertEqual([row[1] for row in rows], [1.08])

    def test_channels_are_kept_apart_and_either_counts(self):
        rate, speech = read_wav(PROMPT)[0::2]
        silent = [0] * len(speech)
        later = [0] * 1000 + list(speech[:-1000])
        mono = self.segments(PROMPT)
        for left, right in ((speech, speech), (speech, silent), (speech, later)):
            write_wav(self.path("in.wav"), rate, 2, [x for pair in zip(left, right) for x in pair])
            rows = self.segments(self.path("in.wav"), "--cleaned", self.path("out.wav"))
            self.assertTrue(rows == mono or right is later)
        channels, cleaned = read_wav(self.path("out.wav"))[1:]
        self.assertEqual((channels, len(cleaned)), (2, 2 * len(speech)))
        self.assertEqual(best_lag(speech, cleaned[0::2], 20), 0)
        self.assertEqual(best_lag(later, cleaned[1::2], 20), 0)

    def test_cleaned_recordings_of_every_short_length(self):
        # Around frames, delay, and their sums; at the slowest rate too, where a frame is one sample.
        for rate in (1, 8000, 24999, 25000, 49999):
            for length in (1, 79, 80, 81, 250, 719, 720, 721, 866, 867, 868):
                with self.subTest(rate=rate, length=length):
                    write_wav(self.path("in.wav"), rate, 1, [0] * length)
                    self.assertEqual(self.segments(self.path("in.wav"), "-c", self.path("out.wav")), [])
                    out = read_wav(self.path("out.wav"))
                    self.assertEqual((out[0], len(out[2])), (rate, length))

    def test_longer_than_one_piece(self):
        # What is read and written in pieces of 64 Ki frames is the same as what fits in one: the
        # first part of a long recording equals the cleaned short one up to the delay of its end.
        rate, speech = read_wav(PROMPT)[0::2]
        long = list(speech) * (200000 // len(speech) + 1)
        cleaned = []
        for x in (long, long[:60000]):
            write_wav(self.path("in.wav"), rate, 1, x)
            self.run_tool(self.path("in.wav"), "--cleaned", self.path("out.wav"))
            cleaned.append(read_wav(self.path("out.wav"))[2])
        self.assertEqual(len(cleaned[0]), len(long))
        self.assertEqual(cleaned[0][:59000], cleaned[1][:59000])
        self.assertEqual(best_lag(long[131072:180000], cleaned[0][131072:180000], 5), 0)


class Formats(ToolTest):
    def test_lossless_ones_give_the_same(self):
        rows = self.segments(ALSA, "--cleaned", self.path("reference.wav"))
        expected = read_wav(self.path("reference.wav"))
        for name, options in (("a.flac", ()), ("b.flac", ("-b", "24")), ("a.aiff", ()), ("a.au", ()),
                              ("a.w64", ()), ("a.caf", ()), ("float.wav", ("-e", "float", "-b", "32"))):
            with self.subTest(name):
                recording = self.convert(name, options=options)
                self.assertEqual(self.segments(recording, "-c", self.path("out.wav")), rows)
                self.assertEqual(read_wav(self.path("out.wav")), expected)

    def test_ogg(self):
        recording = self.convert("a.ogg", "rate", "44100", "remix", "1", "1", options=("-C", "8"))
        self.assertEqual(len(self.segments(recording, "--cleaned", self.path("out.wav"))), 1)
        rate, channels, cleaned = read_wav(self.path("out.wav"))
        self.assertEqual((rate, channels), (44100, 2))
        speech = read_wav(self.convert("a.wav", "rate", "44100"))[2]
        self.assertEqual(len(cleaned), 2 * len(speech))
        self.assertEqual(best_lag(speech, cleaned[0::2], 20), 0)

    def test_through_a_pipe_whose_length_the_header_cannot_know(self):
        def run_piped(data):
            return subprocess.run(TOOL + ["/dev/stdin"], input=data, capture_output=True, timeout=60)

        samples = read_wav(PROMPT)[2].tobytes()
        for data_bytes in (len(samples), 0xFFFFFFFF - 36):
            done = run_piped(wav_header(8000, 1, data_bytes) + samples)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            self.assertEqual(done.stdout.decode(), self.run_tool(PROMPT).stdout)
        done = run_piped(wav_header(8000, 1, len(samples)) + samples[:20001])
        self.assertEqual(done.returncode, 1)
        self.assertIn(b"/dev/stdin: truncated", done.stderr)


class BadRecordings(ToolTest):
    def rejected(self, recording, reason):
        """Rejected, and neither a new nor an old output file is touched."""
        before = sorted(os.listdir(self.folder))
        self.fails(recording, reason, recording, "--cleaned", self.path("new.wav"))
        self.assertEqual(sorted(os.listdir(self.folder)), before)
        with tempfile.TemporaryDirectory() as folder:
            old = pathlib.Path(folder, "old.wav")
            old.write_text("kept")
            self.fails(recording, reason, recording, "--cleaned", str(old))
            self.assertEqual((os.listdir(folder), old.read_text()), (["old.wav"], "kept"))

    def test_unreadable(self):
        self.rejected(self.path("none.wav"), "No such file or directory")
        self.rejected("", "No such file or directory")
        self.rejected(self.folder, "Is a directory")
        self.rejected("/dev/null", "")
        shutil.copy(ALSA, self.path("secret.wav"))
        os.chmod(self.folder, 0o755)
        os.chmod(self.path("secret.wav"), 0)
        drop = ["setpriv", "--reuid=65534", "--clear-groups"] if os.geteuid() == 0 else []
        done = subprocess.run(drop + TOOL + [self.path("secret.wav")], capture_output=True, text=True)
        if done.returncode not in (126, 127):  # the tool is within other users' reach
            self.assertEqual((done.returncode, done.stderr),
                             (1, f"korvane-vad: {self.path('secret.wav')}: Permission denied\n"))

    def test_unsupported(self):
        for name, data, reason in (
                ("zero.wav", b"", "empty file"), ("header.wav", wav_header(8000, 1, 0), "no samples"),
                ("text.wav", b"This is no recording.\n" * 100, ""),
                ("three.wav", wav_header(8000, 3, 600) + bytes(600), "3 channels"),
                ("fast.wav", wav_header(50000, 1, 600) + bytes(600), "below 50000 Hz")):
            pathlib.Path(self.path(name)).write_bytes(data)
            self.rejected(self.path(name), reason)

    def test_truncated_and_damaged(self):
        for name in ("a.wav", "a.flac", "a.ogg", "a.aiff", "a.au", "a.w64"):
            with self.subTest(name):
                whole = self.convert(name)
                self.segments(whole)
                os.truncate(whole, os.path.getsize(whole) * 6 // 10)
                self.rejected(whole, "")
        # Twelve seconds: the reader's first piece of 64 Ki frames and the ninth.
        for place in (0.03, 0.97):
            damaged = self.convert("b.flac", "repeat", "8")
            with open(damaged, "r+b") as file:
                file.seek(int(os.path.getsize(damaged) * place))
                file.write(bytes(2000))
            self.rejected(damaged, "flac decoder")


class Outputs(ToolTest):
    def test_are_the_same_every_time_and_replace_the_recording_itself(self):
        for run in ("one", "two", "two"):
            self.segments(ALSA, "--cleaned", self.path(run + ".wav"))
        expected = pathlib.Path(self.path("one.wav")).read_bytes()
        self.assertEqual(pathlib.Path(self.path("two.wav")).read_bytes(), expected)
        own = pathlib.Path(shutil.copy(ALSA, self.path("self.wav")))
        own.chmod(0o640)
        os.symlink("self.wav", self.path("link.wav"))
        self.assertEqual(self.segments(str(own), "--cleaned", self.path("link.wav")),
                         self.segments(ALSA))
        self.assertEqual(own.read_bytes(), expected)
        self.assertTrue(os.path.islink(self.path("link.wav")))
        self.assertEqual(own.stat().st_mode & 0o777, 0o640)
        self.assertEqual(len(os.listdir(self.folder)), 4)
        shutil.copy(ALSA, self.path("-c"))  # a name like an option, the current folder, the umask
        done = self.run_tool("--cleaned=out.wav", "--", "-c", cwd=self.folder, umask=0o027)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(os.stat(self.path("out.wav")).st_mode & 0o777, 0o640)

    def test_places_that_cannot_be_written(self):
        missing = self.path("none/out.wav")
        self.fails(missing, "No such file or directory", ALSA, "--cleaned", missing)
        self.fails(self.folder, "not a regular file", ALSA, "--cleaned", self.folder)
        self.fails("/dev/full", "not a regular file", ALSA, "--cleaned", "/dev/full")
        with open("/dev/full", "w") as full:
            for arguments in ((ALSA, "--cleaned", self.path("out.wav")), ("--help",)):
                self.fails("standard output", "No space left", *arguments, stdout=full)
        # Without stdin and stdout, the next two files that are opened would take their place.
        for how in (">&-", "<&- >&-", "| true"):
            command = f"(sleep 0.2; {shlex.join(TOOL)} \"$1\" -c \"$2\"; echo $? >&3)"
            done = subprocess.run(["bash", "-c", f"{{ {command} {how}; }} 3>&2", "bash", ALSA,
                                   self.path("out.wav")], stderr=subprocess.PIPE, text=True)
            self.assertRegex(done.stderr, "^korvane-vad: standard output: [^\n]+\n1\n$")
        self.assertEqual(os.listdir(self.folder), [])

    def test_without_stdin_and_stderr(self):
        subprocess.run(["bash", "-c", f'{shlex.join(TOOL)} "$1" -c "$2" <&- 2>&-', "bash", ALSA,
                        self.path("out.wav")], check=True, stdout=subprocess.DEVNULL)
        self.segments(ALSA, "--cleaned", self.path("expected.wav"))
        self.assertEqual(read_wav(self.path("out.wav")), read_wav(self.path("expected.wav")))

    def test_file_size_limit(self):
        # Below and above one piece of 256 KiB: what is left at the end, and a piece in the middle.
        out = pathlib.Path(self.path("out.wav"))
        out.write_text("kept")
        rate, speech = read_wav(ALSA)[0::2]
        for copies in (1, 4):
            with tempfile.NamedTemporaryFile(suffix=".wav") as recording:
                write_wav(recording.name, rate, 1, list(speech) * copies)
                self.fails(out, "File too large", recording.name, "--cleaned", str(out),
                           preexec_fn=lambda: resource.setrlimit(resource.RLIMIT_FSIZE,
                                                                 (100000, 100000)))
        self.assertEqual((os.listdir(self.folder), out.read_text()), (["out.wav"], "kept"))

    def test_full_disk(self):
        script = ('mount -t tmpfs -o size=64k tmpfs "$1" || exit 77; cd "$1"; shift; "$@"; code=$?; '
                  'ls -A; exit $code')
        out = self.path("out.wav")
        done = subprocess.run(["unshare", "--mount", "bash", "-c", script, "bash", self.folder, *TOOL,
                               ALSA, "--cleaned", out], capture_output=True, text=True)
        if done.returncode == 77 or "unshare" in done.stderr:
            self.skipTest("no right to mount a small file system")
        self.assertEqual((done.returncode, done.stdout, done.stderr),
                         (1, "", f"korvane-vad: {out}: No space left on device\n"))

    def test_signals_in_the_middle(self):
        # The recording is a pipe that stays open, so the tool is certainly in the middle of it.
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number.name), tempfile.TemporaryDirectory() as out:
                pipe = os.path.join(out, "pipe")
                os.mkfifo(pipe)
                tool = subprocess.Popen(TOOL + [pipe, "--cleaned", os.path.join(out, "out.wav")],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                with open(pipe, "wb") as writer:
                    writer.write(wav_header(8000, 1, 40_000_000) + bytes(1_000_000))
                    writer.flush()
                    deadline = time.monotonic() + 30
                    while len(os.listdir(out)) < 2 and time.monotonic() < deadline:
                        time.sleep(0.01)
                    self.assertEqual(len(os.listdir(out)), 2)
                    tool.send_signal(number)
                    output = tool.communicate(timeout=30)
                self.assertEqual((tool.returncode, output), (-number, (b"", b"")))
                self.assertEqual(os.listdir(out), ["pipe"])


class Usage(ToolTest):
    def test_right_and_wrong(self):
        for arguments in ((), ("a.wav", "b.wav"), ("--cleaned",), ("a.wav", "--cleaned"),
                          ("--cleaned", "out.wav"), ("a.wav", "--cleaned", ""), ("--unknown", "a.wav"),
                          ("-x",), ("--help=yes",)):
            with self.subTest(arguments):
                done = self.run_tool(*arguments)
                self.assertEqual((done.returncode, done.stdout), (2, ""))
                self.assertRegex(done.stderr, "^korvane-vad: [^\n]+\nusage: korvane-vad RECORD")
        for option, text in (("--help", "--cleaned OUT.wav"), ("-h", "--cleaned OUT.wav"),
                             ("--version", "Korvane VAD v"), ("-V", "Korvane VAD v")):
            done = self.run_tool(option)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertIn(text, done.stdout)


if __name__ == "__main__":
    unittest.main()
