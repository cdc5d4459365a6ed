"""Builds the core with gcc and clang at -O0 to -O3, each for the conformance program: every build must meet
every row of the table, and so print the same digest.

    compilers_test.py ROOT WORK_FOLDER CORE_SOURCE...
"""
import concurrent.futures
import pathlib
import re
import shutil
import subprocess
import sys

root = pathlib.Path(sys.argv[1])
work = pathlib.Path(sys.argv[2])
core = [(root / source).resolve() for source in sys.argv[3:]]
conformance = [root / "tests/conformance" / name for name in ("conformance.c", "sha256.c", "signals.c")]
table = root / "tests/conformance/table.tsv"

COMPILERS = {"gcc": "g++", "clang": "clang++"}
LEVELS = ("-O0", "-O1", "-O2", "-O3")
COMMON = [f"-I{root}", f"-I{root / 'include'}", "-Wall", "-Wextra", "-Wconversion", "-Werror"]
CORE = ["-std=c++20", "-ffp-contract=off", "-fno-math-errno", "-fno-exceptions", "-fno-rtti",
        "-fno-threadsafe-statics"]


def run(command):
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if result.returncode != 0:
        raise RuntimeError(f"{' '.join(map(str, command))}\n{result.stdout}{result.stderr}")
    return result.stdout


def compile_all(compiler, level, sources, folder):
    """Compiles each source once; returns the objects."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    objects = []
    for source in sources:
        objects.append(folder / (source.name + ".o"))
        command = [COMPILERS[compiler], *CORE] if source.suffix == ".cpp" else [compiler, "-std=c99"]
        run([*command, level, *COMMON, "-c", source, "-o", objects[-1]])
    return objects


def build_and_run(compiler, level, driver):
    folder = work / (compiler + level)
    objects = compile_all(compiler, level, core, folder)
    run([COMPILERS[compiler], *objects, *driver, "-o", folder / "conformance", "-lm"])
    return compiler + level, run([folder / "conformance", table]).strip()


for program in [name for pair in COMPILERS.items() for name in pair]:
    if shutil.which(program) is None:
        sys.exit(f"{program} is not installed")
# The program that makes the signals and digests is not what is tested: optimised, it saves half the time.
driver = compile_all("gcc", "-O2", conformance, work / "driver")
with concurrent.futures.ThreadPoolExecutor(2) as pool:
    builds = [pool.submit(build_and_run, compiler, level, driver)
              for level in LEVELS for compiler in COMPILERS]
    lines = {}
    for build in builds:
        name, line = build.result()
        print(f"{name}: {line}")
        lines[name] = line
if len(set(lines.values())) != 1 or len(lines) != len(COMPILERS) * len(LEVELS):
    sys.exit("the builds differ")
if not re.search(r"\b796 rows, 0 differ; digest [0-9a-f]{64}$", lines["gcc-O0"]):
    sys.exit("not every row was compared")
