"""Stretches of speech, and the texts that other programs read them from."""

from typing import Any, Dict, Iterable, List, NamedTuple


class Segment(NamedTuple):
    """A stretch of speech."""

    start: float  #: in seconds
    end: float
    start_sample: int  #: per channel
    end_sample: int  #: of the first sample behind it
    open: bool  #: whether the input ended before the speech did


class SpeechStart(NamedTuple):
    """Speech begins. Told as soon as the beginning is certain."""

    start: float
    start_sample: int

    @property
    def type(self) -> str:
        """"start"."""
        return "start"


class SpeechEnd(Segment):
    """A segment has ended. Told when the end is certain: hangover_ms behind it, or later."""

    @property
    def type(self) -> str:
        """"end"."""
        return "end"


def to_dicts(segments: Iterable[Segment]) -> List[Dict[str, Any]]:
    """Each segment as a dictionary with its duration in seconds: pandas.DataFrame takes the list as it is."""
    return [{**segment._asdict(), "duration": segment.end - segment.start} for segment in segments]


def to_audacity(segments: Iterable[Segment]) -> str:
    """A label track, which Audacity imports: start, end and "speech" in each line."""
    return "".join(f"{segment.start:.6f}\t{segment.end:.6f}\tspeech\n" for segment in segments)


def to_rttm(segments: Iterable[Segment], name: str, channel: int = 1) -> str:
    """Lines of NIST's Rich Transcription Time Marked format, as tools for speakers read them.

    `name` stands for the recording. White space, other control characters and % become %20 and so on there, as the
    command line writes them: two names never look the same.
    """
    word = "".join(f"%{ord(c):02X}" if c <= " " or c in "%\x7f" else c for c in name) or "_"
    lines = (
        f"SPEAKER {word} {channel} {segment.start:.6f} {segment.end - segment.start:.6f} <NA> <NA> speech <NA> <NA>\n"
        for segment in segments
    )
    return "".join(lines)
