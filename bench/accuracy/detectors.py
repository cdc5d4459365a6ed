"""Runs detectors over recordings, each in a program of its own and in the rate that it wants."""
import subprocess
from pathlib import Path

import numpy as np
from scipy import signal

from measures import Answers, decide

HERE = Path(__file__).resolve().parent

# Own decisions, and the peers: how they are called, the rate and the chunk they take, and the rule from scores to speech
# that their makers use. Of those that answer with yes or no there is none.
OWN = ("adaptive", "fixed", "detector")
PEERS = {"Silero v5": ("npm", "silero", 16000, 512, {"enter": 0.5, "stay": 0.35, "hold": 0.1}),
         "TEN": ("npm", "ten", 16000, 256, {"enter": 0.5, "stay": 0.5, "hold": 0.0}),
         "RNNoise": ("npm", "rnnoise", 48000, 480, {"enter": 0.5, "stay": 0.5, "hold": 0.0}),
         "WebRTC": ("npm", "fvad", 16000, 160, None),
         "WebRTC with noise suppression": ("native", "webrtc", 16000, 160, None),
         "SpeexDSP": ("native", "speexdsp", 16000, 160, None)}
NAMES = OWN + tuple(PEERS)


def samples_at(folder, session, samples, rate):
    """A file of the samples at another rate."""
    path = folder / f"{session['name']}-{rate}.raw"
    if not path.exists():
        if rate != session["rate"]:
            samples = signal.resample_poly(samples.astype(float), rate, session["rate"])
        np.clip(np.round(samples), -32768, 32767).astype("<i2").tofile(path)
    return path


def run(program, pairs):
    """A program over files; the seconds that it took for each."""
    text = "".join(f"{a}\t{b}\n" for a, b in pairs)
    out = subprocess.run(list(map(str, program)), input=text, check=True, text=True, stdout=subprocess.PIPE,
                         stderr=subprocess.DEVNULL).stdout
    return [float(line) for line in out.split()]


def answers(name, work, programs, folder, sessions):
    """Of each of the (session, samples, truth) the Answers and the seconds taken. Nothing is kept from an earlier run:
    times can be compared only if all were taken in one."""
    out = {}
    kept = folder / name.replace(" ", "-")
    kept.mkdir(parents=True, exist_ok=True)
    taken = {}
    for rate in sorted({session["rate"] for session, _, _ in sessions}):
        wanted = rate if name in OWN else PEERS[name][2]
        some = [item for item in sessions if item[0]["rate"] == rate]
        pairs = [(samples_at(folder, session, samples, wanted), kept / session["name"]) for session, samples, _ in some]
        if name in OWN:
            program = [programs / "accuracy_streams", name, rate]
        elif PEERS[name][0] == "native":
            program = [programs / "accuracy_native", PEERS[name][1], wanted]
        else:
            program = ["node", HERE / "peers/peers.mjs", work / "npm", PEERS[name][1]]
        taken.update(zip([session["name"] for session, _, _ in some], run(program, pairs)))
    for session, _, _ in sessions:
        if name in OWN:
            start, speech, score, told = np.fromfile(kept / session["name"]).reshape(-1, 4).T
        else:
            _, _, rate, chunk, rule = PEERS[name]
            score = np.fromfile(kept / session["name"], np.float32)
            start = np.arange(len(score)) * chunk / rate
            told = start + chunk / rate
            speech = decide(score, rate / chunk, **rule) if rule else score > 0.5
        out[session["name"]] = Answers(start, told, score, speech), taken[session["name"]]
    return out
