"""Builds sample documents: paragraphs, notes, and citation fields of every form."""

import datetime
import io
import itertools
import json
import zipfile

import docx
from docx.opc.constants import RELATIONSHIP_TYPE as RT
from docx.opc.packuri import PackURI
from docx.opc.part import Part
from docx.shared import Mm, Pt
from lxml import etree

NAMESPACES = {
    "w": "http://schemas.openxmlformats.org/wordprocessingml/2006/main",
    "r": "http://schemas.openxmlformats.org/officeDocument/2006/relationships",
    "mc": "http://schemas.openxmlformats.org/markup-compatibility/2006",
    "wp": "http://schemas.openxmlformats.org/drawingml/2006/wordprocessingDrawing",
    "a": "http://schemas.openxmlformats.org/drawingml/2006/main",
    "wps": "http://schemas.microsoft.com/office/word/2010/wordprocessingShape",
    "v": "urn:schemas-microsoft-com:vml",
}
W = "{%s}" % NAMESPACES["w"]
DECLARATIONS = " ".join(f'xmlns:{prefix}="{uri}"' for prefix, uri in NAMESPACES.items())
CONTENT = "application/vnd.openxmlformats-officedocument.wordprocessingml.{}+xml"
TIGHT = '<w:pPr><w:spacing w:after="0"/></w:pPr>'
PLACEHOLDER = "{Citation}"
FIXED_DATE = datetime.datetime(2024, 3, 1, 12)  # so that the bytes are always the same


def xml(text):
    """Parses WordprocessingML into a list of elements."""
    return list(etree.fromstring(f"<x {DECLARATIONS}>{text}</x>"))


def escaped(text):
    return text.replace("&", "&amp;").replace("<", "&lt;").replace(">", "&gt;")


def run(text, properties=""):
    return f'<w:r>{properties}<w:t xml:space="preserve">{escaped(text)}</w:t></w:r>'


def character(kind):
    return f'<w:r><w:fldChar w:fldCharType="{kind}"/></w:r>'


def instruction(text, tag="instrText"):
    return f'<w:r><w:{tag} xml:space="preserve">{escaped(text)}</w:{tag}></w:r>'


def field(code, text=PLACEHOLDER, pieces=1):
    """A complex field. Its code may be split over several runs, as Word splits it when it saves."""
    size = -(-len(code) // pieces)
    codes = [code[start : start + size] for start in range(0, len(code), size)]
    return (
        character("begin")
        + "".join(map(instruction, codes))
        + character("separate")
        + run(text)
        + character("end")
    )


def simple_field(code, text=PLACEHOLDER):
    quoted = escaped(code).replace('"', "&quot;")
    return f'<w:fldSimple w:instr="{quoted}">{run(text)}</w:fldSimple>'


class Codes:
    """Makes field codes for the works of a library; each citation gets a different id."""

    def __init__(self, library):
        self.works = {entry["itemData"]["id"]: entry for entry in library}
        self.numbers = itertools.count(1)

    def __call__(self, *items, note=0, **changes):
        """Each item is a work's id, or a pair of the id and details such as a locator."""
        pairs = [item if isinstance(item, tuple) else (item, {}) for item in items]
        cluster = {
            "citationID": f"sample-{next(self.numbers)}",
            "citationItems": [self._item(key, details, changes) for key, details in pairs],
            "properties": {"noteIndex": note},
        }
        return "ADDIN CSL_CITATION " + json.dumps(cluster, ensure_ascii=False, sort_keys=True)

    def _item(self, key, details, changes):
        entry = self.works[key]
        data = {**entry["itemData"], **changes}
        uri = f"urn:uuid:{entry['uuid']}" + ("-" + "-".join(changes) if changes else "")
        return {"id": key, "uris": [uri], "itemData": data, **details}


class Paper:
    def __init__(self, title):
        self.document = docx.Document()
        self.document.core_properties.created = self.document.core_properties.modified = FIXED_DATE
        self.document.core_properties.title = title
        self._set_up()
        self.document.add_heading(title, 1)
        self.notes = {"footnote": [], "endnote": []}

    def _set_up(self):
        """Sets a small page, so that a picture of it is readable."""
        (section,) = self.document.sections
        section.page_width, section.page_height = Mm(148), Mm(210)
        section.left_margin = section.right_margin = Mm(18)
        section.top_margin = section.bottom_margin = Mm(16)
        normal = self.document.styles["Normal"]
        normal.font.name, normal.font.size = "DejaVu Serif", Pt(9)
        # Keeps each paragraph on one page, so that it is in one piece in a PDF's text.
        normal.paragraph_format.keep_together = True
        style = self.document.styles.add_style("Bibliography", 1)
        style.base_style = normal
        style.paragraph_format.left_indent = Pt(20)
        style.paragraph_format.first_line_indent = Pt(-20)
        style.paragraph_format.space_after = Pt(5)

    def heading(self, text):
        self.document.add_heading(text, 2)

    def paragraph(self, *parts):
        """Parts that begin with "<" are WordprocessingML; the others are text."""
        paragraph = self.document.add_paragraph()
        paragraph._p.extend(contents(parts))
        return paragraph

    def note(self, kind, *parts):
        """Returns a reference to a new note that has these parts as its text."""
        self.notes[kind].append(parts)
        high = '<w:rPr><w:vertAlign w:val="superscript"/></w:rPr>'
        number = len(self.notes[kind])
        return f'<w:r>{high}<w:{kind}Reference w:id="{number}"/></w:r>'

    def bibliography(self, heading="References"):
        self.heading(heading)
        paragraph = self.paragraph(field("ADDIN CSL_BIBLIOGRAPHY", "{Bibliography}"))
        paragraph.style = "Bibliography"

    def save(self, path):
        for kind, relation in (("footnote", RT.FOOTNOTES), ("endnote", RT.ENDNOTES)):
            if self.notes[kind]:
                self._add_notes(kind, relation)
        memory = io.BytesIO()
        self.document.save(memory)
        with zipfile.ZipFile(memory) as made, zipfile.ZipFile(path, "w") as target:
            for name in made.namelist():
                info = zipfile.ZipInfo(name, FIXED_DATE.timetuple()[:6])
                info.compress_type = zipfile.ZIP_DEFLATED
                target.writestr(info, made.read(name))

    def _add_notes(self, kind, relation):
        root = etree.fromstring(f"<w:{kind}s {DECLARATIONS}/>")
        high = '<w:rPr><w:vertAlign w:val="superscript"/></w:rPr>'
        for number, separator in ((-1, "separator"), (0, "continuationSeparator")):
            root.extend(
                xml(
                    f'<w:{kind} w:type="{separator}" w:id="{number}">'
                    f"<w:p><w:r><w:{separator}/></w:r></w:p></w:{kind}>"
                )
            )
        for number, parts in enumerate(self.notes[kind], 1):
            root.extend(xml(f'<w:{kind} w:id="{number}"><w:p>{TIGHT}</w:p></w:{kind}>'))
            own_number = f"<w:r>{high}<w:{kind}Ref/></w:r>"
            root[-1][0].extend(contents((own_number, " ", *parts)))
        data = etree.tostring(root, encoding="UTF-8", xml_declaration=True, standalone=True)
        package = self.document.part.package
        part = Part(PackURI(f"/word/{kind}s.xml"), CONTENT.format(kind + "s"), data, package)
        self.document.part.relate_to(part, relation)


def contents(parts):
    return xml("".join(part if part.startswith("<") else run(part) for part in parts))
