import types
import unittest

from lxml import etree

from wordmacro import fields, rewrite
from wordmacro.failure import Failure
from wordmacro.package import W

NAMES = (
    f'xmlns:w="{W[1:-1]}" xmlns:mc="{fields.MC[1:-1]}" xmlns:m="{fields.MATH[1:-1]}" '
    'xmlns:v="urn:schemas-microsoft-com:vml"'
)
BEGIN, SEPARATE, END = (
    f'<w:r><w:fldChar w:fldCharType="{kind}"/></w:r>' for kind in ("begin", "separate", "end")
)


def run(text):
    return f"<w:r><w:t>{text}</w:t></w:r>"


def code(text):
    return f"<w:r><w:instrText>{text}</w:instrText></w:r>"


def citation(name, text="old"):
    return BEGIN + code(f"ADDIN CSL_CITATION {name}") + SEPARATE + run(text) + END


def paragraph(*contents):
    return f"<w:p>{''.join(contents)}</w:p>"


def simple(name, contents):
    return f'<w:fldSimple w:instr="ADDIN CSL_CITATION {name}">{contents}</w:fldSimple>'


def box(contents):
    return f"<w:txbxContent>{paragraph(contents)}</w:txbxContent>"


def alternate(choice, fallback):
    return (
        f"<w:r><mc:AlternateContent><mc:Choice>{box(choice)}</mc:Choice>"
        f"<mc:Fallback><w:pict>{box(fallback)}</w:pict></mc:Fallback></mc:AlternateContent></w:r>"
    )


def around(tag, contents):
    return f"<w:{tag}>{contents}</w:{tag}>"


PAGE = BEGIN + code(" PAGE ") + SEPARATE + run("7") + END
NOTE = "<w:r><w:footnoteReference w:id='{}'/></w:r>"
SPLIT = BEGIN + code("ADDIN CSL_") + code("CITATION") + code(" a") + SEPARATE + run("old") + END
NO_TEXT = BEGIN + code("ADDIN CSL_CITATION a") + END
CODE = "ADDIN CSL_CITATION "
COMMENTED = (
    "<w:commentRangeStart w:id='1'/>" + run("old") + "<w:commentRangeEnd w:id='1'/>"
    "<w:r><w:commentReference w:id='1'/></w:r>"
)
CHOICE_OF_RUNS = (
    f"<mc:AlternateContent><mc:Choice>{run('old')}</mc:Choice>"
    f"<mc:Fallback>{run('old')}</mc:Fallback></mc:AlternateContent>"
)


def nested_box(contents):
    return f"<w:r><w:pict>{box(contents)}</w:pict></w:r>"


# The contents of a paragraph, the names of the citations that can be written, and the names of the
# others with the reason.
FOUND = {
    "none": (run("text"), "", {}),
    "complex": (citation("a"), "a", {}),
    "two": (citation("a") + citation("b"), "ab", {}),
    "split code": (SPLIT, "a", {}),
    "field without a text": (NO_TEXT, "a", {}),
    "several spaces around the name": (BEGIN + code("  ADDIN   CSL_CITATION   a") + END, "a", {}),
    "another field": (PAGE, "", {}),
    "a comment inside": (
        BEGIN + code(CODE + "a") + SEPARATE + COMMENTED + END + citation("b"), "ab", {}),
    "alternate content inside": (
        BEGIN + code(CODE + "a") + SEPARATE + CHOICE_OF_RUNS + END,
        "", {"a": fields.NOT_ONLY_TEXT}),
    "box in a box": (
        f"<w:r><w:pict>{box(nested_box(citation('a')))}</w:pict></w:r>" + citation("b"),
        "b", {"a": fields.BOX_IN_BOX}),
    "box in a box with copies": (
        alternate(alternate(citation("a"), citation("a")), alternate(citation("a"), citation("a"))),
        "", {"a": fields.BOX_IN_BOX}),
    "another word": (BEGIN + code("ADDIN CSL_CITATIONS a") + END, "", {}),
    "simple": (simple("a", run("x")), "a", {}),
    "hyperlink": (around("hyperlink", citation("a")), "a", {}),
    "inserted": (around("ins", citation("a")), "a", {}),
    "moved here": (around("moveTo", citation("a")), "a", {}),
    "deleted": (around("del", citation("a")), "", {}),
    "moved away": (around("moveFrom", citation("a")), "", {}),
    "deleted inside inserted": (around("ins", around("del", citation("a"))), "", {}),
    "content control": (around("sdt", around("sdtContent", citation("a"))), "a", {}),
    "inside another field": (
        BEGIN + code("IF ") + SEPARATE + citation("a") + run("x") + END, "a", {}),
    "another field inside": (
        BEGIN + code(CODE + "a") + SEPARATE + PAGE + END, "", {"a": fields.CONTAINS_FIELD}),
    "another field in the code": (
        BEGIN + code(CODE + "a") + PAGE + SEPARATE + END, "", {"a": fields.CONTAINS_FIELD}),
    "a citation inside": (
        BEGIN + code(CODE + "a") + SEPARATE + citation("b") + END + citation("c"),
        "c", {"a": fields.CONTAINS_FIELD, "b": fields.INSIDE_CITATION}),
    "a simple field inside": (
        BEGIN + code(CODE + "a") + SEPARATE + simple("b", run("x")) + END,
        "", {"a": fields.CONTAINS_FIELD, "b": fields.INSIDE_CITATION}),
    "inside a simple field": (simple("a", PAGE), "", {"a": fields.CONTAINS_FIELD}),
    "a picture inside": (
        BEGIN + code(CODE + "a") + SEPARATE + "<w:r><w:drawing/></w:r>" + END,
        "", {"a": fields.NOT_ONLY_TEXT}),
    "a note inside": (
        BEGIN + code(CODE + "a") + SEPARATE + NOTE.format(1) + END,
        "n", {"a": fields.NOT_ONLY_TEXT}),
    "a formula inside": (
        BEGIN + code(CODE + "a") + SEPARATE + "<m:oMath/>" + END,
        "", {"a": fields.NOT_ONLY_TEXT}),
    "two paragraphs": (
        BEGIN + code(CODE + "a") + SEPARATE + run("x") + "</w:p><w:p>" + run("y") + END,
        "", {"a": fields.SPREAD}),
    "box": (f"<w:r><w:pict>{box(citation('a'))}</w:pict></w:r>", "a", {}),
    "box with its copy": (alternate(citation("a"), citation("a")) + citation("b"), "ab", {}),
    "box without a copy": (alternate(citation("a"), run("x")), "a", {}),
    "box whose copy is another citation": (
        alternate(citation("a"), citation("b")), "", {"a": fields.COPY_DIFFERS}),
    "box whose copy contains another field": (
        alternate(citation("a"), BEGIN + code(CODE + "a") + SEPARATE + PAGE + END),
        "", {"a": fields.CONTAINS_FIELD}),
    "a note between": (citation("a") + NOTE.format(1) + citation("b"), "anb", {}),
    "a note twice": (NOTE.format(1) + NOTE.format(1) + citation("b"), "nb", {}),
    "notes out of order": (NOTE.format(2) + NOTE.format(1), "mn", {}),
    "a deleted note": (around("del", NOTE.format(1)) + citation("b"), "b", {}),
    "a note that is missing": (NOTE.format(9) + citation("b"), "b", {}),
}

UNBALANCED = {
    "no end": BEGIN + code(CODE + "a") + SEPARATE + run("x"),
    "no beginning": SEPARATE + run("x") + END,
    "one end too many": citation("a") + END,
    "cut by a box": BEGIN + f"<w:r><w:pict>{box(END)}</w:pict></w:r>",
    "cut by a simple field": simple("a", BEGIN) + END,
    "end in a simple field": BEGIN + simple("a", END),
    "end deleted": BEGIN + code(CODE + "a") + SEPARATE + around("del", END),
}


def package(contents):
    body = etree.fromstring(f"<w:document {NAMES}><w:body>{contents}</w:body></w:document>")
    notes = "".join(
        f'<w:footnote w:id="{number}">{paragraph(citation(name))}</w:footnote>'
        for number, name in ((1, "n"), (2, "m"))
    )
    trees = {"main": body, "notes": etree.fromstring(f"<w:footnotes {NAMES}>{notes}</w:footnotes>")}
    return types.SimpleNamespace(trees=trees, main="main", notes={"footnotes": "notes"})


def find(contents):
    return fields.find(package(paragraph(contents)))


def writable(document):
    return [field for field in fields.find(document).citations if not field.problem]


def name(field):
    return field.code.split()[-1]


class Fields(unittest.TestCase):
    def test_finds_citations_that_can_be_written_and_others(self):
        for title, (contents, names, left) in FOUND.items():
            with self.subTest(title):
                found = find(contents)
                written = [f for f in found.citations if not f.problem]
                self.assertEqual("".join(map(name, written)), names)
                problems = {f.code.split()[2]: f.problem for f in found.citations if f.problem}
                self.assertEqual(problems, left)

    def test_rejects_unbalanced_fields(self):
        for title, contents in UNBALANCED.items():
            with self.subTest(title), self.assertRaises(Failure):
                find(contents)

    def test_reads_special_characters_in_code_and_text(self):
        contents = (
            BEGIN + "<w:r><w:instrText>ADDIN CSL_CITATION {a</w:instrText><w:noBreakHyphen/>"
            "<w:tab/><w:instrText>}</w:instrText></w:r>" + SEPARATE
            + "<w:r><w:t>a</w:t><w:tab/><w:br/><w:softHyphen/><w:t>b</w:t></w:r>" + END
        )
        (found,) = find(contents).citations
        self.assertEqual(found.code, CODE + "{a\x1e\t}")
        self.assertEqual(found.pieces(), [("a\t\v\x1fb", frozenset())])

    def test_rewritten_fields_read_as_written(self):
        pieces = [("a ", frozenset()), ("b", frozenset({"i", "sup"}))]
        for title, (contents, names, _) in FOUND.items():
            with self.subTest(title):
                document = package(paragraph(contents))
                for found in writable(document):
                    rewrite.set_everywhere(found, found.code + "x", pieces)
                again = writable(document)
                self.assertEqual([name(f) for f in again], [n + "x" for n in names])
                for found in again:
                    for copy in (found, *found.twins):
                        self.assertEqual((copy.code, copy.pieces()), (found.code, pieces))

    def test_new_text_keeps_the_look_of_the_whole_field(self):
        look = "<w:rPr><w:i/><w:color w:val='FF0000'/></w:rPr>"
        document = package(paragraph(citation("a").replace("<w:r>", f"<w:r>{look}")))
        (found,) = fields.find(document).citations
        self.assertEqual(found.pieces(), [("old", frozenset({"i"}))])
        self.assertEqual(found.marks, {"i"})
        rewrite.set_pieces(found, [("new", frozenset({"b"}))])
        (new,) = [t.getparent() for t in document.trees["main"].iter(W + "t")]
        names = [etree.QName(p).localname for p in new.find(W + "rPr")]
        self.assertEqual(names, ["b", "bCs", "i", "iCs", "color"])

    def test_a_comment_keeps_its_anchors_around_the_new_text(self):
        document = package(paragraph(BEGIN, code(CODE + "a"), SEPARATE, COMMENTED, END))
        for text in ("new", "newer"):
            (found,) = fields.find(document).citations
            rewrite.set_pieces(found, [(text, frozenset())])
            (body,) = document.trees["main"]
            names = [etree.QName(n[-1] if n.tag == W + "r" else n).localname for n in body[0]]
            self.assertEqual(
                names,
                "fldChar instrText fldChar commentRangeStart t commentRangeEnd commentReference "
                "fldChar".split(),
            )
            self.assertEqual("".join(body.itertext(W + "t")), text)

    def test_escapes_characters_in_a_code_that_xml_cannot_represent(self):
        (found,) = find(citation("a")).citations
        rewrite.set_code(found, CODE + '{"t":"\ud83d\x07"}')
        self.assertEqual(found.code, CODE + '{"t":"\\ud83d\\u0007"}')


if __name__ == "__main__":
    unittest.main()
