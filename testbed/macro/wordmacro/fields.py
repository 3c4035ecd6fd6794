"""Where the fields of a document are, in the order in which a reader meets them."""

import re
from dataclasses import dataclass, field

from . import runs
from .failure import Failure
from .package import W

MC = "{http://schemas.openxmlformats.org/markup-compatibility/2006}"
MATH = "{http://schemas.openxmlformats.org/officeDocument/2006/math}"
CITATION = re.compile(r"\s*ADDIN\s+CSL_CITATION\b")
BIBLIOGRAPHY = re.compile(r"\s*ADDIN\s+CSL_BIBLIOGRAPHY\b")

DELETED = {W + "del", W + "moveFrom"}
PROPERTIES = {W + name for name in ("rPr", "pPr", "sectPr", "tblPr", "trPr", "tcPr", "sdtPr")}
NOTES = {W + "footnoteReference": "footnotes", W + "endnoteReference": "endnotes"}
TEXTS = {W + "t", W + "instrText", *runs.ELEMENTS}
DAMAGED = "A field in {} has {}: the document is damaged."
PLACES = {"footnotes": "a footnote", "endnotes": "an endnote"}

CONTAINS_FIELD = "it contains another field"
NOT_ONLY_TEXT = "it holds something other than text"
SPREAD = "it spreads over several paragraphs"
NO_TWIN = "the copy of its text box for older programs differs"


@dataclass(eq=False)
class Field:
    place: str = "the body"
    simple: object = None  # the w:fldSimple, or else three field characters:
    begin: object = None
    separate: object = None
    end: object = None
    codes: list = field(default_factory=list)
    texts: list = field(default_factory=list)
    problem: str = ""  # why it is left as it was
    outer: object = None
    twins: list = field(default_factory=list)  # the same field in a text box's other copies

    @property
    def code(self):
        if self.simple is not None:
            return self.simple.get(W + "instr", "")
        return "".join(map(_text, self.codes))

    @property
    def look(self):
        """The run properties that the field's own text starts from: the font of the old text,
        and of the markup's marks only those that the field as a whole has."""
        whole = self.begin.getparent().find(W + "rPr") if self.begin is not None else None
        first = self.texts[0].getparent().find(W + "rPr") if self.texts else whole
        marks = runs.marks_of_properties(whole)
        return runs.marked(runs.without_marks(first), marks)

    def pieces(self, nodes=None):
        look = self.look
        nodes = self.texts if nodes is None else nodes
        return runs.joined(
            [(text, runs.marks_of(n.getparent(), look)) for n in nodes if (text := _text(n))]
        )


def _text(node):
    return runs.ELEMENTS[node.tag] if node.tag in runs.ELEMENTS else node.text or ""


def paragraph(node):
    return next(node.iterancestors(W + "p"), None)


@dataclass(eq=False)
class Found:
    citations: list
    bibliographies: list
    left: list  # citation fields that are left as they were


def find(package):
    notes = {
        kind: {
            note.get(W + "id"): note for note in package.trees[part] if isinstance(note.tag, str)
        }
        for kind, part in package.notes.items()
    }
    every = []
    for item in _story(package.trees[package.main], "the body"):
        if isinstance(item, Field):
            every.append(item)
            continue
        # A note counts where it is referred to; a second reference finds it gone.
        note = notes.get(item[0], {}).pop(item[1], None)
        if note is not None:
            every += [f for f in _story(note, PLACES[item[0]]) if isinstance(f, Field)]
    citations = [f for f in every if CITATION.match(f.code) and not _inside_citation(f)]
    for citation in citations:
        _judge(citation)
    return Found(
        [f for f in citations if not f.problem],
        [f for f in every if BIBLIOGRAPHY.match(f.code)],
        [f for f in citations if f.problem],
    )


def _inside_citation(field):
    outer = field.outer
    while outer is not None and not CITATION.match(outer.code):
        outer = outer.outer
    return outer is not None


def _judge(citation):
    if citation.simple is None:
        first, last = paragraph(citation.begin), paragraph(citation.end)
        if first is None or first is not last:
            citation.problem = citation.problem or SPREAD
    for twin in citation.twins:
        _judge(twin)
        citation.problem = citation.problem or twin.problem


def _story(root, place):
    """The fields and note references of a text that flows by itself: body, note or text box."""
    stack, found = [], []
    _walk(root, place, stack, found)
    if stack:
        raise Failure(DAMAGED.format(place, "a beginning without an end"))
    return found


def _walk(node, place, stack, found):
    for child in node:
        tag = child.tag
        if not isinstance(tag, str) or tag in DELETED or tag in PROPERTIES:
            continue
        if tag == W + "fldChar":
            _field_character(child, place, stack, found)
        elif tag == W + "fldSimple":
            _open(Field(place, simple=child), stack, found)
            depth = len(stack)
            _walk(child, place, stack, found)
            if len(stack) != depth:
                raise Failure(f"The fields in {place} overlap: the document is damaged.")
            stack.pop()
        elif tag in TEXTS:
            _text_node(child, stack)
        else:
            _other(child, place, stack, found)


def _open(new, stack, found):
    for outer in stack:
        outer.problem = CONTAINS_FIELD
    new.outer = stack[-1] if stack else None
    stack.append(new)
    found.append(new)


def _field_character(character, place, stack, found):
    kind = character.get(W + "fldCharType")
    if kind == "begin":
        _open(Field(place, begin=character), stack, found)
        return
    if not stack or stack[-1].simple is not None:
        raise Failure(DAMAGED.format(place, "an end without a beginning"))
    if kind == "separate":
        stack[-1].separate = character
    elif kind == "end":
        stack.pop().end = character


def _text_node(node, stack):
    if not stack:
        return
    top = stack[-1]
    in_code = top.simple is None and top.separate is None
    if node.tag != (W + "t" if in_code else W + "instrText"):
        (top.codes if in_code else top.texts).append(node)


def _other(child, place, stack, found):
    if stack and (child.getparent().tag == W + "r" or child.tag.startswith(MATH)):
        stack[-1].problem = stack[-1].problem or NOT_ONLY_TEXT
    if child.tag in NOTES:
        found.append((NOTES[child.tag], child.get(W + "id")))
    elif child.tag == W + "txbxContent":
        found += _story(child, "a text box")
    elif child.tag == MC + "AlternateContent":
        found += _alternate(child, place)
    else:
        _walk(child, place, stack, found)


def _alternate(element, place):
    """A text box stands twice in the file, for newer and for older programs: one citation each."""
    branches = [_story(branch, place) for branch in element if isinstance(branch.tag, str)]
    if not branches:
        return []
    first = _citations(branches[0])
    for copy in map(_citations, branches[1:]):
        same = [f.code for f in first] == [f.code for f in copy]
        for index, citation in enumerate(first):
            if same:
                citation.twins.append(copy[index])
            elif copy:
                citation.problem = citation.problem or NO_TWIN
    return branches[0]


def _citations(found):
    return [f for f in found if isinstance(f, Field) and CITATION.match(f.code)]
