"""Changes to one citation: edit by hand, undo, insert, edit, merge, and a rejected citation."""

import json
import unittest

import reader
from support import APA, IEEE, EndToEnd, make, replace_nth, rewrite

KUHN = "kuhn-1962"


class OneCitation(EndToEnd):
    def setUp(self):
        super().setUp()
        self.answers = self.path("answers")
        self.answers.touch()
        self.home.desktop("--answers", self.answers)
        make(self.path("samples"))
        self.source, self.document = self.path("samples/author-date.docx"), self.path("a.docx")
        self.ok("format", self.source, self.document, "--style", APA)

    def answer(self, **answer):
        with self.answers.open("a") as lines:
            print(json.dumps(answer), file=lines)

    def texts(self, path=None):
        return [field.text for field in reader.citations(path or self.document)]

    def codes(self):
        return [field.code for field in reader.citations(self.document)]

    def work(self, number):
        """The uuid in the library of the first work of a citation."""
        (item, *_) = reader.citations(self.document)[number - 1].cluster["citationItems"]
        return item["uris"][0].removeprefix("urn:uuid:")

    def edit_by_hand(self, number, text):
        """Replaces the text of a citation, as a user does in Word."""
        old = f">{self.texts()[number - 1]}</w:t>"
        rewrite(self.document, lambda xml: xml.replace(old, f">{text}</w:t>"))
        self.assertEqual(self.texts()[number - 1], text)

    def has_manual_edit(self, number):
        return self.ok("run", "hasManualEdit", self.codes()[number - 1])

    def test_keeps_shows_and_undoes_an_edited_text(self):
        before = self.texts()
        self.edit_by_hand(2, "(as Turing says, p. 231)")
        self.assertEqual(self.has_manual_edit(2), "1: false\n")
        self.ok("format", self.document, self.document, "--style", APA)
        self.assertEqual(self.texts()[1], "(as Turing says, p. 231)")
        self.assertEqual(self.has_manual_edit(2), "1: true\n")
        self.assertEqual(self.has_manual_edit(1), "1: false\n")
        self.ok("format", self.document, self.document, "--style", IEEE)
        others = "[1]", "see [3, pp. 379–423]"
        self.assertEqual(self.texts()[:3], [others[0], "(as Turing says, p. 231)", others[1]])
        self.ok("undo", self.document, self.document, "2", "--style", APA)
        self.assertEqual(self.texts(), before)
        self.assertEqual(self.has_manual_edit(2), "1: false\n")

    def test_marks_edited_texts_in_the_list(self):
        self.edit_by_hand(1, "Turing")
        lines = self.ok("list", self.document).splitlines()
        self.assertEqual(lines[0], '1: "Turing" in the body (edited by hand)')
        self.assertEqual(lines[1], '2: "(Turing, 1937, p. 231)" in the body')

    def test_replaces_an_edit_that_the_user_discards(self):
        before = self.texts()
        self.answer(dialog="updateCitation", keep=False)
        self.edit_by_hand(2, "(as Turing says)")
        self.ok("format", self.document, self.document, "--style", APA)
        self.assertEqual(self.texts(), before)

    def test_refuses_undo_without_an_edit(self):
        before = self.document.read_bytes()
        message = self.failure("undo", self.document, self.document, "3")
        self.assertIn("Citation 3 has no hand-edited text", message)
        self.assertEqual(self.document.read_bytes(), before)

    def test_formats_codes_with_additional_spaces(self):
        before = self.texts()
        rewrite(
            self.document,
            lambda xml: xml.replace("ADDIN CSL_CITATION ", "ADDIN  CSL_CITATION   ").replace(
                "ADDIN CSL_BIBLIOGRAPHY", "ADDIN  CSL_BIBLIOGRAPHY"
            ),
        )
        self.ok("format", self.document, self.document, "--style", IEEE)
        self.assertEqual(self.texts()[0], "[1]")
        self.ok("format", self.document, self.document, "--style", APA)
        self.assertEqual(self.texts(), before)

    def test_inserts_from_the_dialog_at_the_end(self):
        self.answer(dialog="chooseCitation", items=[{"uuid": KUHN, "locator": "10"}])
        self.ok("insert", self.document, self.document, "--style", APA)
        self.assertEqual(self.texts()[12:], ["(Kuhn, 1962, p. 10)"])
        self.assertEqual(reader.paragraphs(self.document)[-1], "(Kuhn, 1962, p. 10)")
        entries = ["".join(x for x, _ in entry) for entry in reader.bibliography(self.document)]
        self.assertTrue(any(entry.startswith("Kuhn, T. S. (1962).") for entry in entries), entries)

    def test_inserts_a_work_at_a_bookmark(self):
        mark = '<w:bookmarkStart w:id="7" w:name="Here"/><w:bookmarkEnd w:id="7"/>'
        first = '<w:r><w:t xml:space="preserve">The question'
        rewrite(self.document, lambda xml: xml.replace(first, mark + first))
        self.ok(
            "insert", self.document, self.document, "--uuid", self.work(4), "--bookmark", "Here"
        )
        self.assertEqual(self.texts()[0], "{Citation}")
        self.ok("format", self.document, self.document, "--style", APA)
        self.assertEqual(self.texts()[0], self.texts()[4])

    def test_refuses_a_missing_bookmark(self):
        target = self.path("b.docx")
        message = self.failure(
            "insert", self.document, target, "--uuid", self.work(4), "--bookmark", "X"
        )
        self.assertIn('no bookmark "X"', message)
        self.assertFalse(target.exists())

    def test_inserts_nothing_without_a_choice(self):
        for arguments in ((), ("--uuid", "no such work")):
            with self.subTest(arguments):
                self.failure("insert", self.document, self.path("b.docx"), *arguments)
                self.assertFalse(self.path("b.docx").exists())

    def test_edits_in_the_dialog(self):
        before = self.texts()
        self.answer(dialog="editCitation", items=[{"uuid": KUHN}])
        self.ok("edit", self.document, self.document, "1", "--style", APA)
        self.assertEqual(self.texts(), ["(Kuhn, 1962)", *before[1:]])

    def test_changes_nothing_if_an_edit_is_cancelled(self):
        before = self.document.read_bytes()
        self.answer(dialog="editCitation", cancel=True)
        self.assertIn("was not changed", self.ok("edit", self.document, self.document, "1"))
        self.assertEqual(self.document.read_bytes(), before)

    def test_merges_adjacent_citations(self):
        source = self.path("samples/structures.docx")
        done = self.home.macro("format", source, self.document, "--style", APA)
        self.assertEqual(done.returncode, 0)
        self.assertEqual(self.texts()[12:14], ["(Knuth, 1984)", "(Graham, 2009)"])
        done = self.home.macro("merge", self.document, self.document, 13, 14, "--style", APA)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(self.texts()[12], "(Graham, 2009; Knuth, 1984)")
        self.assertEqual(len(self.texts()), 14)
        self.assertIn("Side by side (Graham, 2009; Knuth, 1984).", reader.paragraphs(self.document))

    def test_does_not_merge_citations_with_words_between(self):
        before = self.document.read_bytes()
        message = self.failure("merge", self.document, self.document, 1, 2)
        self.assertIn("Citations 1 and 2 are not adjacent", message)
        self.assertEqual(self.document.read_bytes(), before)

    def test_refuses_numbers_without_a_citation(self):
        wrong = ("edit", 0), ("edit", 13), ("undo", 99), ("merge", 12, 13), ("merge", 2, 2)
        for arguments in wrong:
            with self.subTest(arguments):
                action, *numbers = arguments
                self.failure(action, self.document, self.path("b.docx"), *numbers)
                self.assertFalse(self.path("b.docx").exists())

    def test_adds_a_bibliography_to_a_document_without_one(self):
        for name in ("author-date", "notes"):
            with self.subTest(name):
                source, target = self.path(f"samples/{name}.docx"), self.path(f"{name}.docx")
                self.ok("format", source, self.document, "--style", APA)
                rewrite(source, lambda xml: xml.replace("ADDIN CSL_BIBLIOGRAPHY", "ADDIN OTHER"))
                self.ok("format", source, target, "--style", APA)
                entries = reader.bibliography(target)
                self.assertGreater(len(entries), 3)
                self.assertEqual(entries, reader.bibliography(self.document))
                last = "".join(letter for letter, _ in entries[-1])
                self.assertEqual(reader.paragraphs(target, "")[-1], last)
                before = target.read_bytes()
                self.ok("format", target, target, "--style", APA)
                self.assertEqual(target.read_bytes(), before)

    def test_names_a_rejected_citation_and_changes_nothing(self):
        path = self.path("bad.docx")
        self.source.rename(path)
        rewrite(path, lambda xml: replace_nth(xml, '"citationItems"', 5, '"citationStuff"'))
        before = path.read_bytes()
        for target in (path, self.document):
            kept = target.read_bytes()
            message = self.failure("format", path, target, "--style", APA)
            self.assertIn('rejected citation 5 of 12 ("{Citation}" in the body)', message)
            self.assertEqual(target.read_bytes(), kept)
        self.assertEqual(path.read_bytes(), before)


if __name__ == "__main__":
    unittest.main()
