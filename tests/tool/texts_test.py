"""The manual page and the completions: each offers just the options that the help lists."""
import pathlib
import re
import subprocess
import unittest

from tool_case import TOOL, ToolTest

COMMANDS = ("detect", "frames", "clean", "split", "report", "score", "selftest")


class Texts(ToolTest):
    def setUp(self):
        super().setUp()
        write_texts = pathlib.Path(TOOL[-1]).with_name("write_texts")
        subprocess.run([*TOOL[:-1], write_texts, self.folder], check=True)
        self.options = {}  # command -> [(letter, word, type, what it does)]
        for command in COMMANDS:
            text = re.sub(r"\n {27}", " ", self.run_tool(command, "--help").stdout)
            self.options[command] = re.findall(r"^  (?:-(.), |    )--([\w-]+)(?: (\S+))? +(.*)$", text, flags=re.M)
            self.assertIn(("h", "help", "", "print this and exit"), self.options[command])

    def text(self, name):
        return pathlib.Path(self.path(name)).read_text().replace("'\\''", "'")  # as a shell reads it

    def expect(self, command, found, kind_of):
        """Compares what a text says of a command's options; kind_of says it of a type."""
        self.assertEqual(found, [(letter, word, kind_of(type_), about)
                                 for letter, word, type_, about in self.options[command]])

    @staticmethod
    def files(type_):
        return {"FILE": "file", "MANIFEST": "file", "PAGE.html": "file", "DIR": "folder"}.get(type_)

    def test_manual_page(self):
        page = self.text("korvane-vad.1")
        for line in page.splitlines():
            self.assertRegex(line, r"^(\.(TH|SH|SS|B|TP|PP|nf|fi|RS|RE|br)\b.*|[^.'].*)$")
            self.assertNotRegex(line, r"(?<!\\)-|\\&[^.]")
        page = page.replace(r"\-", "-").replace(r"\(aq", "'").replace(r"\&", "").replace(r"\e", "\\")
        for command in COMMANDS:
            section = re.search(rf'^\.SH "{command.upper()}"\n(.*?)(?=^\.SH )', page, flags=re.M | re.S)[1]
            self.assertTrue(section.startswith(f".B korvane-vad {command}\n"))
            found = re.findall(r"^\.TP\n\\fB(?:-(.)\\fR, \\fB)?--([\w-]+)\\fR(?: (?:\\fI)?(.*?)(?:\\fR)?)?\n(.*)$",
                               section, flags=re.M)
            self.expect(command, found, lambda type_: type_)
            groups = re.findall(r"^(\w+):$", self.run_tool(command, "--help").stdout, flags=re.M)
            self.assertEqual(re.findall(r"^\.SS (\w+)$", section, flags=re.M),
                             [group for group in groups if group != "Examples"])

    def complete(self, *words):
        script = ('. "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _korvane_vad; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        done = subprocess.run(["bash", "-c", script, "bash", self.path("korvane-vad.bash"), "korvane-vad", *words],
                              capture_output=True, text=True, check=True, cwd=self.folder)
        self.assertEqual(done.stderr, "")
        return set(done.stdout.split())

    def test_bash(self):
        here = {"_korvane-vad", "korvane-vad.1", "korvane-vad.bash", "korvane-vad.fish"}
        self.assertEqual(self.complete(""), {*COMMANDS, *here})
        self.assertEqual(self.complete("--ver"), {"--version"})
        self.assertEqual(self.complete("--comp"), {"--completions"})
        self.assertEqual(self.complete("--completions", ""), {"bash", "zsh", "fish"})
        for command in COMMANDS:
            names = {f"-{letter}" for letter, *_ in self.options[command] if letter}
            names |= {f"--{word}" for _, word, *_ in self.options[command]}
            self.assertEqual(self.complete(command, "-"), names)
            for letter, word, type_, _ in self.options[command]:
                expected = set(type_.split("|")) if "|" in type_ else here if not type_ or self.files(type_) else set()
                for name in [f"--{word}"] + [f"-{letter}"] * bool(letter):
                    self.assertEqual(self.complete(command, name, ""), expected, name)

    def test_zsh(self):
        script = self.text("_korvane-vad")
        for command in COMMANDS:
            self.assertRegex(script, rf"\n    '{command}:[^']+'\n")
            section = re.search(rf"^    {command}\)\n(.*?);;$", script, flags=re.M | re.S)[1]
            found = []
            for line in section.splitlines()[1:-1]:
                form = (r" +'(?:\(-(.) --([\w-]+)\)'\{-\1(\+?),--\2(=?)\}'|--([\w-]+)(=?))"
                        r"\[((?:[^]\\:[]|\\.)*)\](?::((?:[^:\\]|\\.)+):(.*))?' \\")
                if "'(- :)" not in line:
                    self.assertRegex(line, f"^{form}$")
                    letter, both, plus, is1, word, is2, about, name, action = re.match(form, line).groups("")
                    self.assertEqual(bool(plus) if letter else bool(is2), bool(action))
                    self.assertEqual(bool(is1) if letter else False, bool(letter and action))
                    kind = action and {"_files": "file", "_files -/": "folder", " ": name}.get(action, action[1:-1])
                    found.append((letter, both or word, kind, re.sub(r"\\(.)", r"\1", about)))
            self.expect(command, found, lambda type_: self.files(type_) or type_.replace("|", " "))

        self.assertRegex(script, r"'\(- :\)--completions\[[^]]+\]:shell:\(bash zsh fish\)' \\\n")

    def test_fish(self):
        script = self.text("korvane-vad.fish")
        self.assertIn("-n __fish_use_subcommand -l completions -x -a 'bash zsh fish' -d ", script)
        line = r"^complete -c korvane-vad -n '{}'(?: -s (.))? -l ([\w-]+)(| -x -a '.*'| -r -F| -x) -d '(.*)'$"
        for command in COMMANDS:
            seen = f"__fish_seen_subcommand_from {command}" if command != "detect" else (
                "not __fish_seen_subcommand_from " + " ".join(COMMANDS[1:]))
            self.expect(command, re.findall(line.format(seen), script, flags=re.M),
                        lambda type_: f" -x -a '{type_.replace('|', ' ')}'" if "|" in type_
                        else " -r -F" if self.files(type_) else " -x" * bool(type_))
            self.assertRegex(script, rf"-n __fish_use_subcommand -a {command} -d '[^']+'")


if __name__ == "__main__":
    unittest.main()
