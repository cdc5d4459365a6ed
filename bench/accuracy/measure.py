"""Measures all detectors on the corpus.

    measure.py WORK PROGRAMS [--record]

WORK has the corpus in develop/ and test/ and the peers in npm/, PROGRAMS the built programs. Prints the tables;
--record puts them into docs/accuracy.md as well and draws its pictures anew.
"""
import json
import sys
import wave
from pathlib import Path

import numpy as np

from corpus import NOISES, RATIOS
from detectors import NAMES, OWN, PEERS, answers
from measures import Counts, onsets
from picture import trade_off

ROOT = Path(__file__).resolve().parents[2]
PAGE = ROOT / "docs/accuracy.md"
SHIFTS = np.arange(-6, 21) / 100  # seconds


def half(folder):
    """(session, samples, truth) of all sessions."""
    out = []
    for session in json.loads((folder / "sessions.json").read_text()):
        with wave.open(str(folder / (session["name"] + ".wav"))) as file:
            samples = np.frombuffer(file.readframes(file.getnframes()), "<i2")
        out.append((session, samples, np.frombuffer((folder / (session["name"] + ".truth")).read_bytes(), bool)))
    return out


def total(sessions, said, view, keep):
    counts = Counts()
    for session, _, truth in sessions:
        if keep(session):
            counts.add(view(said[session["name"]][0], len(truth)), truth)
    return counts


def aligned(shift):
    return lambda a, n: a.aligned(n, shift).astype(bool)


def live(a, n):
    return a.live(n)


def best_shift(sessions, said):
    """Where the answers fit the truth best, on the develop half."""
    costs = [total(sessions, said, aligned(shift), lambda s: s["group"] == "noise").cost for shift in SHIFTS]
    return SHIFTS[int(np.argmin(costs))]


def spread(values):
    return max(values) - min(values)


def row(name, *cells):
    return f"| {name} | " + " | ".join(cells) + " |"


def heading(*names):
    return [row(*names), "| --- |" + " ---: |" * (len(names) - 1)]


def tables(sessions, said, shifts):
    def of(name, view, keep):
        return total(sessions, said[name], view, keep)

    def group(*wanted):
        return lambda s: s["group"] in wanted

    lines = heading("", "live", "misses", "false alarms", "F1", "aligned", "misses", "false alarms", "F1", "shift, ms")
    for name in NAMES:
        now, then = of(name, live, group("noise")), of(name, aligned(shifts[name]), group("noise"))
        lines.append(row(name, *(f"{x:.1f}" for c in (now, then) for x in (c.cost, c.misses, c.false_alarms, c.f1)),
                         f"{1000 * shifts[name]:.0f}"))
    lines += [""] + heading("", "clean, live", "clean, aligned", "false alarms in noise alone", "rates",
                            "levels", "start, ms", "start, 90 %", "ms for a second")
    for name in NAMES:
        view = aligned(shifts[name])
        rates = [of(name, view, lambda s, r=r: s["group"] == "rate" and s["rate"] == r).cost for r in (8000, 16000, 48000)]
        levels = [of(name, view, lambda s, v=v: s["group"] == "level" and s["level"] == v).cost
                  for v in range(-45, -9, 5)]
        delays = [d for s, _, truth in sessions if s["group"] == "clean" or s["group"] == "noise" and s["ratio"] >= 10
                  for d in onsets(said[name][s["name"]][0].live(len(truth)), truth)]
        taken = [said[name][s["name"]][1] / (len(truth) / 100) for s, _, truth in sessions if s["group"] == "noise"]
        lines.append(row(name, f"{of(name, live, group('clean')).cost:.1f}", f"{of(name, view, group('clean')).cost:.1f}",
                         f"{of(name, live, group('alone')).false_alarms:.1f}", f"{spread(rates):.1f}",
                         f"{spread(levels):.1f}", *(f"{1000 * np.quantile(delays, q):.0f}" for q in (0.5, 0.9)),
                         f"{1000 * np.quantile(taken, 0.1):.2f}"))
    for key, values in (("noise", NOISES), ("ratio", RATIOS)):
        for what in ("live", "aligned"):
            lines += [""] + heading(what, *(f"{v} dB" if key == "ratio" else v for v in values))
            for name in NAMES:
                view = live if what == "live" else aligned(shifts[name])
                costs = (of(name, view, lambda s, v=v: s["group"] == "noise" and s[key] == v).cost for v in values)
                lines.append(row(name, *(f"{cost:.1f}" for cost in costs)))
    return lines


def curves(sessions, said, shifts):
    """(name, points) of misses and false alarms; of detectors with scores at every threshold, without a rule."""
    out = []
    for name in NAMES:
        scored = name == "adaptive" or name in PEERS and PEERS[name][4]
        truth = np.concatenate([t for s, _, t in sessions if s["group"] == "noise"])
        values = np.concatenate([said[name][s["name"]][0].aligned(len(t), shifts[name],
                                 said[name][s["name"]][0].score if scored else None)
                                 for s, _, t in sessions if s["group"] == "noise"])
        limits = np.concatenate([[0.002, 0.005], np.arange(1, 100) / 100, [0.995, 0.998]]) if scored else [0.5]
        out.append((name, [(c.false_alarms, c.misses) for c in (Counts().add(values >= x, truth) for x in limits)]))
    return out


def record(lines, what):
    """Puts tables into the page, between its marks of that name."""
    text = PAGE.read_text()
    begin, end = f"<!-- {what} -->", f"<!-- end of {what} -->"
    PAGE.write_text(text[:text.index(begin) + len(begin)] + "\n\n" + "\n".join(lines) + "\n\n" + text[text.index(end):])


def main(work, programs, *options):
    work, programs = Path(work), Path(programs)
    halves = {name: half(work / name) for name in ("develop", "test")}
    said, shifts = {}, {}
    for name in NAMES:
        print("running", name, file=sys.stderr, flush=True)
        scratch = {h: work / "answers" / h for h in halves}
        for folder in scratch.values():
            folder.mkdir(parents=True, exist_ok=True)
        both = {h: answers(name, work, programs, scratch[h], halves[h]) for h in halves}
        shifts[name] = best_shift(halves["develop"], both["develop"])
        said[name] = both["test"]
    lines = tables(halves["test"], said, shifts)
    print("\n".join(lines))
    if "--record" in options:
        record(lines, "results")
        (ROOT / "docs/accuracy.svg").write_text(trade_off(curves(halves["test"], said, shifts)))


if __name__ == "__main__":
    main(*sys.argv[1:])
