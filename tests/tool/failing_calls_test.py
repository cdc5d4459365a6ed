"""korvane-vad where a system call fails, is interrupted or does half: the result is whole and right, or there
is one message, nothing half-done under a result's name, and nothing left behind."""

import hashlib
import mmap
import os
import pathlib
import shutil
import signal
import struct
import subprocess
import unittest
from itertools import product

from tool_case import PROMPT, TOOL, ToolTest, read_wav, write_wav

LIBRARY = os.environ["KORVANE_FAILING_CALLS"]
MOST, NAME = 8000, 16  # as the library has them
MANIFEST = "out/manifest"


def digest(data):
    return len(data), hashlib.sha256(data).hexdigest()


class FailingCalls(ToolTest):
    def setUp(self):
        super().setUp()
        os.chdir(self.folder)
        for name in ("in", "out", "tmp"):
            os.mkdir(name)
        samples = list(read_wav(PROMPT)[2][:12000])
        self.raw = read_wav(PROMPT)[2][:12000].tobytes()
        write_wav("in/mono.wav", 8000, 1, samples)
        # More than what the tool writes in one go.
        write_wav("in/stereo.wav", 8000, 2, [x for x in samples * 6 for _ in range(2)])
        pathlib.Path("in/planar").write_bytes(self.raw)
        pathlib.Path("in/list").write_text("in/mono.wav\nin/stereo.wav\n")
        subprocess.run(["sox", "in/mono.wav", "in/mono.flac"], check=True)
        self.memory = os.memfd_create("calls")
        os.ftruncate(self.memory, 8 + MOST * NAME)
        self.calls = mmap.mmap(self.memory, 0)
        self.addCleanup(os.close, self.memory)

    def tree(self):
        """Contents, permissions and links of the results."""
        return {str(path): (digest(path.read_bytes()), path.stat().st_mode, path.is_symlink())
                for path in pathlib.Path("out").rglob("*") if path.is_file() and str(path) != MANIFEST}

    def prepare(self, words):
        """What is there before each run: a link to something old, and a manifest whose last line is torn."""
        shutil.rmtree("out")
        os.mkdir("out")
        if "out/link" in words:
            pathlib.Path("out/old").write_text("kept")
            os.chmod("out/old", 0o640)
            os.symlink("old", "out/link")
        if MANIFEST in words:
            pathlib.Path(MANIFEST).write_text('{"korvane-vad manifest":1}\n{"fi')
        return self.tree()

    def run_with(self, number, words, stdin):
        """Status, standard output and error, and the tree."""
        self.calls[:8] = bytes(8)
        done = subprocess.run(TOOL + words, input=stdin, capture_output=True, timeout=60,
                              pass_fds=[self.memory], env={
                                  **os.environ, "LD_PRELOAD": LIBRARY, "TMPDIR": self.path("tmp"), "XDG_CONFIG_HOME": "in",
                                  "FAILING_CALLS": f"{self.memory} {number}"})
        self.assertEqual(os.listdir("tmp"), [])
        return done.returncode, digest(done.stdout), done.stderr.decode(), self.tree()

    def last_calls(self):
        """The names of the last run's system calls, in their order."""
        return [self.calls[8 + NAME * i:][:NAME].split(b"\0")[0].decode()
                for i in range(struct.unpack("l", self.calls[:8])[0])]

    def check(self, *words, stdin=b"", chosen=5):
        """Of each system call the first, the last and some between fail, one in each run."""
        words = list(words)
        if words[0] != "score":
            command = int(words[0] in ("frames", "clean", "split", "report"))
            words = [*words[:command], "--strict", *words[command:]]  # a part is not what came before
        before = self.prepare(words)
        right = self.run_with(0, words, stdin)
        self.assertEqual((right[0], right[2]), (0, ""))
        calls = self.last_calls()
        # What gets its name is on the disk by then: a loss of power leaves the old or the new file.
        # Many files share one wait. Of several workers the calls stand between each other.
        shared = "syncfs" in calls
        self.assertLessEqual(calls.count("syncfs"), 1)
        self.assertTrue(shared or calls.count("fsync") == calls.count("rename"))
        order = [name for name in calls if name in ("write", "fsync", "syncfs", "rename")]
        for before_name, name in zip(order, order[1:]):
            self.assertTrue("-j" in words or name != "rename" or before_name == "fsync"
                            or shared and before_name in ("syncfs", "rename"), calls)
        self.prepare(words)
        self.assertEqual(self.run_with(-1, words, stdin), right, words)
        for name in set(calls):
            numbers = [i + 1 for i, called in enumerate(calls) if called == name]
            for number in {numbers[i * (len(numbers) - 1) // (chosen - 1)] for i in range(chosen)}:
                with self.subTest(words=words, call=name, number=number):
                    self.prepare(words)
                    status, stdout, stderr, tree = self.run_with(number, words, stdin)
                    if status == 0:
                        self.assertEqual((stdout, stderr, tree), (right[1], "", right[3]))
                        continue
                    self.assertEqual(status, 2 if "--check" in words or "/config: " in stderr else 1)
                    messages = 2 if "-j" in words else 1
                    self.assertRegex(stderr, r"\A(korvane-vad: [^\n]+: [^\n]+\n){1,%d}\Z" % messages)
                    for path, state in tree.items():
                        self.assertIn(state, (before.get(path), right[3].get(path)), path)
                    if MANIFEST in words or "split" in words:
                        self.assertEqual(self.run_with(0, words, stdin), right)

    def test_detect(self):
        self.check("-f", "csv", "in/mono.wav", "-o", "out/link")
        self.check("-f", "jsonl", "-", stdin=pathlib.Path("in/mono.wav").read_bytes())
        self.check("-f", "json", "-", stdin=pathlib.Path("in/mono.flac").read_bytes())
        self.check("in/mono.wav", "-o", "/dev/null")

    def test_frames(self):
        self.check("frames", "--raw", "s16le", "-r", "8000", "-", stdin=self.raw)
        self.check("frames", "--raw", "s16be", "-r", "8000", "-c", "2", "--layout", "planar", "in/planar")

    def test_clean(self):
        self.check("clean", "in/stereo.wav", "out/link")
        self.check("clean", "in/mono.flac", "out/new.flac")
        self.check("clean", "--downmix", "in/stereo.wav", "-")
        self.check("clean", "--raw", "s16le", "-r", "8000", "-", "-", stdin=self.raw)

    def test_split(self):
        self.check("split", "in/stereo.wav", "--max-speech", "5s", "-o", "out/parts/")

    def test_split_again_after_an_interruption(self):
        words = ["split", "in/stereo.wav", "--max-speech", "2s", "-o", "out/parts/"]
        self.prepare(words)
        right = self.run_with(0, words, b"")
        calls = [i + 1 for i, name in enumerate(self.last_calls()) if name in ("mkostemp", "syncfs", "rename")]
        self.assertGreater(len(calls), 6)
        for number, end in product(calls, (signal.SIGTERM, signal.SIGKILL)):
            self.prepare(words)
            status, *output, tree = self.run_with(f"{number} {end:d}", words, b"")
            self.assertEqual((status, output), (-9 if end == signal.SIGKILL else 128 + end, [digest(b""), ""]))
            whole = {path: state for path, state in tree.items() if "/.korvane" not in path}
            self.assertTrue(whole == tree or end == signal.SIGKILL)
            self.assertLessEqual(whole.items(), right[3].items())
            self.assertEqual(self.run_with(0, words, b"")[:3], right[:3])
            self.assertLessEqual(right[3].items(), self.tree().items())

    def test_report(self):
        self.check("report", "in/mono.wav", "-o", "out/page.html")

    def test_score(self):
        pathlib.Path("in/a.rttm").write_text("SPEAKER a 1 0 2\nSPEAKER a 1 3 1\n")
        pathlib.Path("in/a.txt").write_text("0.5\t2.5\tspeech\n")
        self.check("score", "in/a.rttm", "in/a.txt", "-o", "out/link")

    def test_configuration_and_folders(self):
        os.mkdir("in/korvane-vad")
        pathlib.Path("in/korvane-vad/config").write_text("format = csv\n")
        for name in ("in/mono.wav", "in/mono.flac"):
            os.rename(name, name.replace("/mono", "/korvane-vad/" + name[-1]))
        self.check("--recursive", "-j", "1", "in/korvane-vad", "-o", "out/new/")

    def test_batch(self):
        self.check("-f", "csv", "-j", "2", "--files-from", "in/list", "--resume", MANIFEST, "-o", "out/new/")
        self.check("--check", "-j", "2", "in/mono.wav", "in/stereo.wav")


if __name__ == "__main__":
    unittest.main()
