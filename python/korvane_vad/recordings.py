"""Whole recordings in one call."""

from typing import Any, List, Optional

import numpy as np

from ._library import Array
from ._samples import Samples, channels_of
from .segments import Segment, SpeechEnd
from .stream import FRAME, Stream


def _open(samples: Samples, rate: int, channels: Optional[int], settings: Any, **wanted: bool) -> Stream:
    return Stream(rate, channels_of(samples) if channels is None else channels, **wanted, **settings)


def detect(samples: Samples, rate: int, channels: Optional[int] = None, **settings: Any) -> List[Segment]:
    """Where somebody speaks.

    `samples` of `rate` Hz, (n,) or (n, 2); `channels` is needed for bytes of two. Settings by name, see Settings: for
    captions and cutting, say min_gap_ms=300, min_speech_ms=100, pad_start_ms=50, pad_end_ms=150. Raises what Stream does.
    """
    with _open(samples, rate, channels, settings) as stream:
        events = stream.process(samples).events + stream.flush().events
    return [Segment(*event) for event in events if isinstance(event, SpeechEnd)]


def clean(samples: Samples, rate: int, channels: Optional[int] = None, **settings: Any) -> Array:
    """The samples without steady noise: as many, of the same type and shape, each where it was."""
    with _open(samples, rate, channels, settings, cleaned=True) as stream:
        parts = [stream.process(samples).cleaned, stream.flush().cleaned]
    return np.concatenate([part for part in parts if part is not None])


def frames(samples: Samples, rate: int, channels: Optional[int] = None, **settings: Any) -> Array:
    """What was decided on each frame of 10 ms: an array of dtype FRAME.

    Its fields: time in seconds, sample, length, speech, score, level and noise in dB.
    """
    with _open(samples, rate, channels, settings, frames=True) as stream:
        parts = [stream.process(samples).frames, stream.flush().frames]
    return np.concatenate([np.empty(0, FRAME)] + [part for part in parts if part is not None])
