"""The labelled corpus: sessions of 45 s with spoken prompts, known gaps, and noises at known levels.

    corpus.py STORE HALF FOLDER

HALF is develop or test. Each session is a 16-bit mono WAV file; beside it lies its truth, a byte for each 10 ms.
Everything random has a seed, so that everybody gets the same samples.
"""
import json
import sys
import wave
from pathlib import Path

import numpy as np
from scipy import signal

from sources import FRAME, RATE, TALKERS, Store, active_level, speech_frames

SECONDS = 45
NOISES = ("white", "pink", "brown", "hum", "wind", "keys", "music", "babble")
RATIOS = (-5, 0, 5, 10, 15, 20, 30)  # dB, active speech to noise
LEVELS = (-10, -15, -20, -25, -30, -35, -40, -45)  # dBFS, active speech
USUAL_LEVEL = -25


def coloured(rng, n, rate, slope):
    """Noise whose power falls by f^slope above 20 Hz."""
    f = np.fft.rfftfreq(n, 1 / rate)
    return np.fft.irfft(np.fft.rfft(rng.standard_normal(n)) * np.maximum(f, 20.0)**(-slope / 2), n)


def hum(rng, n, rate):
    t = np.arange(n) / rate
    base = rng.choice([50.0, 60.0])
    x = sum(rng.uniform(0.2, 1) / k * np.sin(2 * np.pi * base * k * t + rng.uniform(0, 6.28)) for k in range(1, 12))
    return x + 0.02 * rng.standard_normal(n)


def wind(rng, n, rate):
    """Low rumble in gusts of a second or so."""
    gusts = signal.sosfiltfilt(signal.butter(2, 0.7, fs=100, output="sos"), rng.standard_normal(n * 100 // rate + 200))
    gusts = np.interp(np.arange(n) * 100 / rate, np.arange(len(gusts)), gusts / gusts.std())
    rumble = coloured(rng, n, rate, 2.6)
    return rumble / rumble.std() * np.exp(0.9 * gusts)


def keys(rng, n, rate):
    """Key strokes: two damped clicks each, in bursts of typing over a quiet room."""
    x = 0.01 * rng.standard_normal(n)
    t = 0.0
    while t < n / rate:
        t += rng.exponential(0.14) if rng.random() > 0.06 else rng.uniform(0.6, 2.5)
        for delay, strength in ((0.0, 1.0), (rng.uniform(0.06, 0.12), 0.5)):
            at = int((t + delay) * rate)
            length = min(int(0.03 * rate), n - at)
            if length <= 0:
                continue
            s = np.arange(length) / rate
            click = rng.standard_normal(length) * np.exp(-s / 0.003)
            click += 0.7 * np.sin(2 * np.pi * rng.uniform(900, 4000) * s) * np.exp(-s / 0.006)
            x[at:at + length] += strength * rng.uniform(0.4, 1) * click
    return x


def tiled(rng, pieces, n):
    """Pieces in a random order, one after the other, from a random place on."""
    out = np.concatenate([pieces[i] for i in rng.permutation(len(pieces))])
    return np.resize(np.roll(out, -int(rng.integers(len(out)))), n)


def babble(rng, talkers, n, voices=6):
    prompts = [prompt for talker in talkers for prompt in talker]
    return sum(tiled(rng, prompts, n) for _ in range(voices))


class Half:
    """What the sessions of one half are made of."""

    def __init__(self, store, half):
        self.talkers = TALKERS[half]
        self.prompts = {talker: store.prompts(talker) for talker in self.talkers}
        self.music = store.music(half)

    def noise(self, kind, rng, n, rate, talker):
        """Noise of a kind with a mean square of 1."""
        if kind in ("white", "pink", "brown"):
            x = coloured(rng, n, rate, {"white": 0, "pink": 1, "brown": 2}[kind])
        elif kind in ("music", "babble"):
            m = n * RATE // rate
            if kind == "music":
                x = tiled(rng, [self.music[rng.integers(len(self.music))]], m)
            else:
                x = babble(rng, [self.prompts[other] for other in self.talkers if other != talker], m)
            x = signal.resample_poly(x, rate, RATE)[:n]
        else:
            x = {"hum": hum, "wind": wind, "keys": keys}[kind](rng, n, rate)
        return x / np.sqrt(np.mean(x**2))

    def speech(self, rng, talker):
        """Prompts with gaps between them, active level 0 dB; and the truth."""
        prompts = self.prompts[talker]
        x = np.zeros(SECONDS * RATE)
        truth = np.zeros(SECONDS * 100, bool)
        at = round(rng.uniform(1.0, 2.5) * 100)
        while True:
            prompt = prompts[rng.integers(len(prompts))]
            length = len(prompt) // FRAME
            if at + length > SECONDS * 100 - 50:
                return x, truth
            x[at * FRAME:(at + length) * FRAME] = 10**(-active_level(prompt) / 20) * prompt[:length * FRAME]
            truth[at:at + length] = speech_frames(prompt)
            at += length + round(rng.choice([rng.uniform(0.3, 1), rng.uniform(1, 4)]) * 100)

    def session(self, session, index):
        """Samples, truth, and the speech alone at the rate of the prompts."""
        alike = session["group"] == "rate"  # sessions of the three rates have the same talk
        seed = 10000 + index % 7 if alike else index
        rng = np.random.default_rng([seed, len(self.talkers)])
        rate = session["rate"]
        talker = self.talkers[seed % len(self.talkers)] if alike else session["talker"]
        if session["group"] == "alone":
            truth = np.zeros(SECONDS * 100, bool)
            speech = np.zeros(SECONDS * RATE)
            x = self.noise(session["noise"], rng, SECONDS * rate, rate, talker)
        else:
            speech, truth = self.speech(rng, talker)
            x = signal.resample_poly(speech, rate, RATE) if rate != RATE else speech
            if session["noise"]:
                x = x + 10**(-session["ratio"] / 20) * self.noise(session["noise"], rng, len(x), rate, talker)
            else:
                x = x + 10**(-60 / 20) * rng.standard_normal(len(x))  # a quiet room
        x = 10**(session["level"] / 20) * x
        return np.clip(np.round(32768 * x), -32768, 32767).astype("<i2"), truth, speech


def plan(half):
    talkers = TALKERS[half]
    sessions = []

    def add(group, noise, ratio, level, rate=RATE):
        sessions.append({"group": group, "noise": noise, "ratio": ratio, "level": level, "rate": rate,
                         "talker": talkers[len(sessions) % len(talkers)]})

    for noise in NOISES:
        for ratio in RATIOS:
            add("noise", noise, ratio, USUAL_LEVEL)
    for _ in talkers:
        add("clean", None, None, USUAL_LEVEL)
    for level in LEVELS:
        add("level", None, None, level)
        add("level", "pink", 15, level)
    for noise in NOISES[:7]:
        for level in (-50, -35):
            add("alone", noise, None, level)
    for rate in (8000, 16000, 48000):
        for noise, ratio in (("white", 10), ("pink", 10), ("brown", 5), ("keys", 10), ("babble", 15), ("music", 10)):
            add("rate", noise, ratio, USUAL_LEVEL, rate)
        add("rate", None, None, USUAL_LEVEL, rate)
    return sessions


def write_wav(path, rate, samples):
    with wave.open(str(path), "wb") as file:
        file.setparams((1, 2, rate, 0, "NONE", ""))
        file.writeframes(samples.tobytes())


def main(store, half, folder):
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    source = Half(Store(store), half)
    sessions = plan(half)
    for index, session in enumerate(sessions):
        session["name"] = f"{index:03}-{session['group']}-{session['noise'] or 'clean'}"
        samples, truth, _ = source.session(session, index)
        write_wav(folder / (session["name"] + ".wav"), session["rate"], samples)
        (folder / (session["name"] + ".truth")).write_bytes(truth.tobytes())
    (folder / "sessions.json").write_text(json.dumps(sessions, indent=1))


if __name__ == "__main__":
    main(*sys.argv[1:])
