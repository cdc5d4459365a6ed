"""docs/python.md as it stands: each block of Python runs after those before it and prints what stands below it."""
import contextlib
import io
import os
import pathlib
import re
import shutil

GUIDE = pathlib.Path(__file__).parents[2] / "docs/python.md"


def test_blocks_print_what_they_say(tmp_path, monkeypatch):
    shutil.copy("/usr/share/sounds/alsa/Front_Center.wav", tmp_path / "talk.wav")
    monkeypatch.chdir(tmp_path)
    blocks = re.findall(r"^```(\w+)\n(.*?)^```$", GUIDE.read_text(), re.M | re.S)
    names, printed, ran = {}, "", 0
    for language, text in blocks:
        if language == "python":
            assert printed == "", f"the guide does not say: {printed}"
            out = io.StringIO()
            with contextlib.redirect_stdout(out):
                exec(compile(text, str(GUIDE), "exec"), names)  # pylint: disable=exec-used
            printed, ran = out.getvalue(), ran + 1
        elif language == "text":
            assert printed == text
            printed = ""
    assert printed == "" and ran > 8
    picture = (tmp_path / "python.svg").read_text()
    assert picture.startswith("<?xml")
    if os.environ.get("KORVANE_WRITE_PICTURE"):
        GUIDE.with_name("python.svg").write_text(picture)
