"""Builds the core with gcc and clang at -O0 to -O3, each for the conformance program, which compares every row
with its digest. Unoptimised gcc and -O2 run the whole table, the others every eighth row of it.

    compilers_test.py ROOT WORK_FOLDER CORE_SOURCE...
"""
import concurrent.futures
import pathlib
import platform
import re
import shutil
import subprocess
import sys

root = pathlib.Path(sys.argv[1])
work = pathlib.Path(sys.argv[2])
core = [((root / source).resolve(), ()) for source in sys.argv[3:]]
conformance = [(root / "conformance" / name, ()) for name in ("conformance.c", "sha256.c", "signals.c")]
table = root / "tests/conformance.tsv"
reduced = work / "every-eighth.tsv"

COMPILERS = {"gcc": "g++", "clang": "clang++"}
LEVELS = ("-O0", "-O2", "-O1", "-O3")
WHOLE = ("gcc-O0", "gcc-O2", "clang-O2")
COMMON = [f"-I{root}", f"-I{root / 'include'}", "-Wall", "-Wextra", "-Wconversion", "-Werror"]
CORE = ["-std=c++20", "-DKORVANE_SIMD", "-ffp-contract=off", "-fno-math-errno", "-fno-exceptions", "-fno-rtti",
        "-fno-threadsafe-statics"]
ISAS = {"x86_64": {"sse2": (), "avx2": ("-mavx2",)}, "aarch64": {"neon": ()}}.get(platform.machine(), {})
for source in sorted(s for folder in ("dsp", "nrss") for s in (root / folder).rglob("*_simd.cpp")):
    core += [(source, (f"-DKORVANE_ISA={isa}", *flags)) for isa, flags in ISAS.items()]


def run(command, codes=(0,)):
    result = subprocess.run([str(word) for word in command], capture_output=True, text=True)
    if result.returncode not in codes:
        raise RuntimeError(f"{' '.join(map(str, command))}\n{result.stdout}{result.stderr}")
    return result.stdout


def compile_all(compiler, level, sources, folder):
    """Compiles each source; returns the objects."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    objects = []
    for source, flags in sources:
        objects.append(folder / f"{len(objects)}-{source.name}.o")
        command = [COMPILERS[compiler], *CORE] if source.suffix == ".cpp" else [compiler, "-std=c99"]
        run([*command, level, *COMMON, *flags, "-c", source, "-o", objects[-1]])
    return objects


def build_and_run(compiler, level, driver):
    """The build's name and what it prints; the reduced table lacks the digest of all rows, so the exit code is 1."""
    name = compiler + level
    program = work / name / "conformance"
    objects = compile_all(compiler, level, core, work / name)
    run([COMPILERS[compiler], *objects, *driver, "-o", program, "-lm"])
    return name, run([program, table] if name in WHOLE else [program, reduced], (0, 1))


for program in [name for pair in COMPILERS.items() for name in pair]:
    if shutil.which(program) is None:
        sys.exit(f"{program} is not installed")
work.mkdir(parents=True, exist_ok=True)
heading, *rows = table.read_text().splitlines(keepends=True)
reduced.write_text(heading + "".join(row for row in rows[::8] if not row.startswith("all")))
# The program that makes the signals and digests is not what is tested: optimised, it saves half the time.
driver = compile_all("gcc", "-O2", conformance, work / "driver")
with concurrent.futures.ThreadPoolExecutor(2) as pool:
    builds = [pool.submit(build_and_run, compiler, level, driver)
              for level in LEVELS for compiler in COMPILERS]
    outputs = dict(build.result() for build in builds)
for name, output in outputs.items():
    print(f"{name}: {output}", end="")
wholes = {outputs.pop(name) for name in WHOLE}
if len(wholes) != 1 or not re.fullmatch(r"796 rows, 0 differ; digest [0-9a-f]{64}\n", wholes.pop()):
    sys.exit("rows of the whole table differ")
reduced_outputs = set(outputs.values())
if len(outputs) != 5 or len(reduced_outputs) != 1 or not re.fullmatch(
        r"the table is incomplete\n100 rows, 1 differ; digest [0-9a-f]{64}\n", reduced_outputs.pop()):
    sys.exit("rows of the reduced table differ")
