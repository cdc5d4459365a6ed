"""Builds without a fault, and of parts of them with one; their tests run on either."""
import collections
import json
import os
import re
import resource
import shutil
import signal
import subprocess
import sys
import threading
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent.parent
WORK = ROOT / "build/mutation"
TREE = WORK / "tree"  # a copy, so that the tree may change meanwhile
# What the compiler says where the source itself forbids a fault; anything else is no valid program.
OWN_CHECKS = re.compile(r"static assertion failed|constant expression|narrowing conversion|overflow|out of range"
                        r"|outside the bounds|outside of array bounds|division by zero")
FIRST_FAILURE = re.compile(r"row \d+ differs|\s*(not ok|✖) ")  # where a test would go on


class Stopped(Exception):
    """What a fault met, and by what it was stopped."""


def prepare(memory):
    """In a process that begins."""
    for number in (signal.SIGHUP, signal.SIGINT, signal.SIGQUIT):  # which nohup and a shell's & have changed
        signal.signal(number, signal.SIG_DFL)
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    if memory:
        resource.setrlimit(resource.RLIMIT_AS, (memory, memory))


def run(command, seconds=600, cwd=None, environment=None, memory=0):
    """Runs a shell command in a process group of its own; the exit code, negative for a signal's, and what it
    printed."""
    with subprocess.Popen(command, shell=True, cwd=cwd, text=True, errors="replace", start_new_session=True,
                          env={**os.environ, **(environment or {})}, preexec_fn=lambda: prepare(memory),
                          stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT) as process:
        def end():
            try:
                os.killpg(process.pid, signal.SIGKILL)
            except ProcessLookupError:
                pass

        watch = threading.Timer(seconds, end)
        watch.start()
        lines = []
        for line in process.stdout:
            lines.append(line)
            if FIRST_FAILURE.match(line):
                end()
        process.wait()
        watch.cancel()
    return process.returncode, "".join(lines)


def must(command, seconds=600):
    code, output = run(command, seconds)
    if code != 0:
        sys.exit(f"{output}\n{command}: exit code {code}")
    return output


class Build:
    """A build of a subject without a fault, and of parts of it with one."""

    def __init__(self, name, subject, options="", tests=None, patience=120):
        self.name = name
        self.subject = subject
        self.directory = WORK / name
        self.tests = tests or list(subject.tests)
        self.emulator = ""
        self.patience = collections.defaultdict(lambda: patience)  # seconds for a test
        must(f"cmake -S {TREE} -B {self.directory} -G Ninja -DCMAKE_CXX_COMPILER=g++ -DCMAKE_C_COMPILER=gcc"
             f" -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_FLAGS_RELEASE=-O1 -DCMAKE_C_FLAGS_RELEASE=-O1"
             f" -DKORVANE_INSTALL=OFF {subject.options} {options}")
        targets = " ".join([test for test in self.tests if test.endswith("_test")] + [*subject.targets])
        self.ninja(targets, 3600)
        self.commands = {}  # of what is made
        self.inside = {}  # archive -> objects
        for line in self.ninja(f"-t commands {targets}").splitlines():
            if archive := re.search(r"/\S*ar qc (\S+) (.*?) &&", line):
                self.inside[archive[1]] = archive[2].split()
            elif made := re.search(r" -o (\S+)", line):
                self.commands[made[1]] = line
        self.depends = collections.defaultdict(set)  # object -> files of the tree it is made from
        for entry in self.ninja("-t deps").split("\n\n"):
            name, *files = entry.split("\n    ")
            self.depends[name.split(":")[0].strip()] = {os.path.relpath(f, TREE) for f in files if str(TREE) in f}
        if page := subject.page:
            sources = re.findall(rf"^    {TREE}/(\S+)$", self.ninja(f"-t query {page}"), flags=re.M)
            self.commands[page] = self.ninja(f"-t commands {page}").splitlines()[-1]
            for made, command in self.commands.items():
                if made == page or f" -c {self.directory / page}" in command:
                    self.depends[made].update(sources)
        self.runs = {test["name"]: test for test in json.loads(
            must(f"ctest --test-dir {self.directory} --show-only=json-v1 -R '^({'|'.join(self.tests)})$'"))["tests"]}
        self.programs = {test: [made for made in self.commands if made.endswith("/" + test)]
                         if test.endswith("_test") else [*subject.products] for test in self.tests}
        self.must_pass()

    def ninja(self, arguments, seconds=600):
        return must(f"ninja -C {self.directory} --quiet {arguments}", seconds=seconds)

    def must_pass(self):
        """Runs the tests in a folder of their own, as they later run on a fault."""
        where = WORK / "faults/none" / self.name
        for test in self.tests:
            for program in self.programs[test]:
                (where / program).parent.mkdir(parents=True, exist_ok=True)
                shutil.copy(self.directory / program, where / program)
            start = time.monotonic()
            if output := self.failure(test, where):
                sys.exit(f"{output}\n{self.name}: {test} fails without a fault")
            if self.subject.page:
                self.patience[test] = 30 + 6 * (time.monotonic() - start)

    def failure(self, test, where):
        """What a test prints that fails, or does not end; its programs lie in `where`."""
        scratch = where / "tmp"
        environment = {}
        memory = 0
        if test in self.runs:
            environment["ASAN_OPTIONS"] = "verify_asan_link_order=0"
            for properties in self.runs[test]["properties"]:
                if properties["name"] == "ENVIRONMENT":
                    environment.update(pair.split("=", 1) for pair in properties["value"])
            words = self.runs[test]["command"]
            command = ("stdbuf -oL " + " ".join(words) + (" --failfast" if words[-1].endswith("_test.py") else ""))
            for program in self.programs[test]:
                command = command.replace(str(self.directory / program), str(where / program))
                for name, value in environment.items():
                    environment[name] = value.replace(str(self.directory / program), str(where / program))
        else:
            command = f"{self.emulator} {where / self.programs[test][0]} --gtest_brief=1 --gtest_break_on_failure"
        libraries = [str(where), str(self.directory), environment.get("LD_LIBRARY_PATH", "")]
        environment.update(TMPDIR=str(scratch), LD_LIBRARY_PATH=":".join(filter(None, libraries)))
        if self.subject.page and "browser" not in test:
            memory = 8 << 30  # a fault must not take the machine's
        for _ in range(self.subject.tries.get(test, 1)):
            scratch.mkdir(parents=True, exist_ok=True)
            code, output = run(command, self.patience[test], where, environment, memory)
            shutil.rmtree(scratch, ignore_errors=True)
            if code == 0:
                return ""
        return output[-3000:] or f"exit code {code}"

    def stale(self, program, file):
        """The objects of a program, in its archives too, that are made from a file."""
        words = [word for word in self.commands[program].split() if word in self.depends or word in self.inside]
        parts = [part for word in words for part in self.inside.get(word, [word])]
        return [part for part in dict.fromkeys(parts) if file in self.depends[part]]

    def try_fault(self, fault, overlay):
        """Raises Stopped where a test kills the fault whose file is in the overlay; returns whether it changes
        the products' object code at all."""
        where = overlay / self.directory.name
        page = self.subject.page
        made = {}  # what is made anew, and where to

        def make(target, changed=()):
            """Runs the command of a target with what the fault changes in place of what it was."""
            if fault.file in self.depends[page] and target in self.depends and target != page:
                make(page)
            made[target] = where / target
            made[target].parent.mkdir(parents=True, exist_ok=True)
            replaced = {str(TREE / file.relative_to(overlay)): str(file) for file in overlay.rglob("*.*")}
            for name in made:
                replaced[str(self.directory / name)] = str(made[name])
            for name in changed:
                replaced[name] = str(made[name])
            # What archives hold goes before them: the linker then takes it, not theirs.
            words = self.commands[target].split(" ")
            first = [str(made[part]) for part in changed if part not in words]
            replaced[target] = " ".join([str(made[target]), *first])
            command = " ".join(replaced.get(word, word) for word in words)
            # Warnings are left out: the source's own checks and the tests are what is tried.
            command = command.replace(f" -I{TREE}", f" -I{overlay} -I{TREE}", 1).replace(" -o ", " -w -o ", 1)
            code, output = run(command, cwd=self.directory)
            if code != 0 and (check := OWN_CHECKS.search(output)):
                raise Stopped("killed at compile time", check[0])
            if code != 0:
                raise Stopped("no valid program", re.search(r"error: .*|$", output)[0])

        def needed(test):
            return {part for program in self.programs[test] for part in self.stale(program, fault.file)}

        def effort(test):
            """First what needs the least compiled, and of that the tests of the faulty part."""
            return len(needed(test) - set(made)), test.removesuffix("_test") not in fault.file

        if fault.file in self.depends[page]:
            for file in self.depends[page] - {fault.file}:
                shutil.copy(TREE / file, overlay / file)
            if fault.file.endswith(".js") and run(f"node --check {overlay / fault.file}")[0] != 0:
                raise Stopped("no valid program", "node --check")
        for program in self.subject.products:
            for part in self.stale(program, fault.file):
                if part not in made:
                    make(part)
        if all(made[part].read_bytes() == (self.directory / part).read_bytes() for part in made):
            return False
        for test in sorted(self.tests, key=effort):
            if not needed(test) or not re.search(self.subject.tests[test], fault.file):
                continue
            for part in needed(test) - set(made):
                make(part)
            for program in self.programs[test]:
                if program not in made and (changed := self.stale(program, fault.file)):
                    make(program, changed)
                elif program not in made:
                    (where / program).parent.mkdir(parents=True, exist_ok=True)
                    made[program] = shutil.copy(self.directory / program, where / program)
            if self.failure(test, where):
                raise Stopped("killed by a test", f"{self.name} {test}")
        return True
