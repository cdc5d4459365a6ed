"""The plugins in programs that people run, against `korvane-vad clean`: the same samples, at the same places.

KORVANE_VAD_TOOL names the tool, KORVANE_LADSPA_FOLDER and KORVANE_GSTREAMER_FOLDER the plugins' folders,
KORVANE_STREAM_HEADER the library's header.
"""
import os
import pathlib
import re
import subprocess
import tempfile
import unittest

TOOL = os.environ["KORVANE_VAD_TOOL"]
FRONT_CENTER = pathlib.Path("/usr/share/sounds/alsa/Front_Center.wav")


def run(*command, **environment):
    done = subprocess.run([str(word) for word in command], capture_output=True, check=False,
                          env={**os.environ, **environment}, timeout=60)
    if done.returncode != 0:
        raise AssertionError(f"{command}: {done.stderr.decode()}")
    return done.stdout


class Hosts(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.addClassCleanup(cls.folder.cleanup)
        cls.recordings = []
        here = pathlib.Path(cls.folder.name)
        for name, effects in {"mono8": ["rate", "8k"], "mono48": [],
                              "stereo16": ["rate", "16k", "remix", "1", "1v0.5"]}.items():
            recording = here / f"{name}.wav"
            run("sox", "-D", FRONT_CENTER, recording, *effects)
            run(TOOL, "clean", recording, here / f"{name}-cleaned.wav")
            cleaned = run("sox", here / f"{name}-cleaned.wav", "-t", "s16", "-")
            cls.recordings.append((recording, 2 if "stereo" in name else 1, cleaned))

    def test_sox_runs_the_ladspa_plugins(self):
        for recording, channels, cleaned in self.recordings:
            with self.subTest(recording.name):
                plugin = "korvane_stereo" if channels == 2 else "korvane_mono"
                # -l takes the latency out at the start; a silence behind brings out what is inside then.
                sound = run("sox", "-D", recording, "-t", "s16", "-", "pad", "0", "0.2", "ladspa", "-l", "korvane",
                            plugin, LADSPA_PATH=os.environ["KORVANE_LADSPA_FOLDER"])
                self.assertEqual(sound[:len(cleaned)], cleaned)

    def test_gst_inspect_lists_every_setting(self):
        with open(os.environ["KORVANE_STREAM_HEADER"], encoding="utf-8") as file:
            record = file.read().split("struct KorvaneStreamConfig {")[1].split("void* user;")[0]
        settings = re.findall(r"(?:float|int32_t) (\w+); +/\*\*<[^*]* \[([^]]*)\]", record)
        expected = {name.replace("_", "-"): default for name, default in settings if name != "frame_length"}
        expected |= {"decision": '0, "adaptive"', "restore-level": "true", "clean": "true", "silence": '0, "pass"'}
        shown = run("gst-inspect-1.0", "korvanevad", GST_PLUGIN_PATH=os.environ["KORVANE_GSTREAMER_FOLDER"],
                    GST_PLUGIN_SYSTEM_PATH="", GST_REGISTRY=os.path.join(self.folder.name, "registry")).decode()
        for name, default in expected.items():
            self.assertRegex(shown, rf"(?m)^  {name} +: \w.+\n.*\n.*Default: +{re.escape(default)} *$")
        self.assertGreaterEqual(len(expected), 15)


if __name__ == "__main__":
    unittest.main()
