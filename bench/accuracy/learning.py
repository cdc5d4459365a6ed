"""The network of speech/network.h in floating point: what it gives, how it learns, how it becomes a table."""
import subprocess

import numpy as np
from scipy import signal

INPUTS = 32
UNITS = 16
UNIT_TIMES = (30, 100, 400, 1500)  # ms, of a quarter of the units each
SECOND_UNITS = 8
PASSES = 6
# What missed speech weighs against false alarms. The cost counts 3, but lessons are harder than most recordings, and
# what they teach by 3 gives too many false alarms elsewhere.
MISS_WEIGHT = 3 * np.exp(-1.5)
LATE = 0.04  # seconds by which the answers may be late
HOP = 144  # samples; twice as many from 25000 Hz on


def hop_length(rate):
    return HOP if rate < 25000 else 2 * HOP


def run_hops(program, rate, samples, channels=1):
    """Scores 0..1 and inputs of each hop, from the library's own code."""
    out = subprocess.run([program, str(rate), str(channels)], input=samples.tobytes(), check=True,
                         stdout=subprocess.PIPE).stdout
    rows = np.frombuffer(out, "<i2").reshape(-1, 1 + INPUTS)
    return rows[:, 0] / 32768, rows[:, 1:]


def hop_truth(truth, rate, hops):
    """Whether there was speech LATE before each hop, whose window is centred 5 ms before its middle."""
    times = (np.arange(hops) + 0.5) * hop_length(rate) / rate - 0.005 - LATE
    return truth[np.clip((times * 100).astype(int), 0, len(truth) - 1)]


def averages(units, rate, backward=False):
    """Of each unit, hop after hop, over its time, as streams have it from their beginning on. Backward: what each hop
    gives to the averages from it on."""
    out = np.empty_like(units)
    for times in range(len(UNIT_TIMES)):
        some = slice(times * UNITS // len(UNIT_TIMES), (times + 1) * UNITS // len(UNIT_TIMES))
        hop = 1000 * hop_length(rate) / rate
        step = hop / (UNIT_TIMES[times] + hop / 2)
        x = units[::-1, some] if backward else units[:, some]
        y = signal.lfilter(np.float32([step]), np.float32([1, step - 1]), x, axis=0)
        out[:, some] = y[::-1] if backward else y
    return out


class Network:
    """Both layers and the score, for inputs of mean 0 and variance 1."""

    def __init__(self, rng):
        def weights(n, *shape):
            return (rng.standard_normal(shape) / np.sqrt(n)).astype(np.float32)

        self.p = [weights(INPUTS, INPUTS, UNITS), np.zeros(UNITS, np.float32),
                  weights(UNITS / 2, UNITS, SECOND_UNITS), np.zeros(SECOND_UNITS, np.float32),
                  weights(SECOND_UNITS, SECOND_UNITS), np.zeros(1, np.float32)]

    def slopes(self, x, rate, speech, weight):
        """Of the weighted cross entropy, by each of p."""
        first = np.maximum(x @ self.p[0] + self.p[1], 0)
        lately = averages(first, rate)
        second = np.maximum(lately @ self.p[2] + self.p[3], 0)
        score = 1 / (1 + np.exp(-np.clip(second @ self.p[4] + self.p[5], -30, 30)))
        error = ((score - speech) * weight).astype(np.float32)
        back_second = np.outer(error, self.p[4]) * (second > 0)
        back_first = averages(back_second @ self.p[2].T, rate, backward=True) * (first > 0)
        return [x.T @ back_first, back_first.sum(0), lately.T @ back_second, back_second.sum(0), second.T @ error,
                error.sum(keepdims=True)]


def learn(lessons, passes=PASSES, decay=1e-4, seed=0):
    """Weights by stochastic gradients (Adam), from (rate, inputs, speech) of each lesson, all of which count alike."""
    rng = np.random.default_rng(seed)
    mean = np.mean([inputs.mean(0, dtype=np.float64) for _, inputs, _ in lessons], 0)
    scale = np.sqrt(np.mean([((inputs - mean)**2).mean(0) for _, inputs, _ in lessons], 0)) + 20
    lessons = [(rate, ((inputs - mean) / scale).astype(np.float32), speech) for rate, inputs, speech in lessons]
    share = np.mean([speech.mean() for _, _, speech in lessons])
    missed, false = MISS_WEIGHT / share, 1 / (1 - share)
    network = Network(rng)
    first = [np.zeros_like(x) for x in network.p]
    second = [np.zeros_like(x) for x in network.p]
    batch = 4
    steps = passes * (len(lessons) // batch)
    step = 0
    for _ in range(passes):
        for some in rng.permutation(len(lessons))[:len(lessons) // batch * batch].reshape(-1, batch):
            slopes = [decay * x if x.ndim == 2 or len(x) == SECOND_UNITS else 0 for x in network.p]
            for rate, x, speech in (lessons[i] for i in some):
                weight = np.where(speech, missed, false) / (4 * batch * len(x))
                slopes = [a + b for a, b in zip(slopes, network.slopes(x, rate, speech, weight))]
            step += 1
            pace = 4e-3 * 0.5 * (1 + np.cos(np.pi * step / steps))
            for i, slope in enumerate(slopes):
                first[i] += 0.1 * (slope - first[i])
                second[i] += 0.001 * (slope**2 - second[i])
                network.p[i] -= (pace * first[i] / (1 - 0.9**step) /
                                 (np.sqrt(second[i] / (1 - 0.999**step)) + 1e-8)).astype(np.float32)
    return fold(mean, scale, network.p)


def fold(mean, scale, p):
    """The same for inputs as they are, in Q10."""
    scale, mean = scale / 1024, mean / 1024
    first = p[0].T.astype(float) / scale
    return {"first": first, "first_bias": p[1] - first @ mean, "second": p[2].T.astype(float),
            "second_bias": p[3].astype(float), "score": p[4].astype(float), "score_bias": float(p[5][0])}


def scores(network, inputs, rate):
    weights = (network["first"].T / 1024).astype(np.float32)
    first = np.clip(inputs @ weights + network["first_bias"].astype(np.float32), 0, 32)
    second = np.clip(averages(first, rate) @ network["second"].T + network["second_bias"], 0, 32)
    return 1 / (1 + np.exp(-np.clip(second @ network["score"] + network["score_bias"], -16, 16)))


def write_table(network, path):
    def whole(values, bits):
        return np.round(np.asarray(values) * 2**bits).astype(int)

    def row(values):
        return "{" + ", ".join(map(str, values)) + "}"

    def pairs(weights):
        rows = whole(weights, 12).T.reshape(-1, 2, len(weights)).transpose(0, 2, 1)
        return "{" + ",\n".join("{" + ", ".join(map(row, pair)) + "}" for pair in rows) + "},"

    with open(path, "w") as file:
        print("// Written by bench/accuracy/train.py: each layer's weights, its biases.", file=file)
        for layer in ("first", "second"):
            print("{", pairs(network[layer]), "\n", row(whole(network[layer + "_bias"], 22)), "},", sep="", file=file)
        print(row(whole(network["score"], 12)), ",", sep="", file=file)
        print(whole(network["score_bias"], 22), ",", sep="", file=file)
