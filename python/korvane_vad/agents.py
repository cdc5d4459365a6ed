"""Turns of a conversation, in the shape that frameworks for voice agents ask for.

Such frameworks hand over chunks of 16-bit samples as they come from a microphone or a call, and want of each how likely
it is speech, and when somebody has begun or stopped, with some patience in both.
"""

from typing import Any, Dict, NamedTuple, Optional

from ._samples import Samples
from .segments import SpeechEnd, SpeechStart
from .stream import Stream


class Turn(NamedTuple):
    """What a chunk brought."""

    confidence: float  #: 0 to 1: the highest score of the frames that the chunk completed; else the last one
    speaking: bool  #: whether somebody speaks, start_secs and stop_secs being waited for
    started: Optional[float]  #: where somebody began to speak, in seconds from the first sample; None: not in this chunk
    stopped: Optional[float]  #: where somebody stopped


class TurnDetector:
    """Says who has the word: one for each microphone or call.

    `rate` in Hz, one channel. Somebody has begun after speaking for `start_secs`, and stopped after being silent for
    `stop_secs`; a frame counts from `confidence` on, and goes on counting above a tenth less. Further Settings by name.
    """

    def __init__(self, rate: int, *, confidence: float = 0.5, start_secs: float = 0.2, stop_secs: float = 0.8,
                 **settings: Any) -> None:
        asked: Dict[str, Any] = {
            "onset_ms": round(1000 * start_secs), "hangover_ms": round(1000 * stop_secs),
            "enter_score": confidence, "stay_score": max(0.0, confidence - 0.1),
        }
        self._stream = Stream(rate, frames=True, **{**asked, **settings})
        self._confidence = 0.0

    def process(self, chunk: Samples) -> Turn:
        """Takes a chunk of any length."""
        result = self._stream.process(chunk)
        if result.frames is not None and len(result.frames):
            self._confidence = float(result.frames["score"].max())
        started = [event.start for event in result.events if isinstance(event, SpeechStart)]
        stopped = [event.end for event in result.events if isinstance(event, SpeechEnd)]
        return Turn(self._confidence, result.speech, started[0] if started else None, stopped[-1] if stopped else None)

    def num_frames_required(self) -> int:
        """Samples in a chunk that suits: 20 ms. Any other number does too."""
        return max(self._stream.rate // 50, 1)

    def voice_confidence(self, chunk: Samples) -> float:
        """The confidence alone, for a framework that counts time by itself."""
        return self.process(chunk).confidence

    def reset(self) -> None:
        """Begins anew."""
        self._stream.reset()
        self._confidence = 0.0

    def close(self) -> None:
        """Gives the memory back."""
        self._stream.close()
