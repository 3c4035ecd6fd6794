"""A citation that cannot be written is still sent; one that cannot be read stops the run."""

import re
import unittest

import processor
import reader
from support import APA, IEEE, EndToEnd, make, replace_nth, rewrite

SKIPPED = "cannot be read and is skipped: numeric styles number the citations without it"


class UnwritableCitations(EndToEnd):
    def setUp(self):
        super().setUp()
        self.home.desktop()
        make(self.path("samples"))
        self.source, self.target = self.path("samples/structures.docx"), self.path("a.docx")

    def format(self, *options, source=None, style=IEEE):
        source = source or self.source
        return self.home.macro("format", source, self.target, "--style", style, *options)

    def check_texts(self, sent):
        """Checks that the target has the CSL processor's texts for the citations that were sent. Returns
        the texts of the bibliography's entries."""
        texts, entries = processor.ask("ieee", [field.cluster for field in sent])
        written = [t for f, t in zip(sent, texts) if not f.inner and f.outer is None]
        compared = processor.comparable
        found = [compared(field.letters) for field in reader.citations(self.target)]
        self.assertEqual(found, [compared(text) for text in written])
        entries_found = [compared(entry) for entry in reader.bibliography(self.target)]
        self.assertEqual(entries_found, [compared(entry) for entry in entries])
        return [text for text, _ in entries_found]

    def test_a_citation_that_is_not_written_is_still_sent(self):
        done = self.format()
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stderr, r"\AWarning: The citation .* is left unchanged: it contains "
                         r"another field. Its text may be out of date.\n\Z")  # fmt: skip
        entries = self.check_texts(reader.all_citations(self.source))
        self.assertEqual(sum("Logic and Conversation" in entry for entry in entries), 1)

    def test_a_citation_that_cannot_be_read_stops_the_run(self):
        rewrite(self.source, lambda xml: re.sub(r'"citationID": "unwritable-', "{", xml))
        done = self.format()
        self.assertEqual((done.returncode, done.stdout), (1, ""))
        self.assertIn("cannot be read, because it contains another field. Nothing was written. With "
                      "--skip-unreadable the others are formatted without it: numeric styles number "
                      "the citations without it, and a work that is cited nowhere else is missing "
                      "from the bibliography.", done.stderr)  # fmt: skip
        self.assertFalse(self.target.exists())
        done = self.format("--skip-unreadable")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertIn(SKIPPED, done.stderr)
        entries = self.check_texts(reader.citations(self.source))
        self.assertFalse(any("Logic and Conversation" in entry for entry in entries))

    def test_rejected_citations_can_be_skipped(self):
        source = self.path("samples/numeric.docx")
        citations = reader.all_citations(source)
        key = '"citationItems"'
        rewrite(source, lambda xml: replace_nth(xml, key, 5, '"citationStuff"'))
        rewrite(source, lambda xml: replace_nth(xml, key, 2, '"citationStuff"'))
        done = self.format(source=source)
        self.assertIn("rejected citation 2 of 10", done.stderr)
        self.assertFalse(self.target.exists())
        done = self.format("--skip-unreadable", source=source)
        self.assertEqual((done.returncode, done.stderr.count(SKIPPED)), (0, 2), done.stderr)
        texts = [field.text for field in reader.citations(self.target)]
        self.assertEqual([texts[1], texts[4]], ["[2]", "[5]"], "skipped citations keep their text")
        kept = [field for number, field in enumerate(citations) if number not in (1, 4)]
        expected, _ = processor.ask("ieee", [field.cluster for field in kept])
        found = [t for number, t in enumerate(texts) if number not in (1, 4)]
        self.assertEqual(found, [processor.comparable(text)[0] for text in expected])

    def test_writes_a_citation_with_a_comment_inside(self):
        source = self.path("samples/author-date.docx")
        text = '<w:r><w:t xml:space="preserve">(Turing 1937)</w:t></w:r>'
        comment = (
            f'<w:commentRangeStart w:id="1"/>{text}<w:commentRangeEnd w:id="1"/>'
            '<w:r><w:commentReference w:id="1"/></w:r>'
        )
        rewrite(source, lambda xml: xml.replace(text, comment))
        self.ok("format", source, self.target, "--style", APA)
        self.assertEqual(reader.citations(self.target)[1].text, "(Turing, 1937, p. 231)")
        main = reader.parts(self.target)["word/document.xml"].decode()
        around = r'commentRangeStart w:id="1"/>.*\(Turing, 1937, p. 231\).*<w:commentRangeEnd'
        self.assertRegex(main, around)
        self.assertIn('<w:commentReference w:id="1"/>', main)


if __name__ == "__main__":
    unittest.main()
