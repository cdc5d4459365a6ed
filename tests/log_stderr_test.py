"""A host without a log function: every message is one line on stderr, as logcat's brief form shows it.

    log_stderr_test.py C_API LOG_CHILD [EMULATOR...]
"""
import subprocess
import sys

c_api, log_child, *emulator = sys.argv[1:]


def stderr_of(*command):
    """The process id and what it wrote to stderr; nothing on stdout, exit code 0."""
    process = subprocess.Popen([*emulator, *command], stdout=subprocess.PIPE, stderr=subprocess.PIPE)
    out, err = process.communicate(timeout=120)
    if process.returncode != 0 or out:
        sys.exit(f"{command} returned {process.returncode}\n{out.decode()}{err.decode()}")
    return process.pid, err.decode()


def expect(pid, err, messages):
    expected = "".join(f"I/OLM_VOR_a64({pid:5d}): {message}\n" for message in messages)
    if err != expected:
        sys.exit(f"expected on stderr:\n{expected}\nfound:\n{err}")


VERSION = "VoiceActivityDetectionInit() Version Korvane VAD v3.0 a64 2020.06.22)"
CHILD = [VERSION,
         "VoiceActivityDetectionSamplingRateConfig -1",
         "VoiceActivityDetectionFrameLengthConfig 320",
         "VoiceActivityDetectionChannelModeConfig -1"]
for pid in (7, 12345, 4194304):  # narrower than the column, as wide, and wider
    expect(pid, stderr_of(log_child, str(pid))[1], CHILD)

expect(*stderr_of(c_api), [
    "VoiceActivityDetectionSamplingRateConfig 48000",
    VERSION,
    "VoiceActivityDetectionChannelModeConfig 1",
    "VoiceActivityDetectionSamplingRateConfig 16000",
    "VoiceActivityDetectionFrameLengthConfig 160",
    "VoiceActivityDetectionSamplingRateConfig 8000",
    "VoiceActivityDetectionFrameLengthConfig 160",
    "VoiceActivityDetectionChannelModeConfig 2"])
