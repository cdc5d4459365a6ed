"""Many recordings in one run of korvane-vad: order, failures, interrupted runs, and other machines."""

import csv
import io
import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import unittest

from tool_case import ALSA, DETECTOR, PROMPT, TOOL, ToolTest, write_wav

DOCS = pathlib.Path(__file__).parents[2] / "docs/batch.md"
PROMPTS = sorted(pathlib.Path(PROMPT).parent.glob("agent-*.wav"))


class Batch(ToolTest):
    def setUp(self):
        super().setUp()
        self.assertGreater(len(PROMPTS), 4)
        self.names = [shutil.copy(prompt, self.path(f"{i}.wav")) for i, prompt in enumerate(PROMPTS[:6])]
        # Something long first, so that with several workers the others finish before it.
        subprocess.run(["sox", PROMPT, self.names[0], "repeat", "60"], check=True)

    def pipe(self, name="pipe.wav"):
        """A recording that keeps its worker waiting."""
        os.mkfifo(self.path(name))
        return self.path(name)

    def workers(self, run):
        return pathlib.Path(f"/proc/{run.pid}/task/{run.pid}/children").read_text().split()

    def change(self, path, data, later):
        """Other content of the same size, the time of change kept or one nanosecond later."""
        state = os.stat(path)
        self.assertEqual(state.st_size, len(data))
        pathlib.Path(path).write_bytes(data)
        os.utime(path, ns=(state.st_atime_ns, state.st_mtime_ns + later))

    def test_order_and_failures_do_not_depend_on_the_workers(self):
        bad = shutil.copy(ALSA, self.path("cut.wav"))
        os.truncate(bad, 90000)
        names = self.names[:2] + [bad, self.path("none.wav")] + self.names[2:]
        for form in ("text", "json", "jsonl", "csv", "rttm"):
            with self.subTest(form):
                one, many, all_cores = (self.run_tool("-j", jobs, "-f", form, *names) for jobs in "130")
                self.assertEqual((many.returncode, many.stdout, many.stderr),
                                 (one.returncode, one.stdout, one.stderr))
                self.assertEqual((one.returncode, one.stdout), (1, all_cores.stdout))
                self.assertRegex(one.stderr, r"^korvane-vad: \S*/cut.wav: .+\nkorvane-vad: \S*/none.wav: .+\n$")
                if form == "json":
                    results = [(r["file"], "fault" in r, "error" in r) for r in json.loads(one.stdout)]
                    self.assertEqual(results, [(name, name == bad, "none" in name) for name in names])
                    strict = self.run_tool("--strict", "-f", form, *names)
                    self.assertEqual([r["file"] for r in json.loads(strict.stdout) if "error" not in r], self.names)
        fast = []
        for jobs in "13":
            command = ("-j", jobs, "--fail-fast", "-f", "csv", *names)
            self.assertEqual(self.run_tool(*command, "-o", self.path("out")).returncode, 1)
            self.assertFalse(os.path.exists(self.path("out")))
            done = self.run_tool(*command)
            fast.append((done.stdout, done.stderr))
        self.assertEqual((fast[0], fast[0][1].count("\n")), (fast[1], 1))
        self.assertNotIn(self.names[2], fast[0][0])

    def test_as_many_workers_as_asked_for(self):
        pipes = [self.pipe(f"{i}.pipe") for i in range(3)]
        most = min(len(os.sched_getaffinity(0)), len(pipes))
        for jobs, count in (("2", 2), ("0", most))[:most]:  # on one processor -j 0 starts no worker
            run = self.start("-j", jobs, *pipes)
            self.wait_until(lambda: len(self.workers(run)) == count, 10)
            run.terminate()
            self.assertEqual(run.wait(10), 143)

    def test_each_result_is_what_the_file_alone_gives(self):
        out = self.path("out/")
        done = self.run_tool("-j", "2", "-f", "srt", *self.names, "-o", out)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        results = {name: self.run_tool("-f", "srt", name).stdout for name in self.names}
        self.assertEqual({path.name: path.read_text() for path in pathlib.Path(out).iterdir()},
                         {pathlib.Path(name).stem + ".srt": text for name, text in results.items()})
        self.fails(os.path.join(out, "0.srt"), "both", "-f", "srt", self.names[0], self.names[0], "-o", out)

    def test_lists_of_names(self):
        odd = [os.path.join(os.fsencode(self.folder), name)
               for name in (b"new\nline", b"back\rto", b'quo\'te"', b"com,ma", b"\xff.wav", b"[x]", b" space ")]
        for name in odd:
            shutil.copy(ALSA, name)
        for order in (odd, odd[::-1]):
            done = subprocess.run(TOOL + ["-j", "2", "--files-from", "-", "-0", "-f", "csv", *DETECTOR],
                                  input=b"\0".join(order), capture_output=True)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            records = csv.reader(io.StringIO(os.fsdecode(done.stdout), newline=""))
            self.assertEqual([os.fsencode(record[0]) for record in records][1:], order)
        listed = pathlib.Path(self.path("list"))
        listed.write_text("\n".join(self.names[1:]) + "\n")
        self.assertEqual(self.run_tool("-f", "csv", self.names[0], "--files-from", str(listed)).stdout,
                         self.run_tool("-f", "csv", *self.names).stdout)
        listed.write_bytes(b"a\0b")
        self.fails(listed, "--null", "--files-from", str(listed))
        self.fails("/none", "No such file", "--files-from", "/none")
        listed.write_bytes(b"")
        self.assertEqual(json.loads(self.run_tool("-f", "json", "--files-from", str(listed)).stdout), [])

    def test_resume_after_a_kill(self):
        manifest, out, pipe = pathlib.Path(self.path("done.jsonl")), self.path("all.csv"), self.pipe()
        odd = shutil.copy(ALSA, os.path.join(os.fsencode(self.folder), b"\xff,.wav"))
        names = [odd, *self.names, pipe]
        command = ["-j", "2", "-f", "csv", "--resume", manifest, "-o", out, *names]
        for number in (signal.SIGKILL, signal.SIGINT, signal.SIGTERM):
            run = self.start(*command)
            with open(pipe, "wb", buffering=0):
                self.wait_until(lambda: len(self.workers(run)) == 1 and manifest.read_bytes().count(b"\n") == len(names))
                worker, = self.workers(run)
                run.send_signal(number)
                self.assertEqual(run.wait(10), -9 if number == signal.SIGKILL else 128 + number)
                # Nobody works on for a run that is no more, though the recording has not ended.
                self.wait_until(lambda: "State:\tZ" in self.status_of(worker), 10)
            self.assertFalse(os.path.exists(out))
        for left in pathlib.Path(self.folder).glob(".korvane-vad-*"):  # what SIGKILL alone can leave
            left.unlink()
        # A torn last line does not count; a recording that has changed is done again, be it of the same
        # size; what has not is not even opened, or the damage behind its time's back would show.
        lines = manifest.read_bytes().splitlines(keepends=True)
        manifest.write_bytes(b"".join(lines) + lines[-1][:40])
        whole = pathlib.Path(self.names[3]).read_bytes()
        self.change(self.names[3], bytes(len(whole)), 0)
        shutil.copy(ALSA, self.names[2])
        speech = pathlib.Path(self.names[1]).read_bytes()
        self.change(self.names[1], speech[:44] + bytes(len(speech) - 44), 1)
        os.remove(pipe)
        shutil.copy(ALSA, pipe)
        done = self.run_tool(*command)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        self.change(self.names[3], whole, 0)
        plain = subprocess.run(TOOL + ["-f", "csv", *names], capture_output=True)
        self.assertEqual(pathlib.Path(out).read_bytes(), plain.stdout)

    def status_of(self, process):
        """A process that has ended counts as one that only waits to be taken note of."""
        try:
            return pathlib.Path(f"/proc/{process}/status").read_text()
        except (FileNotFoundError, ProcessLookupError):
            return "State:\tZ"

    def test_other_options_or_another_version_are_other_work(self):
        manifest, recording = pathlib.Path(self.path("done.jsonl")), self.path("short.wav")
        write_wav(recording, 8000, 1, [0] * 1600)
        raw = "--raw s16le -r 8000"
        for lines, options in enumerate((
                "", "-f csv", "--frame 20ms", "--align none", "--pad-start 1sample", "--pad-end 1sample", "--min-gap 1s",
                "--min-speech 1s", "--max-speech 1s", "--decision fixed", "--enter 0.6", "--stay 0.3", "--onset 20ms",
                "--hangover 20ms", "--downmix", "--channels 1", "--resample", raw,
                "--raw s16le -r 8001", "--raw s16be -r 8000", raw + " -c 2", raw + " -c 2 --layout planar"), 2):
            for _ in range(2):
                done = self.run_tool("--resume", manifest, *options.split(), recording)
                self.assertEqual((done.returncode, done.stderr), (0, ""), options)
                self.assertEqual(manifest.read_bytes().count(b"\n"), lines, options)
        # As an older korvane-vad, and one with an older library, would have left it.
        for version in ('"options":"korvane-vad ', "korvane-streams "):
            older = manifest.read_text().replace(version, version + "0")
            self.assertNotEqual(older, manifest.read_text())
            manifest.write_text(older)
            self.assertEqual(self.run_tool("--resume", manifest, recording).stderr, "")
            self.assertEqual(manifest.read_text().count("\n"), older.count("\n") + 1)

    def test_what_is_no_manifest_is_left_alone(self):
        before = pathlib.Path(self.names[1]).read_bytes()
        self.fails(self.names[1], "not a manifest", "--resume", self.names[1], PROMPT)
        self.fails("/dev/null", "not a regular file", "--resume", "/dev/null", PROMPT)
        self.assertEqual(pathlib.Path(self.names[1]).read_bytes(), before)
        damaged = self.path("damaged")
        pathlib.Path(damaged).write_text('{"korvane-vad manifest":1}\n{"file":"a"}\n')
        self.fails(damaged, "line 2 is damaged", "--resume", damaged, PROMPT)

    def test_a_worker_that_dies(self):
        pipe = self.pipe()
        run = self.start("-f", "csv", pipe, PROMPT)
        with open(pipe, "wb", buffering=0):
            worker, = self.workers(run)
            os.kill(int(worker), signal.SIGKILL)
            stdout, stderr = map(bytes.decode, run.communicate(timeout=30))
        self.assertEqual(stderr, f"korvane-vad: {pipe}: its worker process ended with signal 9\n")
        failed = f"{pipe},,,,,,,,,failed: {stderr[len('korvane-vad: '):]}"
        self.assertEqual((run.returncode, stdout.replace(failed, "")), (1, self.run_tool("-f", "csv", PROMPT).stdout))


class Recipes(ToolTest):
    """The commands of docs/batch.md, with this machine in the place of the others."""

    def recipe(self, name):
        text = DOCS.read_text()
        return re.search(r"<!-- " + name + r" -->\n```sh\n(.*?)```", text, re.S).group(1)

    def run_recipe(self, script, **environment):
        bin_folder = self.path("bin")
        os.makedirs(bin_folder, exist_ok=True)
        tool = pathlib.Path(bin_folder, "korvane-vad")
        tool.write_text(f'#!/bin/sh\nexec {shlex.join(TOOL)} "$@"\n')
        tool.chmod(0o755)
        # In the place of ssh: the host's name is dropped and the command runs here. Like a login, it sets
        # SHELL, without which the far side of parallel does nothing and calls that success.
        ssh = pathlib.Path(bin_folder, "ssh")
        ssh.write_text('#!/bin/bash\nwhile [[ $1 == -* ]]; do shift; done\necho "$1" >>"$SSH_LOG"\nshift\n'
                       '[[ $1 != -- ]] || shift\nSHELL=/bin/bash exec bash -c "$*"\n')
        ssh.chmod(0o755)
        done = subprocess.run(["bash", "-euc", script], cwd=self.folder, text=True, capture_output=True,
                              timeout=120,
                              env={**os.environ, "PATH": f"{bin_folder}:{os.environ['PATH']}",
                                   "SSH_LOG": self.path("hosts"), "HOME": self.folder,
                                   "LC_ALL": "C.UTF-8", **environment})
        self.assertEqual(done.returncode, 0, done.stderr)

    def archive(self):
        os.makedirs(self.path("archive"))
        for i, prompt in enumerate(PROMPTS[:5]):
            shutil.copy(prompt, self.path(f"archive/talk {i}'s.wav"))
        names = sorted(f"archive/{name}" for name in os.listdir(self.path("archive")))
        return self.run_tool("-f", "jsonl", *names, cwd=self.folder).stdout

    @unittest.skipUnless(shutil.which("parallel"), "needs GNU parallel")
    def test_parallel(self):
        expected = self.archive()
        self.run_recipe(self.recipe("parallel"))
        self.assertEqual(pathlib.Path(self.path("all.jsonl")).read_text(), expected)
        self.assertEqual(set(pathlib.Path(self.path("hosts")).read_text().split()), {"alpha", "beta"})

    def test_slurm(self):
        expected = self.archive()
        self.run_recipe(self.recipe("slurm list"))
        for task in range(4):
            self.run_recipe(self.recipe("slurm job"), SLURM_ARRAY_TASK_ID=str(task),
                            SLURM_ARRAY_TASK_COUNT="4", SLURM_CPUS_PER_TASK="1")
        self.run_recipe(self.recipe("slurm join"))
        self.assertEqual(pathlib.Path(self.path("all.jsonl")).read_text(), expected)


if __name__ == "__main__":
    unittest.main()
