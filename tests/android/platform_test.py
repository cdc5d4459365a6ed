"""The other tests of the running library mean something only if it runs on what they believe it runs on:
one C library, one maths library, and each symbol of the platform from the library that has it on Android.

    platform_test.py FOLDER SYMBOLS LIBRARY PROGRAM EMULATOR...

FOLDER holds the platform's libraries, SYMBOLS lists whose each symbol is; EMULATOR ends in options and
takes -E NAME=VALUE for the program's environment.
"""
import os
import re
import subprocess
import sys

folder, symbols, library, program, *emulator = sys.argv[1:]
failures = []


def run(variable):
    done = subprocess.run([*emulator, "-E", variable, program], capture_output=True, text=True, timeout=120)
    if done.returncode:
        sys.exit(f"{program} returned {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout + done.stderr


loaded = re.findall(r"=> (.+) \(", run("LD_TRACE_LOADED_OBJECTS=1"))
expected = [os.path.join(folder, name) for name in ("libc.so", "libm.so", "liblog.so")] + [library]
if sorted(map(os.path.realpath, loaded)) != sorted(map(os.path.realpath, expected)):
    failures.append(f"loaded are {loaded}, not each once of {expected}")

owners = {name: owner for owner, name in
          (line.split() for line in open(symbols, encoding="ascii") if not line.startswith("#"))}
bound = [(name, target) for source, target, name in re.findall(
    r"binding file (.+) \[0\] to (.+) \[0\]: normal symbol `(\w+)'", run("LD_DEBUG=bindings"))
    if os.path.realpath(source) == os.path.realpath(library)]
if not {"__android_log_print", "log10"} <= {name for name, _ in bound}:
    failures.append(f"bound are only {bound}")
for name, target in bound:
    owner = os.path.join(folder, owners[name]) if name in owners else library
    if os.path.realpath(target) != os.path.realpath(owner):
        failures.append(f"{name} is taken from {target}, not from {owner}")

print("\n".join(failures))
sys.exit(1 if failures else 0)
