"""Sessions to learn from: speech and noises that vary in more ways than those of the corpus, all by chance."""
import numpy as np
from scipy import signal

from corpus import babble, coloured, tiled
from sources import FRAME, RATE, active_level, dry_speech_frames

SECONDS = 30


def between(rng, low, high):
    """Uniform on a logarithmic scale."""
    return np.exp(rng.uniform(np.log(low), np.log(high)))


def slow(rng, n, rate, hertz):
    """A random curve of unit variance that moves about as fast as hertz."""
    points = rng.standard_normal(int(n / rate * 2 * hertz) + 4)
    return np.interp(np.arange(n) * 2 * hertz / rate, np.arange(len(points)), points) * 1.2


def equalised(rng, x, rate, depth=10):
    """A microphone's or a telephone's colour: a smooth random curve over frequency and a band."""
    spectrum = np.fft.rfft(x)
    octaves = np.log2(np.fft.rfftfreq(len(x), 1 / rate) + 30)
    curve = np.interp(octaves, np.arange(5, 16), rng.uniform(-depth, depth, 11))
    if rng.random() < 0.5:
        low, high = between(rng, 40, 350), between(rng, 2800, 9000)
        curve -= 18 * np.maximum(np.log2(low) - octaves, 0) + 30 * np.maximum(octaves - np.log2(high), 0)
    return np.fft.irfft(spectrum * 10**(curve / 20), len(x))


def hiss(rng, n, rate, _):
    return coloured(rng, n, rate, rng.uniform(-0.5, 2.5))


def machine(rng, n, rate, _):
    """Harmonics of a base that wobbles, and noise that beats with it."""
    base = between(rng, 25, 500)
    phase = 2 * np.pi * np.cumsum(base * (1 + rng.choice([0, 0.001, 0.02]) * slow(rng, n, rate, 2))) / rate
    tilt = rng.uniform(0.3, 1.5)
    harmonics = range(1, int(min(rng.integers(2, 30), rate / 2 / base * 0.9)) + 1)
    x = sum(rng.uniform(0.1, 1) / k**tilt * np.sin(k * phase + rng.uniform(0, 6)) for k in harmonics)
    beat = 1 + rng.uniform(0, 1) * np.sin(2 * np.pi * between(rng, 0.5, 30) * np.arange(n) / rate)
    noise = coloured(rng, n, rate, rng.uniform(0, 2))
    return x + between(rng, 0.01, 2) * beat * noise / noise.std()


def gusts(rng, n, rate, _):
    """Noise that swells: wind, traffic, waves."""
    x = coloured(rng, n, rate, rng.uniform(0.5, 3))
    return x / x.std() * np.exp(rng.uniform(0.3, 1.3) * slow(rng, n, rate, between(rng, 0.1, 6)))


def knocks(rng, n, rate, _):
    """Short damped sounds: clicks, keys, steps, rain, dishes."""
    x = np.zeros(n)
    gap = between(rng, 0.02, 1.5)
    decay = between(rng, 0.001, 0.06)
    tone = rng.choice([0, rng.uniform(0.3, 2)])
    pauses = rng.random() * 0.1
    length = int(6 * decay * rate) + 1
    s = np.arange(length) / rate
    t = 0.0
    while t < n / rate:
        at = int(t * rate)
        knock = rng.standard_normal(length) + tone * 2 * np.sin(2 * np.pi * between(rng, 150, 5000) * s)
        knock *= between(rng, 0.2, 1) * np.exp(-s / (decay * rng.uniform(0.5, 1.5)))
        x[at:at + length] += knock[:n - at]
        t += rng.exponential(gap) if rng.random() > pauses else rng.uniform(0.5, 3)
    noise = coloured(rng, n, rate, rng.uniform(0, 2))
    return x / x.std() + between(rng, 0.001, 0.3) * noise / noise.std()


def notes(rng, n, rate, _):
    """Plain music: notes of a scale over each other, some with a beat."""
    x = np.zeros(n)
    beat = rng.uniform(0.12, 0.6)
    scale = rng.choice([0, 2, 4, 5, 7, 9, 11], 5, replace=False)
    t = 0.0
    while t < n / rate:
        for _ in range(rng.integers(1, 4)):
            f = 55 * 2**(rng.integers(0, 5) + rng.choice(scale) / 12)
            length = int(min(rng.choice([1, 2, 4]) * beat, 2) * rate)
            s = np.arange(length) / rate
            note = sum(np.sin(2 * np.pi * f * k * s) / k**rng.uniform(0.7, 2) for k in range(1, 7) if f * k < rate / 2)
            note *= np.minimum(s / between(rng, 0.003, 0.08), 1) * np.exp(-s / between(rng, 0.08, 2))
            at = int(t * rate)
            x[at:at + length] += note[:n - at]
        if rng.random() < 0.4:
            length = int(0.1 * rate)
            at = int(t * rate)
            drum = rng.standard_normal(length) * np.exp(-np.arange(length) / rate / 0.02) * rng.uniform(0.5, 3)
            x[at:at + length] += drum[:n - at]
        t += beat * rng.choice([0.5, 1, 1, 2])
    return x + 1e-3 * rng.standard_normal(n)


def recorded(pieces):
    def noise(rng, n, rate, source):
        x = pieces(rng, n * RATE // rate + 1, source)
        return signal.resample_poly(x, rate, RATE)[:n]
    return noise


def effects(rng, n, source):
    """Recorded sounds, now and then."""
    x = np.zeros(n)
    at = 0
    gap = between(rng, 0.1, 3)
    while at < n:
        clip = source.effects[rng.integers(len(source.effects))][:n - at]
        x[at:at + len(clip)] += between(rng, 0.3, 1) * clip / (clip.std() + 1e-3)
        at += int((0.3 * len(clip) / RATE + rng.exponential(gap)) * RATE) + 1
    return x + 1e-3 * rng.standard_normal(n)


NOISES = {hiss: 4, machine: 2, gusts: 3, knocks: 3, notes: 1.5, recorded(effects): 1.5,
          recorded(lambda rng, n, source: tiled(rng, [source.music[rng.integers(len(source.music))]], n)): 3,
          recorded(lambda rng, n, source: babble(rng, source.others(rng), n, int(rng.integers(3, 10)))): 3}


def one_noise(rng, n, rate, source):
    kinds = list(NOISES)
    weights = np.array([NOISES[kind] for kind in kinds])
    x = kinds[rng.choice(len(kinds), p=weights / weights.sum())](rng, n, rate, source)
    x = equalised(rng, x, rate) if rng.random() < 0.5 else x
    return x / (x.std() + 1e-9)


def noise(rng, n, rate, source):
    """One noise or two, that may step, fade or stop."""
    x = one_noise(rng, n, rate, source)
    if rng.random() < 0.3:
        x = x + between(rng, 0.1, 1) * one_noise(rng, n, rate, source)
    course = rng.random()
    if course < 0.3:
        places = np.sort(rng.uniform(0, n, 4))
        levels = rng.uniform(-12, 6, 5)
        if course < 0.15:
            levels = levels[np.searchsorted(places, np.arange(n))]
        else:
            levels = np.interp(np.arange(n), places, levels[:4])
        x = x * 10**(levels / 20)
    return x / (x.std() + 1e-9)


def room(rng, x):
    """Echoes that decay as noise does."""
    length = between(rng, 0.08, 0.7)
    t = np.arange(int(length * RATE)) / RATE
    tail = rng.standard_normal(len(t)) * np.exp(-6.9 * t / length)
    tail[:int(0.002 * RATE)] = 0
    tail *= 10**(-rng.uniform(0, 15) / 20) / np.sqrt(np.sum(tail**2))
    tail[0] = 1
    return signal.fftconvolve(x, tail)[:len(x)]


class Source:
    """What lessons are made of."""

    def __init__(self, talkers, music, effects):
        self.talkers = talkers
        amount = np.sqrt([sum(map(len, clips)) for clips in talkers])  # nobody is heard all the time
        self.shares = amount / amount.sum()
        self.music = music
        self.effects = effects

    def others(self, rng):
        chosen = rng.choice(len(self.talkers), min(4, len(self.talkers)), replace=False)
        return [self.talkers[i] for i in chosen]

    def phrase(self, rng, clips, up):
        """A clip, or short ones as if said in one go; active level 0 dB."""
        parts = []
        missing = between(rng, 0.7, 4)
        while missing > 0:
            clip = signal.resample_poly(clips[rng.integers(len(clips))], up, 20)
            parts += [10**((rng.normal(0, 1.5) - active_level(clip)) / 20) * clip,
                      np.zeros(int(rng.uniform(0, 0.25) * RATE))]
            missing -= len(clip) / RATE
        phrase = np.concatenate(parts[:-1])
        return 10**(-active_level(phrase) / 20) * phrase

    def speech(self, rng):
        """Phrases at another speed and pitch, active level 0 dB; and the truth."""
        clips = self.talkers[rng.choice(len(self.talkers), p=self.shares)]
        x = np.zeros(SECONDS * RATE)
        truth = np.zeros(SECONDS * 100, bool)
        up = int(rng.integers(16, 27))  # of 20: both men and children from women
        pauses = between(rng, 0.3, 2)
        at = round(rng.uniform(0.0, 3.0) * 100)
        while True:
            phrase = self.phrase(rng, clips, up)
            length = len(phrase) // FRAME
            if at + length > SECONDS * 100:
                return x, truth
            x[at * FRAME:(at + length) * FRAME] = 10**(rng.normal(0, 2.5) / 20) * phrase[:length * FRAME]
            truth[at:at + length] = dry_speech_frames(phrase)
            pause = rng.exponential(pauses) if rng.random() > 0.07 else rng.uniform(3, 10)
            at += length + round(pause * 100)

    def lesson(self, rng):
        """Rate, samples and truth."""
        rate = int(rng.choice([8000, 16000, 48000, 11025, 22050, 24000, 32000, 44100],
                              p=[0.25, 0.3, 0.2, 0.05, 0.05, 0.05, 0.05, 0.05]))
        n = SECONDS * rate
        truth = np.zeros(SECONDS * 100, bool)
        x = np.zeros(n)
        alone = rng.random() < 0.12
        if not alone:
            x, truth = self.speech(rng)
            x = room(rng, x) if rng.random() < 0.4 else x
            x = equalised(rng, x, RATE, 6) if rng.random() < 0.5 else x
            x = signal.resample_poly(x, rate, RATE)[:n]
        if alone or rng.random() < 0.85:
            x = x + 10**(-rng.uniform(-5, 30) / 20) * noise(rng, n, rate, self)
        if rng.random() < 0.7:
            x = x + 10**(-rng.uniform(35, 70) / 20) * coloured_floor(rng, n, rate)
        level = rng.normal(-25, 5) if rng.random() < 0.5 else rng.uniform(-45, -10)
        x = 10**(level / 20) * x
        if rng.random() < 0.1:  # a line that is cut to nothing
            at = int(rng.uniform(0, n))
            length = int(rng.uniform(0.5, 5) * rate)
            x[at:at + length] = 0
            truth[at * 100 // rate:(at + length) * 100 // rate] = False
        return rate, np.clip(np.round(32768 * x), -32768, 32767).astype("<i2"), truth


def coloured_floor(rng, n, rate):
    x = coloured(rng, n, rate, rng.uniform(0, 1.5))
    return x / x.std()
