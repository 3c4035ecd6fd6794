"""Runs the examples of docs/macro-guide.md in a fresh clone and compares what each command prints with
what the guide shows."""

import os
import re
import shutil
import subprocess
import unittest

from support import ROOT, EndToEnd, bridge, free_port

GUIDE = ROOT / "docs" / "macro-guide.md"
PORT = "50002"  # the guide's port, which the test replaces by a free one
NEXT = "=== next ==="
NOT_CLONED = shutil.ignore_patterns(".git", "build*", "node_modules", "__pycache__")


def commands():
    """Returns pairs of a command and the lines that it prints. A block of the language "sh" is one
    command whose output the guide does not show: its lines are None."""
    pairs = []
    blocks = re.findall(r"^( *)```(\w+)\n(.*?)^ *```", GUIDE.read_text(), re.DOTALL | re.MULTILINE)
    for indentation, language, block in blocks:
        block = block.replace("\n" + indentation, "\n").removeprefix(indentation)
        if language == "sh":
            pairs.append((block, None))
            continue
        for line in block.splitlines():
            if line.startswith("$ "):
                pairs.append((line[2:] + "\n", []))
            else:
                pairs[-1][1].append(line)
    return pairs


def pattern(lines):
    """Returns a regular expression for the lines. A line "..." matches any lines, and "..." within a line
    matches any text."""
    parts = [
        r"(?:.*\n)*?" if line == "..." else r".*".join(map(re.escape, line.split("..."))) + r"\n"
        for line in lines
    ]
    return r"\A" + "".join(parts) + r"\Z"


def files(folder):
    return {path: path.read_bytes() for path in folder.rglob("*") if path.is_file()}


class Guide(EndToEnd):
    def clone(self):
        """Copies the repository without build output, then adds what ./demo would install and build."""
        clone = self.path("clone")
        shutil.copytree(ROOT, clone, ignore=NOT_CLONED, symlinks=True)
        (clone / "build").mkdir()
        (clone / "build" / "tessaron-word-bridge").symlink_to(bridge())
        modules = "testbed/node_modules"
        (clone / modules).symlink_to(ROOT / modules)
        return clone

    def test_every_example_prints_what_the_guide_shows(self):
        clone, port = self.clone(), str(free_port())
        self.home.set_port(port)
        temporary = self.path("tmp")
        temporary.mkdir()
        before = files(clone)
        pairs = commands()
        self.assertGreater(len(pairs), 40)
        script = "".join(f"{command}echo '{NEXT}'\n" for command, _ in pairs)
        environment = {**self.home.environment, "LC_ALL": "C.UTF-8", "TMPDIR": str(temporary)}
        del environment["BRIDGE"]
        done = subprocess.run(
            ["bash", "-c", script.replace(PORT, port)],
            cwd=clone,
            env=environment,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT,
            encoding="utf-8",
            timeout=300,
        )
        printed = done.stdout.split(NEXT + "\n")
        self.assertEqual(len(printed), len(pairs) + 1, done.stdout)
        for (command, expected), actual in zip(pairs, printed):
            if expected is not None:
                with self.subTest(command):
                    self.assertRegex(actual, pattern(expected))
        self.assertEqual(os.listdir(temporary), [])
        self.assertEqual(files(clone), before)


if __name__ == "__main__":
    unittest.main()
