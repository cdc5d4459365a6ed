"""The Python package beside the command line, and what it does with samples of every form and with mistakes."""
import concurrent.futures
import copy
import json
import os
import subprocess
import sys
import threading
import wave

import hypothesis
import hypothesis.strategies as st
import numpy as np
import pytest

import korvane_vad as kv
from korvane_vad.__main__ import read_wav
from korvane_vad.agents import TurnDetector

TOOL = os.environ["KORVANE_VAD_TOOL"]
ALSA = "/usr/share/sounds/alsa/Front_Center.wav"  # 48 kHz
PROMPT = "/usr/share/asterisk/sounds/en_US_f_Allison/vm-intro.wav"  # 8 kHz
RULES = {"min_gap_ms": 300, "min_speech_ms": 100}  # the tool's


@pytest.fixture(params=[ALSA, PROMPT])
def recording(request):
    samples, rate = read_wav(request.param)
    return request.param, samples, rate


@pytest.fixture
def stereo(tmp_path):
    """A recording of two channels, its samples (n, 2) and its rate."""
    samples, rate = read_wav(PROMPT)
    pairs = np.column_stack([samples[:, 0], samples[::-1, 0] // 2])
    path = tmp_path / "stereo.wav"
    with wave.open(str(path), "wb") as file:
        file.setparams((2, 2, rate, 0, "NONE", ""))
        file.writeframes(pairs.tobytes())
    return str(path), pairs, rate


def tool(*words):
    return subprocess.run([TOOL, *words], check=True, capture_output=True).stdout


def same_as_the_tool(path, samples, rate, folder):
    for decision, rules in (("adaptive", RULES), ("fixed", RULES), ("detector", {})):
        facts, = json.loads(tool("-q", "-f", "json", "--decision", decision, path))
        expected = [(s["start_sample"], s["end_sample"], s["open"]) for s in facts["segments"]]
        found = kv.detect(samples, rate, decision=decision, **rules)
        assert [segment[2:] for segment in found] == expected and expected
        assert all(s.start * rate == pytest.approx(s.start_sample, abs=1e-6) for s in found)
        told = kv.frames(samples, rate, decision=decision)
        assert [len(told), told["length"].sum()] == [facts["frames"], len(samples)] or decision == "detector"
    tool("clean", path, str(folder / "cleaned.wav"))
    assert np.array_equal(kv.clean(samples, rate), read_wav(str(folder / "cleaned.wav"))[0])


def test_equals_the_tool(recording, tmp_path):
    same_as_the_tool(*recording, tmp_path)


def test_equals_the_tool_with_two_channels(stereo, tmp_path):
    same_as_the_tool(*stereo, tmp_path)


@hypothesis.settings(max_examples=25, deadline=None, derandomize=True)
@hypothesis.given(st.data())
def test_does_not_depend_on_chunks(data):
    samples, rate = read_wav(PROMPT)
    channels = data.draw(st.sampled_from([1, 2]))
    x = samples[:, 0] if channels == 1 else np.column_stack([samples[:, 0], samples[::-1, 0]])
    settings = {"decision": data.draw(st.sampled_from(["adaptive", "fixed", "detector"])),
                "frame_length": data.draw(st.integers(1, 400)), "max_speech_ms": data.draw(st.sampled_from([0, 100]))}
    cuts = sorted(data.draw(st.lists(st.integers(0, len(x)), max_size=12)))
    with kv.Stream(rate, channels, cleaned=True, frames=True, **settings) as stream:
        results = [stream.process(chunk) for chunk in np.split(x, cuts)] + [stream.flush()]
        assert results[-1].speech == stream.speech
    ends = [event for result in results for event in result.events if event.type == "end"]
    assert [kv.Segment(*event) for event in ends] == kv.detect(x, rate, **settings)
    assert np.array_equal(np.concatenate([result.cleaned for result in results]), kv.clean(x, rate, **settings))
    assert np.array_equal(np.concatenate([result.frames for result in results]), kv.frames(x, rate, **settings))


def test_takes_samples_in_every_form():
    samples, rate = read_wav(PROMPT)
    x = samples[:, 0]
    scaled = x / 32768
    every_other = np.repeat(x, 2)[::2]  # not contiguous
    whole, cleaned = kv.detect(x, rate), kv.clean(x, rate)
    for form in (scaled, scaled.astype(np.float32), every_other, samples, x.tolist(), scaled.tolist(), x.tobytes(),
                 bytearray(x.tobytes()), memoryview(x), memoryview(x.tobytes()), x.astype(">i2"), x[::-1][::-1]):
        assert kv.detect(form, rate) == whole
        again = kv.clean(form, rate)
        factor = 32768 if again.dtype.kind == "f" else 1
        assert np.array_equal(again.reshape(-1) * factor, cleaned)
        if isinstance(form, np.ndarray):
            assert (again.dtype, again.shape) == (form.dtype.newbyteorder("="), form.shape)
    with_gaps = np.repeat(np.frombuffer(x.tobytes(), np.uint8), 2)
    assert np.array_equal(kv.clean(memoryview(with_gaps)[::2], rate), cleaned)
    pairs = np.column_stack([x, x])
    assert kv.detect(pairs.tobytes(), rate, 2) == kv.detect(np.asfortranarray(pairs), rate) == kv.detect(pairs, rate)
    assert np.array_equal(kv.clean(pairs.tobytes(), rate, 2), kv.clean(pairs, rate))
    loud = np.array([2, -2, np.inf, -np.inf] * 3000)
    assert np.array_equal(kv.clean(loud, rate), kv.clean(np.clip(loud, -1, 1), rate))
    assert kv.Stream(rate, 2, cleaned=True).process([]).cleaned.shape == (0, 2)
    for nothing in ([], b"", np.zeros((0, 2), np.int16)):
        assert (kv.detect(nothing, rate), len(kv.clean(nothing, rate)), len(kv.frames(nothing, rate))) == ([], 0, 0)


def test_says_what_is_wrong():
    ok = np.zeros(100, np.int16)
    for kind, text, call in (
        (ValueError, "rate must be from 1 to 49999, not 96000 Hz; others are to be resampled", lambda: kv.Stream(96000)),
        (ValueError, "rate must be from 1 to 49999, not 0", lambda: kv.Stream(0)),
        (TypeError, "rate must be a whole number, not 16000.0", lambda: kv.Stream(16000.0)),
        (ValueError, "channels must be from 1 to 2, not 6", lambda: kv.detect(np.zeros((9, 6)), 16000)),
        (ValueError, "channels come second", lambda: kv.Stream(16000, 2).process(np.zeros((2, 9)))),
        (ValueError, "2x9; channels come second", lambda: kv.detect(np.zeros((2, 9)), 16000)),
        (ValueError, "not a single number", lambda: kv.detect(np.float32(1), 16000)),
        (ValueError, "rows of different lengths", lambda: kv.detect([[0.1, 0.2], [0.3]], 16000)) if np.__version__ >= "1.24" else
        (TypeError, "not object", lambda: kv.detect(np.array([None]), 16000)),
        (TypeError, "cannot be copied", lambda: copy.copy(kv.Stream(16000))),
        (ValueError, "2x3x4", lambda: kv.Stream(16000).process(np.zeros((2, 3, 4)))),
        (TypeError, "not int32; 16 bits", lambda: kv.detect(ok.astype(np.int32), 16000)),
        (TypeError, "not complex128", lambda: kv.detect(ok * 1j, 16000)),
        (ValueError, "no 16-bit samples", lambda: kv.detect([1, 40000], 16000)),
        (ValueError, "an even number", lambda: kv.detect(b"abc", 16000)),
        (ValueError, "no pairs", lambda: kv.detect(b"ab", 16000, channels=2)),
        (ValueError, "hold NaN", lambda: kv.detect([0.5, float("nan")], 16000)),
        (TypeError, "no setting hang_over_ms; there are decision", lambda: kv.Stream(16000, hang_over_ms=3)),
        (ValueError, "decision must be one of adaptive", lambda: kv.Stream(16000, decision="loud")),
        (ValueError, "stay_db must not be above enter_db", lambda: kv.Stream(16000, stay_db=-10)),
        (ValueError, "enter_score must be from 0 to 1, not 2", lambda: kv.Stream(16000, enter_score=2)),
        (ValueError, "not nan", lambda: kv.Stream(16000, enter_db=float("nan"))),
        (ValueError, "frame_length must be from 1 to 4096", lambda: kv.Stream(16000, frame_length=4097)),
        (TypeError, "restore_level must be True or False, not 'no'", lambda: kv.Stream(16000, restore_level="no")),
        (TypeError, "min_gap_ms must be a whole number, not 0.3", lambda: kv.Stream(16000, min_gap_ms=0.3)),
        (ValueError, "pad_end_ms must be from 0 to 3600000, not -1", lambda: kv.Stream(16000, pad_end_ms=-1)),
    ):
        with pytest.raises(kind) as raised:
            call()
        assert text in str(raised.value)
    stream = kv.Stream(16000, cleaned=True)
    with pytest.raises(TypeError):
        stream.process(np.zeros(9, np.uint8))  # nothing is lost by it:
    assert len(stream.process(ok).cleaned) + len(stream.flush().cleaned) == 100
    for call in (stream.flush, lambda: stream.process(ok)):
        with pytest.raises(ValueError, match="has ended"):
            call()
    stream.reset()
    stream.process(ok.astype(float))
    kinds = [stream.process(nothing).cleaned.dtype for nothing in ([], b"", ok[:0])]  # a list or bytes change no type
    assert kinds == [float, float, np.int16]
    stream.close()
    stream.close()
    for call in (stream.flush, stream.reset, lambda: stream.process(ok)):
        with pytest.raises(ValueError, match="is closed"):
            call()


def test_other_threads_run_meanwhile():
    """While a call works, another thread counts; and a second thread on the same stream is told so."""
    minutes = np.zeros(16000 * 1200, np.int16)
    stream = kv.Stream(16000)
    begun, counted, refused = threading.Event(), 0, 0

    def work():
        begun.set()
        stream.process(minutes)

    thread = threading.Thread(target=work)
    thread.start()
    begun.wait()
    while thread.is_alive():
        counted += 1
        try:
            stream.process(minutes[:10])
        except RuntimeError as error:
            refused += "another thread" in str(error)
    assert counted > 100 and refused > 50
    # Nor is it closed under another's hands, or used by who has waited for its end.
    thread = threading.Thread(target=stream.process, args=(minutes,))
    thread.start()
    while not stream._lock.locked():
        pass
    with pytest.raises(RuntimeError, match="another thread"):
        stream.close()
    thread.join()
    turn = stream._use()
    stream.close()
    with pytest.raises(ValueError, match="is closed"), turn:
        pass
    # A program may end while a thread is inside.
    ends = "import korvane_vad as kv, threading, time\nstream = kv.Stream(16000)\ndef work():\n    while True:\n        " \
        "stream.process(bytes(1 << 22))\nthreading.Thread(target=work, daemon=True).start()\ntime.sleep(0.2)"
    assert subprocess.run([sys.executable, "-c", ends], capture_output=True).returncode == 0
    # And a pool over recordings finds what one thread finds.
    recordings = [np.roll(read_wav(PROMPT)[0][:, 0], 1000 * i) for i in range(16)]
    with concurrent.futures.ThreadPoolExecutor(8) as pool:
        found = list(pool.map(lambda x: kv.detect(x, 8000), recordings))
    assert found == [kv.detect(x, 8000) for x in recordings]


def test_streams_give_their_memory_back():
    def peak():
        with open("/proc/self/status") as status:
            return next(int(line.split()[1]) for line in status if line.startswith("VmRSS"))

    for run in range(10000):
        stream = kv.Stream(8000, frames=True)
        stream.process(bytes(320))
        if run % 2:
            stream.close()  # the others when they are collected
        if run == 500:
            before = peak()
    assert peak() - before < 4000  # kB; a stream takes 16


def test_texts_and_command(tmp_path):
    with kv.Stream(8000, frames=True) as stream:
        told = list(stream.events(np.array_split(read_wav(PROMPT)[0], 50)))
    segments = [event for event in told if event.type == "end"]
    starts = [event for event in told if event.type == "start"]
    assert [start.start_sample for start in starts] == [segment.start_sample for segment in segments]
    first = kv.to_dicts(segments)[0]
    assert first["duration"] == first["end"] - first["start"] and first["start"] == segments[0].start
    # As the tool writes them.
    rules = ("--min-gap", "0", "--min-speech", "0", "-q", PROMPT)
    assert kv.to_audacity(segments).encode() == tool("-f", "audacity", *rules)
    assert kv.to_rttm(segments, "vm-intro").encode() == tool("-f", "rttm", *rules)
    assert kv.to_rttm(segments, " a b%\n").startswith("SPEAKER %20a%20b%25%0A 1 ")

    def command(*words):
        done = subprocess.run([sys.executable, "-m", "korvane_vad", *words], capture_output=True, text=True)
        return done.returncode, done.stdout, done.stderr

    bad = tmp_path / "bad.wav"
    bad.write_bytes(b"RIFF")
    text = "".join(f"{PROMPT}: {s.start:.2f} {s.end:.2f}\n" for s in segments)
    status, out, error = command(PROMPT, str(bad), "/none.wav")
    assert (status, out) == (1, text) and "No such file" in error and str(bad) in error
    assert command("-f", "rttm", PROMPT) == (0, kv.to_rttm(segments, "vm-intro"), "")
    with open(PROMPT, "rb") as file:
        bad.write_bytes(file.read()[:40001])
    status, out, error = command(str(bad))
    assert status == 1 and "is cut: 19978 of" in error and out.splitlines() == [
        f"{s.start:.2f} {s.end:.2f}" for s in kv.detect(read_wav(PROMPT)[0][:19978], 8000)]
    status, _, error = command(PROMPT, "--pad-end", "-1")
    assert status == 2 and "--pad-end: must be from 0 to 3600000 ms, not -1" in error
    with open("/dev/full", "w") as full:
        done = subprocess.run([sys.executable, "-m", "korvane_vad", PROMPT], stdout=full, stderr=subprocess.PIPE, text=True)
    assert (done.returncode, done.stderr) == (1, "korvane_vad: cannot write: No space left on device\n")


def test_turns_of_a_conversation():
    samples, rate = read_wav(PROMPT)
    call = np.concatenate([samples[:, 0], np.zeros(2 * rate, np.int16)] * 2)
    turns = TurnDetector(rate)
    told = [turns.process(chunk.tobytes()) for chunk in np.array_split(call, len(call) // turns.num_frames_required())]
    expected = kv.detect(call, rate, onset_ms=200, hangover_ms=800)
    assert [t.started for t in told if t.started is not None] == [s.start for s in expected]
    assert [t.stopped for t in told if t.stopped is not None] == [s.end for s in expected] and len(expected) > 1
    changes = np.diff([t.speaking for t in told]).sum()
    assert changes == 2 * len(expected)
    # The score comes with the chunk that completes its frame, and stays until the next.
    scores = kv.frames(call, rate)["score"]
    assert max(t.confidence for t in told) == scores.max() and told[-1].confidence < 0.1
    turns.reset()
    assert [turns.voice_confidence(c.tobytes()) for c in np.array_split(call, len(call) // 160)] == [t.confidence for t in told]
