"""Checks the built library and its objects with readelf and nm, which read every machine's ELF files.

    built_file_test.py LIBRARY EXPORTS READELF NM OBJECT...
"""
import re
import subprocess
import sys

library, exports, readelf, nm, *objects = sys.argv[1:]
failures = []

# All that the library may take from the C library. The weak names belong to its start-up files and to the
# host's log function; the rest are the three maths functions, memory copies, and one formatted line.
WEAK = {"__android_log_print", "__cxa_finalize", "__gmon_start__", "_ITM_deregisterTMCloneTable",
        "_ITM_registerTMCloneTable"}
STRONG = {"sqrt", "log10", "floor", "memcpy", "memmove", "memset", "getpid", "fprintf", "vsnprintf",
          "stderr", "__fprintf_chk", "__vsnprintf_chk", "__stack_chk_fail", "__stack_chk_guard"}
LIBRARIES = {"libm.so.6", "libc.so.6", "ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1"}


def check(holds, text):
    if not holds:
        failures.append(text)


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def symbols(*arguments):
    """(type letter, name without version) of every symbol."""
    found = []
    for line in run(nm, "--format=posix", *arguments).splitlines():
        fields = line.split()
        if len(fields) >= 2 and len(fields[1]) == 1:
            found.append((fields[1], fields[0].split("@")[0]))
    return found


dynamic = run(readelf, "--wide", "--dynamic", library)
sections = {m[1]: int(m[2], 16) for m in re.finditer(
    r"^ *\[ *\d+\] (\S+) +\S+ +\S+ +\S+ +(\S+)", run(readelf, "--wide", "--sections", library), re.M)}
segments = run(readelf, "--wide", "--segments", library)

exported = sorted(name for kind, name in symbols("--dynamic", "--defined-only", library))
listed = open(exports, encoding="ascii").read().split()
check(exported == sorted(listed), f"exported: {sorted(set(exported) ^ set(listed))} differ from the list")
check(len(set(listed)) == 24, f"{len(listed)} names are listed, not 24")

undefined = symbols("--dynamic", "--undefined-only", library)
check(("w", "__android_log_print") in undefined, "the host's log function is not looked for")
for kind, name in undefined:
    check(name in (WEAK if kind in "wv" else STRONG), f"needs {name} ({kind})")

needed = set(re.findall(r"\(NEEDED\).*\[(.*)\]", dynamic))
check(needed <= LIBRARIES, f"needs {sorted(needed - LIBRARIES)}")
check(re.findall(r"\(SONAME\).*\[(.*)\]", dynamic) == ["libKorvaneVAD_v3.0.so"], "wrong SONAME")
check("TEXTREL" not in dynamic, "has text relocations")
check("BIND_NOW" in dynamic and "GNU_RELRO" in segments, "is not read-only after relocation")
check(not re.search(r"(RPATH|RUNPATH)", dynamic), "has a run path")
check(not re.search(r"(LOAD|GNU_STACK) .* RWE ", segments), "has memory to write and to execute")

# One pointer: the compiler runtime's own frame_dummy.
check(sections.get(".init_array", 0) <= 8, f".init_array has {sections.get('.init_array')} bytes")
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
sys.exit(1 if failures or not objects else 0)
