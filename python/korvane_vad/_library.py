"""The library beside this module, loaded, and its records."""

import ctypes
import pathlib
from typing import TYPE_CHECKING, Any

import numpy as np

if TYPE_CHECKING:
    import numpy.typing as npt

    Array = npt.NDArray[Any]
else:  # NumPy 1.19 has no typing
    Array = np.ndarray

ERROR_ENDED = -14
ERROR_NO_MEMORY = -11

DECISIONS = ("adaptive", "fixed", "detector")
SPEECH_START = 1

#: KorvaneStreamResult and KorvaneStreamEvent as arrays hold them
RESULT = np.dtype(
    [("sample", "i8"), ("length", "i4"), ("speech", "i4"), ("score", "f4"), ("level", "f4"), ("noise", "f4")], align=True
)
EVENT = np.dtype([("kind", "i4"), ("open", "i4"), ("position", "i8"), ("start", "i8")], align=True)


class Config(ctypes.Structure):
    """KorvaneStreamConfig."""

    _fields_ = [
        ("size", ctypes.c_uint32),
        ("sampling_rate", ctypes.c_int32),
        ("channels", ctypes.c_int32),
        ("frame_length", ctypes.c_int32),
        ("decision", ctypes.c_int32),
        ("restore_level", ctypes.c_int32),
        ("enter_score", ctypes.c_float),
        ("stay_score", ctypes.c_float),
        ("enter_db", ctypes.c_float),
        ("stay_db", ctypes.c_float),
        ("onset_ms", ctypes.c_int32),
        ("hangover_ms", ctypes.c_int32),
        ("min_gap_ms", ctypes.c_int32),
        ("min_speech_ms", ctypes.c_int32),
        ("max_speech_ms", ctypes.c_int32),
        ("pad_start_ms", ctypes.c_int32),
        ("pad_end_ms", ctypes.c_int32),
        ("user", ctypes.c_void_p),
        ("on_result", ctypes.c_void_p),
        ("on_event", ctypes.c_void_p),
    ]


class Collector(ctypes.Structure):
    """The beginning of the record in which a call leaves what it has to tell."""

    _fields_ = [
        ("results", ctypes.c_void_p),
        ("result_count", ctypes.c_size_t),
        ("events", ctypes.c_void_p),
        ("event_count", ctypes.c_size_t),
    ]


def _load() -> ctypes.CDLL:
    # CDLL, not PyDLL: other threads run while a call works.
    library = ctypes.CDLL(str(pathlib.Path(__file__).with_name("_korvane.so")))
    handle, samples = ctypes.POINTER(Collector), ctypes.c_void_p
    of_int = ctypes.c_int32
    for name, result, arguments in (
        ("defaults", of_int, [ctypes.POINTER(Config), of_int, of_int]),
        ("open", handle, [ctypes.POINTER(Config), of_int, ctypes.POINTER(of_int)]),
        ("close", None, [handle]),
        ("process", of_int, [handle, samples, samples, ctypes.c_int64, of_int]),
        ("end", of_int, [handle, samples, of_int]),
        ("reset", of_int, [handle]),
        ("delay", of_int, [handle]),
    ):
        function = getattr(library, "korvane_collector_" + name)
        function.restype, function.argtypes = result, arguments
    return library


library = _load()


def records(address: int, count: int, dtype: "np.dtype[Any]") -> Array:
    """A copy of `count` records in the library's memory."""
    return np.frombuffer(ctypes.string_at(address, count * dtype.itemsize) if count else b"", dtype)
