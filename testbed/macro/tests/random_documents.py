"""Small packages with random documents, for tests over many of them."""

import json
import zipfile

from tests.test_fields import NAMES, NOTE
from wordmacro.package import RELATIONSHIPS

TYPES = (
    '<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
    '<Default Extension="xml" ContentType="application/xml"/></Types>'
)
RELS = '<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">{}</Relationships>'
REL = f'<Relationship Id="r{{0}}" Type="{RELATIONSHIPS}{{1}}" Target="{{2}}"/>'
MARKS = {"i": "<w:i/>", "b": "<w:b/>", "sc": "<w:smallCaps/>"}
VERTICAL_MARKS = {"sup": "superscript", "sub": "subscript"}
ORDER = ("b", "i", "sc", "sup", "sub")


def write(path, body, footnotes=""):
    """Writes a document with this body and, if they are not empty, these footnotes."""
    parts = {
        "[Content_Types].xml": TYPES,
        "_rels/.rels": RELS.format(REL.format(1, "officeDocument", "word/document.xml")),
        "word/document.xml": f"<w:document {NAMES}><w:body>{body}</w:body></w:document>",
    }
    if footnotes:
        parts["word/_rels/document.xml.rels"] = RELS.format(
            "<!-- valid -->" + REL.format(1, "footnotes", "footnotes.xml")
        )
        parts["word/footnotes.xml"] = f"<w:footnotes {NAMES}>{footnotes}</w:footnotes>"
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as target:
        for name, text in parts.items():
            target.writestr(zipfile.ZipInfo(name, (2024, 3, 1, 12, 0, 0)), text)


def escaped(text):
    return text.replace("&", "&amp;").replace("<", "&lt;").replace('"', "&quot;")


def code_of(name, recorded=None):
    cluster = {"citationItems": [{"id": name}]}
    if recorded is not None:
        cluster["tessaron"] = {"previouslyFormattedCitation": recorded}
    return "ADDIN CSL_CITATION " + json.dumps(cluster)


def properties(marks, font=""):
    found = [VERTICAL_MARKS[m] for m in ORDER if m in marks and m in VERTICAL_MARKS]
    vertical = [f'<w:vertAlign w:val="{value}"/>' for value in found]
    inner = "".join(MARKS[m] for m in ORDER if m in marks and m in MARKS) + font + "".join(vertical)
    return f"<w:rPr>{inner}</w:rPr>" if inner else ""


def run(content, marks=(), font=""):
    return f"<w:r>{properties(marks, font)}{content}</w:r>"


def text(content):
    return f'<w:t xml:space="preserve">{escaped(content)}</w:t>'


def complex_field(code, shown, marks=(), text_marks=None):
    """A field whose runs all have `marks`, except that its text has `text_marks` if they are given."""
    begin, separate, end = (
        run(f'<w:fldChar w:fldCharType="{kind}"/>', marks) for kind in ("begin", "separate", "end")
    )
    instruction = run(f"<w:instrText>{escaped(code)}</w:instrText>", marks)
    text_marks = marks if text_marks is None else text_marks
    return begin + instruction + separate + run(text(shown), text_marks) + end


class Random:
    """Random fields and documents from one source of random numbers."""

    def __init__(self, source):
        self.source = source
        self.number = 0

    def marks(self):
        vertical = self.source.choice([[], [], ["sup"], ["sub"]])
        return [m for m in MARKS if self.source.random() < 0.3] + vertical

    def font(self):
        return self.source.choice(["", "", '<w:color w:val="FF0000"/>', '<w:sz w:val="18"/>'])

    def citation(self):
        self.number += 1
        recorded = self.source.choice([None, None, None, "(old)"])
        code = code_of(f"w{self.source.randint(1, 20)}-{self.number}", recorded)
        shape = self.source.choice([self.in_runs, self.in_runs, self.in_one_run, self.simple])
        field = shape(code, "(old)" if recorded else self.source.choice(["(old)", "{Citation}", "x"]))
        return self.source.choice(
            ["{}", "{}", "{}", '<w:ins w:id="9">{}</w:ins>', "<w:hyperlink>{}</w:hyperlink>"]
        ).format(field)

    def in_runs(self, code, shown):
        marks = self.marks()
        begin, separate, end = (
            run(f'<w:fldChar w:fldCharType="{kind}"/>', marks)
            for kind in ("begin", "separate", "end")
        )
        cut = self.source.randint(0, len(code))
        codes = "".join(
            run(f'<w:instrText xml:space="preserve">{escaped(part)}</w:instrText>', marks)
            for part in (code[:cut], code[cut:])
        )
        place = self.source.randint(0, len(shown))
        anchors = self.source.choice(
            [("", "", ""),
             ('<w:commentRangeStart w:id="1"/>', '<w:commentRangeEnd w:id="1"/>',
              '<w:r><w:commentReference w:id="1"/></w:r>'),
             ('<w:bookmarkStart w:id="2" w:name="m"/>', '<w:bookmarkEnd w:id="2"/>', "")]
        )  # fmt: skip
        font = self.font()
        texts = [run(text(part), marks, font) for part in (shown[:place], shown[place:]) if part]
        if self.source.random() < 0.2:
            return begin + codes + end if shown != "(old)" else begin + codes + separate + end
        return begin + codes + separate + anchors[0] + "".join(texts) + "".join(anchors[1:]) + end

    def in_one_run(self, code, shown):
        begin, separate, end = (
            f'<w:fldChar w:fldCharType="{kind}"/>' for kind in ("begin", "separate", "end")
        )
        code = f"<w:instrText>{escaped(code)}</w:instrText>"
        return run(text("(so ") + begin + code + separate + text(shown) + end + text(")"))

    def simple(self, code, shown):
        return f'<w:fldSimple w:instr="{escaped(code)}">{run(text(shown), self.marks())}</w:fldSimple>'

    def bibliography(self):
        marks = self.marks()
        shape = self.source.choice(["none", "complex", "simple"])
        if shape == "complex":
            return complex_field("ADDIN CSL_BIBLIOGRAPHY", "old", marks)
        if shape == "simple":
            return f'<w:fldSimple w:instr="ADDIN CSL_BIBLIOGRAPHY">{run(text("old"))}</w:fldSimple>'
        return ""

    def paragraph(self, notes=False):
        words = [run(text(self.source.choice(["A word. ", "", "Then ", "日本 "]))) for _ in range(3)]
        parts = words + [self.citation() for _ in range(self.source.randint(0, 3))]
        if notes and self.source.random() < 0.3:
            parts.append(NOTE.format(self.source.choice([1, 2])))
        self.source.shuffle(parts)
        return f"<w:p>{''.join(parts)}</w:p>"

    def write(self, path):
        with_notes = self.source.random() < 0.5
        body = "".join(self.paragraph(with_notes) for _ in range(self.source.randint(1, 4)))
        body += f"<w:p>{self.citation()}</w:p><w:p>{self.bibliography()}</w:p><w:sectPr/>"
        notes = "".join(
            f'<w:footnote w:id="{number}">{self.paragraph()}</w:footnote>' for number in (1, 2)
        )
        write(path, body, notes if with_notes else "")
