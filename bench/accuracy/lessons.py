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
    """Noise that lasts, still or drifting a little."""
    x = coloured(rng, n, rate, rng.uniform(-0.5, 2.5))
    drift = rng.choice([0, 0, rng.uniform(0.05, 0.3)])
    return x * np.exp(drift * slow(rng, n, rate, between(rng, 0.05, 3)))


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


def buzz(rng, n, rate, _):
    """What mains and motors leave in a line: many harmonics of a steady base, all or the odd ones, next to no noise."""
    base = rng.choice([16.7, 50, 60, 100, 120, between(rng, 20, 200)]) * (1 + 0.002 * rng.standard_normal())
    phase = 2 * np.pi * base * np.arange(n) / rate + rng.choice([0, 0.05, 1]) * slow(rng, n, rate, between(rng, 0.1, 4))
    tilt = rng.uniform(0, 2)
    orders = np.arange(1, int(min(between(rng, 3, 60), 0.45 * rate / base)) + 1)
    x = np.zeros(n)
    for k in orders[::rng.choice([1, 1, 2])]:
        x += rng.uniform(0.05, 1) / k**tilt * np.sin(k * phase + rng.uniform(0, 6.3))
    x *= np.exp(rng.choice([0, rng.uniform(0.05, 0.4)]) * slow(rng, n, rate, between(rng, 0.1, 4)))
    noise = coloured(rng, n, rate, rng.uniform(0, 2))
    return x / x.std() + between(rng, 0.002, 0.2) * noise / noise.std()


def beeps(rng, n, rate, _):
    """Signals: one tone or two at once, still, in a rhythm or gliding."""
    x = np.zeros(n)
    t = rng.uniform(0, 1)
    length, pause = between(rng, 0.04, 3), rng.choice([0, 1]) * between(rng, 0.04, 2)
    tones = between(rng, 150, 3500) * np.array([1, between(rng, 1.05, 2)])[:rng.integers(1, 3)]
    glide = rng.choice([0, 0, rng.uniform(-1, 1)])  # octaves
    hold = rng.random() < 0.6  # the same signal each time
    while t < n / rate:
        samples = int(length * rate) + 1
        s = np.arange(samples) / rate
        course = 2**(glide * s / length)
        edge = np.clip(np.minimum(s, s[::-1]) / 0.004, 0, 1)
        turns = np.cumsum(course) / rate
        beep = edge * sum(np.sin(2 * np.pi * f * turns) for f in tones if f * 2**abs(glide) < rate / 2)
        at = int(t * rate)
        x[at:at + samples] += beep[:n - at]
        t += length + pause
        if not hold:
            length, tones = length * between(rng, 0.6, 1.6), tones * between(rng, 0.7, 1.4)
            length = np.clip(length, 0.03, 4)
            tones = np.clip(tones, 120, 3600)
    noise = coloured(rng, n, rate, rng.uniform(0, 2))
    return x + between(rng, 0.0005, 0.1) * noise / noise.std()


def tune(rng, n, rate, _):
    """One instrument, a note at a time or with an echo of the last ones: plucked, struck, blown or bowed."""
    x = np.zeros(n)
    beat = between(rng, 0.08, 0.8)
    low = rng.uniform(70, 700)
    steps = rng.choice([[0, 2, 4, 7, 9, 12, 14, 16], [0, 3, 5, 7, 10, 12, 15, 17], [0, 2, 4, 5, 7, 9, 11, 12],
                        [0, 1, 2, 3, 4, 5, 6, 7]])
    strengths = rng.uniform(0.05, 1, 12) / np.arange(1, 13)**rng.uniform(0, 2)
    strengths[1::2] *= rng.choice([1, 1, 0.1])
    strengths[rng.integers(1, 13):] = 0
    strengths[0] += 0.2
    attack, decay = between(rng, 0.002, 0.12), rng.choice([between(rng, 1, 15), 0])
    faster = rng.uniform(0, 1.5)  # decay of the higher harmonics
    vibrato, pace = rng.choice([0, 0.003, 0.012]), rng.uniform(3, 7)
    t = 0.0
    while t < n / rate:
        f = low * 2**(rng.choice(steps) / 12)
        duration = beat * rng.choice([0.5, 1, 1, 1, 2, 3])
        samples = int((duration * rng.choice([1, 0.7]) if decay == 0 else min(6 / decay, 2)) * rate) + 2
        s = np.arange(samples) / rate
        phase = 2 * np.pi * f * (s + vibrato / pace * np.sin(2 * np.pi * pace * s) / 6.3)
        note = np.zeros(samples)
        for k, strength in enumerate(strengths, 1):
            if strength and f * k < 0.45 * rate:
                note += strength * np.sin(k * phase) * np.exp(-decay * (1 + faster * (k - 1)) * s)
        note *= np.minimum(s / attack, 1) * np.minimum(s[::-1] / 0.02, 1) * rng.uniform(0.5, 1)
        at = int(t * rate)
        x[at:at + samples] += note[:n - at]
        t += duration if rng.random() > 0.08 else duration + rng.uniform(0.2, 2)
    noise = coloured(rng, n, rate, rng.uniform(0, 2))
    return x / x.std() + between(rng, 1e-4, 0.05) * noise / noise.std()


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


NOISES = {hiss: 4, machine: 2, buzz: 1.5, beeps: 0.7, gusts: 3, knocks: 3, notes: 1.5, tune: 1.5, recorded(effects): 1.5,
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
        alone = rng.random() < 0.13
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
