"""korvane-vad with a pseudo-terminal as standard error: the progress bar, and that nothing stays of it."""

import fcntl
import os
import pathlib
import pty
import re
import signal
import struct
import subprocess
import termios
import unittest

from tool_case import PROMPT, TOOL, ToolTest


def screen_line(output, columns):
    """What a terminal's line shows after this output, and the longest it ever was."""
    line, column, longest = [], 0, 0
    for piece in re.findall(r"\x1b\[[0-9;]*[A-Za-z]|.", output, re.S):
        if piece == "\r":
            column = 0
        elif piece == "\x1b[K":
            del line[column:]
        elif not piece.startswith("\x1b"):
            line[column:column + 1] = [piece]
            column += 1
            longest = max(longest, column)
    assert longest < columns, "the bar would wrap"
    return "".join(line)


class Terminal(ToolTest):
    def setUp(self):
        super().setUp()
        # A quarter of an hour: the tool is certainly at it for more than one of the bar's updates.
        self.long = self.path("long.wav")
        subprocess.run(["sox", PROMPT, self.long, "repeat", "720"], check=True)

    def on_terminal(self, *arguments, columns=80, stop_after=None, **environment):
        """What reached the terminal, and the exit status."""
        ours, theirs = pty.openpty()
        fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", 24, columns, 0, 0))
        variables = {**os.environ, "TERM": "xterm", **environment}
        variables.pop("NO_COLOR", None) if "NO_COLOR" not in environment else None
        tool = subprocess.Popen(TOOL + list(arguments), stdout=subprocess.DEVNULL, stderr=theirs,
                                env=variables)
        os.close(theirs)
        output = b""
        while True:
            if stop_after and re.search(stop_after, output):
                tool.send_signal(signal.SIGINT)
                stop_after = None
            try:
                piece = os.read(ours, 65536)
            except OSError:  # Linux's way to say that the other end is closed
                break
            if not piece:
                break
            output += piece
        os.close(ours)
        return output.decode(), tool.wait(30)

    def test_bar_with_rate_and_time_left(self):
        for columns in (80, 40, 12):
            output, status = self.on_terminal(self.long, "--progress", "always", columns=columns)
            self.assertEqual((status, screen_line(output, columns)), (0, ""))
            if columns == 80:
                self.assertRegex(output, r"\[\x1b\[32m=+\x1b\[0m *\] +\d+ % \d+(\.\d)?x real time, \d+:\d\d left")
                percents = [int(p) for p in re.findall(r"(\d+) %", output)]
                self.assertEqual(percents, sorted(percents))
                self.assertLessEqual(percents[-1], 100)
                self.assertNotRegex(output, r"-\d|\d{7}x")  # a plausible speed
        output, _ = self.on_terminal(self.long, "--progress", "always", NO_COLOR="1")
        self.assertIn("real time", output)
        self.assertNotIn("\x1b[3", output)

    def test_batch_and_failures_beside_the_bar(self):
        output, status = self.on_terminal(self.long, "/none.wav", PROMPT, "-j", "2", "--progress", "always")
        self.assertEqual(status, 1)
        before, message, after = output.partition("korvane-vad: /none.wav: No such file or directory\r\n")
        self.assertTrue(message, output)
        self.assertEqual((screen_line(before, 80), screen_line(after, 80)), ("", ""))
        self.assertRegex(before, r"\d % .*\d/3 files")
        self.assertNotRegex(before, r"-\d|\d{7}x")

    def test_only_where_it_is_wanted(self):
        self.assertEqual(self.on_terminal(self.long, "--progress", "never"), ("", 0))
        self.assertEqual(self.on_terminal(self.long, TERM="dumb"), ("", 0))
        self.assertEqual(self.on_terminal(PROMPT), ("", 0))  # over before there is something to say
        self.assertEqual(self.run_tool(self.long).stderr, "")
        self.assertIn("real time", self.run_tool(self.long, "--progress", "always").stderr)

    def test_interrupted(self):
        for arguments in ((self.long,), (self.long, PROMPT, "-j", "2"),
                          ("clean", self.long, self.path("out.wav"))):
            for _ in range(9):  # a fast machine may be done before the signal reaches it
                output, status = self.on_terminal(*arguments, "--progress", "always", stop_after=rb"real time")
                if status != 0:
                    break
                pathlib.Path(self.path("out.wav")).unlink(missing_ok=True)
            self.assertEqual((status, screen_line(output, 80)), (130, ""))
            self.assertEqual(os.listdir(self.folder), ["long.wav"])


if __name__ == "__main__":
    unittest.main()
