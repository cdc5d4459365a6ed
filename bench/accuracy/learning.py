"""The network of speech/network.h in floating point: what it gives, how it learns, how it becomes a table."""
import subprocess

import numpy as np

UNITS = 16
INPUTS = 44
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
    """Whether there is speech 5 ms before the middle of each hop, which its window is centred before."""
    times = (np.arange(hops) + 0.5) * hop_length(rate) / rate - 0.005
    return truth[np.clip((times * 100).astype(int), 0, len(truth) - 1)]


def learn(inputs, speech, passes=8, decay=1e-4, seed=0, units=UNITS):
    """Weights by stochastic gradients (Adam). Speech in all weighs three times what the rest does in all."""
    rng = np.random.default_rng(seed)
    mean = inputs.mean(0, dtype=np.float64).astype(np.float32)
    scale = inputs.std(0, dtype=np.float64).astype(np.float32) + 20
    weight = np.where(speech, 0.75 / speech.mean(), 0.25 / (1 - speech.mean())).astype(np.float32)
    p = [(rng.standard_normal((inputs.shape[1], units)) / np.sqrt(inputs.shape[1])).astype(np.float32),
         np.zeros(units, np.float32), (rng.standard_normal(units) / np.sqrt(units)).astype(np.float32),
         np.zeros(1, np.float32)]
    first = [np.zeros_like(x) for x in p]
    second = [np.zeros_like(x) for x in p]
    batch = 1024
    steps = passes * (len(inputs) // batch)
    step = 0
    for _ in range(passes):
        order = rng.permutation(len(inputs))[:len(inputs) // batch * batch].reshape(-1, batch)
        for rows in order:
            x = (inputs[rows] - mean) / scale
            hidden = np.maximum(x @ p[0] + p[1], 0)
            score = 1 / (1 + np.exp(-np.clip(hidden @ p[2] + p[3], -30, 30)))
            error = (score - speech[rows]) * weight[rows] / batch
            back = np.outer(error, p[2]) * (hidden > 0)
            slopes = [x.T @ back + decay * p[0], back.sum(0), hidden.T @ error + decay * p[2], error.sum(keepdims=True)]
            step += 1
            rate = 4e-3 * 0.5 * (1 + np.cos(np.pi * step / steps))
            for i, slope in enumerate(slopes):
                first[i] += 0.1 * (slope - first[i])
                second[i] += 0.001 * (slope**2 - second[i])
                p[i] -= (rate * first[i] / (1 - 0.9**step) / (np.sqrt(second[i] / (1 - 0.999**step)) + 1e-8)).astype(np.float32)
    return fold(mean, scale, p)


def fold(mean, scale, p):
    """The same for inputs as they are, in Q10."""
    scale, mean = scale.astype(float) / 1024, mean.astype(float) / 1024
    unit = p[0].T / scale
    return {"unit": unit, "unit_bias": p[1] - unit @ mean, "score": p[2].astype(float), "score_bias": float(p[3][0])}


def scores(network, inputs):
    hidden = np.clip(inputs @ (network["unit"].T / 1024).astype(np.float32) + network["unit_bias"].astype(np.float32), 0, 32)
    return 1 / (1 + np.exp(-np.clip(hidden @ network["score"] + network["score_bias"], -16, 16)))


def write_table(network, path):
    def whole(values, bits):
        return np.round(np.asarray(values) * 2**bits).astype(int)

    def row(values):
        return "{" + ", ".join(map(str, values)) + "}"

    pairs = whole(network["unit"], 12).T.reshape(-1, 2, len(network["unit"])).transpose(0, 2, 1)
    with open(path, "w") as file:
        print("// Written by bench/accuracy/train.py: for each pair of inputs the units' weights.", file=file)
        print("{", ",\n".join("{" + ", ".join(map(row, pair)) + "}" for pair in pairs), "},", sep="", file=file)
        print(row(whole(network["unit_bias"], 22)), ",", sep="", file=file)
        print(row(whole(network["score"], 12)), ",", sep="", file=file)
        print(whole(network["score_bias"], 22), ",", sep="", file=file)
