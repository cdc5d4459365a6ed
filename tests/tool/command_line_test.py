"""Runs the built korvane-vad on real speech and on everything that can go wrong."""

import csv
import fcntl
import io
import json
import math
import os
import pathlib
import random
import re
import select
import shlex
import shutil
import signal
import socket
import struct
import subprocess
import tempfile
import termios
import time
import unittest
from itertools import product

from tool_case import ALSA, DETECTOR, PROMPT, TOOL, ToolTest, best_lag, loud_samples, read_wav, wav_header, write_wav

ROOT = pathlib.Path(__file__).parents[2]
RAW = ("--raw", "s16le", "-r", "8000")


class Speech(ToolTest):
    def test_is_found_where_it_is_and_cleaned_in_place(self):
        # Digital silence, speech, digital silence. What the suppressor's overlapping frames of 288
        # values can do is to move sound by less than two of them: 576 samples, 1152 where the values
        # are those of a half-rate band.
        for recording in (PROMPT, self.convert("16k.wav", "rate", "16000"),
                          self.convert("44k.wav", "rate", "44100"), ALSA):
            with self.subTest(recording):
                rate, speech = read_wav(recording)[0::2]
                lead, tail = 2 * rate + 77, 19200 + 2 * rate
                padded = [0] * lead + list(speech) + [0] * tail
                write_wav(self.path("in.wav"), rate, 1, padded)
                rows = self.segments_and_cleaned(self.path("in.wav"), self.path("out.wav"), *DETECTOR)
                spread = 576 if rate < 25000 else 1152
                frame = rate // 100
                first, _ = loud_samples(speech, -30)
                audible, last = loud_samples(speech, -55)
                start, end = rows[0][0] * rate, rows[-1][1] * rate
                # No frame with nothing in it is above -45 dB.
                self.assertGreaterEqual(start, lead + audible - spread - frame)
                # A fifth of a second is the time the voice has to rise from its first sample
                # beyond -30 dB.
                self.assertLessEqual(start, lead + first + rate / 5)
                # The end is that of the last frame above -50 dB.
                self.assertLessEqual(end, lead + last + spread + frame)
                self.assertGreaterEqual(end, lead + first)
                self.assertLess(end, len(padded))
                adaptive = self.segments(self.path("in.wav"))
                self.assertLess(abs(adaptive[0][0] * rate - start), rate / 5)
                self.assertLess(abs(adaptive[-1][1] * rate - end), rate / 5)
                out = read_wav(self.path("out.wav"))
                self.assertEqual((out[0], out[1], len(out[2])), (rate, 1, len(padded)))
                self.assertEqual(best_lag(speech, out[2][lead:lead + len(speech)], 40), 0)

                length = rate + 5  # speech that lasts to the end ends there
                write_wav(self.path("cut.wav"), rate, 1, speech[:length])
                self.assertEqual(self.segments(self.path("cut.wav"), "--min-speech", "0")[-1][1],
                                 math.floor(length / rate * 1000 + 0.5) / 1000)

    def test_in_the_last_samples_is_not_lost(self):
        # A tone of 80 ms at the very end: most of it is still in the delay when the input ends. It
        # begins somewhere in a frame; the first loud frame is that one or the next, or, where the
        # suppressor spreads the tone by one of its frames of 288 values, one before. The score answers a tone
        # at once, so the 40 ms by which it is late with voices come too early.
        # Figures are rounded to half a millisecond.
        for rate, spread in ((8000, 288), (44100, 576)):
            with self.subTest(rate):
                tone = [round(16000 * math.sin(2 * math.pi * 1000 * i / rate)) for i in range(8 * rate // 100)]
                write_wav(self.path("late.wav"), rate, 1, [0] * rate + tone)
                rows = self.segments(self.path("late.wav"), "--min-speech", "0")
                frame = rate // 100
                self.assertLessEqual(rows[0][0] * rate, rate + frame + rate / 2000)
                self.assertGreaterEqual(rows[0][0] * rate, rate - spread - frame - 0.0405 * rate)
                self.assertEqual([row[1] for row in rows], [1.08])

    def test_channels_are_kept_apart_and_either_counts(self):
        rate, speech = read_wav(PROMPT)[0::2]
        silent = [0] * len(speech)
        later = [0] * 1000 + list(speech[:-1000])
        mono = self.segments(PROMPT, *DETECTOR)
        for left, right in ((speech, silent), (silent, speech), (speech, later)):
            write_wav(self.path("in.wav"), rate, 2, [x for pair in zip(left, right) for x in pair])
            rows = self.segments_and_cleaned(self.path("in.wav"), self.path("out.wav"), *DETECTOR)
            self.assertTrue(rows == mono or right is later)
        channels, cleaned = read_wav(self.path("out.wav"))[1:]
        self.assertEqual((channels, len(cleaned)), (2, 2 * len(speech)))
        self.assertEqual(best_lag(speech, cleaned[0::2], 20), 0)
        self.assertEqual(best_lag(later, cleaned[1::2], 20), 0)


class Formats(ToolTest):
    def test_what_others_wrote_gives_the_same_samples(self):
        rows = self.segments_and_cleaned(ALSA, self.path("reference.wav"))
        for name, options in (("a.flac", ("-b", "24")), ("a.caf", ()), ("float.wav", ("-e", "float", "-b", "32"))):
            with self.subTest(name):
                recording = self.convert(name, options=options)
                self.assertEqual(self.segments_and_cleaned(recording, self.path("out.wav")), rows)
                out = self.convert("narrow.wav", source=self.path("out.wav"), options=("-b", "16", "-e", "signed"))
                self.assertEqual(read_wav(out), read_wav(self.path("reference.wav")))

    def test_through_a_pipe_whose_length_the_header_cannot_know(self):
        samples = read_wav(PROMPT)[2].tobytes()
        expected = self.run_tool(PROMPT).stdout.encode()
        for told, kept, status, message in ((len(samples), None, 0, b""), (0xFFFFFFFF - 36, None, 0, b""),
                                            (len(samples), 20001, 1, b"korvane-vad: /dev/stdin: truncated")):
            done = subprocess.run(TOOL + ["/dev/stdin"], input=wav_header(8000, 1, told) + samples[:kept],
                                  capture_output=True, timeout=60)
            self.assertEqual((done.returncode, done.stderr[:34]), (status, message))
            self.assertTrue(done.stdout == expected or status)

    def test_flac_from_a_slow_pipe_and_from_a_socket(self):
        data = pathlib.Path(self.convert("a.flac")).read_bytes()
        expected = self.run_tool(ALSA).stdout
        for reader, writer in (map(os.fdopen, os.pipe(), ("rb", "wb")),
                               (end.makefile(mode) for end, mode in zip(socket.socketpair(), ("rb", "wb")))):
            tool = subprocess.Popen(TOOL + ["-"], stdin=reader, stdout=subprocess.PIPE)
            reader.close()
            for part in (data[:2], data[2:]):
                writer.write(part)
                writer.flush()
                time.sleep(0.2)
            writer.close()
            self.assertEqual((tool.communicate(timeout=60)[0].decode(), tool.returncode), (expected, 0))


    def test_raw_samples_of_every_kind(self):
        """As sox hands the same bytes on behind a header, each channel, in either layout; cut as they came in."""
        noise = random.Random(24)
        raw, wav = self.path("x.raw"), self.path("x.wav")
        for kind, size, options in (("u8", 1, "-e unsigned -b 8"), ("mulaw", 1, "-e mu-law"), ("alaw", 1, "-e a-law"),
                                    ("s16be", 2, "-B -b 16 -e signed"), ("s24le", 3, "-b 24 -e signed"),
                                    ("s24be", 3, "-B -b 24 -e signed"), ("f32le", 4, "-b 32 -e float"),
                                    ("f32be", 4, "-B -b 32 -e float")):
            samples = [bytes(noise.choices(range(256), k=size)) for _ in range(40000)]
            if size == 1:
                samples[:512] = [bytes([i // 2]) for i in range(512)]  # every code in both channels
            if size == 4:
                samples = [struct.pack(("<", ">")[kind == "f32be"] + "f", noise.randrange(-2**23, 2**23) / 2**23) for _ in samples]
            pathlib.Path(raw).write_bytes(b"".join(samples))
            pathlib.Path(self.path("planar")).write_bytes(b"".join(samples[::2] + samples[1::2]))
            subprocess.run(["sox", "-t", "raw", "-r", "8000", "-c", "2", *options.split(), raw, wav], check=True)
            read = ("--raw", kind, "-r", "8000", "-c", "2")
            digests = [json.loads(self.run_tool("--json", *words).stdout)[0]["sha256"]
                       for words in ((wav,), (*read, raw), (*read, "--layout", "planar", self.path("planar")))]
            with open(raw, "rb") as stdin:
                digests.append(json.loads(self.run_tool("--json", *read, "-", stdin=stdin).stdout)[0]["sha256"])
            self.assertEqual(digests, digests[:1] * 4, kind)
            pieces = []
            for name, words in (("one", (wav,)), ("two", (*read, raw))):
                self.run_tool("split", *words, "-o", self.path(name), "--decision", "fixed", "--template", "{index}.wav")
                pieces.append([subprocess.run(["sox", str(path), "-t", "raw", "-e", "float", "-b", "64", "-"],
                                              capture_output=True).stdout for path in sorted(pathlib.Path(self.path(name)).iterdir())])
            self.assertTrue(pieces[0] and pieces[0] == pieces[1], kind)
            with open(raw, "ab") as file:
                file.write(b"x")
            self.assertIn("ends within a sample", self.run_tool(*read, raw).stderr)

    @unittest.skipUnless(shutil.which("ffmpeg"), "needs ffmpeg")
    def test_what_ffmpeg_reads(self):
        talk, odd = self.path("it's a talk.m4a"), self.path("cut.aac")
        subprocess.run(["ffmpeg", "-v", "error", "-i", ALSA, talk], check=True)
        subprocess.run(["ffmpeg", "-v", "error", "-i", ALSA, odd], check=True)
        done = self.run_tool(talk)
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        line = re.search("; try (.*)", done.stderr)[1].replace("| korvane-vad", "| " + shlex.join(TOOL))
        tried = subprocess.run(["bash", "-c", line], capture_output=True, text=True).stdout
        self.assertIn("start", tried)
        self.assertEqual(self.run_tool("--decoder", "ffmpeg", talk).stdout, tried)
        with open(odd, "rb") as stdin:
            self.assertEqual(self.run_tool("--decoder", "ffmpeg", "-", stdin=stdin).stdout,
                             self.run_tool("--decoder", "ffmpeg", odd).stdout)
        self.fails("/none.m4a", "No such file", "--decoder", "ffmpeg", "/none.m4a")
        # Not written again as something else, and found in a folder.
        before = pathlib.Path(talk).read_bytes()
        self.fails(talk, "no .m4a is written here", "clean", "--decoder", "ffmpeg", talk, talk)
        self.assertEqual(pathlib.Path(talk).read_bytes(), before)
        done = self.run_tool("split", "--decoder", "ffmpeg", talk, "-o", self.path("pieces"))
        self.assertTrue(done.stderr.endswith("it's a talk.m4a: the pieces are what ffmpeg decodes, in 16 bits\n"), done.stderr)
        self.assertEqual({name[-4:] for name in os.listdir(self.path("pieces"))}, {".wav"})
        pathlib.Path(self.path("pieces/notes.txt")).write_text("no recording")
        shutil.move(talk, self.path("pieces"))
        done = self.run_tool("-f", "csv", "--decoder", "ffmpeg", "--recursive", self.path("pieces"))
        self.assertEqual((done.returncode, "talk.m4a" in done.stdout, done.stderr), (0, True, ""))
        shutil.move(self.path("pieces/it's a talk.m4a"), talk)
        blocks = self.path("blocks.voc")
        subprocess.run(["ffmpeg", "-v", "error", "-i", ALSA, "-c:a", "pcm_s16le", blocks], check=True)
        self.fails(blocks, "several blocks, which are not read here; try ffmpeg -i", blocks)
        self.fails(talk, "is not installed", "--decoder", "ffmpeg", talk, env={**os.environ, "PATH": self.folder})


class BadRecordings(ToolTest):
    def rejected(self, recording, reason):
        """Rejected, and neither a new nor an old output file is touched."""
        with tempfile.TemporaryDirectory() as folder:
            old = pathlib.Path(folder, "old.wav")
            old.write_text("kept")
            for out in (str(old), os.path.join(folder, "new.wav")):
                self.fails(recording, reason, "clean", "--strict", recording, out)
                self.assertEqual((os.listdir(folder), old.read_text()), (["old.wav"], "kept"))

    def test_unreadable(self):
        for name, reason in ((self.path("none.wav"), "No such file or directory"), ("", "No such file or directory"),
                             (self.folder, "Is a directory"), ("/dev/null", "")):
            self.rejected(name, reason)
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
                ("fast.wav", wav_header(50000, 1, 600) + bytes(600), "--resample")):
            pathlib.Path(self.path(name)).write_bytes(data)
            self.rejected(self.path(name), reason)
        self.assertEqual(self.segments(self.path("three.wav"), "--channels", "1,2,3", "--downmix"), [])
        for options, reason in ((("--frame", "1s"), "is 8000 samples"), (("--frame", "0.01ms"), "is 0 samples"),
                                (("--channels", "2"), "there is 1 channel,")):
            self.fails(PROMPT, reason, PROMPT, *options)

    def test_truncated_and_damaged(self):
        for name in ("a.wav", "a.flac", "a.ogg", "a.aiff", "a.au", "a.w64"):
            with self.subTest(name):
                whole = self.convert(name)
                self.segments(whole)
                os.truncate(whole, os.path.getsize(whole) * 6 // 10)
                self.rejected(whole, "")
                if name != "a.ogg":
                    self.delivers_what_comes_before_the_fault(whole)
        done = self.run_tool("--strict", "-f", "json", whole, PROMPT)
        self.assertEqual(f"korvane-vad: {json.loads(done.stdout)[0]['error']}\n", done.stderr)
        self.assertEqual((done.returncode, done.stderr.count(whole)), (1, 1))
        # Twelve seconds: the reader's first piece of 64 Ki frames and the ninth.
        for place in (0.03, 0.97):
            damaged = self.convert("b.flac", "repeat", "8")
            with open(damaged, "r+b") as file:
                file.seek(int(os.path.getsize(damaged) * place))
                file.write(bytes(2000))
            self.rejected(damaged, "flac decoder")
            self.delivers_what_comes_before_the_fault(damaged, "repeat", "8")

    def delivers_what_comes_before_the_fault(self, damaged, *effects):
        """As if the recording had ended there."""
        done = self.run_tool("-f", "json", damaged)
        facts, = json.loads(done.stdout)
        self.assertEqual((done.returncode, done.stderr), (1, f"korvane-vad: {facts['fault']}\n"))
        rate, _, samples = read_wav(self.convert("sound.wav", *effects))
        self.assertTrue(0 < facts["samples"] < len(samples))
        front = self.path("front.wav")
        write_wav(front, rate, 1, samples[:facts["samples"]])
        for words, made in (("detect -f csv", ""), ("frames", ""), ("clean", "{}/out.wav"),
                            ("split --template {{index}}.wav -o {}", ""), ("report -o {}/page.html", "")):
            results = []
            for recording, status in ((damaged, 1), (front, 0)):
                with tempfile.TemporaryDirectory() as folder:
                    done = self.run_tool(*words.format(folder).split(), recording, *made.format(folder).split())
                    self.assertEqual((done.returncode, bool(done.stderr)), (status, status == 1), words)
                    files = {path.name: path.read_bytes() for path in pathlib.Path(folder).iterdir()}
                    page = files.pop("page.html", None)
                    lines = [line for line in done.stdout.splitlines() if "damaged: " not in line]
                    results.append(("\n".join(lines).replace(recording, "X"), files, page is None))
            self.assertEqual(*results, words)
        before = pathlib.Path(damaged).read_bytes()
        self.fails(damaged, "is an input", "clean", damaged, damaged)
        self.assertEqual(pathlib.Path(damaged).read_bytes(), before)

    def test_doubtful_results_are_told(self):
        hum = [round(9000 * math.sin(i * i / 3e7)) for i in range(8000)]
        write_wav(self.path("hum.wav"), 8000, 1, hum * 3)
        write_wav(self.path("quiet.wav"), 8000, 1, [0] * 24000)
        fixed = ("--decision", "fixed", "--hangover", "5s")
        for words, said in (((self.path("hum.wav"), "--enter", "1", "--stay", "1"), "hum.wav: no speech is found"),
                            ((self.path("quiet.wav"), "--enter", "1", "--stay", "1"), ""),
                            ((PROMPT, *fixed), ""),
                            ((self.convert("long.wav", "repeat", "4", source=PROMPT), *fixed), "long.wav: nearly all")):
            for more in ((), ("-f", "json"), ("--files-from", "/dev/null", "-f", "csv")):
                done = self.run_tool(*words, *more)
                self.assertEqual((done.returncode, said in done.stderr, bool(done.stderr)), (0, True, bool(said)), words)
                self.assertEqual(self.run_tool(*words, *more, "-q").stderr, "")


class Outputs(ToolTest):
    def test_are_the_same_every_time_and_replace_the_recording_itself(self):
        for run in ("one", "two", "two"):
            self.segments_and_cleaned(ALSA, self.path(run + ".wav"))
        expected = pathlib.Path(self.path("one.wav")).read_bytes()
        self.assertEqual(pathlib.Path(self.path("two.wav")).read_bytes(), expected)
        own = pathlib.Path(shutil.copy(ALSA, self.path("self.wav")))
        own.chmod(0o640)
        os.symlink("self.wav", self.path("link.wav"))
        self.segments_and_cleaned(str(own), self.path("link.wav"))
        self.assertEqual((own.read_bytes(), own.stat().st_mode & 0o777), (expected, 0o640))
        self.assertTrue(os.path.islink(self.path("link.wav")))
        self.assertEqual(len(os.listdir(self.folder)), 4)
        raw = subprocess.run(TOOL + ["clean", ALSA, "-"], capture_output=True).stdout
        self.assertEqual(raw, read_wav(self.path("one.wav"))[2].tobytes())
        shutil.copy(ALSA, self.path("-c"))  # a name like an option, the current folder, the umask
        done = self.run_tool("clean", "--", "-c", "out.wav", cwd=self.folder, umask=0o027)
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        self.assertEqual(os.stat(self.path("out.wav")).st_mode & 0o777, 0o640)

    def test_links_to_nothing_are_followed(self):
        os.mkdir(self.path("real"))
        os.symlink("real/new.wav", self.path("link.wav"))
        os.symlink("circle.wav", self.path("circle.wav"))
        self.segments_and_cleaned(PROMPT, self.path("link.wav"))
        self.assertEqual(os.listdir(self.path("real")), ["new.wav"])
        self.fails(self.path("circle.wav"), "Too many levels", "clean", PROMPT, self.path("circle.wav"))
        self.assertTrue(os.path.islink(self.path("link.wav")) and os.path.islink(self.path("circle.wav")))

    def test_results_never_replace_what_is_read(self):
        own, raw, other = (shutil.copy(PROMPT, self.path(name)) for name in ("own.wav", "raw.txt", "own.txt"))
        link, manifest = self.path("link"), self.path("manifest")
        os.symlink("own.wav", link)
        for named, arguments in (
                (own, (own, "-o", own)), (link, (own, "-o", link)), (own, (PROMPT, own, "-o", own)),
                (own, ("frames", own, "-o", own)), (own, ("report", own, "-o", own)), (own, ("-", "-o", own)),
                (own, ("split", own, "-o", self.folder, "--force", "--template", "own.wav")),
                (raw, (*RAW, raw, "-o", self.folder)), (other, (*RAW, own, other, "-o", self.folder)),
                (own, (PROMPT, "--files-from", own, "--null", "-o", own)),
                (manifest, (PROMPT, "--resume", manifest, "-o", manifest))):
            with self.subTest(arguments), open(own, "rb") as stdin:
                self.fails(named, "is an input", *arguments, stdin=stdin)
        for file in (own, raw, other):
            self.assertEqual(pathlib.Path(file).read_bytes(), pathlib.Path(PROMPT).read_bytes())

    def test_places_that_cannot_be_written(self):
        missing = self.path("none/out.wav")
        for place, reason in ((missing, "No such file"), (self.folder, "not a regular"), ("/dev/full", "not a regular")):
            self.fails(place, reason, "clean", ALSA, place)
        with open("/dev/full", "w") as full:
            for arguments in ((ALSA,), ("frames", ALSA), ("split", "--help"), ("--help",), ("selftest", "--every", "500")):
                self.fails("standard output", "No space left", *arguments, stdout=full)
        self.fails("/dev/full", "No space left", ALSA, "-o", "/dev/full")
        # Without stdin and stdout, the next two files that are opened would take their place.
        for how in (">&-", "<&- >&-"):
            command = f"(sleep 0.2; {shlex.join(TOOL)} \"$1\"; echo $? >&3)"
            done = subprocess.run(["bash", "-c", f"{{ {command} {how}; }} 3>&2", "bash", ALSA],
                                  stderr=subprocess.PIPE, text=True)
            self.assertRegex(done.stderr, "^korvane-vad: standard output: [^\n]+\n1\n$")
        for options, status in (("", 1), ("--check", 0)):
            done = subprocess.run(["bash", "-c", f'{shlex.join(TOOL)} {options} "$1" >&- 2>&-', "bash", ALSA])
            self.assertEqual(done.returncode, status)
        self.assertEqual(os.listdir(self.folder), [])
        subprocess.run(["bash", "-c", f'{shlex.join(TOOL)} clean "$1" "$2" <&- >&- 2>&-', "bash", ALSA,
                        self.path("out.wav")], check=True)
        self.segments_and_cleaned(ALSA, self.path("expected.wav"))
        self.assertEqual(read_wav(self.path("out.wav")), read_wav(self.path("expected.wav")))

    def test_names_that_no_file_can_bear(self):
        """An error before any work: no folder is made, no old file touched, no hour waited."""
        old = self.path("old.m4a")
        pathlib.Path(old).write_text("kept")
        for name in ("old.m4a", "new.gsm", "new.amr"):
            self.fails(self.path(name), "is written here", "clean", ALSA, self.path(name))
        self.fails("0.m4a", ".m4a is written", "split", ALSA, "-o",
                   self.path("parts"), "--template", "{index}.m4a")
        long = self.path("long.w64")  # ten hours in two channels, of which the file holds none
        subprocess.run(["sox", "-n", "-r", "48000", "-c", "2", "-b", "16", long, "trim", "0", "0.1"], check=True)
        header = bytearray(pathlib.Path(long).read_bytes()[:-19200])
        data_size = 40000 * 48000 * 4
        header[-8:] = struct.pack("<Q", data_size + 24)
        with open(long, "wb") as file:
            file.write(header)
            file.truncate(len(header) + data_size)
        start = time.monotonic()
        self.fails(self.path("out.wav"), "too long for this format", "clean", long, self.path("out.wav"))
        self.assertLess(time.monotonic() - start, 5)
        self.assertEqual((pathlib.Path(old).read_text(), sorted(os.listdir(self.folder))),
                         ("kept", ["long.w64", "old.m4a"]))
        for name in ("plain", "1.907", "x.FLAC"):  # no extension, a number's end, one in capitals
            self.assertEqual(self.run_tool("clean", ALSA, self.path(name)).returncode, 0)

    def test_signals_in_the_middle(self):
        # Seven hours of silence, which are not over as soon as the output begins.
        for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
            with self.subTest(number.name), tempfile.TemporaryDirectory() as out:
                recording = os.path.join(out, "in.wav")
                with open(recording, "wb") as file:
                    file.write(wav_header(8000, 1, 400_000_000))
                    file.truncate(400_000_044)
                tool = subprocess.Popen(TOOL + ["clean", recording, os.path.join(out, "out.wav")],
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE)
                self.wait_until(lambda: len(os.listdir(out)) == 2)
                tool.send_signal(number)
                output = tool.communicate(timeout=30)
                self.assertEqual((tool.returncode, output), (128 + number, (b"", b"")))
                self.assertEqual(os.listdir(out), ["in.wav"])


class Results(ToolTest):
    def rows(self, *arguments):
        done = self.run_tool(*arguments, *DETECTOR, "-f", "csv")
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return [row for row in csv.DictReader(io.StringIO(done.stdout)) if row.get("state", "speech") == "speech"]

    def test_follow_from_the_frames(self):
        # Two utterances apart, and one that is open at the end.
        for rate, source in ((8000, PROMPT), (48000, ALSA)):
            speech = list(read_wav(source)[2][:rate * 4 // 3])
            samples = speech + [0] * (19200 + 2 * rate) + speech
            write_wav(self.path("in.wav"), rate, 1, samples)
            for size in (rate // 100, 37, 4096):
                frames = self.rows("frames", self.path("in.wav"), "--frame", str(size))
                self.assertEqual([int(f["fed"]) for f in frames], [size * (i + 1) for i in range(len(frames))])
                delay = -int(frames[0]["start_sample"])
                onset, hangover = (-(-samples // size) * size for samples in (480, 19200))
                flags = "".join("01"[f["speech"] == "true"] for f in frames)
                for align, early, late in (("both", delay + onset - size, delay + hangover - size),
                                           ("onset", delay + onset - size, delay), ("none", 0, 0)):
                    expected = []
                    for run in re.finditer("1+", flags):
                        begin, end = run.start() * size, run.end() * size
                        is_open = run.end() == len(flags)
                        expected.append((max(begin - early, 0), len(samples) if is_open else end - late,
                                         begin + size, is_open))
                    with self.subTest(rate=rate, size=size, align=align):
                        rows = self.rows(self.path("in.wav"), "--frame", f"{size}samples", "--align", align)
                        self.assertEqual([(int(r["start_sample"]), int(r["end_sample"]), int(r["decided_at"]),
                                           r["open"] == "true") for r in rows], expected)
                        self.assertEqual(len(rows), 2)

    def test_rules_in_all_units(self):
        plain, = self.rows(PROMPT)
        start, end = int(plain["start_sample"]), int(plain["end_sample"])
        for early in ("30ms", "0.03", "0.03s", "240samples"):
            row, = self.rows(PROMPT, "--pad-start", early)
            self.assertEqual(int(row["start_sample"]), start - 240)
        self.assertEqual(self.rows(PROMPT, "--min-speech", f"{end - start + 1}samples"), [])
        self.assertEqual(len(self.rows(PROMPT, "--min-speech", f"{end - start}samples")), 1)
        parts = self.rows(PROMPT, "--max-speech", "1s")
        self.assertEqual(len(parts), -(-(end - start) // 8000))
        self.assertEqual((int(parts[0]["start_sample"]), int(parts[-1]["end_sample"])), (start, end))
        twice = self.convert("twice.wav", "pad", "0", "4", "repeat", "1", source=PROMPT)
        (_, gap_begin), (gap_end, _) = ((int(r["start_sample"]), int(r["end_sample"])) for r in self.rows(twice))
        for gap, count in ((gap_end - gap_begin, 2), (gap_end - gap_begin + 1, 1)):
            self.assertEqual(len(self.rows(twice, "--min-gap", f"{gap}samples")), count)
        self.assertEqual(int(self.rows(twice, "--pad-end", "1sample")[0]["end_sample"]), gap_begin + 1)

    def test_rules_that_nobody_gave(self):
        words = ("min_gap", "min_speech", "pad_start", "pad_end", "max_speech")
        talk = self.convert("talk.wav", "repeat", "1", "pad", "0.3", "1", "tempo", "0.7", source=PROMPT)
        for options, times in (
                ("", (300, 100, 0, 0, 0)), ("--decision fixed", (300, 100, 0, 0, 0)),
                ("--decision detector", (0, 0, 0, 0, 0)), ("--preset subtitles", (400, 200, 100, 300, 7000)),
                ("--preset dictation", (1000, 150, 150, 300, 0)), ("--preset telephone", (200, 80, 50, 100, 0)),
                ("--preset archive --decision detector", (2000, 500, 250, 500, 0)),
                ("--pad-end 7ms --preset archive --preset telephone --min-gap 0", (0, 80, 50, 7, 0))):
            rules = json.loads(self.run_tool(talk, "-f", "json", *options.split()).stdout)[0]["rules"]
            self.assertEqual([rules[word] for word in words], [8 * ms for ms in times], options)
        # Where sound is cut or shown, a little is added.
        padding = ("--pad-start", "50ms", "--pad-end", "150ms")
        rows = json.loads(self.run_tool(talk, "-f", "json", *padding).stdout)[0]["segments"]
        cut = {f"{row['start_sample']}-{row['end_sample']}" for row in rows}
        for form in ("srt", "vtt"):
            self.assertEqual(self.run_tool(talk, "-f", form).stdout, self.run_tool(talk, "-f", form, *padding).stdout)
        self.run_tool("split", talk, "-o", self.path("parts"), "--template", "{start_samples}-{end_samples}.wav")
        self.assertEqual({name[:-4] for name in os.listdir(self.path("parts"))}, cut)
        self.assertGreater(len(cut), 1)

    def test_streams_equal_files(self):
        samples = read_wav(PROMPT)[2]
        for form in ("text", "csv", "json", "srt"):
            with open(PROMPT, "rb") as file:
                piped = self.run_tool("-f", form, "-", stdin=file).stdout
            self.assertEqual(piped, self.run_tool("-f", form, PROMPT).stdout.replace(PROMPT, "-"))
            raw = subprocess.run(TOOL + ["-f", form, *RAW, "-"], input=samples.tobytes(), capture_output=True)
            self.assertTrue(raw.stdout.decode() == piped or form == "json")
        samples.byteswap()
        pathlib.Path(self.path("planar.raw")).write_bytes(samples.tobytes() * 2)
        done = self.run_tool("--raw", "s16be", "-r", "8000", "-c", "2", "--layout", "planar", self.path("planar.raw"),
                             *DETECTOR)
        self.assertEqual(done.stdout, self.run_tool(PROMPT, *DETECTOR).stdout)

    def test_channels_apart_are_as_if_alone(self):
        talk, voice = self.path("a talk.wav"), self.convert("voice.wav", "repeat", "1", source=PROMPT)
        subprocess.run(["sox", "-M", PROMPT, "-v", "0", PROMPT, voice, talk], check=True)
        apart = ("--each-channel", talk)
        whole = json.loads(self.run_tool("-f", "json", *apart).stdout)
        alone = [json.loads(self.run_tool("-f", "json", "--channels", c, talk).stdout)[0] for c in "123"]
        self.assertEqual(whole, [{**facts, "channel": i + 1} for i, facts in enumerate(alone)])
        self.assertEqual(json.loads(self.run_tool("-f", "json", "--channels", "3,1", *apart).stdout), whole[::-2])
        expected = sorted((float(s["start"]), i + 1, round(s["end"], 3)) for i, facts in enumerate(alone)
                          for s in facts["segments"])
        self.assertGreater(len({row[1] for row in expected}), 1)
        number = r"(\d+\.\d+)"
        for form, line in (("text", rf" +{number} +{number} +\S+ +(\d)"), ("audacity", rf"{number}\t{number}\tspeech, channel (\d)"),
                           ("csv", rf"[^,]+,{number},{number},.*,(\d),speech"),
                           ("jsonl", rf'.*"segment",.*"channel":(?P<c>\d),.*"start":{number},"end":{number},.*')):
            text = self.run_tool("-f", form, *apart).stdout
            with open(talk, "rb") as stdin:
                streamed = self.run_tool("-f", form, "--each-channel", "-", stdin=stdin).stdout
            for lines in (text, streamed):
                rows = []
                for found in filter(None, (re.fullmatch(line, each) for each in lines.splitlines())):
                    *_, start, end = [word for word in found.groups() if "." in word]
                    rows.append((round(float(start), 3), int(found.groupdict().get("c") or found[3]), round(float(end), 3)))
                self.assertEqual(sorted(rows), [tuple(round(x, 3) for x in row) for row in expected], form)
        rttm = [line.split() for line in self.run_tool("-f", "rttm", *apart).stdout.splitlines()]
        self.assertEqual([(row[1], int(row[2]), round(float(row[3]), 3)) for row in rttm if row[0] != ";;"],
                         [("a%20talk", row[1], round(row[0], 3)) for row in expected])
        self.assertIn([";;", *f"{talk}: channel 2: no speech".split()], rttm)
        self.assertEqual(self.run_tool("-f", "textgrid", *apart).stdout.count("IntervalTier"), 3)
        self.assertEqual(self.run_tool("-f", "srt", *apart).stdout.count("speech, channel"), len(
            self.run_tool("-f", "srt", "--channels", "1", talk).stdout.split("\n\n") +
            self.run_tool("-f", "srt", "--channels", "3", talk).stdout.split("\n\n")))
        frames = self.run_tool("frames", *apart).stdout.splitlines()[1:]
        for channel in "123":
            self.assertEqual([line[:-13] for line in frames if line[-1] == channel],
                             self.run_tool("frames", "--channels", channel, talk).stdout.splitlines()[1:])

    def test_channels_are_cleaned_and_cut_apart(self):
        """As each is alone, in the depth they came in; and pieces of two channels never under one name."""
        talk = self.path("talk.wav")
        subprocess.run(["sox", "-M", PROMPT, "-v", "0", PROMPT, PROMPT, "-b", "24", talk, "trim", "0", "4"], check=True)
        def samples(path, channel=1):
            return subprocess.run(["sox", path, "-t", "s24", "-", "remix", str(channel)], check=True, capture_output=True).stdout
        self.run_tool("clean", "--each-channel", "--channels", "3,1", talk, self.path("clean.wav"))
        for i, channel in enumerate("31", 1):
            self.run_tool("clean", "--channels", channel, talk, self.path("alone.wav"))
            self.assertEqual(samples(self.path("clean.wav"), i), samples(self.path("alone.wav")))
        for words in ((), ("--cleaned",)):
            parts, found = self.path("parts" + "".join(words)), set()
            self.run_tool("split", *words, "--each-channel", "--channels", "2,3", "-o", parts, talk)
            self.run_tool("split", *words, "--channels", "3", "-o", self.path("alone"), "--template", "{index}.wav", talk)
            for i, name in enumerate(sorted(os.listdir(self.path("alone"))), 1):
                found.add(f"talk_3_{i:04}.wav")
                self.assertEqual(samples(f"{parts}/talk_3_{i:04}.wav"), samples(self.path(f"alone/{name}"), 1 if words else 3))
            self.assertEqual(set(os.listdir(parts)), found)
            self.assertIn(b"24-bit", subprocess.run(["soxi", f"{parts}/talk_3_0001.wav"], capture_output=True).stdout)
        both = ("split", "--channels", "1,3", talk, "-o", self.path("both"), "--template")
        self.fails(self.path("both/1.wav"), "needs {channel} and {index}", *both, "{index}.wav", "--each-channel")
        self.assertEqual(self.run_tool(*both, "{channel}.wav").returncode, 2)
        self.assertFalse(os.path.exists(self.path("both")) and os.listdir(self.path("both")))

    def test_rttm_names_tell_recordings_apart(self):
        for folder in ("one", "two"):
            os.mkdir(self.path(folder))
        names = [shutil.copy(PROMPT, self.path(name)) for name in ("one/a b.wav", "one/a_b.wav", "one/a%20b.wav", "two/a b.wav")]
        def ids(*words):
            return {line.split()[1] for line in self.run_tool("-f", "rttm", *words).stdout.splitlines()}
        self.assertEqual(ids(*names[:3]), {"a%20b", "a_b", "a%2520b"})
        self.fails(names[3], "--file-id path", "-f", "rttm", *names)
        self.assertEqual(ids("--file-id", "path", *names), {name.replace("%", "%25").replace(" ", "%20") for name in names})

    def test_json_keeps_to_its_schema(self):
        """Without and with speech, with a fault, without a result, from a stream, in channels, by each decision."""
        import jsonschema
        schema = json.loads((ROOT / "docs/results.schema.json").read_text())
        jsonschema.Draft202012Validator.check_schema(schema)
        kinds = {kind: jsonschema.Draft202012Validator({**schema, "oneOf": [{"$ref": f"#/$defs/{kind}"}]}) for kind in ("json", "jsonl")}
        def check(kind, results):
            kinds[kind].validate(results)
        write_wav(self.path("silent.wav"), 8000, 1, [0] * 8000)
        cut = shutil.copy(PROMPT, self.path("cut.wav"))
        os.truncate(cut, 50000)
        types = set()
        for words in ((), ("--each-channel",), DETECTOR, ("--decision", "fixed")):
            inputs = (PROMPT, self.path("silent.wav"), cut, "/none")
            check("json", json.loads(self.run_tool("-f", "json", *words, *inputs).stdout))
            with open(PROMPT, "rb") as stdin:
                live = self.run_tool("-f", "jsonl", *words, "-", stdin=stdin)
            for done in (live, self.run_tool("-f", "jsonl", *words, *inputs), self.run_tool("frames", "-f", "jsonl", *words, PROMPT)):
                for line in map(json.loads, done.stdout.splitlines()):
                    check("jsonl", line)
                    types.add(line["type"])
        self.assertEqual(types, {"header", "onset", "segment", "summary", "frame", "error"})

    def test_check(self):
        silent = self.path("silent.wav")
        write_wav(silent, 8000, 1, [0] * 8000)
        for files, status in (((PROMPT,), 0), ((silent,), 1), ((silent, PROMPT), 0),
                              ((silent, silent), 1), (("/none",), 2), ((PROMPT, "/none"), 2)):
            done = self.run_tool("--check", *files)
            self.assertEqual((done.returncode, done.stdout, bool(done.stderr)), (status, "", status == 2), files)
        for name, status in ((PROMPT, 0), (silent, 1)):
            with open(name, "rb") as file:
                self.assertEqual(self.run_tool("--check", "-", stdin=file).returncode, status)

    def test_output_file_is_whole_or_not_there(self):
        out = pathlib.Path(self.path("out.csv"))
        self.assertEqual(self.run_tool("-f", "csv", ALSA, "-o", str(out)).stdout, "")
        self.assertEqual(out.read_text(), self.run_tool("-f", "csv", ALSA, "-o", "-").stdout)
        out.write_text("kept")
        cut = shutil.copy(ALSA, self.path("cut.wav"))
        os.truncate(cut, 100000)
        self.assertEqual(self.run_tool("--strict", cut, "-o", str(out)).returncode, 1)
        self.assertEqual(out.read_text(), "kept")
        self.assertEqual(sorted(os.listdir(self.folder)), ["cut.wav", "out.csv"])


class Split(ToolTest):
    def test_pieces_are_the_samples_of_the_segments(self):
        # Segments longer than the 64 Ki sample frames that are copied in one go, in two channels.
        recording = self.convert("talk.wav", "repeat", "9", "remix", "1", "1v0.5")
        rules = ("--max-speech", "2s", "--min-gap", "1s", "--pad-start", "0", "--pad-end", "0.2")
        rows = json.loads(self.run_tool("-f", "json", *rules, recording).stdout)[0]["segments"]
        self.assertGreater(rows[0]["end_sample"] - rows[0]["start_sample"], 65536)
        self.run_tool("clean", recording, self.path("clean.wav"))
        for source, option in ((recording, ()), (self.path("clean.wav"), ("--cleaned",))):
            out = self.path("parts" + "".join(option))
            done = self.run_tool("split", recording, "-o", out, *rules, *option)
            self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
            names = sorted(os.listdir(out))
            self.assertEqual(names, [f"talk_{i + 1:04}.wav" for i in range(len(rows))])
            samples = read_wav(source)[2]
            for name, row in zip(names, rows):
                self.assertTrue(read_wav(os.path.join(out, name)) ==
                                (48000, 2, samples[2 * row["start_sample"]:2 * row["end_sample"]]), name)

    def test_pieces_keep_what_the_recording_is(self):
        def values(path):
            return subprocess.run(["sox", "-D", path, "-t", "raw", "-e", "float", "-b", "64", "-"], check=True,
                                  capture_output=True).stdout
        six = ("remix", "1", "1v0.5", "1v0.1", "0", "1v0.7", "1")
        loud = ("gain", "-0.1", "vol", "0.87654321")  # fills the low bits
        for name, depth, rate, channels, effects, options in (
                ("a.wav", ("-b", "24"), 48000, 1, loud, ()), ("b.flac", ("-b", "24"), 48000, 1, loud, ()),
                ("c.wav", ("-e", "float", "-b", "32"), 48000, 1, loud, ()),
                ("d.wav", ("-b", "24"), 96000, 1, (*loud, "rate", "96000"), ("--resample",)),
                ("e.flac", ("-b", "24"), 48000, 6, (*loud, *six), ("--downmix",)),
                ("f.wav", ("-b", "16"), 192000, 2, ("rate", "192000", "remix", "1", "1v0.5"), ("--resample", "--downmix")),
                ("g.wav", ("-e", "mu-law"), 48000, 2, ("remix", "1", "1"), ("--channels", "2"))):
            recording, out = self.convert(name, *effects, options=depth), self.path(name + " parts")
            rows = json.loads(self.run_tool("-f", "json", recording, *options, "--pad-start", "50ms", "--pad-end",
                                            "150ms").stdout)[0]
            done = self.run_tool("split", recording, "-o", out, *options)
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            whole, pieces = values(recording), sorted(pathlib.Path(out).iterdir())
            self.assertEqual(len(pieces), len(rows["segments"]))
            for piece, row in zip(pieces, rows["segments"]):
                begin, end = (row[key] * rate // rows["rate"] * channels * 8 for key in ("start_sample", "end_sample"))
                self.assertTrue(values(str(piece)) == whole[begin:end], (name, len(whole), begin, end))
            kinds = [subprocess.run(["soxi", option, piece], capture_output=True, text=True).stdout
                     for option in ("-r", "-c", "-b", "-e") for piece in (recording, str(pieces[0]))]
            self.assertEqual(kinds[::2], kinds[1::2], name)
        done = self.run_tool("split", self.convert("h.ogg"), "-o", self.path("ogg"))
        self.assertIn("encoded anew", done.stderr)

    def test_names(self):
        out, one = self.path("parts"), ("--min-gap", "1s", "--pad-start", "10ms", "--pad-end", "0")
        row = json.loads(self.run_tool("-f", "json", PROMPT, *one).stdout)[0]["segments"][0]
        pattern = "{{{stem}}}-{start:08}-{end_samples} {start_samples} {end:1}.flac"
        self.assertEqual(self.run_tool("split", PROMPT, "-o", out, *one, "--template", pattern).returncode, 0)
        start, end = (math.floor(row[key] / 8 + 0.5) for key in ("start_sample", "end_sample"))
        name = (f"{{agent-user}}-{start // 1000:04}.{start % 1000:03}-{row['end_sample']} {row['start_sample']} "
                f"{end // 1000}.{end % 1000:03}.flac")
        self.assertEqual(os.listdir(out), [name])
        path = os.path.join(out, name)
        before = os.stat(path).st_ino
        self.fails(path, "--force", "split", PROMPT, "-o", out, *one, "--template", pattern, "--no-clobber")
        self.assertEqual(os.stat(path).st_ino, before)
        self.run_tool("split", PROMPT, "-o", out, *one, "--template", pattern)
        self.assertNotEqual(os.stat(path).st_ino, before)
        for copy in ("agent", "agent.ogg"):  # no extension, and a wrong one
            shutil.copy(PROMPT, self.path(copy))
            self.run_tool("split", self.path(copy), "-o", self.path(copy + " parts"), *one)
            self.assertEqual(os.listdir(self.path(copy + " parts")), ["agent_0001.wav"])
        self.fails(os.path.join(out, "x.wav"), "two segments", "split", PROMPT, "-o", out, *one,
                   "--template", "x.wav", "--max-speech", "1s")
        self.assertEqual(os.listdir(out), [name])


class Reports(ToolTest):
    def test_hold_what_the_other_commands_say(self):
        recording, page = shutil.copy(PROMPT, self.path("<b>&.wav")), self.path("page.html")
        rules = ("--max-speech", "1s")
        done = self.run_tool("report", recording, "-o", page, *rules)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        text = pathlib.Path(page).read_text()
        self.assertNotIn("<b>", text)  # which a browser would take for a tag
        facts = json.loads(re.search('id="facts">(.*?)</script>', text)[1])
        whole = json.loads(self.run_tool("-f", "json", *rules, recording).stdout)[0]
        self.assertEqual(facts["source"]["name"], recording)
        self.assertEqual(facts["segments"],
                         [[s["start_sample"], s["end_sample"], s["open"]] for s in whole["segments"]])
        rows = csv.DictReader(io.StringIO(self.run_tool("frames", "-f", "csv", recording).stdout))
        flags = ["false"] + [row["speech"] for row in rows]
        self.assertEqual(facts["flag_changes"], [i for i, (a, b) in enumerate(zip(flags, flags[1:])) if a != b])


class Live(ToolTest):
    def waiting_in(self, pipe):
        """Bytes that nobody has taken out of it."""
        return struct.unpack("i", fcntl.ioctl(pipe, termios.FIONREAD, bytes(4)))[0]

    def test_a_line_comes_with_the_frame_that_decides_it(self):
        whole = json.loads(self.run_tool("-f", "json", PROMPT).stdout)[0]["segments"][0]
        samples = read_wav(PROMPT)[2][:whole["decided_at"]].tobytes()
        tool = self.start("-f", "jsonl", *RAW, "-")
        tool.stdin.write(samples[:-2])  # one sample too few
        self.assertEqual(json.loads(tool.stdout.readline())["type"], "header")
        self.assertEqual(select.select([tool.stdout], [], [], 0.5)[0], [])
        tool.stdin.write(samples[-2:])
        self.assertEqual(select.select([tool.stdout], [], [], 10)[0], [tool.stdout])
        onset = json.loads(tool.stdout.readline())
        self.assertEqual((onset["decided_at"], onset["start_sample"]), (whole["decided_at"], whole["start_sample"]))

    def test_every_frame_is_answered_at_once(self):
        samples = read_wav(PROMPT)[2][:1600]
        write_wav(self.path("x.wav"), 8000, 1, samples)
        aiff = pathlib.Path(self.convert("x.aiff", source=self.path("x.wav"), options=("-b", "24"))).read_bytes()
        wav = pathlib.Path(self.path("x.wav")).read_bytes()
        # Sound is cleaned in blocks of 576 samples, 7.2 frames, and the first 144 lie before the input. It comes
        # back 720 samples late.
        blocks = [80 * i // 576 < 80 * (i + 1) // 576 for i in range(20)]
        late = [i >= 9 for i in range(20)]
        for words, data, frame, told in ((("frames", *RAW, "-"), samples.tobytes(), 160, blocks),
                                         (("frames", *RAW, "-", *DETECTOR), samples.tobytes(), 160, [True] * 20),
                                         (("clean", *RAW, "-", "-"), samples.tobytes(), 160, late),
                                         (("frames", "-"), wav, 160, blocks), (("frames", "-"), aiff, 240, blocks)):
            tool = self.start(*words)
            header = len(data) - 20 * frame
            tool.stdin.write(data[:header])
            for i in range(20):
                tool.stdin.write(data[header + frame * i:][:frame])
                if told[i]:
                    self.assertTrue(select.select([tool.stdout], [], [], 10)[0], (words, i))
                    os.read(tool.stdout.fileno(), 65536)

    def test_an_interruption_is_the_end_of_a_stream(self):
        """What came before it counts: everything is as if the stream had ended there."""
        samples = read_wav(PROMPT)[2][:16000].tobytes()
        for (words, files), (raw, header) in product((
                ("-f text -", 0), ("-f csv -", 0), ("-f jsonl -", 0), ("-f srt -", 0), ("-f csv - -o rows", 1),
                ("frames -", 0), ("clean - a.wav", 1), ("clean - -", 0), ("split - -o . --max-speech 1s", 3),
                ("report - -o page.html", 1)), ((RAW, b""), ((), wav_header(8000, 1, 0xFFFFFFFF - 36)))):
            results = []
            for number in (0, signal.SIGINT, signal.SIGTERM):
                with self.subTest(words, number=number), tempfile.TemporaryDirectory() as folder:
                    tool = self.start(*words.split(), *raw, cwd=folder)
                    tool.stdin.write(header + samples)
                    self.wait_until(lambda: self.waiting_in(tool.stdin) == 0)
                    tool.send_signal(number) if number else tool.stdin.close()
                    stdout = tool.stdout.read()
                    self.assertEqual((tool.wait(10), tool.stderr.read()), (number and 128 + number, b""))
                    tree = {path.name: path.read_bytes() for path in pathlib.Path(folder).iterdir()}
                    self.assertEqual(len(tree), files)
                    self.assertTrue(stdout or files)
                    results.append((stdout, tree))
            self.assertTrue(results[0] == results[1] == results[2], words)

    def test_a_second_interruption_stops(self):
        tool = self.start("frames", "--frame", "1", *RAW, "-")  # whose lines nobody takes
        tool.stdin.write(bytes(32000))
        self.wait_until(lambda: self.waiting_in(tool.stdout) > 60000)
        tool.send_signal(signal.SIGINT)
        with self.assertRaises(subprocess.TimeoutExpired):
            tool.wait(0.5)
        tool.send_signal(signal.SIGINT)
        self.assertEqual(tool.wait(10), 130)

    def test_speech_before_a_fault_is_not_lost(self):
        samples = read_wav(PROMPT)[2][:16000].tobytes()
        done = subprocess.run(TOOL + ["-f", "jsonl", "-"], input=wav_header(8000, 1, 40000) + samples,
                              capture_output=True, timeout=60)
        lines = [json.loads(line) for line in done.stdout.splitlines()]
        self.assertEqual((done.returncode, [line["type"] for line in lines]), (1, ["header", *2 * ["onset", "segment"]]))
        self.assertEqual((lines[-1]["end_sample"], lines[-1]["open"]), (16000, True))

    def test_named_pipe_is_a_stream(self):
        os.mkfifo(self.path("pipe"))
        tool = self.start("-f", "jsonl", *RAW, self.path("pipe"))
        with open(self.path("pipe"), "wb", buffering=0) as pipe:
            pipe.write(read_wav(PROMPT)[2][:16000].tobytes())
            self.assertEqual([json.loads(tool.stdout.readline())["type"] for _ in range(2)], ["header", "onset"])
            self.wait_until(lambda: self.waiting_in(pipe) == 0)
            tool.send_signal(signal.SIGINT)
            self.assertEqual([json.loads(line)["type"] for line in tool.stdout],
                             ["segment", "onset", "segment", "summary"])
        self.assertEqual(tool.wait(10), 130)

    def test_interrupted_before_it_could_begin(self):
        flac = pathlib.Path(self.convert("a.flac")).read_bytes()
        # FLAC is read when the stream has ended; two bytes and half a header tell nothing.
        for data, lines in ((b"", 0), (b"RI", 0), (wav_header(8000, 1, 600)[:30], 0), (flac[:20000], 4)):
            tool = self.start("-f", "jsonl", "-")
            tool.stdin.write(data)
            time.sleep(0.5)
            tool.send_signal(signal.SIGINT)
            self.assertEqual((tool.wait(10), len(tool.stdout.readlines()), tool.stderr.read()), (130, lines, b""))

    def test_closed_pipe(self):
        tool = self.start("frames", "--frame", "1", PROMPT)
        tool.stdout.readline()
        tool.stdout.close()
        self.assertEqual((tool.stderr.read(), tool.wait(10)), (b"", 141))
        tool = self.start("clean", *RAW, "-", "-")
        tool.stdout.close()
        tool.stdin.write(bytes(8000))
        tool.stdin.close()
        self.assertEqual((tool.stderr.read(), tool.wait(10)), (b"", 141))


class Selftest(ToolTest):
    def test_tells_a_right_library_from_a_wrong_one(self):
        # Of every 17th row the inverse transform's are 18 and 52.
        right = self.run_tool("selftest", "--every", "17")
        self.assertRegex(right.stdout, r"\A47 rows, 0 differ; digest [0-9a-f]{64}\n\Z")
        self.assertEqual((right.returncode, right.stderr), (0, ""))
        wrong = self.run_tool("selftest", "--every", "17",
                              env={**os.environ, "LD_PRELOAD": os.environ["KORVANE_WRONG_TRANSFORM"]})
        self.assertEqual((wrong.returncode, wrong.stderr), (1, ""))
        with open(ROOT / "conformance/table.tsv") as table:
            expected = next(line.split()[-1] for line in table if line.startswith("18\t"))
        first, *digests, last = wrong.stdout.splitlines()
        self.assertEqual(first, "row 18 differs, the first to do so: inverse, rate 0, level 0, mode 1, "
                                "pieces of 288 of 57600 samples")
        self.assertEqual(digests[0].split(), ["expected", expected])
        self.assertNotIn(expected, digests[1])
        self.assertRegex(last, "^47 rows, 2 differ; digest [0-9a-f]{64}$")
        self.assertNotEqual(last.split()[-1], right.stdout.split()[-1])


# Each must be refused with one line about it and the usage.
WRONG = ["", "-f", "-f xml a", "--unknown a", "-x", "a --cleaned b", "-0 a", "--raw s16le a", "-r 8000 a",
         "--raw u7 -r 8000 a", "--raw s16le -r 0 a", "--raw s16le -r 8000 --layout planar -", "--frame 0 a",
         "--frame 4097 a", "--frame ten a", "--frame 0.5 a", "--pad-start -1 a", "--pad-end 1min a",
         "--min-gap 1.5samples a", "--max-speech '' a", "--align x a", "-j 257 a", "-j -1 a", "--channels 0 a",
         "--channels 1,2,3 a", "--channels 1,1 a", "- -", "--files-from - -", "--check -o x a", "--check --resume x a",
         "--pad-end 2000000000 a", "-f srt a b", "frames", "frames a b", "frames -f json a", "clean a", "clean a b c",
         "selftest a", "selftest --every 0", "split a", "split -o d", "report a", "clean -f csv a b",
         *(f"split a -o d --template '{template}'" for template in (
             "{nothing}", "x/{index}", "{stem:3}", "{index", "index}", "{index:}", "{index:x}", "{index:100}", "")),
         "-j x a", "-j 2x a", "--decision x a", "--enter x a", "--enter 1.5 a", "--enter nan a", "--enter 0.3 --stay 0.4 a",
         "--decision fixed --enter 0.5 a", "--decision detector --enter 0.5 a", "--decision detector --hangover 1 a",
         "--onset 480samples a", "--hangover 3601 a", "clean --enter 0.5 a b", "--pad-end 1.2.3 a", "-o '' a",
         "--min-gap 300 a", "--onset 50 a", "--max-speech 7000 a", "--channels 3-1 a", "--channels 1-2,2 a", "help",
         "detct", "--completions", "--completions csh", "--raw alaw -r 8000 --decoder ffmpeg a",
         "--each-channel --downmix a", "--file-id x a"]


class Scores(ToolTest):
    def write(self, form, name, recordings, length):
        """The same stretches of 10 ms units, {(recording, channel): [(start, end)]}, in one of the formats."""
        lines = []
        for (recording, channel), list_ in recordings.items():
            if form == "jsonl":
                lines.append(json.dumps({"type": "header", "file": f"x/{recording}.flac", "channel": channel, "rate": 8000,
                                         "samples": length * 80}))
            for start, end in list_:
                s, e = start / 100, end / 100
                lines.append({"rttm": f"SPEAKER {recording} {channel} {s:.2f} {e - s:.2f} <NA> <NA> a <NA> <NA>",
                              "audacity": f"{s:.6f}\t{e:.6f}\tspeech, channel {channel}",
                              "jsonl": json.dumps({"type": "segment", "file": f"x/{recording}.flac", "channel": channel,
                                                   "start": s, "end": e}), "textgrid": ""}[form])
        if form == "textgrid":
            lines = ["File type = \"ooTextFile\"", "Object class = \"TextGrid\"", "", "xmin = 0", f"xmax = {length / 100}",
                     "tiers? <exists>", f"size = {len(recordings)}", "item []:"]
            for i, ((_, channel), list_) in enumerate(recordings.items()):
                lines += [f"item [{i + 1}]:", 'class = "IntervalTier"', f'name = "speech, channel {channel}"', "xmin = 0",
                          f"xmax = {length / 100}", f"intervals: size = {len(list_) + 1}", "intervals [1]:", "xmin = 0",
                          "xmax = 0", 'text = ""']
                for start, end in list_:
                    lines += ["intervals [2]:", f"xmin = {start / 100}", f"xmax = {end / 100}", 'text = "a ""word"" = 3"']
        pathlib.Path(self.path(name)).write_text("\n".join(lines) + "\n")
        return self.path(name)

    def test_agree_with_counting_unit_by_unit(self):
        chance = random.Random(7)
        for run, (one, other) in enumerate(product(("rttm", "jsonl", "audacity", "textgrid"), repeat=2)):
            length, collar = 500, (0, 5, 25)[run % 3]
            names = ("t",) if {"audacity", "textgrid"} & {one, other} else ("t", "u.v")
            sides = [{(name, channel): sorted((s, s + chance.randint(1, 90)) for s in chance.sample(range(400), 4))
                      for name in names for channel in (1, 2)} for _ in range(2)]
            files = [self.write(form, f"t.{side}", part, length)
                     for side, (form, part) in enumerate(zip((one, other), sides))]
            done = self.run_tool("score", "-f", "csv", "--collar", f"{collar}0ms", *files)
            self.assertEqual((done.returncode, done.stderr), (0, ""), (one, other))
            *rows, together = csv.DictReader(io.StringIO(done.stdout))
            total = [0] * 4
            for row, key in zip(rows, sides[0], strict=True):
                reference, hypothesis = ({u for s, e in side[key] for u in range(s, e)} for side in sides)
                ends = [max(e for _, e in side[key]) for side in sides]
                end = length if {"jsonl", "textgrid"} & {one, other} else max(ends)
                scored = {u for u in range(end) if all(not -collar <= u - edge < collar for s, e in sides[0][key] for edge in (s, e))}
                counts = [len(scored), len(scored & reference), len(scored & hypothesis - reference),
                          len(scored & reference - hypothesis)]
                total = [a + b for a, b in zip(total, counts)]
                self.check(row, counts)
            self.check(together, total)

    def check(self, row, counts):
        scored, speech, false, missed = counts
        self.assertEqual([round(float(row[k]) * 100) for k in ("scored", "speech", "false_alarm", "missed")], counts)
        hits = speech - missed
        f1 = 2 * hits / (2 * hits + false + missed) if hits + false + missed else 1
        dcf = 0.75 * missed / max(speech, 1) + 0.25 * false / max(scored - speech, 1)
        self.assertLess(max(abs(float(row["f1"]) - f1), abs(float(row["dcf"]) - dcf)), 0.00006)

    def test_of_the_tools_own_results_is_perfect(self):
        files = []
        for form in ("rttm", "jsonl", "audacity", "textgrid"):
            files.append(self.path(form))
            self.run_tool("-f", form, PROMPT, "-o", files[-1])
        marked = self.path("marked.txt")  # as editors on Windows do
        pathlib.Path(marked).write_bytes(b"\xef\xbb\xbf" + pathlib.Path(files[2]).read_bytes().replace(b"\n", b"\r\n"))
        for one, other in product([*files, marked], repeat=2):
            done = self.run_tool("score", one, other)
            self.assertEqual(done.stdout.splitlines()[-1].split()[2:], ["0.000", "0.000", "1.0000", "0.0000", "together"], (one, other))

    def test_recordings_without_speech_count(self):
        quiet, reference, other = self.path("quiet.wav"), self.path("reference.rttm"), self.path("other.rttm")
        write_wav(quiet, 8000, 1, [0] * 80000)
        self.run_tool(PROMPT, quiet, "-o", reference)
        self.run_tool(PROMPT, "-o", other)
        with open(other, "a") as file:
            file.write("SPEAKER quiet 1 2 3 <NA> <NA> speech <NA> <NA>\n")
        done = self.run_tool("score", reference, other)
        self.assertEqual((done.stderr, done.stdout.splitlines()[-1].split()[2]), ("", "3.000"))

    def test_what_is_missing_and_what_is_wrong_is_told(self):
        for name, text in (("a", "SPEAKER one 1 0 2 <NA> <NA> s\nSPEAKER two 1 0 2\n"), ("b", "SPEAKER two 1 1 1\nSPEAKER 3 1 0 1\n"),
                           ("bad", "SPEAKER one 1 x 2\n"), ("back", "2\t1\ta\n"), ("odd", "hello\n"), ("json", "{}\n"), ("prose", "Hello\n"),
                           ("zero", "SPEAKER one 0 1 2\n"), ("wrapped", '{"type":"header","file":"a","channel":4294967297}\n'),
                           ("late", "SPEAKER one 1 1 2\n1\t2\tspeech\n"), ("label", "1\t2\tspeech, channel -1\n"),
                           ("grid", 'File type = "ooTextFile"\n"TextGrid" 0 1 <exists> 1\n')):
            pathlib.Path(self.path(name)).write_text(text)
        done = self.run_tool("score", self.path("a"), self.path("b"))
        self.assertRegex(done.stderr, "/b: has no one, .* missed\n.*/a: has no 3, .* left out\n$")
        self.assertEqual(done.stdout.splitlines()[-1].split()[:4], ["4.000", "4.000", "0.000", "3.000"])
        for name in ("bad", "back", "odd", "json", "prose", "zero", "wrapped", "late", "label", "grid", "none"):
            self.fails(self.path(name), "", "score", self.path("a"), self.path(name))


class Conventions(ToolTest):
    def test_configuration(self):
        folder, home = pathlib.Path(self.path("korvane-vad")), pathlib.Path(self.path(".config"))
        folder.mkdir()
        def output(text, *words, env=("XDG_CONFIG_HOME", self.folder), **more):
            (folder / "config").write_text(text)
            return self.run_tool(*words, env={**os.environ, env[0]: env[1]}, **more)
        usual, wide = (self.run_tool(PROMPT, *words).stdout for words in ((), ("--min-gap", "2s")))
        self.assertNotEqual(usual, wide)
        for text, words, expected in (
                ("# nothing\n\n", (), usual), ("min-gap = 2s", (), wide), ("[detect]\n min-gap=2s # wide\nquiet\n", (), wide),
                ("[split]\nmin-gap = 2s", (), usual), ("min-gap = 2s\ncleaned", ("--min-gap", "0.3"), usual),
                ("min-gap = 2s\nrubbish", ("--no-config",), usual)):
            done = output(text, PROMPT, *words)
            self.assertEqual((done.stdout, done.stderr), (expected, ""), text)
        for text, reason in (("min-gap = 2s\nrubbish = 1", "line 2: 'rubbish'"), ("[x]", "line 1"), ("output = x", "line 1"),
                             ("[clean]\nmin-gap = 1s", ""), ("min-gap = x", "--min-gap")):
            done = output(text, *(("clean", PROMPT, self.path("x.wav")) if "clean" in text else (PROMPT,)))
            self.assertEqual((done.returncode, done.stdout), (2, ""))
            self.assertTrue(reason in done.stderr and "korvane-vad/config: " in done.stderr, done.stderr)
        home.mkdir()
        shutil.copytree(folder, home / "korvane-vad")
        (home / "korvane-vad/config").write_text("min-gap = 2s")
        env = {**os.environ, "HOME": self.folder}
        del env["XDG_CONFIG_HOME"]
        self.assertEqual(self.run_tool(PROMPT, env=env).stdout, wide)

    def test_the_last_one_counts_and_ranges_are_lists(self):
        three = self.path("three.wav")
        subprocess.run(["sox", "-M", PROMPT, PROMPT, PROMPT, three], check=True)
        for one, other in (("--json", "-f csv --json"), ("-f csv", "--json -f csv"), ("--min-gap 1s", "--min-gap 0 --min-gap 1s"),
                           ("--each-channel --channels 2,3,1", "--each-channel --channels 2-3,1-1"),
                           ("--min-gap 300ms", "--min-gap 0.3"), ("--max-speech 999", "--max-speech 999s")):
            done = [self.run_tool(*words.split(), *(() if "channel" in words else ("--downmix",)), three) for words in (one, other)]
            self.assertEqual((done[0].stdout, done[0].returncode), (done[1].stdout, 0), other)

    def test_folders(self):
        os.makedirs(self.path("a/b/.hidden"))
        for name in ("a/z.wav", "a/b/x.WAV", "a/b/.hidden.wav", "a/b/.hidden/x.wav", "a/notes.txt"):
            shutil.copy(PROMPT, self.path(name))
        expected = self.run_tool("-f", "csv", self.path("a/b/x.WAV"), self.path("a/z.wav"), PROMPT).stdout
        self.assertEqual(self.run_tool("-f", "csv", "--recursive", self.path("a"), PROMPT).stdout, expected)
        self.fails(self.path("a"), "Is a directory", self.path("a"))
        os.mkdir(self.path("empty"))
        self.fails(self.path("empty"), "no recording", "--recursive", self.path("empty"))
        os.symlink("nowhere", self.path("empty/lost.wav"))
        self.assertIn("empty/lost.wav: No such file", self.run_tool("--recursive", self.path("empty")).stderr)

    def test_a_name_says_what_is_in_a_file(self):
        for words, name, form in (("", "a.srt", "srt"), ("", "a.TextGrid", "textgrid"), ("", "a.json", "json"), ("", "a.txt", "text"), ("", "a", "text"),
                                  ("frames", "a.jsonl", "jsonl"), ("frames", "a.srt", "text"), ("-f csv", "a.srt", "csv")):
            command = words.split() if words == "frames" else []
            self.run_tool(*words.split(), PROMPT, "-o", self.path(name))
            self.assertEqual(pathlib.Path(self.path(name)).read_text(), self.run_tool(*command, "-f", form, PROMPT).stdout, (words, name))
        self.fails(self.path("a.mp3"), "is the name of a sound file", "report", PROMPT, "-o", self.path("a.mp3"))

    def test_one_rule_for_overwriting(self):
        """What is there is replaced by every command, and by none with --no-clobber."""
        for words, name in ((f"detect {PROMPT} -o", "a.txt"), (f"frames {PROMPT} -o", "a.txt"), (f"clean {PROMPT}", "a.wav"),
                            (f"report {PROMPT} -o", "a.html"), (f"split {PROMPT} --template a.wav --min-gap 2s -o", ""),
                            (f"detect {PROMPT} {ALSA} -f srt -o", "")):
            with tempfile.TemporaryDirectory() as folder:
                file = pathlib.Path(folder, name or ("a.wav" if "split" in words else "agent-user.srt"))
                file.write_text("old")
                self.fails(file, "--force", *words.split(), str(pathlib.Path(folder, name)), "--no-clobber")
                self.assertEqual((file.read_text(), len(os.listdir(folder))), ("old", 1))
                for more in ((), ("--no-clobber", "--force")):
                    file.write_text("old")
                    done = self.run_tool(*words.split(), str(pathlib.Path(folder, name)), *more)
                    self.assertEqual((done.returncode, done.stderr), (0, ""))
                    self.assertNotEqual(file.read_bytes(), b"old")

    def test_words_that_are_nearly_right(self):
        shutil.copy(PROMPT, self.path("-dash.wav"))
        for words, hint in ((("help",), "korvane-vad --help"), (("spilt", PROMPT), "split is a command"),
                            (("-dash.wav",), "./-dash.wav"), (("--min-gap", "300", PROMPT), "300ms")):
            done = self.run_tool(*words, cwd=self.folder)
            self.assertEqual((done.returncode, hint in done.stderr.splitlines()[0]), (2, True), done.stderr)
        shutil.copy(PROMPT, self.path("help"))
        self.assertEqual(self.run_tool("help", cwd=self.folder).stdout, self.run_tool(PROMPT).stdout)
        for shell, start in (("bash", "# Completions for bash"), ("zsh", "#compdef"), ("fish", "# Completions for fish")):
            self.assertTrue(self.run_tool("--completions", shell).stdout.startswith(start))


class Usage(ToolTest):
    def test_wrong(self):
        for words in WRONG:
            with self.subTest(words):
                done = self.run_tool(*shlex.split(words), cwd=self.folder)
                self.assertEqual((done.returncode, done.stdout), (2, ""), done.stderr)
                self.assertRegex(done.stderr, "^korvane-vad: [^\n]+\nusage: korvane-vad ")
        self.assertIn("is none of text|jsonl|csv\n", self.run_tool("frames", "-f", "json", "a").stderr)
        self.assertEqual(os.listdir(self.folder), [])

    def test_help_begins_with_examples(self):
        # A build whose manual page cannot be written fails.
        write_texts = pathlib.Path(TOOL[-1]).with_name("write_texts")
        for arguments, status, message in (("/none",), 1, "cannot write /none/korvane-vad.1"), ((), 2, "usage: "):
            done = subprocess.run([*TOOL[:-1], write_texts, *arguments], capture_output=True, text=True)
            self.assertEqual((done.returncode, message in done.stderr), (status, True))
        for short, long in (("-h", "--help"), ("-V", "--version")):
            self.assertEqual(self.run_tool(short).stdout, self.run_tool(long).stdout)
        for command in ("", "detect", "frames", "clean", "split", "report", "score", "selftest"):
            done = self.run_tool(*command.split(), "--help")
            self.assertEqual((done.returncode, done.stderr), (0, ""))
            self.assertTrue(done.stdout.startswith(f"Examples:\n  korvane-vad {command}".rstrip())
                            or command == "detect")
            for line in done.stdout.splitlines():
                self.assertTrue(len(line) <= 80 or "korvane-vad" in line, line)
        version = re.match(r"korvane-vad \((.*)-", (ROOT / "packaging/debian/changelog").read_text())[1]
        self.assertEqual(self.run_tool("--version").stdout,
                         f'korvane-vad {version}\nlibrary: "Korvane VAD v3.0 a64 2020.06.22)"\n')

    def test_names_that_look_like_something_else(self):
        expected = self.run_tool(ALSA).stdout
        for name in ("detect", "[x]", "-f", "a\nb.wav", "quo'te\".wav", b"\xff\xe9.wav", "two  words"):
            shutil.copy(ALSA, os.path.join(os.fsencode(self.folder), os.fsencode(name)))
            done = self.run_tool("detect", "--", name, cwd=self.folder)
            self.assertEqual((done.stdout, done.stderr, done.returncode), (expected, "", 0), name)


if __name__ == "__main__":
    unittest.main()
