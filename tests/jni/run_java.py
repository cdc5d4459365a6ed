"""Runs a program of the desktop virtual machine under -Xcheck:jni; what that finds is a failure.

    run_java.py JAVA ARGUMENT...
"""
import re
import subprocess
import sys

result = subprocess.run(sys.argv[1:], capture_output=True, text=True)
print(result.stdout)
# All but the detector's log, a few lines for every configuration.
print("\n".join(line for line in result.stderr.splitlines() if not line.startswith("I/OLM_VOR_a64(")))
found = re.findall(r"(?:WARNING|FATAL ERROR).*", result.stdout + "\n" + result.stderr)
if found:
    print(f"{len(found)} warnings of the virtual machine")
sys.exit(1 if found else result.returncode)
