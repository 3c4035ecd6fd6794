"""Finds the fields of a document in reading order."""

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
COMMENT = W + "commentReference"
DAMAGED = "A field in {} has {}: the document is damaged."
PLACES = {"footnotes": "a footnote", "endnotes": "an endnote"}
BOX = "a text box"

CONTAINS_FIELD = "it contains another field"
INSIDE_CITATION = "it is inside another citation"
NOT_ONLY_TEXT = "it holds something other than text"
SPREAD = "it extends over several paragraphs"
COPY_DIFFERS = "the copy of its text box for older programs differs"
BOX_IN_BOX = "it is in a text box inside another text box"


@dataclass(eq=False)
class Field:
    place: str = "the body"
    simple: object = None  # the w:fldSimple; None for a complex field
    # Only for a complex field:
    begin: object = None
    separate: object = None
    end: object = None
    codes: list = field(default_factory=list)
    texts: list = field(default_factory=list)
    problem: str = ""  # why the field cannot be written safely; empty if it can
    outer: object = None
    twins: list = field(default_factory=list)  # the same field in the other copies of a text box
    simple_marks: frozenset = frozenset()  # the marks of a simple field as a whole

    @property
    def code(self):
        if self.simple is not None:
            return self.simple.get(W + "instr", "")
        return "".join(map(_text_of, self.codes))

    @property
    def whole_properties(self):
        """The run properties that apply to the field as a whole: those of its first character."""
        return self.begin.getparent().find(W + "rPr") if self.begin is not None else None

    @property
    def marks(self):
        """The marks of the field as a whole, to which those of the markup are added."""
        if self.simple is not None:
            return self.simple_marks
        return runs.marks_of_properties(self.whole_properties)

    @property
    def new_text_properties(self):
        first = self.texts[0].getparent().find(W + "rPr") if self.texts else self.whole_properties
        return runs.new_text_properties(first, self.whole_properties)

    def pieces(self, nodes=None):
        """The text with all marks that it has, whether from the field as a whole or not."""
        nodes = self.texts if nodes is None else nodes
        marks = runs.marks_of_properties
        return runs.join_adjacent(
            [(text, marks(n.getparent().find(W + "rPr"))) for n in nodes if (text := _text_of(n))]
        )


def _text_of(node):
    return runs.ELEMENTS[node.tag] if node.tag in runs.ELEMENTS else node.text or ""


def paragraph_of(node):
    return next(node.iterancestors(W + "p"), None)


@dataclass(eq=False)
class Found:
    citations: list  # all, in reading order; those with a `problem` are not written
    bibliographies: list
    all_fields: list  # of any kind


def find(package):
    notes = {
        kind: {
            note.get(W + "id"): note for note in package.trees[part] if isinstance(note.tag, str)
        }
        for kind, part in package.notes.items()
    }
    all_fields = []
    for item in _read_story(package.trees[package.main], "the body"):
        if isinstance(item, Field):
            all_fields.append(item)
            continue
        # A note's fields are listed at its first reference. It is popped from `notes`, so that a second
        # reference does not list them again.
        note = notes.get(item[0], {}).pop(item[1], None)
        if note is not None:
            all_fields += [f for f in _read_story(note, PLACES[item[0]]) if isinstance(f, Field)]
    citations = [f for f in all_fields if CITATION.match(f.code)]
    for citation in citations:
        _set_problem(citation)
    return Found(citations, [f for f in all_fields if BIBLIOGRAPHY.match(f.code)], all_fields)


def _set_problem(citation):
    if _inside_citation(citation):
        citation.problem = citation.problem or INSIDE_CITATION
    if citation.simple is None:
        first, last = paragraph_of(citation.begin), paragraph_of(citation.end)
        if first is None or first is not last:
            citation.problem = citation.problem or SPREAD
    for twin in citation.twins:
        _set_problem(twin)
        citation.problem = citation.problem or twin.problem


def _inside_citation(field):
    outer = field.outer
    while outer is not None and not CITATION.match(outer.code):
        outer = outer.outer
    return outer is not None


def _read_story(root, place):
    """The fields and note references of a body, a note or a text box, in order."""
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
            _read_field_character(child, place, stack, found)
        elif tag == W + "fldSimple":
            _open_field(Field(place, simple=child), stack, found)
            depth = len(stack)
            _walk(child, place, stack, found)
            if len(stack) != depth:
                raise Failure(f"The fields in {place} overlap: the document is damaged.")
            stack.pop()
        elif tag in TEXTS:
            _read_text_node(child, stack)
        else:
            _read_other(child, place, stack, found)


def _open_field(new, stack, found):
    for outer in stack:
        outer.problem = CONTAINS_FIELD
    new.outer = stack[-1] if stack else None
    stack.append(new)
    found.append(new)


def _read_field_character(character, place, stack, found):
    kind = character.get(W + "fldCharType")
    if kind == "begin":
        _open_field(Field(place, begin=character), stack, found)
        return
    if not stack or stack[-1].simple is not None:
        raise Failure(DAMAGED.format(place, "an end without a beginning"))
    if kind == "separate":
        stack[-1].separate = character
    elif kind == "end":
        stack.pop().end = character


def _read_text_node(node, stack):
    if not stack:
        return
    top = stack[-1]
    in_code = top.simple is None and top.separate is None
    # Text before the separator, and code after it, are not part of the field.
    ignored = W + "t" if in_code else W + "instrText"
    if node.tag != ignored:
        (top.codes if in_code else top.texts).append(node)


def _read_other(child, place, stack, found):
    if stack and _is_not_text(child):
        stack[-1].problem = stack[-1].problem or NOT_ONLY_TEXT
    if child.tag in NOTES:
        found.append((NOTES[child.tag], child.get(W + "id")))
    elif child.tag == W + "txbxContent":
        found += _read_box(child, place)
    elif child.tag == MC + "AlternateContent":
        found += _read_alternate(child, place)
    else:
        _walk(child, place, stack, found)


def _is_not_text(child):
    """Whether an element is something that a new text would lose. A comment's anchor is not lost."""
    in_run = child.getparent().tag == W + "r" and child.tag != COMMENT
    return in_run or child.tag.startswith(MATH) or child.tag == MC + "AlternateContent"


def _read_box(content, place):
    found = _read_story(content, BOX)
    if place == BOX:
        for nested in (f for f in found if isinstance(f, Field)):
            nested.problem = nested.problem or BOX_IN_BOX
    return found


def _read_alternate(element, place):
    """Returns the fields of one copy of a text box, with those of the other copies as their twins. A text
    box is stored twice, for newer and for older programs."""
    branches = [_read_story(branch, place) for branch in element if isinstance(branch.tag, str)]
    if not branches:
        return []
    first = _citations_and_bibliographies(branches[0])
    for copy in map(_citations_and_bibliographies, branches[1:]):
        same = [f.code for f in first] == [f.code for f in copy]
        for index, written in enumerate(first):
            if same:
                written.twins.append(copy[index])
            elif copy:
                written.problem = written.problem or COPY_DIFFERS
    return branches[0]


def _citations_and_bibliographies(found):
    fields = (f for f in found if isinstance(f, Field))
    return [f for f in fields if CITATION.match(f.code) or BIBLIOGRAPHY.match(f.code)]
