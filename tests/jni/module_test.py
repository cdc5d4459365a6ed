"""Checks the Android module without its plugin: what the Gradle files name is there and agrees with the
rest, and the CMake project that they name builds for 64-bit Arm Android on the stand-ins for the
platform's libraries, into files of the right kind.

    module_test.py ROOT BUILD_FOLDER JNI_HEADERS JAVA_RELEASE READELF
"""
import pathlib
import re
import subprocess
import sys

root, build = map(pathlib.Path, sys.argv[1:3])
jni_headers, java_release, readelf = sys.argv[3:]
failures = []


def check(true, failure):
    if not true:
        failures.append(failure)


def named(pattern, text):
    """What the one place that the pattern matches names."""
    found = re.findall(pattern, text)
    check(len(found) == 1, f"{pattern} is there {len(found)} times")
    return found[0] if found else ""


# ---- Gradle files
android = root / "android"
settings = (android / "settings.gradle.kts").read_text()
module = android / named(r'include\(":([^"]+)"\)', settings)
gradle = (module / "build.gradle.kts").read_text()

plugin = named(r'id\("([^"]+)"\)', gradle)
version = named(rf'id\("{plugin}"\) version "([\d.]+)"', (android / "build.gradle.kts").read_text())
check([*map(int, version.split("."))] >= [8, 5, 1], f"{plugin} {version} does not align to 16 KB pages")
native = module / named(r'path = file\("([^"]+)"\)', gradle)
rules = module / named(r'consumerProguardFiles\("([^"]+)"\)', gradle)
for file in (native, rules, module / "src/main/AndroidManifest.xml"):
    check(file.is_file(), f"{file} does not exist")
package = named(r'namespace = "([^"]+)"', gradle)
source = module / "src/main/java" / package.replace(".", "/") / "KorvaneVad.java"
check(source.is_file() and f"package {package};" in source.read_text(), f"{source} is not in {package}")
level = "1_8" if java_release == "8" else java_release
check(re.findall(r"JavaVersion\.VERSION_(\w+)", gradle) == [level, level], "not the tests' Java level")
check(named(r"ANDROID_STL=([a-z+_]+)", gradle) == "c++_static", "takes a library of the C++ runtime along")
check(re.findall(r"abiFilters (.*)", gradle) == ['+= "arm64-v8a"'], "not 64-bit Arm alone")
# What must be the same in two files.
readme, toolchain, project = [(root / file).read_text() for file in (
    "android/README.md", "cmake/aarch64-linux-android.cmake", "CMakeLists.txt")]
for pattern, other, text in (
        (r"minSdk = (\d+)", r"\(API (\d+)\)", readme),
        (r"minSdk = (\d+)", r"aarch64-linux-android(\d+)\)", toolchain),
        (r"compileSdk = (\d+)", r"platform (\d+)", readme),
        (r'version = "([\d.]+)\.0\+"', r"cmake_minimum_required\(VERSION ([\d.]+)\)", project)):
    check(named(pattern, gradle) == named(other, text), f"{pattern} is another than {other}")

if failures:  # what they build would not be what was meant
    sys.exit("\n".join(failures))

# ---- What they build
subprocess.run(
    ["cmake", "-S", native.parent, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo",
     f"-DCMAKE_TOOLCHAIN_FILE={root}/cmake/aarch64-linux-android.cmake",
     f"-DCMAKE_CXX_STANDARD_INCLUDE_DIRECTORIES={jni_headers}"], check=True)
subprocess.run(["cmake", "--build", build], check=True)
for name, needed, detector_call in (("korvane_vad_jni", {"libKorvaneVAD_v3.0.so"}, "VoiceActivityDetectionExe"),
                                    ("korvane_stream_jni", set(), None)):
    library = next(build.rglob(f"lib{name}.so"))
    elf = subprocess.run([readelf, "-W", "-h", "-d", "-l", "--dyn-syms", library], check=True,
                         capture_output=True, text=True, env={"LC_ALL": "C"}).stdout
    check("Machine:                           AArch64" in elf, f"{name}: not for 64-bit Arm")
    check(named(r"SONAME.*\[(.*)\]", elf) == library.name, f"{name}: not its SONAME")
    libraries = set(re.findall(r"NEEDED.*\[(.*)\]", elf))
    check(needed <= libraries and libraries <= needed | {"libc.so", "libm.so"}, f"{name} needs {libraries}")
    check(set(re.findall(r"^ +LOAD .* (0x\w+)$", elf, re.M)) == {"0x4000"}, f"{name}: not aligned to 16 KB")
    check("TEXTREL" not in elf and "GNU_RELRO" in elf and "BIND_NOW" in elf,
          f"{name}: text relocations, or not RELRO")
    symbols = re.findall(r"^ +\d+: \w+ +\d+ \w+ +(?:GLOBAL|WEAK) +\w+ +(\w+) (\S+)", elf, re.M)
    check([symbol for section, symbol in symbols if section != "UND"] == ["JNI_OnLoad"], f"{name} exports {symbols}")
    check(detector_call is None or ("UND", detector_call) in symbols, f"{name} does not call the detector")

print("\n".join(failures))
sys.exit(1 if failures else 0)
