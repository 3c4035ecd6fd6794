"""A text that the user edited by hand is replaced only if the user allows it."""

import json
import unittest

import reader
from support import APA, IEEE, EndToEnd, make, rewrite

UPDATE = "/citation/update/interactive"
BATCH = "/formattedCitationsAndBibliography/interactive"
FAILED = {
    "status 500": {"status": 500},
    "status 404": {"status": 404},
    "a status other than 200": {"status": 201},
    "a connection closed at once": {"drop": "beforeStatus"},
}
WITHOUT_CITATION = {
    "a connection closed after the headers": {"drop": "afterHeaders"},
    "a connection closed in the body": {"drop": "inBody"},
    "no JSON": {"body": "<html>"},
    "no cluster": {"body": "{}"},
    "an empty cluster": {"body": '{"citationCluster":{}}'},
    "a cluster without works": {"body": '{"citationCluster":{"citationItems":[]}}'},
}
EDIT = "(my own words)"


class EditedText(EndToEnd):
    def setUp(self):
        super().setUp()
        self.answers, self.faults = self.path("answers"), self.path("faults.json")
        self.answers.touch()
        self.faults.write_text("{}")
        self.desktop = self.home.desktop("--answers", self.answers, "--faults", self.faults)
        make(self.path("samples"))
        self.document = self.path("a.docx")
        self.ok("format", self.path("samples/author-date.docx"), self.document, "--style", APA)
        self.styled = self.texts()
        old = f">{self.styled[1]}</w:t>"
        rewrite(self.document, lambda xml: xml.replace(old, f">{EDIT}</w:t>"))
        self.before = self.document.read_bytes()

    def texts(self):
        return [field.text for field in reader.citations(self.document)]

    def answer(self, **answer):
        with self.answers.open("a") as lines:
            print(json.dumps({"dialog": "updateCitation", **answer}), file=lines)

    def fails(self, *fragments, action=("format",), style=APA):
        name, *rest = action
        message = self.failure(name, self.document, self.document, *rest, "--style", style)
        for fragment in fragments:
            self.assertIn(fragment, message)
        self.assertEqual(self.document.read_bytes(), self.before)

    def test_a_failed_check_leaves_the_document_unchanged(self):
        for name, fault in {**FAILED, **WITHOUT_CITATION}.items():
            with self.subTest(name):
                self.faults.write_text(json.dumps({UPDATE: fault}))
                reason = "was not recorded" if name in FAILED else "holds no citation"
                self.fails(reason, f'citation 2 of 12 ("{EDIT}" in the body)', "Nothing was written")

    def test_a_cancelled_dialog_leaves_the_document_unchanged(self):
        self.answer(cancel=True)
        self.fails("its dialog was cancelled", "--discard-edits")

    def test_a_reply_without_the_edit_leaves_the_document_unchanged(self):
        (_, field, *_) = reader.citations(self.document)
        cluster = field.cluster
        other_works = {**cluster, "citationItems": [{"id": 1}], "tessaron": {}}
        cluster["tessaron"]["previouslyFormattedCitation"] = EDIT
        for name, found in {"other works": other_works, "no manual text": cluster}.items():
            with self.subTest(name):
                body = json.dumps({"citationCluster": found})
                self.faults.write_text(json.dumps({UPDATE: {"body": body}}))
                self.fails("was not recorded")

    def test_a_second_edit_that_is_not_recorded_leaves_the_document_unchanged(self):
        self.ok("format", self.document, self.document, "--style", APA)
        rewrite(self.document, lambda xml: xml.replace(f">{EDIT}<", ">(other words)<"))
        self.before = self.document.read_bytes()
        self.answer(cancel=True)
        self.fails("was not recorded", '"(other words)"')

    def test_reports_an_application_that_has_ended(self):
        self.desktop.terminate()
        self.desktop.wait(10)
        self.fails("Tessaron Desktop does not reply")

    def test_a_discarded_edit_is_replaced_by_the_text_of_the_style(self):
        self.answer(keep=False)
        self.ok("format", self.document, self.document, "--style", APA)
        self.assertEqual(self.texts(), self.styled)

    def test_an_edit_that_is_kept_stays_in_every_style(self):
        self.answer(keep=True)
        for style in (APA, IEEE, APA):
            self.ok("format", self.document, self.document, "--style", style)
            self.assertEqual(self.texts()[1], EDIT)

    def test_discarding_edits_asks_nothing(self):
        self.faults.write_text(json.dumps({UPDATE: {"status": 500}}))
        self.ok("format", self.document, self.document, "--style", APA, "--discard-edits")
        self.assertEqual(self.texts(), self.styled)

    def test_a_batch_that_drops_a_recorded_edit_leaves_the_document_unchanged(self):
        self.ok("format", self.document, self.document, "--style", APA)
        self.before = self.document.read_bytes()
        clusters = [{"citationCluster": f.cluster, "formattedText": "(other)"}
                    for f in reader.citations(self.document)]  # fmt: skip
        body = {"citationStyleUrl": APA, "bibliography": "b", "citationClusters": clusters}
        self.faults.write_text(json.dumps({BATCH: {"body": json.dumps(body)}}))
        self.fails("would replace the hand-edited text of citation 2 of 12")
        self.ok("format", self.document, self.document, "--style", APA, "--discard-edits")
        self.assertEqual(set(self.texts()), {"(other)"})

    def test_other_actions_do_not_replace_an_edit(self):
        self.fails("would replace the hand-edited text", action=("edit", "2"))
        source = self.path("samples/structures.docx")
        self.ok_with_warnings("format", source, self.document, "--style", APA)
        old = ">(Graham, 2009)</w:t>"
        rewrite(self.document, lambda xml: xml.replace(old, f">{EDIT}</w:t>"))
        merge = ("merge", self.document, self.document, "13", "14")
        before = self.document.read_bytes()
        done = self.home.macro(*merge)
        self.assertEqual(done.returncode, 1)
        self.assertIn("Merging would replace the hand-edited text of citation 14", done.stderr)
        self.assertEqual(self.document.read_bytes(), before)
        self.ok_with_warnings(*merge, "--discard-edits")
        self.assertNotIn(EDIT, self.texts())

    def ok_with_warnings(self, *arguments):
        done = self.home.macro(*arguments)
        self.assertEqual(done.returncode, 0, done.stderr)


if __name__ == "__main__":
    unittest.main()
