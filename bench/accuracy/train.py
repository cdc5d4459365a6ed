"""Learns the weights of the speech score.

    train.py STORE HOPS CORPUS check    from lessons without the talkers and the music of the corpus, and measures on its
                                        develop half, whose noise makers are not among those of the lessons
    train.py STORE HOPS CORPUS write    from lessons with the talkers and the music of the develop half as well, and
                                        writes speech/weights.inc

STORE holds the unpacked packages, HOPS is the program, CORPUS the folder of the develop half. The test half of the corpus
is not read.
"""
import json
import sys
import wave
from pathlib import Path

import numpy as np

from learning import LATE, hop_length, hop_truth, learn, run_hops, scores, write_table
from lessons import Source
from measures import Counts, decide, on_frames
from sources import TALKERS, Store

LESSONS = 1300
MORE_LESSONS = 400  # with the talkers and the music of the develop half, for `write`
ROOT = Path(__file__).resolve().parents[2]


def lessons(store, program, more):
    """(rate, inputs, truth) of the hops of all lessons."""
    talkers = store.lesson_talkers()
    music = store.lesson_music()
    effects = store.effects()
    sources = [(Source(talkers, music, effects), LESSONS)]
    if more:
        talkers = talkers + [store.prompts(talker) for talker in TALKERS["develop"]]
        sources.append((Source(talkers, music + store.music("develop"), effects), MORE_LESSONS))
    out = []
    for kind, (source, count) in enumerate(sources):
        for seed in range(count):
            rate, samples, truth = source.lesson(np.random.default_rng([seed, kind]))
            _, inputs = run_hops(program, rate, samples)
            out.append((rate, inputs, hop_truth(truth, rate, len(inputs))))
    return out


def sessions(program, folder):
    """(session, inputs, truth) of a half of the corpus."""
    for session in json.loads((folder / "sessions.json").read_text()):
        with wave.open(str(folder / (session["name"] + ".wav"))) as file:
            samples = np.frombuffer(file.readframes(file.getnframes()), "<i2")
        truth = np.frombuffer((folder / (session["name"] + ".truth")).read_bytes(), bool)
        yield session, run_hops(program, session["rate"], samples)[1], truth


def check(network, heard, **rule):
    """Costs of groups and of noises."""
    groups, noises = {}, {}
    for session, inputs, truth in heard:
        pace = session["rate"] / hop_length(session["rate"])
        answers = on_frames(decide(scores(network, inputs, session["rate"]), pace, **rule), pace, len(truth), LATE)
        group = session["group"] + (str(session["rate"]) if session["group"] == "rate" else "")
        groups.setdefault(group, Counts()).add(answers, truth)
        if session["group"] == "noise":
            noises.setdefault(session["noise"], Counts()).add(answers, truth)
    print(" ".join(f"{name} {c.cost:.2f} ({c.misses:.1f}, {c.false_alarms:.1f})" for name, c in groups.items()))
    print("   ", " ".join(f"{name} {c.cost:.1f}" for name, c in noises.items()), flush=True)


def main(store, program, folder, mode):
    learnt_from = lessons(Store(store), program, mode == "write")
    print(len(learnt_from), "lessons,", f"{100 * np.mean([speech.mean() for _, _, speech in learnt_from]):.0f} % speech",
          flush=True)
    network = learn(learnt_from)
    if mode == "write":
        write_table(network, ROOT / "speech/weights.inc")
    check(network, list(sessions(program, Path(folder))))


if __name__ == "__main__":
    main(*sys.argv[1:])
