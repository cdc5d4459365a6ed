"""Installs the build, moves what was installed, and builds small programs with it through CMake and through
pkg-config; then the same from the sources, through add_subdirectory and FetchContent. Each must print what it
prints when built beside the library.

    consumers_test.py ROOT BUILD WORK_FOLDER CC CXX DETECTOR SUPPRESSOR TOOL
"""
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys

root, build, work = map(pathlib.Path, sys.argv[1:4])
cc, cxx, detector, suppressor, tool = sys.argv[4:]
consumer = root / "tests/shipping/consumer"
ALSA = "/usr/share/sounds/alsa/Front_Center.wav"


def run(*command, **environment):
    """What the command prints. Nothing of ours in the caller's environment may help it."""
    clean = {name: value for name, value in os.environ.items()
             if name not in ("LD_LIBRARY_PATH", "PKG_CONFIG_PATH", "CMAKE_PREFIX_PATH", "DESTDIR")}
    result = subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                            text=True, env={**clean, **{k: str(v) for k, v in environment.items()}})
    if result.returncode != 0:
        sys.exit(f"{' '.join(map(str, command))}\n{result.stdout}{result.stderr}")
    return result.stdout


def files(folder):
    return {path.relative_to(folder).as_posix() for path in folder.rglob("*") if not path.is_dir()}


def expect(what, found, expected):
    if found != expected:
        sys.exit(f"{what}:\n{found}\ninstead of\n{expected}")


expected = run(detector)
flags = expected.splitlines()[0]
if not re.fullmatch("0{120,}1{100,}0{20,}", flags):
    sys.exit(f"the loud half second is not what is found: {flags}")
expect("the two halves of the detector", run(suppressor), expected)

# Each component on its own, and all together: nothing is in two of them, nothing in none.
shutil.rmtree(work, ignore_errors=True)
parts = {name: work / name for name in ("library", "streams", "development", "tool", "ladspa", "gstreamer")}
for name, prefix in parts.items():
    run("cmake", "--install", build, "--prefix", prefix, "--component", name)
run("cmake", "--install", build, "--prefix", work / "prefix")
prefix = work / "elsewhere/moved"
prefix.parent.mkdir()
(work / "prefix").rename(prefix)
expect("all components", sorted(file for part in parts.values() for file in files(part)), sorted(files(prefix)))
library, = prefix.rglob("libKorvaneVAD_v3.0.so")
expect("component library", files(parts["library"]), {library.relative_to(prefix).as_posix()})
expect("component streams", {re.sub(r"\.so\.1.*", "", path.rsplit("/", 1)[1]) for path in files(parts["streams"])},
       {"libkorvane-streams"})
expect("headers", {path.name for path in prefix.rglob("*.h")}, {"korvane_vad.h", "korvane_nrss.h", "korvane_stream.h"})
# The binaries may name the folder they were built in, for the tool to be run there; what is installed may not.
for file in files(prefix):
    for place in (root, build, work):
        if str(place).encode() + b"/" in (prefix / file).read_bytes():
            sys.exit(f"{file} names {place}")

# The tool finds its library; its page and completions come along.
installed_tool = prefix / "bin/korvane-vad"
expect("the installed tool", run(installed_tool, ALSA), run(tool, ALSA))
expect("page and completions", len([file for file in files(parts["tool"])
                                    if "korvane-vad" in file and not file.startswith("bin/")]), 4)


def with_cmake(name, *options):
    """Builds the consumer and runs both programs; returns the build folder."""
    folder = work / name
    run("cmake", "-S", consumer, "-B", folder, "-G", "Ninja", *options, CC=cc, CXX=cxx)
    run("cmake", "--build", folder)
    for program in ("detector", "suppressor", "streams", "streams-static"):
        expect(f"{name}: {program}", run(folder / program), expected)
    return folder


# So do the plugins.
for plugin in ("lib/ladspa/korvane.so", *files(parts["gstreamer"])):
    found = re.search(r"libkorvane-streams.so.1 => (.*) \(", run("ldd", prefix / plugin))
    expect(plugin, found and pathlib.Path(found[1]).resolve().parent, library.parent)

with_cmake("find_package", f"-DCMAKE_PREFIX_PATH={prefix}")
# Unoptimised: what is tested is how it is found, not how fast it is. Only the library comes along, and it is
# installed only where that is asked for.
ours = {re.sub("-release.cmake$", "-debug.cmake", file)
        for name in ("library", "streams", "development") for file in files(parts[name])}
for name, asked, installed in (("subdirectory", "-DKORVANE_INSTALL=ON", ours), ("fetch", "-UKORVANE_INSTALL", set())):
    folder = with_cmake(name, f"-DFROM={name}", f"-DSOURCE={root}", "-DCMAKE_BUILD_TYPE=Debug", asked)
    run("cmake", "--install", folder, "--prefix", work / name / "installed")
    expect(f"{name}: installed", sorted(files(work / name / "installed")), sorted(installed))
    expect(f"{name}: our tools and tests", [path.name for path in folder.rglob("*")
           if re.search(r"^korvane-vad-parts|gtest|^conformance$", path.name)], [])

# -Werror: a header that warns is a nuisance to its user.
for compiler, source, module in ((cc, "detector.c", "korvane-vad"), (cxx, "suppressor.cpp", "korvane-vad"),
                                 (cc, "streams.c", "korvane-streams")):
    flags = shlex.split(run("pkg-config", "--cflags", "--libs", module, PKG_CONFIG_PATH=library.parent / "pkgconfig"))
    program = work / ("with-pkg-config-" + source.split(".")[0])
    run(compiler, "-Wall", "-Wextra", "-Werror", consumer / source, "-o", program, *flags)
    expect(f"pkg-config: {source}", run(program, LD_LIBRARY_PATH=library.parent), expected)
