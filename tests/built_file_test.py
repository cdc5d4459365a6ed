"""Checks a built library and its objects with readelf and nm, which read every machine's ELF files.

    built_file_test.py [--android SYMBOLS] [--streams] LIBRARY EXPORTS READELF NM OBJECT...

With --android it is the library for 64-bit Arm Android, and SYMBOLS the list of what it may take from
the platform: lines of a library's and a symbol's name. With --streams it is the one for many streams.
"""
import argparse
import re
import subprocess
import sys

parser = argparse.ArgumentParser()
parser.add_argument("--android")
parser.add_argument("--streams", action="store_true")
for name in ("library", "exports", "readelf", "nm"):
    parser.add_argument(name)
parser.add_argument("objects", nargs="+")
arguments = parser.parse_args()
library, readelf, nm, objects = arguments.library, arguments.readelf, arguments.nm, arguments.objects
failures = []

# All that the library may take from the C library. The weak names belong to its start-up files and to the
# host's log function; the rest are the three maths functions, memory copies, and one formatted line.
WEAK = {"__android_log_print", "__cxa_finalize", "__gmon_start__", "_ITM_deregisterTMCloneTable",
        "_ITM_registerTMCloneTable"}
STRONG = {"sqrt", "log10", "floor", "memcpy", "memmove", "memset", "getpid", "fprintf", "vsnprintf",
          "stderr", "__fprintf_chk", "__vsnprintf_chk", "__stack_chk_fail", "__stack_chk_guard"}
SONAME, NAMES = "libKorvaneVAD_v3.0.so", 24
if arguments.streams:  # which allocates where it is told to, and logs nothing
    SONAME, NAMES = "libkorvane-streams.so.1", 18
    STRONG = {"log10", "floor", "lroundf", "memcpy", "memmove", "memset", "posix_memalign", "free",
              "__stack_chk_fail", "__stack_chk_guard"}
    WEAK -= {"__android_log_print"}
LIBRARIES = {"libm.so.6", "libc.so.6", "ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1"}
# On Android the names come with the library that has them.
PAGE = 0x4000
platform = {}
if arguments.android:
    platform = {name: owner for owner, name in
                (line.split() for line in open(arguments.android, encoding="ascii")
                 if not line.startswith("#"))}
    WEAK, STRONG, LIBRARIES = set(), set(platform), {"liblog.so", "libm.so", "libc.so"}


def check(holds, text):
    if not holds:
        failures.append(text)


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def symbols(*options):
    """(type letter, name without version) of every symbol."""
    found = []
    for line in run(nm, "--format=posix", *options).splitlines():
        fields = line.split()
        if len(fields) >= 2 and len(fields[1]) == 1:
            found.append((fields[1], fields[0].split("@")[0]))
    return found


dynamic = run(readelf, "--wide", "--dynamic", library)
sections = {m[1]: int(m[2], 16) for m in re.finditer(
    r"^ *\[ *\d+\] (\S+) +\S+ +\S+ +\S+ +(\S+)", run(readelf, "--wide", "--sections", library), re.M)}
segments = run(readelf, "--wide", "--segments", library)

exported = sorted(name for kind, name in symbols("--dynamic", "--defined-only", library))
listed = open(arguments.exports, encoding="ascii").read().split()
check(exported == sorted(listed), f"exported: {sorted(set(exported) ^ set(listed))} differ from the list")
check(len(set(listed)) == NAMES, f"{len(listed)} names are listed, not {NAMES}")

undefined = symbols("--dynamic", "--undefined-only", library)
check(arguments.streams or ("U" if platform else "w", "__android_log_print") in undefined,
      "the host's log function is not looked for")
for kind, name in undefined:
    check(name in (WEAK if kind in "wv" else STRONG), f"needs {name} ({kind})")

needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))
check(needed <= LIBRARIES, f"needs {sorted(needed - LIBRARIES)}")
check(re.findall(r"\(SONAME\).*\[(.*)\]", dynamic) == [SONAME], "wrong SONAME")
check("TEXTREL" not in dynamic, "has text relocations")
check("BIND_NOW" in dynamic and "GNU_RELRO" in segments, "is not read-only after relocation")
check(not re.search(r"(RPATH|RUNPATH)", dynamic), "has a run path")
check(not re.search(r"(LOAD|GNU_STACK) .* RWE ", segments), "has memory to write and to execute")
check("GNU_STACK" in segments, "asks for an executable stack")

if platform:
    header = run(readelf, "--wide", "--file-header", library)
    for pattern in (r"Class: +ELF64\n", r"Type: +DYN ", r"Machine: +AArch64\n"):
        check(re.search(pattern, header), f"header lacks {pattern}")
    owners = {platform.get(name) for _, name in undefined}
    check(needed == owners, f"needs {sorted(needed)}, takes symbols from {sorted(map(str, owners))}")
    check("GLIBC" not in run(readelf, "--wide", "--version-info", library),
          "asks for symbol versions of another C library")
    # Whichever the device's page is, 4 or 16 KB: no page holds parts of two segments or, beside what
    # is read-only after relocation, what stays writable.
    loads = [[int(field, 16) for field in match] for match in re.findall(
        r"^ +LOAD +(\w+) (\w+) \w+ \w+ (\w+) .* (\w+)$", segments, re.M)]
    check(len(loads) >= 2, f"{len(loads)} segments")
    for offset, address, _, alignment in loads:
        check(alignment == PAGE and (address - offset) % PAGE == 0,
              f"segment at {address:#x} (file {offset:#x}) is aligned to {alignment:#x}")
    for (_, address, size, _), (_, following, _, _) in zip(loads, loads[1:]):
        check((address + size - 1) // PAGE < following // PAGE,
              f"segments at {address:#x} and {following:#x} share a page")
    for match in re.findall(r"^ +GNU_RELRO +\w+ (\w+) \w+ \w+ (\w+) ", segments, re.M):
        start, size = (int(field, 16) for field in match)
        page_end = -(-(start + size) // PAGE) * PAGE
        check(not any(max(address, start + size) < min(address + length, page_end)
                      for _, address, length, _ in loads),
              f"what is read-only after relocation ends at {start + size:#x}, in a page with other data")

# One pointer: the compiler runtime's own frame_dummy, which Android has not.
check(sections.get(".init_array", 0) <= (0 if platform else 8),
      f".init_array has {sections.get('.init_array')} bytes")
check(".ctors" not in sections and ".tbss" not in sections and ".tdata" not in sections,
      "has constructors or thread-local storage")
for path in objects:
    own = run(readelf, "--wide", "--sections", path)
    check(not re.search(r"\.init_array|\.ctors|\.tbss|\.tdata|\.gcc_except_table", own),
          f"{path}: static initialiser, thread-local storage or exception tables")
    for kind, name in symbols(path):
        check(not name.startswith(("_GLOBAL__sub_I", "__cxx_global_var_init", "_ZGV")),
              f"{path}: static initialiser {name}")

print("\n".join(failures))
sys.exit(1 if failures else 0)
