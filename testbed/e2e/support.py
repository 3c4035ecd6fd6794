"""What all end-to-end tests use: a temporary home, and the stand-ins for the application and the macro."""

import os
import shutil
import signal
import subprocess
import sys
import tempfile
import time
import unittest
import zipfile
from pathlib import Path

ROOT = Path(os.environ.get("REPO_ROOT") or Path(__file__).resolve().parents[2])
MACRO = ROOT / "testbed" / "macro" / "macro"
DESKTOP = ROOT / "testbed" / "desktop" / "main.js"
ON_MAC = sys.platform == "darwin"
STYLE_URL = "http://www.zotero.org/styles/"
APA, IEEE = STYLE_URL + "apa", STYLE_URL + "ieee"

from mac_settings import Settings  # noqa: E402
from ports import free_port  # noqa: E402,F401 (imported by the tests)

sys.path.insert(0, str(ROOT / "testbed" / "samples"))
from make_samples import SAMPLES, make  # noqa: E402,F401 (imported by the tests)


def bridge():
    path = os.environ.get("BRIDGE", "")
    if not os.access(path, os.X_OK):
        raise RuntimeError("The environment variable BRIDGE must name the bridge's executable.")
    return os.path.abspath(path)


class Home:
    """Temporary folders that replace the user's, and the application's settings with the port."""

    def __init__(self, test):
        self.folder = Path(tempfile.mkdtemp(prefix="testbed-e2e-"))
        _at_end(test, lambda: shutil.rmtree(self.folder))
        self.environment = {**os.environ, "BRIDGE": bridge()}
        self.test = test
        if ON_MAC:
            # On macOS no environment variable redirects the settings.
            self.settings = Settings()
            _at_end(test, self.settings.restore)
            return
        self.environment.update(
            XDG_CONFIG_HOME=str(self.folder / "config"),
            XDG_DATA_HOME=str(self.folder / "data"),
            XDG_DATA_DIRS=str(self.folder / "no-data"),
        )

    def set_port(self, port):
        if ON_MAC:
            self.settings.set_port(port)
            return
        settings = self.folder / "config" / "tessaron.com" / "Tessaron Desktop.conf"
        settings.parent.mkdir(parents=True, exist_ok=True)
        settings.write_text(f"[%General]\nhttpServerPort={port}\n")

    def desktop(self, *options):
        """Starts the stand-in for the application on a free port and stops it after the test."""
        process = subprocess.Popen(
            ["node", str(DESKTOP), "--port", "0", *options], stdout=subprocess.PIPE, text=True
        )
        _at_end(self.test, lambda: _stop(process))
        line = process.stdout.readline()
        if not line.startswith("listening on 127.0.0.1:"):
            raise RuntimeError(f"The stand-in for the application did not start: {line!r}")
        self.set_port(line.rsplit(":", 1)[1].strip())
        return process

    def macro(self, *arguments):
        return subprocess.run(
            [str(MACRO), *map(str, arguments)],
            env=self.environment,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            encoding="utf-8",
            timeout=120,
        )


def _at_end(test, action):
    """Runs an action after a test, or after a test class if the class shares a home."""
    (test.addClassCleanup if isinstance(test, type) else test.addCleanup)(action)


def _stop(process):
    process.terminate()
    process.wait(10)
    process.stdout.close()


def stop_by_id(process_id):
    """Stops a process that is not a child of this one, and waits until it has ended."""
    os.kill(process_id, signal.SIGTERM)
    deadline = time.monotonic() + 10
    while is_running(process_id) and time.monotonic() < deadline:
        time.sleep(0.02)


def is_running(process_id):
    try:
        state = Path(f"/proc/{process_id}/stat").read_text().rsplit(")", 1)[1].split()[0]
    except FileNotFoundError:
        return False
    return state != "Z"


class EndToEnd(unittest.TestCase):
    maxDiff = 2000

    def setUp(self):
        self.home = Home(self)

    def path(self, name):
        return self.home.folder / name

    def ok(self, *arguments):
        done = self.home.macro(*arguments)
        self.assertEqual((done.returncode, done.stderr), (0, ""), arguments)
        return done.stdout

    def failure(self, *arguments):
        """Runs the macro, which must fail with one sentence; returns the sentence."""
        done = self.home.macro(*arguments)
        self.assertEqual((done.returncode, done.stdout), (1, ""), done.stderr)
        sentence = done.stderr.rstrip("\n")
        self.assertRegex(sentence, r"\Amacro: \S[^\n]*[.]\Z")
        return sentence


def replace_nth(text, old, number, new):
    start = -1
    for _ in range(number):
        start = text.index(old, start + 1)
    return text[:start] + new + text[start + len(old):]


def rewrite(path, change, part="word/document.xml"):
    """Changes one part of a document. Fails if the change has no effect."""
    with zipfile.ZipFile(path) as package:
        data = {name: package.read(name) for name in package.namelist()}
    text = data[part].decode("utf-8")
    changed = change(text)
    assert changed != text, "the change had no effect"
    with zipfile.ZipFile(path, "w") as package:
        for name, content in data.items():
            package.writestr(name, changed if name == part else content)
