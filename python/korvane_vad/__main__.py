"""python -m korvane_vad talk.wav: where somebody speaks, in seconds."""

import argparse
import os
import pathlib
import sys
import wave
from typing import Tuple

import numpy as np

from ._library import Array
from . import detect, to_audacity, to_rttm


def _read(path: str) -> Tuple[Array, int, int]:
    """What read_wav gives, and how many samples per channel the header promises."""
    with wave.open(path) as file:
        if file.getsampwidth() != 2:
            raise ValueError(f"has {8 * file.getsampwidth()} bits a sample, only 16 are read here; soundfile reads others")
        channels, promised = file.getnchannels(), file.getnframes()
        octets = file.readframes(promised)
        whole = len(octets) - len(octets) % (2 * channels)
        return np.frombuffer(octets[:whole], "<i2").reshape(-1, channels), file.getframerate(), promised


def read_wav(path: str) -> Tuple[Array, int]:
    """The samples of a 16-bit WAV, (n, channels), and its rate. Of one that is cut, those that are there."""
    return _read(path)[:2]


def _milliseconds(text: str) -> int:
    if not 0 <= int(text) <= 3600000:
        raise argparse.ArgumentTypeError(f"must be from 0 to 3600000 ms, not {text}")
    return int(text)


def main() -> int:
    """The command. Returns its exit status."""
    parser = argparse.ArgumentParser(prog="python -m korvane_vad", description="Finds where somebody speaks.")
    parser.add_argument("recordings", nargs="+", metavar="RECORDING", help="a WAV of 16 bits")
    parser.add_argument("-f", "--format", choices=("text", "audacity", "rttm"), default="text")
    parser.add_argument("--decision", choices=("adaptive", "fixed", "detector"), default="adaptive")
    for name in ("min-gap", "min-speech", "max-speech", "pad-start", "pad-end"):
        parser.add_argument(f"--{name}", type=_milliseconds, default=0, metavar="MS")
    arguments = parser.parse_args()
    settings = {name: value for name, value in vars(arguments).items() if name not in ("recordings", "format")}
    settings = {name if name == "decision" else name + "_ms": value for name, value in settings.items()}
    status = 0
    for path in arguments.recordings:
        try:
            samples, rate, promised = _read(path)
            segments = detect(samples, rate, **settings)
        except (OSError, EOFError, ValueError, wave.Error) as error:
            reason = getattr(error, "strerror", None) or str(error) or "is cut within its header"
            other = "; soundfile reads other files" if isinstance(error, wave.Error) else ""
            print(f"korvane_vad: {path}: {reason}{other}", file=sys.stderr)
            status = 1
            continue
        if len(samples) < promised:
            print(f"korvane_vad: {path}: is cut: {len(samples)} of {promised} samples", file=sys.stderr)
            status = 1
        if arguments.format == "rttm":
            print(to_rttm(segments, pathlib.Path(path).stem), end="")
        elif arguments.format == "audacity":
            print(to_audacity(segments), end="")
        else:
            name = f"{path}: " if len(arguments.recordings) > 1 else ""
            for segment in segments:
                print(f"{name}{segment.start:.2f} {segment.end:.2f}")
    return status


def _run() -> int:
    try:
        status = main()
        sys.stdout.flush()
        return status
    except OSError as error:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())  # nor may what is buffered fail at the exit
        if isinstance(error, BrokenPipeError):  # whoever reads has had enough
            return 0
        print(f"korvane_vad: cannot write: {error.strerror}", file=sys.stderr)
        return 1


if __name__ == "__main__":
    sys.exit(_run())
