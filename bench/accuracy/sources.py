"""Spoken prompts and music from Debian's packages, for what is learnt and for what is tested."""
import subprocess
import tempfile
import zlib
from pathlib import Path

import numpy as np

RATE = 16000  # of all samples here
FRAME = RATE // 100

# Each half of the corpus has its talkers and its music; nothing of the test half is learnt from.
TALKERS = {"develop": ("fr_CA_f_June", "ru_RU_f_IvrvoiceRU"),
           "test": ("en_US_f_Allison", "es_MX_f_Allison", "it_IT_m_Carlo")}
MUSIC = {"develop": ("macroform-cold_day", "reno_project-system"),
         "test": ("macroform-robot_dity", "macroform-the_simplicity", "manolo_camp-morning_coffee")}
# Lessons have more of both, from elsewhere: from talkers whose recordings are clean enough for the truth.
LESSON_TALKERS = {"italian": "asterisk/sounds/it_IT_f_Menardi/**/*.alaw",
                  **{f"ktuberling-{x}": f"ktuberling/sounds/{x}/*.*" for x in ("ca", "el", "lt", "uk")},
                  **{f"dutch-{voice}": f"games/fillets-ng/sound/**/nl/*-{voice}-*.ogg" for voice in "mv"},
                  **{f"klettres-{x}": f"klettres/{x}/*/*.*" for x in
                     "da de en_GB fr lt nds nl pt_BR ru tn uk".split()}}
# No tracker music: notes that vary by chance are decoded another way each time.
LESSON_MUSIC = ("games/asc/music/*.mp3", "games/etr/music/*.ogg", "games/frozen-bubble/snd/*zik*.ogg",
                "games/fillets-ng/music/*.ogg", "games/colobot/music/*.ogg", "hyperrogue/music/hr3-*.ogg")
EFFECTS = ("sounds/freedesktop/**/*.oga", "games/xblast-tnt/sounds/*.raw", "games/etr/sounds/*.wav",
           "games/frozen-bubble/snd/[!fins]*.ogg", "games/colobot/sounds/*.wav")
PACKAGES = (*(f"asterisk-core-sounds-{language}-g722" for language in ("en", "es", "fr", "it", "ru")),
            "asterisk-moh-opsound-g722", "asterisk-prompt-it-menardi-alaw", "ktuberling-data", "fillets-ng-data",
            "fillets-ng-data-nl", "klettres-data", "asc-music", "extremetuxracer-data",
            "frozen-bubble-data", "hyperrogue-music", "colobot-common-sounds", "sound-theme-freedesktop", "xblast-tnt-sounds")
RAW_FORMATS = {".g722": ["-f", "g722"], ".gsm": ["-f", "gsm"], ".alaw": ["-f", "alaw", "-ar", "8000"],
               ".raw": ["-f", "s16le", "-ar", "11025"]}


def read(files, seconds=120):
    """Samples of each file as floats, mono, full scale 1; none where it cannot be decoded."""
    clips = []
    for at in range(0, len(files), 40):  # ffmpeg takes longer to start than to decode
        some = files[at:at + 40]
        with tempfile.TemporaryDirectory() as folder:
            command = ["ffmpeg", "-v", "error", "-nostdin"]
            for file in some:
                command += [*RAW_FORMATS.get(file.suffix, []), "-i", file]
            for i in range(len(some)):
                command += ["-map", f"{i}:a", "-t", str(seconds), "-ac", "1", "-ar", str(RATE), "-f", "s16le",
                            f"{folder}/{i}"]
            subprocess.run(command, check=True)
            clips += [np.fromfile(f"{folder}/{i}", "<i2").astype(np.float32) / 32768 for i in range(len(some))]
    return clips


def frame_levels(x):
    """Mean square of each whole 10 ms, in dB."""
    frames = x[:len(x) // FRAME * FRAME].reshape(-1, FRAME).astype(float)
    return 10 * np.log10(np.mean(frames**2, axis=1) + 1e-12)


def active_level(x):
    """Level of speech without its pauses, in dB: the mean over the frames that lie within 16 dB of it."""
    levels = frame_levels(x)
    level = levels.max() - 10
    for _ in range(20):
        level = 10 * np.log10(np.mean(10**(levels[levels > level - 16] / 10)))
    return level


def runs(flags):
    """(start, end, value) of each run of equal flags."""
    bounds = np.concatenate([[0], np.flatnonzero(np.diff(flags)) + 1, [len(flags)]])
    return [(a, b, flags[a]) for a, b in zip(bounds[:-1], bounds[1:])]


def speech_frames(x):
    """Which 10 ms of a clean prompt are speech: those within 40 dB of its active level, gaps below 150 ms filled,
    bursts below 30 ms dropped."""
    speech = frame_levels(x) > active_level(x) - 40
    for a, b, value in runs(speech):
        if not value and b - a < 15 and a > 0 and b < len(speech):
            speech[a:b] = True
    for a, b, value in runs(speech):
        if value and b - a < 3:
            speech[a:b] = False
    return speech


def dry_speech_frames(x):
    """The same without what a room adds: no further than 60 ms from a frame within 25 dB of the active level."""
    loud = np.convolve(frame_levels(x) > active_level(x) - 25, np.ones(13), "same") > 0.5
    speech = speech_frames(x) & loud
    for a, b, value in runs(speech):
        if not value and b - a < 15 and a > 0 and b < len(speech):
            speech[a:b] = True
    return speech


def is_clean(x):
    """Whether the truth can be read off: there are moments 45 dB below the speech, not counting silence put in."""
    levels = frame_levels(x)
    heard = levels[levels > -95]
    return len(heard) > 20 and np.percentile(heard, 3) < active_level(x) - 45


class Store:
    """What has been decoded, kept in files beside the unpacked packages."""

    def __init__(self, folder):
        self.share = Path(folder, "root/usr/share")
        self.kept = Path(folder, "decoded")
        self.kept.mkdir(parents=True, exist_ok=True)

    def clips(self, name, files):
        """What of the files can be decoded. What is kept belongs to these very files."""
        mark = zlib.crc32("\n".join(f"{file.relative_to(self.share)} {file.stat().st_size}" for file in files).encode())
        path = self.kept / f"{name}-{mark:08x}.npz"
        if not path.exists():
            np.savez(path, *[x for x in read(files) if len(x)])
        with np.load(path) as archive:
            return [archive[key] for key in archive.files]

    def prompts(self, talker):
        """90 prompts of a talker of the corpus, of 1 to 12 s."""
        files = sorted(self.share.glob(f"asterisk/sounds/{talker}/**/*.g722"))
        files = [f for f in files if 16000 < f.stat().st_size * 2 < 16000 * 12 and "silence" not in f.parts]
        order = np.random.default_rng(len(files)).permutation(len(files))[:90]
        return self.clips(talker, [files[i] for i in sorted(order)])

    def music(self, half):
        return self.clips(f"music-{half}", [self.share / f"asterisk/moh/{name}.g722" for name in MUSIC[half]])

    def files(self, *patterns):
        return sorted(file for pattern in patterns for file in self.share.glob(pattern) if file.is_file())

    def lesson_talkers(self):
        """Clips of each talker that nothing else uses."""
        talkers = []
        for name, pattern in LESSON_TALKERS.items():
            files = self.files(pattern)
            order = np.random.default_rng(len(files)).permutation(len(files))[:250]
            talkers.append([x for x in self.clips(name, [files[i] for i in sorted(order)]) if is_clean(x)])
        return [clips for clips in talkers if len(clips) >= 15]

    def lesson_music(self):
        return self.clips("music-lessons", self.files(*LESSON_MUSIC))

    def effects(self):
        return self.clips("effects", self.files(*EFFECTS))


if __name__ == "__main__":
    print("\n".join(PACKAGES))
