"""The example macro's module that does not need Word, run by LibreOffice's Basic."""

import html
import os
import re
import shutil
import signal
import stat
import subprocess
import tempfile
import threading
import unittest
from pathlib import Path

from support import BRIDGE, SOURCE, Case, home_without_application, skip, utf16

EXAMPLES = SOURCE / "examples"
OFFICE = shutil.which("soffice")
MODULES = [EXAMPLES / "TessaronExchange.bas", Path(__file__).with_name("ExampleTest.bas")]
ARGUMENTS, RESULTS, READY = (
    f"mac-word-plugin-{name}.txt" for name in ("args", "results", "result-ready")
)
FAILED = "error 20001 "

TEXTS = {
    "nothing": [""],
    "ASCII": ["Word", "16"],
    "empty ones": ["", "", ""],
    "beyond ASCII": ["M\u00fcller \u2013 \u4e2d\u6587"],
    "beyond 16 bits": ["\U0001f600 \U0001d11e", "\U0010ffff"],
    "half a pair": ["cut \ud83d", "\ude00"],
    "line ends and quotes": ["a\r\nb\tc", '"'],
    "U+0000 and U+FFFF": ["a\0b\uffff"],
    "mark inside": ["a\ufeff"],
}


def in_hex(texts):
    units = (utf16(text) for text in texts)
    return ",".join(
        " ".join(f"{text[i] | text[i + 1] << 8:04x}" for i in range(0, len(text), 2))
        for text in units
    )


def answer(*texts):
    return f"ok {len(texts)}:{in_hex(texts)}"


def start_office(profile, *arguments, **variables):
    """Runs LibreOffice to its end, or ends it and what it started."""
    office = subprocess.Popen(
        [OFFICE, "--headless", f"-env:UserInstallation={profile.as_uri()}", *arguments],
        env={**os.environ, **variables},
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True,
    )  # fmt: skip
    try:
        return office.wait(timeout=60)
    finally:
        if office.poll() is None:
            os.killpg(office.pid, signal.SIGKILL)
            office.wait()


def element(name, attributes, content):
    return f'<?xml version="1.0" encoding="UTF-8"?>\n<{name} {attributes}>{content}</{name}>\n'


def install_modules(library):
    for path in MODULES:
        # The attribute is for Word's editor, the option for LibreOffice.
        text = "Option VBASupport 1\n" + re.sub("^Attribute .*$", "", path.read_text(), flags=re.M)
        (library / f"{path.stem}.xba").write_text(element(
            "script:module",
            'xmlns:script="http://openoffice.org/2000/script" '
            f'script:name="{path.stem}" script:language="StarBasic"',
            html.escape(text, quote=False),
        ))  # fmt: skip
    (library / "script.xlb").write_text(element(
        "library:library",
        'xmlns:library="http://openoffice.org/2000/library" '
        'library:name="Standard" library:readonly="false" library:passwordprotected="false"',
        "".join(f'<library:element library:name="{path.stem}"/>' for path in MODULES),
    ))  # fmt: skip


class ExampleTest(Case):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="packaging-office-")
        cls.addClassCleanup(folder.cleanup)
        cls.profile = Path(folder.name)
        # The profile must be there before modules can be put into it.
        start_office(cls.profile, "--terminate_after_init")
        install_modules(cls.profile / "user" / "basic" / "Standard")

    def setUp(self):
        self.folder = self.temporary_folder()
        self.exchange = self.folder / "exchange"
        self.exchange.mkdir()
        self.use_bridge(BRIDGE)

    def use_bridge(self, program):
        """The marker "running" is there for as long as the program runs."""
        self.start = self.folder / "start"
        self.start.write_text(
            "#!/bin/sh\n"
            'touch "$2/running"\n'
            f'{{ "{program}" "$@"; rm "$2/running"; }} </dev/null >/dev/null 2>&1 &\n'
        )
        self.start.chmod(0o755)

    def use_script(self, lines):
        """A bridge that does what the lines say; $2 is the folder."""
        program = self.folder / "bridge"
        program.write_text(f"#!/bin/sh\n{lines}\n")
        program.chmod(program.stat().st_mode | stat.S_IXUSR)
        self.use_bridge(program)

    def basic(self, *steps):
        """Runs the steps in LibreOffice and returns their outcomes."""
        scenario, outcome = self.folder / "scenario", self.folder / "outcome"
        scenario.write_text("".join("\t".join(map(str, step)) + "\n" for step in steps))
        outcome.write_text("")
        start_office(
            self.profile, "macro:///Standard.ExampleTest.Main",
            **home_without_application(self.temporary_folder()),
            SCENARIO=str(scenario), OUTCOME=str(outcome), START_BRIDGE=str(self.start),
        )  # fmt: skip
        outcomes = outcome.read_text().splitlines()
        self.assertEqual(len(outcomes), len(steps), outcomes)
        return outcomes

    def run_command(self, command, *arguments):
        return self.basic(("run", command, self.exchange, in_hex(arguments or [""])))[0]

    def put(self, ready, results):
        if ready is not None:
            (self.exchange / READY).write_bytes(utf16(ready))
        if results is not None:
            (self.exchange / RESULTS).write_bytes(results)

    def later(self, seconds, action):
        timer = threading.Timer(seconds, action)
        timer.start()
        self.addCleanup(timer.join)

    # The files

    def test_written_lists(self):
        paths = {name: self.folder / f"list-{i}" for i, name in enumerate(TEXTS)}
        for path in paths.values():
            path.write_bytes(b"an old file that is longer than most of the new ones")
        outcomes = self.basic(
            *(("write", paths[name], in_hex(texts)) for name, texts in TEXTS.items())
        )
        for (name, texts), outcome in zip(TEXTS.items(), outcomes):
            with self.subTest(name):
                self.assertEqual(outcome, "ok ")
                self.assertEqual(paths[name].read_bytes(), utf16("\x01".join(texts)))

    def test_read_lists(self):
        paths = {name: self.folder / f"list-{i}" for i, name in enumerate(TEXTS)}
        for name, texts in TEXTS.items():
            paths[name].write_bytes(utf16("\x01".join(texts)))
        outcomes = self.basic(*(("read", path) for path in paths.values()))
        for (name, texts), outcome in zip(TEXTS.items(), outcomes):
            with self.subTest(name):
                self.assertEqual(outcome, answer(*texts))

    def test_bytes(self):
        path = self.folder / "list"
        self.assertEqual(self.basic(("write", path, "0057 d83d de00,0031")), ["ok "])
        self.assertEqual(path.read_bytes().hex(" "), "57 00 3d d8 00 de 01 00 31 00")

    def test_separator_in_a_text(self):
        path = self.folder / "list"
        (outcome,) = self.basic(("write", path, "0061,0062 0001 0063"))
        self.assertTrue(outcome.startswith(FAILED + "A text holds the character U+0001"), outcome)
        self.assertFalse(path.exists())

    # The status

    def test_status(self):
        rows = {
            "fits": ("8", b"t\0r\0u\0e\0", "ok "),
            "empty results": ("0", b"", "ok "),
            "failure": ("-1", None, FAILED + "The answer of Tessaron could not be written."),
            "failure and old results": ("-1", b"a\0", FAILED + "The answer of Tessaron could not"),
            "results shorter": ("8", b"t\0r\0", FAILED + "The answer of Tessaron is incomplete."),
            "results longer": ("2", b"t\0r\0", FAILED + "The answer of Tessaron is incomplete."),
            "no results": ("8", None, FAILED + "The answer of Tessaron is missing."),
            "no number": ("many", b"t\0", FAILED + "The answer of Tessaron is incomplete."),
            "empty ready file": ("", b"", FAILED + "The answer of Tessaron is incomplete."),
            "another way to write it": ("+2", b"t\0", FAILED + "The answer of Tessaron is incom"),
        }
        steps = []
        for i, (ready, results, _) in enumerate(rows.values()):
            self.exchange = self.folder / f"row-{i}"
            self.exchange.mkdir()
            self.put(ready, results)
            steps.append(("check", self.exchange))
        for (name, row), outcome in zip(rows.items(), self.basic(*steps)):
            with self.subTest(name):
                self.assertTrue(outcome.startswith(row[2]), outcome)

    # The wait

    def test_time_limits(self):
        handler = (SOURCE / "frontend" / "CiteCommandHandler.cpp").read_text()
        commands = re.findall(r'^    {"(\w+)"', handler, re.M)
        outcomes = self.basic(*(("seconds", command) for command in commands))
        self.assertEqual(
            {command for command, outcome in zip(commands, outcomes) if outcome == "ok 0"},
            {"getFieldCodeFromCitationEditor", "getCitationStyleFromDialog",
             "formatCitationsAndBibliography", "checkManualFormatAndGetFieldCode"},
        )  # fmt: skip
        self.assertLessEqual(set(outcomes), {"ok 0", "ok 30"})

    def test_limit_passes(self):
        (self.exchange / "running").touch()
        (outcome,) = self.basic(("wait", self.exchange, 2))
        self.assertEqual(outcome, FAILED + "Tessaron did not answer within 2 seconds.")

    def test_dialog_without_limit(self):
        (self.exchange / "running").touch()
        self.later(6, lambda: self.put("0", b""))
        self.assertEqual(self.basic(("wait", self.exchange, 0)), ["ok "])

    def test_bridge_ends_during_a_dialog(self):
        (self.exchange / "running").touch()
        self.later(4, (self.exchange / "running").unlink)
        (outcome,) = self.basic(("wait", self.exchange, 0))
        self.assertEqual(outcome, FAILED + "The connection to Tessaron ended without an answer.")

    def test_bridge_ends_with_its_answer(self):
        self.put("0", b"")
        self.assertEqual(self.basic(("wait", self.exchange, 0)), ["ok "])

    # Whole commands

    def test_application_does_not_run(self):
        self.assertEqual(self.run_command("isTessaronRunning"), answer("false"))

    def test_text_comes_back_through_the_bridge(self):
        # Without the application, the field code comes back as it went in.
        code = "ADDIN CSL_CITATION {\"a\":\"\U0001f600 M\u00fcller \ud83d\"}"
        self.assertEqual(self.run_command("undoManualFormat", code), answer(code))

    def test_several_results(self):
        outcome = self.run_command("formatCitationsAndBibliography", "a style", "code", "text")
        self.assertEqual(outcome, answer("false", "-1"))

    def test_command_without_results(self):
        self.assertEqual(self.run_command("setWordProcessor", "Word", "16"), answer(""))

    def test_old_answer_is_deleted(self):
        self.put("8", utf16("true"))
        (self.exchange / ARGUMENTS).write_bytes(b"an old file")
        self.use_script("exit 0")
        outcome = self.run_command("isTessaronRunning", "a")
        self.assertEqual(outcome, FAILED + "The connection to Tessaron ended without an answer.")
        left = sorted(path.name for path in self.exchange.iterdir())
        self.assertEqual(left, [ARGUMENTS])
        self.assertEqual((self.exchange / ARGUMENTS).read_bytes(), b"a\0")

    def test_results_cannot_be_written(self):
        self.use_script(f'printf "\\055\\0001\\000" >"$2/{READY}"')
        outcome = self.run_command("isTessaronRunning")
        self.assertTrue(outcome.startswith(FAILED + "The answer of Tessaron could not"), outcome)


class HandlerTest(Case):
    """What only Word and macOS can run is at least of one piece."""

    def test_macro_calls_handlers_that_exist(self):
        macro = (EXAMPLES / "TessaronWord.bas").read_text()
        script = (EXAMPLES / "TessaronBridge.applescript").read_text()
        called = set(re.findall(r'AppleScriptTask\(Script, "(\w+)"', macro))
        self.assertEqual(called, set(re.findall(r"^on (\w+)\(", script, re.M)))
        self.assertIn("TessaronBridge.scpt", macro)
        self.assertIn("TessaronBridge.scpt", script)

    def test_macro_has_what_the_exchange_needs(self):
        macro = (EXAMPLES / "TessaronWord.bas").read_text()
        for name in ("Function StartBridge(", "Function BridgeRuns(", "Sub Pause("):
            self.assertEqual(macro.count(f"Public {name}"), 1, name)


if __name__ == "__main__":
    if OFFICE is None:
        skip("LibreOffice (soffice) is not installed.")
    unittest.main()
