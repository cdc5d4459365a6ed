"""python -m korvane_vad talk.wav: where somebody speaks, in seconds."""

import argparse
import pathlib
import sys
import wave
from typing import Tuple

import numpy as np

from ._library import Array
from . import detect, to_audacity, to_rttm


def read_wav(path: str) -> Tuple[Array, int]:
    """The samples of a 16-bit WAV, (n, channels), and its rate."""
    with wave.open(path) as file:
        if file.getsampwidth() != 2:
            raise ValueError(f"has {8 * file.getsampwidth()} bits a sample, only 16 are read here; soundfile reads others")
        samples = np.frombuffer(file.readframes(file.getnframes()), "<i2")
        return samples.reshape(-1, file.getnchannels()), file.getframerate()


def main() -> int:
    """The command. Returns its exit status."""
    parser = argparse.ArgumentParser(prog="python -m korvane_vad", description="Finds where somebody speaks.")
    parser.add_argument("recordings", nargs="+", metavar="RECORDING", help="a WAV of 16 bits")
    parser.add_argument("-f", "--format", choices=("text", "audacity", "rttm"), default="text")
    parser.add_argument("--decision", choices=("adaptive", "fixed", "detector"), default="adaptive")
    for name in ("min-gap", "min-speech", "max-speech", "pad-start", "pad-end"):
        parser.add_argument(f"--{name}", type=int, default=0, metavar="MS")
    arguments = parser.parse_args()
    settings = {name: value for name, value in vars(arguments).items() if name not in ("recordings", "format")}
    settings = {name if name == "decision" else name + "_ms": value for name, value in settings.items()}
    status = 0
    for path in arguments.recordings:
        try:
            segments = detect(*read_wav(path), **settings)
        except (OSError, EOFError, ValueError, wave.Error) as error:
            reason = getattr(error, "strerror", None) or str(error) or "is cut within its header"
            print(f"korvane_vad: {path}: {reason}", file=sys.stderr)
            status = 1
            continue
        if arguments.format == "rttm":
            print(to_rttm(segments, pathlib.Path(path).stem), end="")
        elif arguments.format == "audacity":
            print(to_audacity(segments), end="")
        else:
            name = f"{path}: " if len(arguments.recordings) > 1 else ""
            for segment in segments:
                print(f"{name}{segment.start:.2f} {segment.end:.2f}")
    return status


if __name__ == "__main__":
    sys.exit(main())
