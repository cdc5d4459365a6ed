"""Korvane VAD: finds where somebody speaks, and takes the steady noise out of the sound.

    >>> import korvane_vad
    >>> korvane_vad.detect(samples, 16000)
    [Segment(start=0.32, end=1.41, start_sample=5120, end_sample=22560, open=False)]

Samples are 16-bit integers or floats of -1 to 1, one channel or two. Times are in seconds, and in samples per channel,
from the first sample on. What is found depends on the samples alone, never on how they were cut into chunks, nor on
the machine.
"""

from ._samples import Samples
from ._version import VERSION as __version__
from .recordings import clean, detect, frames
from .segments import Segment, SpeechEnd, SpeechStart, to_audacity, to_dicts, to_rttm
from .stream import FRAME, Result, Settings, Stream

__all__ = [
    "FRAME", "Result", "Samples", "Segment", "Settings", "SpeechEnd", "SpeechStart", "Stream", "__version__", "clean",
    "detect", "frames", "to_audacity", "to_dicts", "to_rttm",
]
