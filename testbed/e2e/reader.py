"""Reads saved documents for the tests. Shares no code with the stand-in for the macro, so that a mistake
there is not repeated here."""

import copy
import io
import json
import re
import zipfile

from lxml import etree

W = "{http://schemas.openxmlformats.org/wordprocessingml/2006/main}"
MC = "{http://schemas.openxmlformats.org/markup-compatibility/2006}"
PARTS = {"": "word/document.xml", "footnote": "word/footnotes.xml", "endnote": "word/endnotes.xml"}
DELETED = {W + "del", W + "moveFrom"}
WHITESPACE = {W + "tab": "\t", W + "br": "\n"}


class Field:
    def __init__(self, first, outer=None):
        self.first, self.outer, self.inner = first, outer, False
        self.nodes, self.code, self.letters, self.in_text = [first], "", [], False

    @property
    def text(self):
        return "".join(letter for letter, _ in self.letters)

    @property
    def kind(self):
        return self.code.split()[1] if self.code.startswith("ADDIN ") else ""

    @property
    def cluster(self):
        return json.loads(self.code.split(None, 2)[2])


def parts(path):
    with zipfile.ZipFile(path) as package:
        return {name: package.read(name) for name in package.namelist()}


def trees(path):
    data = parts(path)
    return {kind: etree.fromstring(data[name]) for kind, name in PARTS.items() if name in data}


def _is_visible(node, with_copies=False):
    hidden = DELETED if with_copies else DELETED | {MC + "Fallback"}
    return not any(parent.tag in hidden for parent in node.iterancestors())


def fields(root, with_copies=False):
    """All fields of a tree in document order. `with_copies` includes the copies of text boxes."""
    found, stack = [], []
    for node in [n for n in root.iter() if isinstance(n.tag, str) and _is_visible(n, with_copies)]:
        if node.tag == W + "fldSimple":
            found.append(_simple(node))
        elif any(parent.tag == W + "fldSimple" for parent in node.iterancestors()):
            continue
        elif node.tag == W + "fldChar":
            _character(node, stack, found)
        elif stack and node.getparent().tag == W + "r" and node.tag != W + "rPr":
            _content(node, stack[-1])
    assert not stack, "a field has no end"
    return found


def _character(node, stack, found):
    kind = node.get(W + "fldCharType")
    if kind == "begin":
        if stack:
            stack[-1].inner = True
        stack.append(Field(node, stack[-1] if stack else None))
        found.append(stack[-1])
        return
    stack[-1].nodes.append(node)
    stack[-1].in_text = True
    if kind == "end":
        stack.pop()


def _content(node, field):
    field.nodes.append(node)
    if field.in_text:
        field.letters += _letters(node, marks(field.first.getparent()))
    else:
        field.code += node.text or ""


def _simple(node):
    field = Field(node)
    field.code = node.get(W + "instr")
    field.letters = [x for n in node.iter(W + "t", *WHITESPACE) for x in _letters(n, frozenset())]
    return field


def _letters(node, base):
    return [(letter, marks(node.getparent()) - base) for letter in _text(node)]


def _text(node):
    return WHITESPACE.get(node.tag) or node.text or ""


def marks(run):
    properties = run.find(W + "rPr")
    if properties is None:
        return frozenset()
    names = {"i": "i", "b": "b", "smallCaps": "small caps"}
    found = {word for name, word in names.items() if properties.find(W + name) is not None}
    height = properties.find(W + "vertAlign")
    return frozenset(found | ({height.get(W + "val")} if height is not None else set()))


def citations(path):
    """The citations that contain no other field and are in no other field, in reading order."""
    return [field for field in all_citations(path) if not field.inner and field.outer is None]


def all_citations(path):
    """All citations of a document in reading order: those in a note come where it is referred to."""
    roots = trees(path)
    notes = {
        (kind, note.get(W + "id")): [f for f in fields(note)]
        for kind in ("footnote", "endnote")
        if kind in roots
        for note in roots[kind]
    }
    every = fields(roots[""])
    places = {field.first: [field] for field in every}
    for kind in ("footnote", "endnote"):
        for node in roots[""].iter(f"{W}{kind}Reference"):
            places[node] = notes[kind, node.get(W + "id")]
    ordered = [f for node in roots[""].iter() for f in places.get(node, [])]
    return [f for f in ordered if f.kind == "CSL_CITATION"]


def bibliography(path):
    """The letters of each paragraph of the one bibliography field, with their marks."""
    (field,) = [f for f in fields(trees(path)[""]) if f.kind == "CSL_BIBLIOGRAPHY"]
    return [
        [x for run in paragraph.iter(W + "r") for n in run for x in _letters(n, frozenset())
         if n in field.nodes and n.tag not in (W + "instrText", W + "fldChar")]
        for paragraph in _paragraphs(field)
    ]


def _paragraphs(field):
    holders = [next(n.iterancestors(W + "p")) for n in field.nodes]
    return list(dict.fromkeys(holders))


def without_fields(path):
    """Returns each part as canonical XML, with a mark in place of each citation and bibliography."""
    result = {}
    for name, data in parts(path).items():
        if name not in PARTS.values():
            result[name] = data
            continue
        root = etree.fromstring(data)
        for field in fields(root, with_copies=True):
            if field.kind.startswith("CSL_") and not field.inner:
                _replace_by_mark(field)
        memory = io.BytesIO()
        root.getroottree().write_c14n(memory)
        result[name] = memory.getvalue()
    return result


def _replace_by_mark(field):
    """Puts a mark in place of the field. Text before the field stays in its run. Text after the field in
    the same run moves to a copy of the run after the mark."""
    mark = etree.Element("mark")
    if field.first.tag == W + "fldSimple":
        field.first.getparent().replace(field.first, mark)
        return
    first, *others = _paragraphs(field)
    for paragraph in others:
        paragraph.getparent().remove(paragraph)
    run = field.first.getparent()
    before = [n for n in field.first.itersiblings(preceding=True) if n.tag != W + "rPr"]
    end = field.nodes[-1]
    after = [n for n in end.itersiblings()] if end.getparent() is run else []
    run.addnext(mark)
    if after:
        mark.addnext(_split_off(run, after))
    for node in field.nodes:
        _remove(node)
    assert before or run.getparent() is None, "a run that holds only the field is removed"


def _split_off(run, nodes):
    """Removes the nodes from the end of the run. Returns a copy of the run that holds only them."""
    copied = copy.deepcopy(run)
    for node in [n for n in copied if n.tag != W + "rPr"][: -len(nodes)]:
        copied.remove(node)
    for node in nodes:
        run.remove(node)
    return copied


def _remove(node):
    run = node.getparent()
    if run is None:
        return
    run.remove(node)
    if run.getparent() is not None and all(n.tag == W + "rPr" for n in run):
        run.getparent().remove(run)


def paragraphs(path, *parts):
    """Returns the texts of all paragraphs, split where they contain anything but text."""
    found = []
    for root in [root for kind, root in trees(path).items() if kind in (parts or PARTS)]:
        for paragraph in root.iter(W + "p"):
            if _is_visible(paragraph):
                found += re.split("\0+", _paragraph_text(paragraph))
    return [text for text in found if text.strip()]


def _paragraph_text(paragraph):
    text = ""
    for node in paragraph.iter():
        run = node.getparent()
        if run is None or run.tag != W + "r" or node.tag in (W + "rPr", W + "instrText"):
            continue
        if next(node.iterancestors(W + "p")) is not paragraph or node.tag == W + "fldChar":
            continue
        is_text = (node.tag == W + "t" or node.tag in WHITESPACE) and _is_visible(node)
        text += _text(node) if is_text else "\0"
    return text
