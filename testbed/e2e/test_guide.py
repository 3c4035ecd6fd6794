"""The examples of docs/macro-guide.md: each command is run, and what it prints is compared."""

import re
import shutil
import subprocess
import unittest

from support import MACRO, ROOT, EndToEnd, make

GUIDE = ROOT / "docs" / "macro-guide.md"
# What a person chooses in the dialogs of the guide, in its order.
ANSWERS = """
{"dialog": "chooseCitation", "items": [{"uuid": "kuhn-1962"}]}
{"dialog": "chooseStyle", "style": "http://www.zotero.org/styles/ieee"}
{"dialog": "chooseStyle", "cancel": true}
{"dialog": "editCitation", "items": [{"uuid": "darwin-1859"}]}
{"dialog": "editCitation", "cancel": true}
"""
BETWEEN = "=== next ==="


def examples():
    """The guide's console examples: pairs of a command and the lines that it prints."""
    pairs = []
    for block in re.findall(r"```console\n(.*?)```", GUIDE.read_text(), re.DOTALL):
        for line in block.splitlines():
            if line.startswith("$ "):
                pairs.append((line[2:], []))
            else:
                pairs[-1][1].append(line)
    return pairs


def pattern(lines):
    """A line of "..." stands for any lines, "..." in a line for any text in it."""
    parts = [
        r"(?:.*\n)*?" if line == "..." else r".*".join(map(re.escape, line.split("..."))) + r"\n"
        for line in lines
    ]
    return "".join(parts) + r"\Z"


class Guide(EndToEnd):
    def test_every_example(self):
        answers = self.path("answers")
        answers.write_text(ANSWERS)
        desktop = self.home.desktop("--answers", answers)
        make(self.path("samples"))
        shutil.copy(self.path("samples/author-date.docx"), self.path("paper.docx"))
        pairs = examples()
        self.assertGreater(len(pairs), 40)
        script = "".join(f"{command}\necho '{BETWEEN}'\n" for command, _ in pairs)
        environment = {
            **self.home.environment,
            "PATH": f"{MACRO.parent}:{self.home.environment['PATH']}",
            "DESKTOP": str(desktop.pid),
            "LC_ALL": "C.UTF-8",
        }
        done = subprocess.run(
            ["bash", "-c", script],
            cwd=self.home.folder,
            env=environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
            timeout=120,
        )
        printed = done.stdout.split(BETWEEN + "\n")
        self.assertEqual(len(printed), len(pairs) + 1, done.stdout)
        for (command, expected), actual in zip(pairs, printed):
            with self.subTest(command):
                self.assertRegex(actual, r"\A" + pattern(expected))


if __name__ == "__main__":
    unittest.main()
