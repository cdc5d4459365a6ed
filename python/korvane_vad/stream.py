"""A stream of samples and what is heard in it."""

import contextlib
import ctypes
import threading
import weakref
from typing import Any, Dict, Iterable, Iterator, List, NamedTuple, NoReturn, Optional, Tuple, TypedDict, Union

import numpy as np

from . import _library as lib
from ._library import Array
from ._samples import Samples, take
from .segments import SpeechEnd, SpeechStart

Event = Union[SpeechStart, SpeechEnd]

#: A frame as `frames` and Result tell it: where it begins in seconds and samples, its length in samples per channel,
#: whether it is speech, its score of 0 to 1, the level of the cleaned frame and of the noise in the input, both in dB,
#: 0 being the loudest square wave, -140 for silence and where there is no estimate yet. With decision "detector" the first
#: one begins `delay` samples before the input.
FRAME = np.dtype(
    [("time", "f8"), ("sample", "i8"), ("length", "i4"), ("speech", "?"), ("score", "f4"), ("level", "f4"), ("noise", "f4")]
)


class Settings(TypedDict, total=False):
    """How speech is told from the rest. Times are whole milliseconds, 0 to 3600000."""

    decision: str  #: "adaptive" (default): a score that follows the noise; "fixed": the cleaned level; "detector"
    frame_length: int  #: samples per channel of a frame, 1 to 4096 [10 ms]
    restore_level: bool  #: cleaned samples come back as loud as they went in [True]
    enter_score: float  #: adaptive: speech begins at this score, 0 to 1 [0.5]
    stay_score: float  #: adaptive: and goes on above this one, at most enter_score [0.4]
    enter_db: float  #: fixed: speech begins above this level, -140 to 0 [-45]
    stay_db: float  #: fixed: and goes on above this one, at most enter_db [-50]
    onset_ms: int  #: time above the threshold before speech is declared [0]
    hangover_ms: int  #: time below it before speech ends [40]
    min_gap_ms: int  #: shorter gaps between segments are filled [0]
    min_speech_ms: int  #: shorter segments are dropped [0]
    max_speech_ms: int  #: longer segments are split into equal parts; 0 never [0]
    pad_start_ms: int  #: added before each segment, within the input [0]
    pad_end_ms: int  #: added behind it [0]


class Result(NamedTuple):
    """What a chunk brought."""

    events: List[Event]  #: in order
    speech: bool  #: whether the last whole frame was speech
    frames: Optional[Array]  #: of dtype FRAME, with frames=True
    #: With cleaned=True what has become ready, in the input's type and shape. Put one behind another, with those of
    #: flush at the end, they are as long as the input, and each sample stands where it stood there.
    cleaned: Optional[Array]


def _whole(name: str, value: Any, minimum: int, maximum: int, hint: str = "") -> int:
    if isinstance(value, bool) or not isinstance(value, (int, np.integer)):
        raise TypeError(f"{name} must be a whole number, not {value!r}")
    if not minimum <= value <= maximum:
        raise ValueError(f"{name} must be from {minimum} to {maximum}, not {value}{hint}")
    return int(value)


def _number(name: str, value: Any, minimum: float, maximum: float) -> float:
    if isinstance(value, bool) or not isinstance(value, (int, float, np.integer, np.floating)):
        raise TypeError(f"{name} must be a number, not {value!r}")
    if not minimum <= value <= maximum:
        raise ValueError(f"{name} must be from {minimum:g} to {maximum:g}, not {value}")
    return float(value)


def _configuration(rate: int, channels: int, settings: Dict[str, Any]) -> lib.Config:
    unknown = sorted(set(settings) - set(Settings.__annotations__))
    if unknown:
        known = ", ".join(Settings.__annotations__)
        raise TypeError(f"there is no setting {unknown[0]}; there are {known}")
    _whole("channels", channels, 1, 2)
    _whole("rate", rate, 1, 49999, " Hz; others are to be resampled first, say with scipy.signal.resample_poly")
    config = lib.Config()
    lib.library.korvane_collector_defaults(config, rate, channels)
    for name, value in settings.items():
        if value is None:
            continue
        if name == "decision":
            if value not in lib.DECISIONS:
                raise ValueError(f"decision must be one of {', '.join(lib.DECISIONS)}, not {value!r}")
            config.decision = lib.DECISIONS.index(value)
        elif name == "restore_level":
            if not isinstance(value, (bool, np.bool_)):
                raise TypeError(f"restore_level must be True or False, not {value!r}")
            config.restore_level = int(value)
        elif name.endswith("_score"):
            setattr(config, name, _number(name, value, 0, 1))
        elif name.endswith("_db"):
            setattr(config, name, _number(name, value, -140, 0))
        elif name == "frame_length":
            config.frame_length = _whole(name, value, 1, 4096)
        else:
            setattr(config, name, _whole(name, value, 0, 3600000))
    for kind in ("score", "db"):
        enter, stay = getattr(config, "enter_" + kind), getattr(config, "stay_" + kind)
        if stay > enter:
            raise ValueError(f"stay_{kind} must not be above enter_{kind}: {stay:g} and {enter:g}")
    return config


class Stream:
    """A detector and suppressor. Any number may be open at once, each used by one thread at a time.

        with Stream(16000) as stream:
            for event in stream.events(chunks):
                print(event)

    Arguments: `rate` in Hz, 1 to 49999; `channels`, 1 or 2, of which the suppressor hears the first and treats both
    alike; whether results hold cleaned samples and frames; and Settings by name. Raises a TypeError or a ValueError that
    says which is wrong.
    """

    def __init__(self, rate: int, channels: int = 1, *, cleaned: bool = False, frames: bool = False, **settings: Any) -> None:
        config = _configuration(rate, channels, settings)
        error = ctypes.c_int32()
        self._handle = lib.library.korvane_collector_open(config, int(frames), error)
        if not self._handle:
            raise MemoryError("there is no memory for one more stream")
        self._close = weakref.finalize(self, lib.library.korvane_collector_close, self._handle)
        self._close.atexit = False  # a daemon thread may still be inside then
        self._lock = threading.Lock()
        self._wants_cleaned = cleaned
        self._wants_frames = frames
        self.rate = int(rate)
        self.channels = int(channels)
        #: samples per channel by which cleaned ones are late: 720 below 25000 Hz, 867 from there on
        self.delay: int = lib.library.korvane_collector_delay(self._handle)
        self._begin()

    def _begin(self) -> None:
        self._speech = False
        self._ended = False
        self._skip = self.delay
        self._like: Tuple["np.dtype[Any]", bool] = (np.dtype(np.int16), self.channels == 1)

    @property
    def speech(self) -> bool:
        """Whether the last whole frame was speech."""
        return self._speech

    def process(self, chunk: Samples) -> Result:
        """Takes samples, any number of them; they are only read.

        Other threads run meanwhile. A chunk that is refused changes nothing.
        """
        with self._use():
            if self._ended:
                raise ValueError("the input has ended with flush(); reset() begins anew")
            taken = take(chunk, self.channels)
            array = taken.array
            output = np.empty_like(array) if self._wants_cleaned else None
            is_float = array.dtype.kind == "f"
            answer = lib.library.korvane_collector_process(
                self._handle, array.ctypes.data, _address(output), len(array), int(is_float)
            )
            if len(array) or isinstance(chunk, np.ndarray):  # an empty list has no type of its own
                self._like = taken.dtype, taken.flat
            return self._result(answer, output)

    def flush(self) -> Result:
        """The input is over: tells what is still to come. Speech that goes on ends with the input."""
        with self._use():
            if self._ended:
                raise ValueError("the input has ended already; reset() begins anew")
            self._ended = True
            is_float = self._like[0].kind == "f"
            own = np.float32 if is_float else np.int16
            output = np.empty((self.delay, self.channels), own) if self._wants_cleaned else None
            answer = lib.library.korvane_collector_end(self._handle, _address(output), int(is_float))
            return self._result(answer, output)

    def events(self, chunks: Iterable[Samples]) -> Iterator[Event]:
        """What begins and ends in chunks as they come; flushes at their end."""
        for chunk in chunks:
            yield from self.process(chunk).events
        yield from self.flush().events

    def reset(self) -> None:
        """Begins anew with the same settings."""
        with self._use():
            lib.library.korvane_collector_reset(self._handle)
            self._begin()

    def close(self) -> None:
        """Gives the memory back; a second time does nothing."""
        with contextlib.suppress(ValueError), self._use():
            self._close()

    def __enter__(self) -> "Stream":
        return self

    def __exit__(self, *_: object) -> None:
        self.close()

    def __reduce__(self) -> NoReturn:
        raise TypeError("a Stream cannot be copied or pickled; make another with the same settings")

    def _use(self) -> "_Use":
        return _Use(self)

    def _result(self, answer: int, output: Optional[Array]) -> Result:
        if answer == lib.ERROR_NO_MEMORY:
            raise MemoryError("there was no memory for all events and frames")
        self._speech = answer == 1
        told = self._handle.contents
        events: List[Event] = []
        for kind, is_open, position, start in lib.records(told.events, told.event_count, lib.EVENT).tolist():
            if kind == lib.SPEECH_START:
                events.append(SpeechStart(start / self.rate, start))
            else:
                events.append(SpeechEnd(start / self.rate, position / self.rate, start, position, is_open == 1))
        frames = self._frames(lib.records(told.results, told.result_count, lib.RESULT)) if self._wants_frames else None
        return Result(events, self._speech, frames, None if output is None else self._cleaned(output))

    def _frames(self, results: Array) -> Array:
        frames = np.empty(len(results), FRAME)
        frames["time"] = results["sample"] / self.rate
        for name in results.dtype.names or ():
            frames[name] = results[name]
        return frames

    def _cleaned(self, output: Array) -> Array:
        skip = min(self._skip, len(output))
        self._skip -= skip
        dtype, flat = self._like
        output = output[skip:].astype(dtype, copy=False)
        return output[:, 0] if flat else output


class _Use:
    """A stream's turn. It is no lock to wait for: two threads at once are a mistake that must not pass unnoticed."""

    def __init__(self, stream: Stream) -> None:
        self._stream = stream

    def __enter__(self) -> None:
        if not self._stream._lock.acquire(blocking=False):
            raise RuntimeError("another thread is using this stream; give each thread its own")
        if not self._stream._close.alive:
            self._stream._lock.release()
            raise ValueError("this stream is closed")

    def __exit__(self, *_: object) -> None:
        self._stream._lock.release()


def _address(output: Optional[Array]) -> Optional[int]:
    return None if output is None else output.ctypes.data
