"""The example's exchange of files with the bridge, run by LibreOffice's Basic, and its shell script."""

import os
import re
import signal
import stat
import subprocess
import threading
import time
import unittest
from pathlib import Path

from office import EXAMPLES, FAILED, HAS_PROGRAMS, OfficeCase, answer, from_hex, in_hex
from support import SOURCE, Case, skip, utf16

ARGUMENTS, RESULTS, READY = (
    f"mac-word-plugin-{name}.txt" for name in ("args", "results", "result-ready")
)
DIALOGS = {
    "getFieldCodeFromCitationEditor", "getCitationStyleFromDialog",
    "formatCitationsAndBibliography", "checkManualFormatAndGetFieldCode",
}  # fmt: skip
ENDED = FAILED + "The connection to Tessaron ended without an answer."

TEXTS = {
    "nothing": [""],
    "ASCII": ["Word", "16"],
    "empty texts": ["", "", ""],
    "beyond ASCII": ["M\u00fcller \u2013 \u4e2d\u6587"],
    "beyond 16 bits": ["\U0001f600 \U0001d11e", "\U0010ffff"],
    "unpaired surrogates": ["cut \ud83d", "\ude00"],
    "line ends and quotes": ["a\r\nb\tc", '"'],
    "U+0000 and U+FFFF": ["a\0b\uffff"],
    "U+FEFF inside": ["a\ufeff"],
}


class ExchangeTest(OfficeCase):
    def setUp(self):
        super().setUp()
        self.exchange = self.word_temporary / "tessaron-test"
        self.exchange.mkdir()

    def put(self, ready, results):
        if ready is not None:
            (self.exchange / READY).write_bytes(utf16(ready))
        if results is not None:
            (self.exchange / RESULTS).write_bytes(results)

    def start_bridge(self, lines):
        """Starts a shell script in place of the bridge, as TessaronBridge.sh would. Returns its process."""
        self.use_script(lines)
        process = subprocess.Popen([self.bridge, "command", self.exchange])
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def folders(self):
        return [path.name for path in self.word_temporary.iterdir() if path != self.exchange]

    # The files

    def test_writes_lists(self):
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

    def test_reads_lists(self):
        paths = {name: self.folder / f"list-{i}" for i, name in enumerate(TEXTS)}
        for name, texts in TEXTS.items():
            paths[name].write_bytes(utf16("\x01".join(texts)))
        outcomes = self.basic(*(("read", path) for path in paths.values()))
        for (name, texts), outcome in zip(TEXTS.items(), outcomes):
            with self.subTest(name):
                self.assertEqual(outcome, answer(*texts))

    def test_writes_little_endian_code_units(self):
        path = self.folder / "list"
        self.assertEqual(self.basic(("write", path, "0057 d83d de00,0031")), ["ok "])
        self.assertEqual(path.read_bytes().hex(" "), "57 00 3d d8 00 de 01 00 31 00")

    def test_refuses_separator_in_text(self):
        path = self.folder / "list"
        (outcome,) = self.basic(("write", path, "0061,0062 0001 0063"))
        self.assertTrue(outcome.startswith(FAILED + "A text contains the character U+0001"), outcome)
        self.assertFalse(path.exists())

    # The status

    def test_checks_status(self):
        rows = {
            "equal size": ("8", b"t\0r\0u\0e\0", "ok "),
            "empty results": ("0", b"", "ok "),
            "failure": ("-1", None, FAILED + "The answer of Tessaron could not be written."),
            "failure and old results": ("-1", b"a\0", FAILED + "The answer of Tessaron could not"),
            "results shorter": ("8", b"t\0r\0", FAILED + "The answer of Tessaron is incomplete."),
            "results longer": ("2", b"t\0r\0", FAILED + "The answer of Tessaron is incomplete."),
            "no results": ("8", None, FAILED + "The answer of Tessaron is missing."),
            "no number": ("many", b"t\0", FAILED + "The answer of Tessaron is incomplete."),
            "empty ready file": ("", b"", FAILED + "The answer of Tessaron is incomplete."),
            "a number with a sign": ("+2", b"t\0", FAILED + "The answer of Tessaron is incom"),
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

    def test_limits_every_command_without_dialog(self):
        handler = (SOURCE / "frontend" / "CiteCommandHandler.cpp").read_text()
        commands = re.findall(r'^    {"(\w+)"', handler, re.M)
        outcomes = self.basic(*(("seconds", command) for command in commands))
        unlimited = {command for command, outcome in zip(commands, outcomes) if outcome == "ok 0"}
        self.assertEqual(unlimited, DIALOGS)
        self.assertEqual(outcomes[commands.index("launchTessaron")], "ok 120")
        self.assertEqual(set(outcomes), {"ok 0", "ok 30", "ok 120"})

    def test_pauses_grow_during_wait(self):
        outcomes = self.basic(*(("pause", waited) for waited in (0, 500, 501, 5000, 20000, 3600000)))
        self.assertEqual(outcomes, ["ok 50", "ok 50", "ok 50", "ok 500", "ok 2000", "ok 2000"])

    def test_time_limit_ends_bridge(self):
        process = self.start_bridge("sleep 60 & wait")
        (outcome,) = self.basic(("wait", self.exchange, process.pid, 2))
        self.assertEqual(outcome, FAILED + "Tessaron did not answer within 2 seconds.")
        self.assertEqual(process.wait(5), -signal.SIGTERM)

    def test_kills_bridge_that_ignores_sigterm(self):
        process = self.start_bridge("trap '' TERM; while :; do sleep 0.1; done")
        (outcome,) = self.basic(("wait", self.exchange, process.pid, 1))
        self.assertEqual(outcome, FAILED + "Tessaron did not answer within 1 seconds.")
        self.assertEqual(process.wait(5), -signal.SIGKILL)

    def test_cancel_ends_bridge(self):
        process = self.start_bridge("sleep 60 & wait")
        wait = ("wait", self.exchange, process.pid, 0)
        outcomes = self.basic(("cancel", "true"), wait, ("cancel", "false"))
        self.assertTrue(outcomes[1].startswith(FAILED + "Cancelled."), outcomes)
        self.assertEqual(process.wait(5), -signal.SIGTERM)

    def test_waits_for_dialog_without_limit(self):
        process = self.start_bridge("sleep 60 & wait")
        timer = threading.Timer(6, lambda: self.put("0", b""))
        timer.start()
        self.addCleanup(timer.join)
        self.assertEqual(self.basic(("wait", self.exchange, process.pid, 0)), ["ok "])

    def test_reports_bridge_that_is_killed(self):
        process = self.start_bridge("sleep 60 & wait")

        def kill():
            process.kill()
            process.wait()

        timer = threading.Timer(4, kill)
        timer.start()
        self.addCleanup(timer.join)
        (outcome,) = self.basic(("wait", self.exchange, process.pid, 0))
        self.assertEqual(outcome, ENDED)

    def test_returns_at_once_if_answer_exists(self):
        self.put("0", b"")
        self.assertEqual(self.basic(("wait", self.exchange, 1, 0)), ["ok "])

    # Whole commands

    def test_reports_that_application_is_not_running(self):
        self.assertEqual(self.run_command("isTessaronRunning"), answer("false"))
        self.assertEqual(self.folders(), [])

    def test_text_passes_through_bridge_unchanged(self):
        # Without the application, this command returns the field code unchanged.
        code = "ADDIN CSL_CITATION {\"a\":\"\U0001f600 M\u00fcller \ud83d\"}"
        self.assertEqual(self.run_command("undoManualFormat", code), answer(code))

    def test_keeps_byte_order_mark_at_start_of_text(self):
        for text in ("\ufeffa", "\ufeff\ufeff", "\ufeff"):
            with self.subTest(ascii(text)):
                self.assertEqual(self.run_command("undoManualFormat", text), answer(text))

    def test_returns_several_results(self):
        outcome = self.run_command("formatCitationsAndBibliography", "a style", "code", "text")
        self.assertEqual(outcome, answer("false", "-1"))

    def test_returns_empty_text_for_command_without_results(self):
        self.assertEqual(self.run_command("setWordProcessor", "Word", "16"), answer(""))

    def test_reports_bridge_without_answer(self):
        self.use_script("exit 0")
        self.assertEqual(self.run_command("isTessaronRunning"), ENDED)
        self.assertEqual(self.folders(), [])

    def test_reports_results_that_cannot_be_written(self):
        self.use_script(f'printf "\\055\\0001\\000" >"$2/{READY}"')
        outcome = self.run_command("isTessaronRunning")
        self.assertTrue(outcome.startswith(FAILED + "The answer of Tessaron could not"), outcome)

    def test_reports_missing_bridge(self):
        self.use_bridge(self.folder / "no" / "bridge")
        outcome = self.run_command("isTessaronRunning")
        self.assertTrue(outcome.startswith(f"{FAILED}The bridge is not at {self.bridge}."), outcome)
        self.assertEqual(self.folders(), [])

    def test_writes_trace_to_private_file(self):
        run = ("run", "getUserUuid", in_hex([""]))
        outcomes = self.basic(("trace", "requests"), run)
        self.assertEqual(outcomes[0], f"ok {self.trace}")
        self.assertIn("tessaron.http: GET /userUuid", self.trace.read_text())
        self.assertEqual(stat.S_IMODE(self.trace.stat().st_mode), 0o600)
        size = self.trace.stat().st_size
        self.basic(("trace", ""), run)
        self.assertEqual(self.trace.stat().st_size, size)

    def test_asks_before_it_traces_bodies(self):
        run = ("run", "undoManualFormat", in_hex(["a text of the document"]))
        rows = {"y": True, "n": False}
        for key, bodies in rows.items():
            with self.subTest(key):
                self.trace.unlink(missing_ok=True)
                answers = ("prepare", "answers", key)
                on, off = ("switch trace",), ("switch trace",)
                *_, first, _, second = self.basic(answers, on, run, off)
                said = from_hex(first.removeprefix("ok "))
                self.assertIn("do not send it to anyone who may not read them", said)
                self.assertIn(f"It is in {self.trace}.", said)
                self.assertIn("The trace is off.", from_hex(second.removeprefix("ok ")))
                self.assertIn("POST /citation/undoManualFormat", self.trace.read_text())
                self.assertEqual("a text of the document" in self.trace.read_text(), bodies)


class ScriptTest(OfficeCase):
    """TessaronBridge.sh without LibreOffice."""

    def call(self, *request, **environment):
        done = subprocess.run(
            ["/bin/sh", self.script, "\n".join(map(str, request))],
            env={**self.environment, **environment},
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=30,
        )  # fmt: skip
        self.assertEqual((done.returncode, done.stderr), (0, ""))
        return done.stdout.rstrip("\n")

    def run_folder(self, name="tessaron-1"):
        folder = self.word_temporary / name
        folder.mkdir(parents=True)
        return folder

    def start(self, lines="sleep 60 & wait", folder=None):
        self.use_script(lines)
        folder = folder or self.run_folder()
        process_id = int(self.call("start", "isTessaronRunning", folder, ""))
        self.addCleanup(self.call, "end", process_id, folder)
        deadline = time.monotonic() + 10
        while self.call("running", process_id, folder) != "true" and time.monotonic() < deadline:
            time.sleep(0.02)
        return process_id, folder

    def test_starts_bridge(self):
        folder = self.run_folder()
        process_id = self.call("start", "isTessaronRunning", folder, "")
        self.assertRegex(process_id, r"\A\d+\Z")
        deadline = time.monotonic() + 10
        while not (folder / READY).exists() and time.monotonic() < deadline:
            time.sleep(0.02)
        self.assertEqual((folder / READY).read_bytes(), utf16("10"))
        self.assertEqual((folder / RESULTS).read_bytes(), utf16("false"))

    def test_passes_folders_with_any_characters(self):
        folder = self.run_folder("tessaron-a b'c\"d$(touch x)`touch y`*\u00fc")
        self.use_script('printf "%s" "$2" >"$2/seen"')
        self.call("start", "isTessaronRunning", folder, "")
        time.sleep(0.5)
        self.assertEqual((folder / "seen").read_text(), str(folder))

    def test_refuses_bridge_that_cannot_run(self):
        folder = self.run_folder()
        self.use_bridge(self.folder / "nothing")
        answer = self.call("start", "isTessaronRunning", folder, "")
        self.assertEqual(
            answer,
            f"error: The bridge is not at {self.folder}/nothing. Install it, or correct its path in {self.script}.",
        )
        self.use_script("exit 0")
        self.bridge.chmod(0o644)
        self.assertEqual(
            self.call("start", "isTessaronRunning", folder, ""),
            f"error: The bridge at {self.bridge} is not executable.",
        )
        self.use_bridge(self.folder)
        self.assertIn("error: The bridge is not at", self.call("start", "isTessaronRunning", folder))

    def test_accepts_only_folders_in_temporary_folder_of_word(self):
        outside = self.folder / "tessaron-outside"
        outside.mkdir()
        (self.word_temporary / "tessaron-link").symlink_to(outside)
        (self.word_temporary / "other").mkdir()
        beside = self.folder / "word-tessaron"
        beside.mkdir()
        marker = self.folder / "started"
        self.use_script(f'touch "{marker}"')
        refused = {
            "": "not an absolute path",
            "tessaron-1": "not an absolute path",
            "-P": "not an absolute path",
            str(outside): "not in Word's temporary folder",
            str(beside): "not in Word's temporary folder",
            str(self.word_temporary): "not in Word's temporary folder",
            f"{self.word_temporary}/../tessaron-outside": "not in Word's temporary folder",
            f"{self.word_temporary}/tessaron-link": "not in Word's temporary folder",
            f"{self.word_temporary}/tessaron-nothing": "does not exist",
            f"{self.word_temporary}/other": 'does not begin with "tessaron-"',
        }
        for folder, reason in refused.items():
            with self.subTest(folder):
                answer = self.call("start", "isTessaronRunning", folder, "")
                self.assertTrue(answer.startswith("error: "), answer)
                self.assertIn(reason, answer)
        time.sleep(0.2)
        self.assertFalse(marker.exists())

    def test_accepts_only_words_as_commands(self):
        folder = self.run_folder()
        for command in ("", "two words", "-x", "a;b", "../a", "$(touch x)"):
            with self.subTest(command):
                answer = self.call("start", command, folder, "")
                self.assertEqual(answer, f'error: "{command}" is not a command of the bridge.')

    def test_knows_whether_bridge_runs(self):
        process_id, folder = self.start()
        other = self.run_folder("tessaron-2")
        self.assertEqual(self.call("running", process_id, folder), "true")
        self.assertEqual(self.call("running", process_id, other), "false")
        self.assertEqual(self.call("running", os.getpid(), folder), "false")
        for wrong in ("", "x", "-1", "1 2", f"{process_id} "):
            self.assertEqual(self.call("running", wrong, folder), "false", wrong)

    def test_ends_bridge_and_nothing_else(self):
        process_id, folder = self.start()
        other = subprocess.Popen(["sleep", "60"])
        self.addCleanup(other.wait)
        self.addCleanup(other.kill)
        self.call("end", other.pid, folder)
        self.assertIsNone(other.poll())
        self.call("end", process_id, folder)
        self.assertEqual(self.call("running", process_id, folder), "false")

    def test_removes_old_folders_without_bridge(self):
        process_id, used = self.start(folder=self.run_folder("tessaron-used"))
        old, new, foreign = (self.run_folder(n) for n in ("tessaron-old", "tessaron-new", "foreign"))
        (old / ARGUMENTS).write_bytes(b"x\0")
        (old / "bridge-process").write_text(f"{process_id}\n")
        kept_outside = self.folder / "outside"
        kept_outside.mkdir()
        (self.word_temporary / "tessaron-link").symlink_to(kept_outside)
        day = time.time() - 86400 - 120
        for path in (used, old, foreign, kept_outside):
            os.utime(path, (day, day))
        self.call("start", "isTessaronRunning", self.run_folder("tessaron-now"), "")
        left = sorted(path.name for path in self.word_temporary.iterdir())
        self.assertEqual(left, ["foreign", "tessaron-link", "tessaron-new", "tessaron-now", "tessaron-used"])
        self.assertTrue(kept_outside.exists())

    def test_reports_trace_that_cannot_be_written(self):
        self.trace.parent.write_text("a file in place of the folder")
        answer = self.call("start", "isTessaronRunning", self.run_folder(), "requests")
        self.assertEqual(answer, f"error: The trace cannot be written to {self.trace}.")

    def test_refuses_unknown_requests(self):
        for request in ("", "stop", "Start"):
            self.assertTrue(self.call(request).startswith("error: TessaronBridge.sh does not know"))


def types(name, module):
    """The types of a procedure's parameters and result, or None if the module does not have it."""
    signature = re.search(rf"^(?:Public )?(?:Sub|Function) {name}\b(.*)$", module, re.M)
    return signature and re.findall(r"As (\w+)", signature[1])


class PartsTest(Case):
    """The parts that only Word and macOS can run fit together, as far as their text shows."""

    def modules(self):
        return {path.stem: path.read_bytes().decode("ascii") for path in EXAMPLES.glob("*.bas")}

    def test_modules_can_be_imported(self):
        self.assertEqual(len(self.modules()), 5)
        for name, text in self.modules().items():
            with self.subTest(name):
                self.assertEqual(text.count("\n"), text.count("\r\n"))
                self.assertTrue(text.startswith(f'Attribute VB_Name = "{name}"\r\n'))
                self.assertIn("\r\nOption Explicit\r\n", text)
                private = "\r\nOption Private Module\r\n" in text
                self.assertEqual(private, name != "TessaronMacros")

    def test_public_names_have_prefix_and_are_unique(self):
        names = [name for text in self.modules().values() for name in re.findall(
            r"^Public (?:Const|Sub|Function|Declare\D*?) ?(\w+)", text, re.M)]  # fmt: skip
        self.assertGreater(len(names), 60)
        self.assertEqual([name for name in names if not name.startswith("Tessaron")], [])
        self.assertEqual(len({name.lower() for name in names}), len(names))

    def test_does_not_use_dir(self):
        # A call of Dir would end a listing of the caller in Word. In LibreOffice it would not.
        for name, text in self.modules().items():
            code = "".join(line.split("'")[0] for line in text.splitlines(keepends=True))
            self.assertNotRegex(code, r"\bDir\b", name)

    def test_every_procedure_says_whether_it_is_public(self):
        for name, text in self.modules().items():
            self.assertEqual(re.findall(r"^(?:Sub|Function) \w+", text, re.M), [], name)

    def test_word_has_every_procedure_that_logic_calls(self):
        modules = self.modules()
        defined = {
            name: set(re.findall(r"^Public (?:Const|Sub|Function) (\w+)", text, re.M))
            for name, text in modules.items()
        }
        here = Path(__file__).parent
        test_modules = "".join((here / f"Example{n}.bas").read_text() for n in ("Document", "Test"))
        called = {
            name
            for module in ("TessaronExchange", "TessaronText", "TessaronDocument")
            for line in modules[module].splitlines()
            for name in re.findall(r"\bTessaron[A-Z]\w+", line.split("'")[0].split('"')[0])
        }
        of_platform = called - set().union(
            *(defined[n] for n in ("TessaronExchange", "TessaronText", "TessaronDocument"))
        ) - {"TessaronExchange", "TessaronText", "TessaronDocument"}
        self.assertGreater(len(of_platform), 15)
        self.assertLessEqual(of_platform, defined["TessaronWord"])
        for name in of_platform:
            with self.subTest(name):
                self.assertEqual(types(name, modules["TessaronWord"]), types(name, test_modules))

    def test_procedures_named_in_readme_exist(self):
        table = (EXAMPLES / "README.md").read_text().split("## Where each step")[1].split("\n## ")[0]
        named = {n for row in table.splitlines() if "|" in row for n in re.findall(r"`(\w+)`", row)}
        defined = re.findall(r"^\w+ (?:Sub|Function) (\w+)", "".join(self.modules().values()), re.M)
        defined += re.findall(r"^(\w+)\(\)", (EXAMPLES / "TessaronBridge.sh").read_text(), re.M)
        self.assertGreater(len(named), 25)
        self.assertEqual(named - set(defined), set())

    def test_macros_call_what_logic_performs(self):
        modules = self.modules()
        called = re.findall(r'TessaronDo "(\w+)"', modules["TessaronMacros"])
        self.assertEqual(set(called), set(re.findall(r'Case "(\w+)": \1', modules["TessaronDocument"])))

    def test_word_calls_handler_that_script_has(self):
        script = (EXAMPLES / "TessaronBridge.applescript").read_text()
        (handler,) = re.findall(r"^on (\w+)\(", script, re.M)
        self.assertIn(f'ScriptHandler As String = "{handler}"', self.modules()["TessaronWord"])
        self.assertIn("com.microsoft.Word/TessaronBridge.sh", script)


if __name__ == "__main__":
    if not HAS_PROGRAMS:
        skip("LibreOffice (soffice) or ps is not installed.")
    unittest.main()
