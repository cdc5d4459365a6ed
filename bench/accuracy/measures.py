"""What is counted, over the 10 ms frames of the truth."""
import numpy as np

FRAME = 0.01  # seconds


class Answers:
    """What a detector said of a recording. Each answer has the second at which the sound that it belongs to begins,
    the second of sound that had been handed over when it came, a score, and whether that is speech."""

    def __init__(self, start, told, score, speech):
        self.start = start
        self.told = told
        self.score = score
        self.speech = speech

    @staticmethod
    def pick(times, values, at):
        """The last of the values, by their times, at each of the moments; before the first one none."""
        place = np.searchsorted(times, at + 1e-6, side="right") - 1
        return np.where(place >= 0, values[np.maximum(place, 0)], 0)

    def live(self, frames):
        """What a host knows when it has just handed over the frame."""
        return self.pick(self.told, self.speech, (np.arange(frames) + 1) * FRAME).astype(bool)

    def aligned(self, frames, shift, values=None):
        """What was said of the frame in the end, taken from `shift` seconds later."""
        values = self.speech if values is None else values
        return self.pick(self.start, values, (np.arange(frames) + 0.5) * FRAME + shift)


def decide(scores, per_second, enter=0.5, stay=0.4, hold=0.04):
    """Speech or not: from a score of `enter` on, until it has been at most `stay` for `hold` seconds."""
    out = np.zeros(len(scores), bool)
    speaking, below = False, 0
    limit = max(1, round(hold * per_second))
    for i, score in enumerate(scores):
        if not speaking:
            speaking, below = score >= enter, 0
        elif score > stay:
            below = 0
        else:
            below += 1
            speaking = below < limit
        out[i] = speaking
    return out


def on_frames(answers, per_second, frames, late):
    """Answers that follow each other in equal steps, `late` seconds after the middle of each frame."""
    at = ((np.arange(frames) + 0.5) * FRAME + late) * per_second
    return answers[np.clip(at.astype(int), 0, len(answers) - 1)]


def onsets(answers, truth):
    """Seconds from the beginning of each stretch of speech to the first answer of speech within it; none where that
    came before, or never."""
    begins = np.flatnonzero(truth[1:] & ~truth[:-1]) + 1
    delays = []
    for begin in begins:
        silent = np.flatnonzero(~truth[begin:])
        end = begin + silent[0] if len(silent) else len(truth)
        found = np.flatnonzero(answers[begin:end])
        if len(found) and not answers[begin - 1]:
            delays.append(found[0] * FRAME)
    return delays


class Counts:
    """Misses and false alarms over any number of recordings."""

    def __init__(self):
        self.missed = self.speech = self.false = self.rest = 0

    def add(self, answers, truth):
        self.missed += int((truth & ~answers).sum())
        self.speech += int(truth.sum())
        self.false += int((~truth & answers).sum())
        self.rest += int((~truth).sum())
        return self

    @property
    def misses(self):
        return 100 * self.missed / max(self.speech, 1)

    @property
    def false_alarms(self):
        return 100 * self.false / max(self.rest, 1)

    @property
    def cost(self):
        """The detection cost: 0.75 of the misses and 0.25 of the false alarms, in per cent."""
        return 0.75 * self.misses + 0.25 * self.false_alarms

    @property
    def f1(self):
        hits = self.speech - self.missed
        return 100 * 2 * hits / max(2 * hits + self.missed + self.false, 1)
