"""Many recordings in one run of korvane-vad: order, failures, interrupted runs, and other machines."""

import json
import os
import pathlib
import re
import shlex
import shutil
import signal
import subprocess
import time
import unittest

from tool_case import ALSA, PROMPT, TOOL, ToolTest, write_wav

DOCS = pathlib.Path(__file__).parents[2] / "docs/batch.md"
PROMPTS = sorted(pathlib.Path(PROMPT).parent.glob("agent-*.wav"))


class Batch(ToolTest):
    def setUp(self):
        super().setUp()
        self.assertGreater(len(PROMPTS), 4)
        self.names = []
        for i, prompt in enumerate(PROMPTS[:6]):
            self.names.append(shutil.copy(prompt, self.path(f"{i}.wav")))
        # Something long first, so that with several workers the others finish before it.
        subprocess.run(["sox", PROMPT, self.names[0], "repeat", "60"], check=True)

    def test_order_and_failures_do_not_depend_on_the_workers(self):
        bad = shutil.copy(ALSA, self.path("cut.wav"))
        os.truncate(bad, 90000)
        names = self.names[:2] + [bad, self.path("none.wav")] + self.names[2:]
        for form in ("text", "json", "jsonl", "csv", "rttm"):
            with self.subTest(form):
                one = self.run_tool("-j", "1", "-f", form, *names)
                self.assertEqual(self.run_tool("-j", "0", "-f", form, *names).stdout, one.stdout)
                many = self.run_tool("-j", "3", "-f", form, *names)
                self.assertEqual((many.returncode, many.stdout, many.stderr),
                                 (one.returncode, one.stdout, one.stderr))
                self.assertEqual(one.returncode, 1)
                self.assertRegex(one.stderr, r"^korvane-vad: \S*/cut.wav: .+\n"
                                             r"korvane-vad: \S*/none.wav: .+\n$")
                if form == "json":
                    self.assertEqual([r["file"] for r in json.loads(one.stdout)], self.names)
        out = self.path("out")
        for jobs in ("1", "3"):
            self.assertEqual(self.run_tool("-j", jobs, "--fail-fast", "-f", "csv", *names, "-o", out)
                             .returncode, 1)
            self.assertFalse(os.path.exists(out))
        fast = [self.run_tool("-j", jobs, "--fail-fast", "-f", "csv", *names) for jobs in ("1", "3")]
        self.assertEqual((fast[0].stdout, fast[0].stderr), (fast[1].stdout, fast[1].stderr))
        self.assertEqual(fast[0].stderr.count("\n"), 1)
        self.assertNotIn(self.names[2], fast[0].stdout)

    def test_each_result_is_what_the_file_alone_gives(self):
        out = self.path("out/")
        done = self.run_tool("-j", "2", "-f", "srt", *self.names, "-o", out)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, "", ""))
        self.assertEqual(len(os.listdir(out)), len(self.names))
        for name in self.names:
            result = pathlib.Path(out, pathlib.Path(name).stem + ".srt").read_text()
            self.assertEqual(result, self.run_tool("-f", "srt", name).stdout)
        self.fails(os.path.join(out, "0.srt"), "both", "-f", "srt", self.names[0], self.names[0],
                   "-o", out)

    def test_lists_of_names(self):
        odd = [os.path.join(os.fsencode(self.folder), name)
               for name in (b"new\nline.wav", b"quo'te\".wav", b"\xff.wav", b"[x]", b" space ")]
        for name in odd:
            shutil.copy(ALSA, name)
        for order in (odd, odd[::-1]):
            done = subprocess.run(TOOL + ["-j", "2", "--files-from", "-", "-0", "-f", "rttm"],
                                  input=b"\0".join(order), capture_output=True)
            self.assertEqual((done.returncode, done.stderr), (0, b""))
            self.assertEqual(done.stdout.count(b"SPEAKER "), len(odd))
        listed = self.path("list")
        pathlib.Path(listed).write_text("\n".join(self.names[1:]) + "\n")
        self.assertEqual(self.run_tool("-f", "csv", self.names[0], "--files-from", listed).stdout,
                         self.run_tool("-f", "csv", *self.names).stdout)
        pathlib.Path(listed).write_bytes(b"a\0b")
        self.fails(listed, "--null", "--files-from", listed)
        self.fails("/none", "No such file", "--files-from", "/none")
        pathlib.Path(listed).write_bytes(b"")
        self.assertEqual(json.loads(self.run_tool("-f", "json", "--files-from", listed).stdout), [])

    def test_resume_after_a_kill(self):
        manifest, out = self.path("done.jsonl"), self.path("all.csv")
        odd = os.path.join(os.fsencode(self.folder), b"\xff,.wav")
        shutil.copy(ALSA, odd)
        pipe = self.path("pipe.wav")  # keeps the run from finishing
        os.mkfifo(pipe)
        names = [odd, *self.names, pipe]
        command = TOOL + ["-j", "2", "-f", "csv", "--resume", manifest, "-o", out, *names]
        for number in (signal.SIGKILL, signal.SIGINT, signal.SIGTERM):
            run = subprocess.Popen(command, stderr=subprocess.DEVNULL)
            with open(pipe, "wb", buffering=0):
                deadline = time.monotonic() + 60
                # A worker of the run before may have opened the pipe, still dying; this run has begun
                # when it has a worker of its own.
                children = pathlib.Path(f"/proc/{run.pid}/task/{run.pid}/children")
                while time.monotonic() < deadline and (
                        not children.read_text() or
                        pathlib.Path(manifest).read_bytes().count(b"\n") < 1 + len(names) - 1):
                    time.sleep(0.02)
                run.send_signal(number)
                self.assertEqual(run.wait(10), -9 if number == signal.SIGKILL else 128 + number)
            self.assertFalse(os.path.exists(out))
        self.assertEqual(pathlib.Path(manifest).read_bytes().count(b"\n"), len(names))
        for left in os.listdir(self.folder):
            if left.startswith(".korvane-vad-"):  # what SIGKILL alone can leave
                os.remove(self.path(left))
        # A torn last line does not count; a recording that has changed is done again; what has not
        # is not even opened, or the damage behind its samples' back would show.
        lines = pathlib.Path(manifest).read_bytes().splitlines(keepends=True)
        pathlib.Path(manifest).write_bytes(b"".join(lines) + lines[-1][:40])
        shutil.copy(ALSA, self.names[2])
        state = os.stat(self.names[3])
        content = pathlib.Path(self.names[3]).read_bytes()
        pathlib.Path(self.names[3]).write_bytes(bytes(len(content)))
        os.utime(self.names[3], ns=(state.st_atime_ns, state.st_mtime_ns))
        os.remove(pipe)
        shutil.copy(ALSA, pipe)
        done = subprocess.run(command, capture_output=True)
        self.assertEqual((done.returncode, done.stdout, done.stderr), (0, b"", b""))
        pathlib.Path(self.names[3]).write_bytes(content)
        plain = subprocess.run(TOOL + ["-f", "csv", *names], capture_output=True)
        self.assertEqual(pathlib.Path(out).read_bytes(), plain.stdout)
        # Other options: nothing noted counts, so the damage would show now.
        pathlib.Path(self.names[3]).write_bytes(bytes(len(content)))
        os.utime(self.names[3], ns=(state.st_atime_ns, state.st_mtime_ns))
        self.assertEqual(subprocess.run(command + ["--pad-end", "1ms"], capture_output=True).returncode, 1)

    def test_other_options_are_other_work(self):
        manifest, recording = self.path("done.jsonl"), self.path("short.wav")
        write_wav(recording, 8000, 1, [0] * 1600)
        raw = ("--raw", "s16le", "-r", "8000")
        for lines, options in enumerate((
                (), ("-f", "csv"), ("--frame", "20ms"), ("--align", "none"), ("--pad-start", "1sample"), ("--downmix",),
                ("--channels", "1"), ("--resample",), raw, ("--raw", "s16le", "-r", "8001"), ("--raw", "s16be", *raw[2:]),
                (*raw, "-c", "2"), (*raw, "-c", "2", "--layout", "planar")), 2):
            for _ in range(2):
                done = self.run_tool("--resume", manifest, *options, recording)
                self.assertEqual((done.returncode, done.stderr), (0, ""), options)
                self.assertEqual(pathlib.Path(manifest).read_bytes().count(b"\n"), lines, options)

    def test_what_is_no_manifest_is_left_alone(self):
        before = pathlib.Path(self.names[1]).read_bytes()
        self.fails(self.names[1], "not a manifest", "--resume", self.names[1], PROMPT)
        self.fails("/dev/null", "not a regular file", "--resume", "/dev/null", PROMPT)
        self.assertEqual(pathlib.Path(self.names[1]).read_bytes(), before)
        damaged = self.path("damaged")
        pathlib.Path(damaged).write_text('{"korvane-vad manifest":1}\n{"file":"a"}\n')
        self.fails(damaged, "line 2 is damaged", "--resume", damaged, PROMPT)

    def test_a_worker_that_dies(self):
        pipe = self.path("pipe.wav")
        os.mkfifo(pipe)
        run = subprocess.Popen(TOOL + ["-f", "csv", pipe, PROMPT], stdout=subprocess.PIPE,
                               stderr=subprocess.PIPE, text=True)
        with open(pipe, "wb", buffering=0):
            worker, = pathlib.Path(f"/proc/{run.pid}/task/{run.pid}/children").read_text().split()
            os.kill(int(worker), signal.SIGKILL)
            stdout, stderr = run.communicate(timeout=30)
        self.assertEqual(stderr, f"korvane-vad: {pipe}: its worker process ended with signal 9\n")
        self.assertEqual((run.returncode, stdout), (1, self.run_tool("-f", "csv", PROMPT).stdout))


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
