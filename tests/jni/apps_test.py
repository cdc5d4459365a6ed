"""Runs what an app developer has in hands: the Java examples of android/README.md, with stand-ins for the
platform's classes, as it is and shrunk together with the class by ProGuard, whose rules R8 reads, under the
module's rules for its users.

    apps_test.py ROOT WORK_FOLDER CLASS_JAR NATIVE_FOLDER JAVA JAVAC PROGUARD_JAR
"""
import pathlib
import re
import shutil
import subprocess
import sys

root, work = map(pathlib.Path, sys.argv[1:3])
jar, native, java, javac, proguard = sys.argv[3:]
tests = root / "tests/jni"
run = [java, "-Xcheck:jni", f"-Djava.library.path={native}"]
shutil.rmtree(work, ignore_errors=True)
work.mkdir()


def check_run(*command):
    result = subprocess.run([*run, *command], capture_output=True, text=True)
    if result.returncode != 0 or result.stdout:
        sys.exit(f"{command}: exit code {result.returncode}\n{result.stdout}{result.stderr}")


examples = re.findall(r"```java\n(.*?)```", (root / "android/README.md").read_text(), re.S)
names = ("SpeechFinder", "Listener")
assert len(examples) == len(names)
for name, example in zip(names, examples):
    (work / f"{name}.java").write_text(example)
app = work / "app"
subprocess.run([javac, "--release", "8", "-Xlint:all,-options", "-Werror", "-cp", jar, "-d", app,
                *work.glob("*.java"), tests / "ExampleApp.java",
                *sorted((tests / "standins/android/media").iterdir())], check=True)
check_run("-cp", f"{jar}:{app}", "ExampleApp")

subprocess.run([java, "-jar", proguard, "-injars", jar, "-injars", app,
                "-outjars", work / "shrunk.jar", "-include", root / "android/korvane-vad/consumer-rules.pro",
                "-keep", "class ExampleApp { public static void main(java.lang.String[]); }",
                # It does not know the class files of this JDK, so it must be told what a thread runs.
                "-keep", "class Listener { public void run(); }",
                "-dontwarn", "**", "-dontnote", "**"], check=True)
check_run("-cp", work / "shrunk.jar", "ExampleApp")
