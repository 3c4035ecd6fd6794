import unittest

from lxml import etree

from tests.test_fields import BEGIN, END, PAGE, SEPARATE, around, code, package, paragraph, run
from wordmacro import bibliography, fields, runs
from wordmacro.package import W


def entries(*texts):
    return [[(text, frozenset())] for text in texts]


SECTION = "<w:pPr><w:jc w:val='left'/><w:sectPr/></w:pPr>"
BIB = BEGIN + code(bibliography.CODE) + SEPARATE
NEXT = "</w:p><w:p>"
MARK = "<w:bookmarkStart w:id='1' w:name='x'/>"

# The contents of a paragraph, which may add further paragraphs, and the texts of all paragraphs after
# filling in one entry and three entries.
BIBLIOGRAPHIES = {
    "one paragraph": (BIB + run("old") + END, "a", "a|b|c"),
    "three paragraphs": (BIB + run("x") + NEXT + run("y") + NEXT + run("z") + END, "a", "a|b|c"),
    "text around one paragraph": (run("&lt;") + BIB + run("old") + END + run(">"), "<a>", "<a|b|c>"),
    "text around three paragraphs": (
        run("&lt;") + BIB + NEXT + NEXT + run("z") + END + run(">"), "<a>", "<a|b|c>"),
    "empty paragraphs": (BIB + NEXT + NEXT + END, "a", "a|b|c"),
    "no text yet": (BEGIN + code(bibliography.CODE) + END, "a", "a|b|c"),
    "simple": (
        f'<w:fldSimple w:instr="{bibliography.CODE}">{run("old")}</w:fldSimple>', "a", "a|b|c"),
    "one run": (
        (BIB + run("old") + END + run(">")).replace("</w:r><w:r>", ""), "a>", "a|b|c>"),
    "a bookmark in the middle": (BIB + NEXT + MARK + run("y") + NEXT + END, "a", "a|b|c"),
    "a bookmark before the end": (BIB + NEXT + MARK + run("y") + END, "a", "a|b|c"),
    "last paragraph ends a section": (BIB + run("x") + NEXT + SECTION + run("y") + END, "a", "a|b|c"),
    "first paragraph ends a section": (SECTION + BIB + run("x") + END, "a", "a|b|c"),
}

NOT_FILLED = {
    "a table between": BIB + "</w:p><w:tbl/><w:p>" + END,
    "another field inside": BIB + PAGE + END,
    "a picture inside": BIB + "<w:r><w:drawing/></w:r>" + END,
    "inside a tracked insertion": around("ins", BIB + run("x") + END),
}


class Bibliography(unittest.TestCase):
    def fill(self, contents, texts):
        document = package(paragraph(contents) + paragraph(run("after")) + "<w:sectPr/>")
        (field,) = fields.find(document).bibliographies
        return document, bibliography.fill(field, entries(*texts))

    def texts(self, document):
        body = document.trees["main"][0]
        return ["".join(p.itertext(W + "t")) for p in body.findall(W + "p")]

    def test_fills_fields(self):
        for title, (contents, one, three) in BIBLIOGRAPHIES.items():
            for texts, expected in (("a", one), ("abc", three)):
                with self.subTest(title, texts=texts):
                    document, problem = self.fill(contents, texts)
                    self.assertEqual(problem, "")
                    self.assertEqual(self.texts(document), [*expected.split("|"), "after"])
                    self.check_kept(contents, document)

    def check_kept(self, contents, document):
        """Section breaks and bookmarks are kept; a section break moves to the last paragraph. A second
        fill changes nothing."""
        body = document.trees["main"][0]
        self.assertEqual("<w:sectPr/>" in contents, len([*body.iter(W + "sectPr")]) == 2)
        self.assertEqual("bookmark" in contents, len([*body.iter(W + "bookmarkStart")]) == 1)
        if "<w:sectPr/>" in contents:
            last = body.findall(W + "p")[-2]
            self.assertIsNotNone(last.find(f"{W}pPr/{W}sectPr"))
        before = etree.tostring(body)
        (field,) = fields.find(document).bibliographies
        again = [e for e in "".join(self.texts(document)[:-1]).strip("<>")]
        self.assertEqual(bibliography.fill(field, entries(*again)), "")
        self.assertEqual(etree.tostring(body), before)

    def test_fills_again_with_fewer_or_more_entries(self):
        document, _ = self.fill(BIBLIOGRAPHIES["text around three paragraphs"][0], "abc")
        for texts in ("a", "abcd", "ab"):
            (field,) = fields.find(document).bibliographies
            bibliography.fill(field, entries(*texts))
            self.assertEqual(
                "|".join(self.texts(document)), "<" + "|".join(texts) + ">|after"
            )

    def test_leaves_unsafe_fields_unchanged(self):
        for title, contents in NOT_FILLED.items():
            with self.subTest(title):
                before = etree.tostring(package(paragraph(contents)).trees["main"])
                document = package(paragraph(contents))
                (field,) = fields.find(document).bibliographies
                self.assertNotEqual(bibliography.fill(field, entries("a", "b")), "")
                self.assertEqual(etree.tostring(document.trees["main"]), before)

    def test_creates_a_field_before_the_last_section(self):
        document = package(paragraph(run("text")) + "<w:sectPr/>")
        body = document.trees["main"][0]
        bibliography.fill(bibliography.create(body), entries("a", "b"))
        self.assertEqual(self.texts(document), ["text", "a", "b"])
        self.assertEqual(body[-1].tag, W + "sectPr")
        self.assertEqual(len(fields.find(document).bibliographies), 1)

    def test_splits_a_text_into_entries(self):
        table = {"a": ["a"], "a\nb\n": ["a", "b"], "a\n\nb": ["a", "", "b"]}
        for text, expected in table.items():
            found = [runs.plain_text(pieces) for pieces in bibliography.entries_of(text)]
            self.assertEqual(found, expected)


if __name__ == "__main__":
    unittest.main()
