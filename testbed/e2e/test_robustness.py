"""Output that cannot be written, signals, abandoned folders, and places for an insertion."""

import os
import re
import signal
import subprocess
import time
import unittest

import reader
from support import APA, MACRO, EndToEnd, is_running, make, rewrite

MARK = '<w:bookmarkStart w:id="7" w:name="Here"/><w:bookmarkEnd w:id="7"/>'
SLEEPING = """#!/bin/sh
echo $$ > "{}"
exec sleep 600
"""


class Output(EndToEnd):
    def setUp(self):
        super().setUp()
        make(self.path("samples"))
        self.source, self.target = self.path("samples/author-date.docx"), self.path("a.docx")

    def run_with(self, redirection, *arguments):
        """Runs the macro with its output redirected by the shell; returns the exit status."""
        command = ["bash", "-c", f'"$0" "$@" {redirection}', MACRO, *map(str, arguments)]
        done = subprocess.run(command, env=self.home.environment, stderr=subprocess.PIPE, text=True)
        self.assertNotIn("Traceback", done.stderr)
        self.assertNotIn("Exception", done.stderr)
        return done.returncode

    def test_the_exit_status_depends_only_on_the_document(self):
        self.home.desktop()
        for redirection in (">&-", ">/dev/full", ">&- 2>&-", "| exec true; exit ${PIPESTATUS[0]}"):
            with self.subTest(redirection):
                self.target.unlink(missing_ok=True)
                arguments = ("format", self.source, self.target, "--style", APA)
                self.assertEqual(self.run_with(redirection, *arguments), 0)
                self.assertEqual(reader.citations(self.target)[0].text, "(Turing, 1950)")
                failing = ("format", self.source, self.target, "--style", "none")
                self.assertEqual(self.run_with(redirection, *failing), 1)

    def test_fails_if_the_list_or_the_help_cannot_be_printed(self):
        for redirection in (">&-", ">/dev/full", ">&- 2>&-"):
            with self.subTest(redirection):
                self.assertEqual(self.run_with(redirection, "list", self.source), 1)
        self.assertEqual(self.run_with(">/dev/full", "--help"), 1)
        self.assertEqual(self.run_with("2>/dev/full", "--wrong"), 1)

    def test_lists_a_document_without_citations(self):
        rewrite(self.source, lambda xml: xml.replace("CSL_CITATION", "OTHER"))
        message = f"{self.source} holds no citations that can be changed.\n"
        self.assertEqual(self.ok("list", self.source), message)

    def test_the_trace_is_passed_on_and_not_quoted_as_the_reason(self):
        self.home.desktop()
        rules = "tessaron.http.debug=true;tessaron.http.body.debug=true"
        self.home.environment["QT_LOGGING_RULES"] = rules
        before = self.source.read_bytes()
        done = self.home.macro("format", self.source, self.source, "--style", "none")
        *trace, reason = done.stderr.splitlines()
        self.assertEqual(done.returncode, 1)
        self.assertTrue(any("(Turing 1950)" in line for line in trace), "the bodies are passed on")
        self.assertRegex(reason, r"\Amacro: Tessaron Desktop did not format the document: it refused "
                         r"the style none, or failed\. Nothing was written\.\Z")  # fmt: skip
        self.assertEqual(self.source.read_bytes(), before)


class Places(EndToEnd):
    def setUp(self):
        super().setUp()
        self.home.desktop()
        make(self.path("samples"))
        self.document = self.path("samples/structures.docx")

    def insert(self):
        uuid = "5fca65e8-28ab-4e73-a63a-0c167c9057c5"
        arguments = ("--uuid", uuid, "--bookmark", "Here")
        return self.home.macro("insert", self.document, self.document, *arguments)

    def put(self, before, mark=MARK, count=1):
        rewrite(self.document, lambda xml: re.sub(before, lambda m: mark + m.group(), xml, count))

    def test_a_bookmark_inside_a_field_is_refused(self):
        original = self.document.read_bytes()
        text = r'<w:r><w:t xml:space="preserve">\{(?:Citation|Bibliography)\}'
        places = {
            "before the text of a citation": text,
            "between code and text": r"<w:r><w:fldChar w:fldCharType=\"separate\"",
            "before the text of the bibliography": text + "(?!.*Bibliog)",
        }
        for name, place in places.items():
            with self.subTest(name):
                self.document.write_bytes(original)
                self.put(place)
                before = self.document.read_bytes()
                done = self.insert()
                self.assertEqual((done.returncode, done.stdout), (1, ""))
                self.assertIn('The bookmark "Here" ends inside a field', done.stderr)
                self.assertEqual(self.document.read_bytes(), before)

    def test_a_bookmark_beside_a_citation_is_accepted(self):
        self.put(r"<w:r><w:fldChar w:fldCharType=\"begin\"")
        self.assertEqual(self.insert().returncode, 0)
        self.assertEqual(len(reader.all_citations(self.document)), 17)

    def test_a_bookmark_in_a_text_box_inserts_into_both_copies(self):
        self.put(r'<w:r><w:t xml:space="preserve">In the box ', count=0)
        self.assertEqual(self.insert().returncode, 0)
        done = self.home.macro("format", self.document, self.document, "--style", APA)
        self.assertEqual((done.returncode, done.stderr.count("Warning")), (0, 1), done.stderr)
        root = reader.trees(self.document)[""]
        boxes = ["".join(b.itertext(reader.W + "t")) for b in root.iter(reader.W + "txbxContent")]
        self.assertEqual(boxes, ["(Kuhn, 1962)In the box (Carson, 1962)."] * 2)

    def test_both_copies_of_a_text_box_get_the_bibliography(self):
        place = "ADDIN CSL_BIBLIOGRAPHY"
        rewrite(self.document, lambda xml: xml.replace(place, "ADDIN OTHER"))
        code = re.compile(r"ADDIN CSL_CITATION [^<]*carson-1962[^<]*(?:</w:instrText></w:r><w:r>"
                          r'<w:instrText xml:space="preserve">[^<]*)?')  # fmt: skip
        rewrite(self.document, lambda xml: code.sub(place, xml))
        done = self.home.macro("format", self.document, self.document, "--style", APA)
        self.assertEqual(done.returncode, 0, done.stderr)
        root = reader.trees(self.document)[""]
        boxes = ["".join(b.itertext(reader.W + "t")) for b in root.iter(reader.W + "txbxContent")]
        self.assertEqual(len(boxes), 2)
        self.assertEqual(boxes[0], boxes[1])
        self.assertIn("Berners-Lee", boxes[0])


class Signals(EndToEnd):
    def setUp(self):
        super().setUp()
        self.temporary = self.path("tmp")
        self.temporary.mkdir()
        self.home.environment["TMPDIR"] = str(self.temporary)
        self.pid_file, bridge = self.path("pid"), self.path("bridge")
        bridge.write_text(SLEEPING.format(self.pid_file))
        bridge.chmod(0o755)
        self.home.environment["BRIDGE"] = str(bridge)

    def start(self):
        """Starts a command that waits; returns its process and the bridge's process id."""
        process = subprocess.Popen(
            [MACRO, "run", "mergeFields", "a secret"],
            env=self.home.environment, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
            # If the tests run as a background job, SIGINT is ignored, and child processes inherit that.
            preexec_fn=lambda: signal.signal(signal.SIGINT, signal.SIG_DFL),
        )  # fmt: skip
        deadline = time.monotonic() + 60
        while not (self.pid_file.exists() and self.pid_file.read_text().strip()):
            self.assertLess(time.monotonic(), deadline, "the bridge did not start")
            time.sleep(0.02)
        return process, int(self.pid_file.read_text())

    def test_a_signal_leaves_neither_the_folder_nor_the_bridge(self):
        for name in (signal.SIGTERM, signal.SIGHUP, signal.SIGINT):
            with self.subTest(name.name):
                self.pid_file.unlink(missing_ok=True)
                process, bridge = self.start()
                self.assertEqual(len(list(self.temporary.iterdir())), 1)
                process.send_signal(name)
                _, message = process.communicate(timeout=60)
                self.assertEqual((process.returncode, message), (128 + name, "macro: Interrupted.\n"))
                self.assertEqual(list(self.temporary.iterdir()), [])
                self.assertFalse(is_running(bridge))

    def test_the_next_run_removes_the_folder_of_a_killed_run(self):
        process, bridge = self.start()
        process.kill()
        process.communicate(timeout=60)
        (left,) = self.temporary.iterdir()
        recent, foreign = self.temporary / "wordmacro-recent", self.temporary / "other"
        recent.mkdir()
        foreign.mkdir()
        for folder in (left, foreign):
            os.utime(folder, (time.time() - 25 * 3600,) * 2)
        self.run_again()
        self.assertTrue(left.exists(), "the bridge is still running and uses it")
        os.kill(bridge, signal.SIGKILL)
        while is_running(bridge):
            time.sleep(0.02)
        self.run_again()
        self.assertEqual(sorted(self.temporary.iterdir()), [foreign, recent])

    def run_again(self):
        self.home.environment["BRIDGE"] = "/bin/false"
        self.assertIn("ended with status 1", self.failure("run", "lastError"))


if __name__ == "__main__":
    unittest.main()
