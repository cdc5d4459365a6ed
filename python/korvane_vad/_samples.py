"""The forms in which samples come."""

from typing import Any, NamedTuple, Sequence, Tuple, Union

import numpy as np

from ._library import Array

#: What holds samples: an array of 16-bit integers or floats, (n,) or (n, 2), contiguous or not; a list or a memoryview
#: of such; bytes of 16-bit samples, the low byte first, as webrtcvad takes them.
Samples = Union[Array, bytes, bytearray, memoryview, Sequence[float], Sequence[Sequence[float]]]


class Taken(NamedTuple):
    """Samples as the library takes them, and what cleaned ones become again."""

    array: Array  #: int16 or float32, contiguous, (n, channels)
    dtype: "np.dtype[Any]"
    flat: bool  #: whether they came as (n,)


def _as_array(samples: Samples) -> Array:
    try:
        return np.asarray(samples)
    except ValueError:
        raise ValueError("the list holds rows of different lengths: each must be (left, right)") from None


def _array(samples: Samples) -> Array:
    if isinstance(samples, (bytes, bytearray)) or (isinstance(samples, memoryview) and samples.format in "bBc"):
        octets = bytes(samples) if isinstance(samples, memoryview) else samples  # its bytes may have gaps
        if len(octets) % 2:
            raise ValueError(f"{len(octets)} bytes are no 16-bit samples: there must be an even number")
        return np.frombuffer(octets, "<i2").astype(np.int16, copy=False)
    array = _as_array(samples)
    if array.size == 0 and not isinstance(samples, (np.ndarray, memoryview)):
        return array.astype(np.int16)
    if array.dtype.kind == "i" and not isinstance(samples, (np.ndarray, memoryview)):
        # Whole numbers of a list: 16-bit samples, if they all are.
        if array.min() < -32768 or array.max() > 32767:
            raise ValueError("the whole numbers in the list are no 16-bit samples: they go beyond -32768 to 32767")
        return array.astype(np.int16)
    return array


def _known(dtype: "np.dtype[Any]") -> bool:
    return (dtype.kind == "i" and dtype.itemsize == 2) or (dtype.kind == "f" and dtype.itemsize in (4, 8))


def take(samples: Samples, channels: int) -> Taken:
    """Raises a TypeError for what are no samples, a ValueError for those that do not fit."""
    array = _array(samples)
    if not _known(array.dtype):
        hint = "; 16 bits of 32 are (samples >> 16).astype(np.int16)" if array.dtype == np.int32 else ""
        raise TypeError(f"samples must be int16, float32 or float64, not {array.dtype}{hint}")
    is_shapeless = isinstance(samples, (bytes, bytearray, memoryview)) or (array.size == 0 and not isinstance(samples, np.ndarray))
    if array.ndim == 1 and channels == 2 and is_shapeless:
        if len(array) % 2:
            raise ValueError(f"{len(array)} samples are no pairs of left and right")
        array = array.reshape(-1, 2)
    flat = array.ndim == 1
    found = 1 if flat else array.shape[1] if array.ndim == 2 else 0
    if found != channels:
        shape = "x".join(map(str, array.shape)) or "a single number"
        turned = "; channels come second: samples.T" if array.ndim == 2 and array.shape[0] == channels else ""
        raise ValueError(f"samples must be an array of (n,) or (n, 2) for {channels} channel(s), not {shape}{turned}")
    own = np.int16 if array.dtype.kind == "i" else np.float32
    with np.errstate(invalid="ignore", over="ignore"):  # of infinity, which is taken for loud
        if array.dtype.kind == "f" and np.isnan(np.sum(array)) and np.isnan(array).any():
            raise ValueError("the samples hold NaN: np.nan_to_num(samples) makes silence of it")
        return Taken(np.ascontiguousarray(array, own).reshape(-1, channels), array.dtype, flat)


def channels_of(samples: Samples) -> int:
    """How many an array or a list has; one for bytes."""
    shape: Tuple[int, ...] = () if isinstance(samples, (bytes, bytearray)) else _as_array(samples).shape
    if len(shape) == 2 and shape[1] > 2 and shape[0] in (1, 2):
        raise ValueError(f"samples must be an array of (n,) or (n, 2), not {shape[0]}x{shape[1]}; channels come second: samples.T")
    return shape[1] if len(shape) == 2 else 1
