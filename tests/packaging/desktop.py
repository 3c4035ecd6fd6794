"""Helpers for the tests of the example: the stand-in for the application, documents and scenarios."""

import json
import shutil
import subprocess
import unittest
import urllib.request
from pathlib import Path

from office import HAS_PROGRAMS, OfficeCase, from_hex
from support import SOURCE, skip, utf16

NODE = shutil.which("node")
TESTBED = SOURCE / "testbed"
DESKTOP = TESTBED / "desktop"
STYLE_URL = "http://www.zotero.org/styles/"
APA, IEEE = STYLE_URL + "apa", STYLE_URL + "ieee"
PREFIX = "ADDIN CSL_CITATION "
BATCH = "/formattedCitationsAndBibliography/interactive"
WORKS = [entry["itemData"]["id"] for entry in json.loads((DESKTOP / "library.json").read_text())]
PIECE, PART, RUN, MARKS = "\ue000\ue001\ue002\ue003"


def main():
    if not HAS_PROGRAMS or NODE is None or not (TESTBED / "node_modules").exists():
        skip("LibreOffice (soffice), ps, Node or testbed/node_modules is missing.")
    unittest.main()


def text(content, story=0):
    return (story, "text", "", [(0, content)])


def field(code, shown, story=0, kind="field"):
    """`shown` is a text or a list of runs. A run is a pair of its marks and a text."""
    return (story, kind, code, [(0, shown)] if isinstance(shown, str) else shown)


def anchor(story):
    return (0, "anchor", str(story), [(0, "")])


def plain(piece):
    return "".join(run for _, run in piece[3])


def fields(document):
    return [piece for piece in document[1:] if piece[1] == "field"]


def texts(document):
    return [plain(piece) for piece in fields(document)]


def cluster(code):
    return json.loads(code.removeprefix(PREFIX))


def code_of(content):
    return PREFIX + json.dumps(content, sort_keys=True, ensure_ascii=False, separators=(",", ":"))


def written(document):
    style, *pieces = document
    parts = [style]
    for story, kind, code, runs in pieces:
        shown = RUN.join(f"{marks}{MARKS}{content}" for marks, content in runs)
        parts.append(PART.join([str(story), kind, code, shown]))
    return utf16(PIECE.join(parts))


def read(path):
    style, *parts = path.read_bytes().decode("utf-16-le", "surrogatepass").split(PIECE)
    pieces = []
    for part in parts:
        story, kind, code, shown = part.split(PART)
        runs = [tuple(run.split(MARKS)) for run in shown.split(RUN) if run]
        pieces.append((int(story), kind, code, [(int(marks), content) for marks, content in runs]))
    return [style, *pieces]


class Desktop:
    def __init__(self, folder, *options):
        self.answers, self.faults, self.log = (
            folder / name for name in ("answers", "faults", "requests")
        )
        self.answers.write_text("")
        self.faults.write_text("{}")
        self.log.write_text("")
        self.process = subprocess.Popen(
            [NODE, DESKTOP / "main.js", "--port", "0", "--answers", self.answers,
             "--faults", self.faults, "--log", self.log, *options],
            stdout=subprocess.PIPE, text=True,
        )  # fmt: skip
        self.port = int(self.process.stdout.readline().rsplit(":", 1)[1])

    def stop(self):
        self.process.terminate()
        self.process.wait(10)
        self.process.stdout.close()

    def ask(self, path, **body):
        request = urllib.request.Request(
            f"http://127.0.0.1:{self.port}{path}",
            json.dumps(body).encode(), {"Content-Type": "application/json"},
        )  # fmt: skip
        with urllib.request.urlopen(request) as reply:
            return json.load(reply)

    def new_code(self, work):
        found = next(e for e in json.loads((DESKTOP / "library.json").read_text())
                     if e["itemData"]["id"] == work)  # fmt: skip
        path = "/testMethods/citationCluster/getFromUuid"
        return code_of(self.ask(path, documentUuid=found["uuid"])["citationCluster"])

    def format(self, codes, style=APA):
        """Returns pairs of code and text as after a refresh, and the bibliography."""
        entries = [{"fieldCode": code, "formattedText": ""} for code in codes]
        reply = self.ask(BATCH, citationStyleUrl=style, citationClusters=entries, tempDirectory="")
        return (
            [(code_of(entry["citationCluster"]), entry["formattedText"])
             for entry in reply["citationClusters"]],
            reply["bibliography"],
        )  # fmt: skip

    def requests(self):
        return [json.loads(line) for line in self.log.read_text().splitlines()]


class Scenario:
    """A document, a macro that runs on it, and what the user and the application do meanwhile."""

    def __init__(self, document, macro, select=None, answers="", dialogs=(), faults=None, **prepare):
        self.document, self.macro = document, macro
        self.select, self.answers, self.dialogs = select, answers, dialogs
        self.faults, self.prepare = faults or {}, prepare

    def steps(self, folder, number, desktop):
        before, after = folder / f"document-{number}", folder / f"document-{number}-after"
        before.write_bytes(written(self.document))
        yield "load", before
        if self.select:
            first, last = self.select[0], self.select[-1]
            yield "select", *first, *last
        yield "prepare", "answers", self.answers
        for what, value in self.prepare.items():
            yield "prepare", what.replace("_", " "), value
        for dialog in self.dialogs:
            yield "append", desktop.answers, json.dumps(dialog)
        yield "put", desktop.faults, json.dumps(self.faults)
        yield "do", self.macro
        yield "save", after


class Outcome:
    def __init__(self, scenario, messages, document):
        lines = messages.split("\n") if messages else []
        kinds = ("say ", "note ", "ask ", "write ", "one undo step")
        self.messages = []
        for line in lines:
            if line.startswith(kinds):
                self.messages.append(line)
            else:  # a message of several lines
                self.messages[-1] += "\n" + line
        self.before, self.document = scenario.document, document

    def of(self, kind):
        prefix = kind + " "
        return [m.removeprefix(prefix) for m in self.messages if m.startswith(prefix)]


class DesktopCase(OfficeCase):
    """A test case with a running stand-in for the application, which the bridge finds."""

    maxDiff = 3000

    def setUp(self):
        super().setUp()
        self.desktop = Desktop(self.folder)
        self.addCleanup(self.desktop.stop)
        self.use_port(self.desktop.port)

    def use_port(self, port):
        settings = Path(self.environment["XDG_CONFIG_HOME"]) / "tessaron.com/Tessaron Desktop.conf"
        settings.write_text(f"[%General]\nhttpServerPort={port}\n")

    def run_scenarios(self, *scenarios):
        steps, sizes = [], []
        for number, scenario in enumerate(scenarios):
            new = list(scenario.steps(self.folder, number, self.desktop))
            steps += new
            sizes.append(len(new))
        outcomes = iter(self.basic(*steps))
        results = []
        for number, scenario in enumerate(scenarios):
            lines = [next(outcomes) for _ in range(sizes[number])]
            for line in lines:
                self.assertTrue(line.startswith("ok"), lines)
            messages = from_hex(lines[-2].removeprefix("ok "))
            path = self.folder / f"document-{number}-after"
            results.append(Outcome(scenario, messages, read(path)))
        return results

    def run_one(self, *arguments, **keywords):
        return self.run_scenarios(Scenario(*arguments, **keywords))[0]

    def assert_unchanged(self, outcome, sentence, kind="say"):
        self.assertEqual(outcome.document, outcome.before)
        self.assertEqual(outcome.of("write"), [])
        self.assertIn(sentence, "\n".join(outcome.of(kind)))


UPDATE, EDIT, CHOOSE, STYLE, MERGE, UNDO = (
    "/citation/update/interactive", "/citation/edit/interactive", "/citation/choose/interactive",
    "/citationStyle/choose/interactive", "/citations/merge", "/citation/undoManualFormat",
)  # fmt: skip
CHOOSE_KUHN = {"dialog": "chooseCitation", "items": [{"uuid": "kuhn-1962"}]}
EDIT_TO_DARWIN = {"dialog": "editCitation", "items": [{"uuid": "darwin-1859"}]}
KUHN, CARSON, DARWIN = "(Kuhn, 1962)", "(Carson, 1962)", "(Darwin, 1859)"
UNCHANGED = "Nothing was changed."
FAILURES = {
    "status 500": {"status": 500},
    "status 404": {"status": 404},
    "connection closed": {"drop": "beforeStatus"},
    "connection closed after the headers": {"drop": "afterHeaders"},
    "reply cut off": {"drop": "inBody"},
    "reply without JSON": {"body": "no JSON"},
}
# Replies with the status of a success, but without a usable value.
UNUSABLE = ("connection closed after the headers", "reply cut off", "reply without JSON")


class ExampleCase(DesktopCase):
    def setUp(self):
        super().setUp()
        codes = [self.desktop.new_code(work) for work in ("kuhn-1962", "carson-1962")]
        (self.kuhn, self.carson), self.entries = self.desktop.format(codes)

    def document(self, *shown):
        """A refreshed document: "See (Kuhn, 1962), then (Carson, 1962)." """
        kuhn, carson = shown or (self.kuhn[1], self.carson[1])
        return [APA, text("See "), field(self.kuhn[0], kuhn), text(", then "),
                field(self.carson[0], carson), text(".\r")]  # fmt: skip

    def recorded(self, content, manual):
        """Kuhn's code with the record of an edit by hand, as a refresh leaves it."""
        changed = cluster(self.kuhn[0])
        changed["tessaron"] = {"manualFormatting": manual, "previouslyFormattedCitation": manual,
                               "plainTextFormattedCitation": content}  # fmt: skip
        return code_of(changed)

    def sent_batch(self):
        return json.loads([r for r in self.desktop.requests() if r["path"] == BATCH][-1]["body"])
