"""Checks the tree: includes run one way, own headers come first, headers stand alone, the C program
calls every exported name.

    source_tree_test.py ROOT C_COMPILER CXX_COMPILER
"""
import concurrent.futures
import pathlib
import re
import subprocess
import sys

root = pathlib.Path(sys.argv[1])
c_compiler, cxx_compiler = sys.argv[2:]
failures = []

# What the files of a folder may include, besides those of the folder itself.
ALLOWED = {
    "include": [],
    "platform": [],
    "dsp": ["include"],
    "nrss/gain": ["dsp", "include"],
    "speech": ["dsp"],
    "nrss/pipeline": ["dsp", "nrss/gain", "speech", "include"],
    "nrss/stream": ["dsp", "nrss/gain", "nrss/pipeline", "include"],
    "detector": ["dsp", "nrss", "platform", "include"],
    "segments": ["include"],
    "streams": ["dsp", "nrss", "speech", "detector", "segments", "include"],
    "tools/files": [],
    "tools/audio": ["tools/files"],
    "tools/results": ["tools/files", "tools/audio", "segments", "include"],
    "tools/cli": ["tools/files", "tools/audio", "tools/results", "segments", "include"],
    "tools/batch": ["tools/files", "tools/audio", "tools/results", "tools/cli", "segments", "include"],
    "tools/score": ["tools/files", "tools/audio", "tools/results", "tools/cli", "segments", "include"],
    "tools/report": ["tools/audio", "tools/results", "segments", "include"],
    "conformance": ["include"],
    "tools": ["tools", "include", "segments", "conformance"],
    "android/korvane-vad/src/main/cpp": ["include"],
    "web/module": ["include"],
    "ladspa": ["include"],
    "gstreamer": ["include"],
    "python": ["include"],
}
SOURCES = {".c", ".cpp", ".h"}


def resolve(source, name):
    """The included file, relative to the root; None where there is none."""
    for folder in (source.parent, root, root / "include"):
        if (folder / name).is_file():
            return (folder / name).resolve().relative_to(root.resolve()).as_posix()
    return None


# Whoever writes a test, a proof or an example may look at anything.
FREE = ("tests", "proofs", "bench", "examples", "build")
headers = []
for source in sorted(root.rglob("*")):
    where = source.relative_to(root).as_posix()
    if source.suffix not in SOURCES or where.startswith((".", *(f"{folder}/" for folder in FREE))):
        continue
    folder = source.parent.relative_to(root).as_posix()
    if folder not in ALLOWED:
        failures.append(f"{where} lies in a folder without include rules")
        continue
    if source.suffix == ".h":
        headers.append(source)
    includes = re.findall(r'^\s*#\s*include\s*(["<])([^">]+)[">]', source.read_text(), re.M)
    for quote, name in includes:
        target = resolve(source, name)
        if target is None:
            if quote == '"':
                failures.append(f"{where} includes {name}, which is not in the tree")
        elif not any(target.startswith(a + "/") for a in [folder, *ALLOWED[folder]]):
            failures.append(f"{where} must not include {target}")
    own = source.with_suffix(".h")
    if source.suffix != ".h" and own.exists():
        if not includes or resolve(source, includes[0][1]) != own.relative_to(root).as_posix():
            failures.append(f"{where} does not include its own header first")

calls = (root / "tests/c_api.c").read_text()
for name in (root / "exports.txt").read_text().split():
    if not re.search(rf"\b{name}\b[\[( ]", calls):
        failures.append(f"tests/c_api.c does not use {name}")


def compiles_alone(command):
    result = subprocess.run(command, capture_output=True, text=True)
    return None if result.returncode == 0 else f"{' '.join(command)}\n{result.stderr}"


WARNINGS = ["-fsyntax-only", "-Wall", "-Wextra", "-Werror", "-pedantic"]
GSTREAMER = subprocess.run(["pkg-config", "--cflags", "gstreamer-base-1.0"], capture_output=True, text=True)
PATHS = [f"-I{root}", f"-I{root / 'include'}", *GSTREAMER.stdout.split()]
commands = []
for header in headers:
    if header.parent == root / "include":
        # A host may say itself how the names are declared.
        commands.append([c_compiler, "-x", "c", "-std=c99", "-DKORVANE_API=", *WARNINGS, str(header)])
        commands.append([cxx_compiler, "-x", "c++", "-std=c++11", *WARNINGS, str(header)])
    else:
        commands.append([cxx_compiler, "-x", "c++", "-std=c++20", "-fsyntax-only", *PATHS, str(header)])
with concurrent.futures.ThreadPoolExecutor(2) as pool:
    failures += [failure for failure in pool.map(compiles_alone, commands) if failure]

print("\n".join(failures))
sys.exit(1 if failures or not headers else 0)
