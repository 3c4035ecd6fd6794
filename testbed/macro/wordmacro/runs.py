"""Formatted text in three forms: the application's markup, pieces, and Word's runs.

A piece is a pair: a text, and the set of its marks. The marks are the five kinds of formatting that
the markup can express.
"""

import copy
import re
from itertools import groupby

from lxml import etree

from .package import W

XML_SPACE = "{http://www.w3.org/XML/1998/namespace}space"

# The run properties of each mark: the element and, for an element with several values, its value.
PROPERTIES = {
    "i": (("i", None), ("iCs", None)),
    "b": (("b", None), ("bCs", None)),
    "sup": (("vertAlign", "superscript"),),
    "sub": (("vertAlign", "subscript"),),
    "sc": (("smallCaps", None),),
}
VERTICAL_MARKS = frozenset({"sup", "sub"})
ELEMENT_NAMES = {name for pairs in PROPERTIES.values() for name, _ in pairs}
OFF_VALUES = ("0", "false", "off", "baseline")
OPENING = {mark: f"<{mark}>" for mark in ("i", "b", "sup", "sub")}
OPENING["sc"] = '<span style="font-variant:small-caps;">'
CLOSING = {mark: f"</{mark}>" for mark in ("i", "b", "sup", "sub")} | {"sc": "</span>"}
ESCAPES = {"&amp;": "&", "&lt;": "<", "&gt;": ">"}
TOKENS = re.compile("|".join(map(re.escape, [*OPENING.values(), *CLOSING.values(), *ESCAPES])))

# The standard's order of run properties.
PROPERTY_ORDER = (
    "rStyle rFonts b bCs i iCs caps smallCaps strike dstrike outline shadow emboss imprint noProof "
    "snapToGrid vanish webHidden color spacing w kern position sz szCs highlight u effect bdr shd "
    "fitText vertAlign rtl cs em lang eastAsianLayout specVanish oMath"
).split()

# Word's control characters, and the elements that represent them in a run.
CHARACTERS = {"\t": "tab", "\x1e": "noBreakHyphen", "\x1f": "softHyphen"}
ELEMENTS = {W + name: character for character, name in CHARACTERS.items()}
ELEMENTS |= {W + "br": "\v", W + "cr": "\v", W + "lastRenderedPageBreak": ""}
# An atom is a character, or CR LF, that an element represents. Atoms without their own element become
# line breaks, because a citation cannot start a page or a paragraph.
ATOMS = re.compile("\r\n|[\n\r\v\f\t\x1e\x1f]")
NOT_IN_XML = re.compile("[\x00-\x08\x0b\x0c\x0e-\x1f\ud800-\udfff\ufffe\uffff]")


def pieces_of_markup(markup):
    """Parses markup. Unknown tags, and end tags without a start tag, are text."""
    open_marks, pieces, position = [], [], 0

    def add(text):
        if text:
            pieces.append((text, _effective_marks(open_marks)))

    for token in TOKENS.finditer(markup):
        add(markup[position : token.start()])
        position = token.end()
        if not _apply_tag(token.group(), open_marks):
            add(ESCAPES.get(token.group(), token.group()))
    add(markup[position:])
    return join_adjacent(pieces)


def _effective_marks(open_marks):
    """The marks of a text inside these tags. Of nested <sup> and <sub>, the inner one applies."""
    vertical = [mark for mark in open_marks if mark in VERTICAL_MARKS]
    return frozenset(open_marks) - frozenset(vertical[:-1]) | frozenset(vertical[-1:])


def _apply_tag(token, open_marks):
    """Opens or closes a mark. Returns false if the token is not a tag that can do so here."""
    for mark, opening in OPENING.items():
        if token == opening:
            open_marks.append(mark)
            return True
        if token == CLOSING[mark] and mark in open_marks:
            del open_marks[len(open_marks) - 1 - open_marks[::-1].index(mark)]
            return True
    return False


def join_adjacent(pieces):
    """Joins adjacent pieces with the same marks."""
    return [
        ("".join(text for text, _ in group), marks)
        for marks, group in groupby(pieces, key=lambda piece: piece[1])
    ]


def add_field_marks(field_marks, pieces):
    """Returns the pieces as they look inside a field that has these marks as a whole."""
    return join_adjacent([(text, _combine_marks(field_marks, marks)) for text, marks in pieces])


def _combine_marks(field_marks, marks):
    return (field_marks - VERTICAL_MARKS if marks & VERTICAL_MARKS else field_marks) | marks


def remove_field_marks(field_marks, pieces):
    """Returns the pieces as markup can express them: without the marks of the field as a whole."""
    return join_adjacent([(text, marks - field_marks) for text, marks in pieces])


def common_marks(pieces):
    """The marks that all of a text has."""
    sets = [marks for text, marks in pieces if text.strip()]
    return frozenset.intersection(*sets) if sets else frozenset()


def replace_unrepresentable(pieces):
    """Returns the pieces as a document shows them: replaces characters that runs cannot represent."""
    return join_adjacent([(_replace_in_text(text), marks) for text, marks in pieces])


def _replace_in_text(text):
    parts = ATOMS.split(text)
    atoms = [_read_back(atom) for atom in ATOMS.findall(text)] + [""]
    return "".join(_replace_invalid(part) + atom for part, atom in zip(parts, atoms))


def _read_back(atom):
    """The character that stands for this atom when the document is read."""
    return atom if atom in CHARACTERS else "\v"


def _replace_invalid(text):
    return NOT_IN_XML.sub("\ufffd", text)


def markup_of_pieces(pieces):
    return "".join(_add_tags(text, [m for m in PROPERTIES if m in marks]) for text, marks in pieces)


def _add_tags(text, marks):
    for character, escape in (("&", "&amp;"), ("<", "&lt;"), (">", "&gt;")):
        text = text.replace(character, escape)
    opening = "".join(OPENING[mark] for mark in marks)
    return opening + text + "".join(CLOSING[mark] for mark in reversed(marks))


def plain_text(pieces):
    return "".join(text for text, _ in pieces)


def runs_of_pieces(pieces, base):
    """New runs with the run properties `base` (or None) and, in addition, each piece's marks."""
    return [_create_run(text, properties_with_marks(base, marks)) for text, marks in pieces if text]


def _create_run(text, properties):
    run = etree.Element(W + "r", nsmap={"w": W[1:-1]})
    if properties is not None:
        run.append(properties)
    position = 0
    for atom in ATOMS.finditer(text):
        _append_text(run, text[position : atom.start()])
        etree.SubElement(run, W + CHARACTERS.get(atom.group(), "br"))
        position = atom.end()
    _append_text(run, text[position:])
    return run


def _append_text(run, text):
    if text:
        element = etree.SubElement(run, W + "t")
        element.text = _replace_invalid(text)
        element.set(XML_SPACE, "preserve")


def properties_with_marks(base, marks):
    """A copy of the run properties `base` (or None) with these marks added; None if it is empty."""
    if base is None and not marks:
        return None
    properties = copy.deepcopy(base) if base is not None else etree.Element(W + "rPr")
    for mark in (mark for mark in PROPERTIES if mark in marks):
        for name, value in PROPERTIES[mark]:
            _set_property(properties, name, value)
    return properties


def _set_property(properties, name, value):
    for old in properties.findall(W + name):
        properties.remove(old)
    element = etree.Element(W + name)
    if value:
        element.set(W + "val", value)
    rank = PROPERTY_ORDER.index(name)
    later = (
        child
        for child in properties
        if etree.QName(child).localname in PROPERTY_ORDER[rank + 1 :]
        or etree.QName(child).localname == "rPrChange"
    )
    follower = next(later, None)
    if follower is None:
        properties.append(element)
    else:
        follower.addprevious(element)


def new_text_properties(first, whole):
    """The run properties of a field's new text: the font of its `first` run of text, with the marks
    of `whole`, the run properties of the field as a whole. A mark that `whole` switches off stays
    off, because the paragraph's style may switch it on."""
    properties = properties_with_marks(_clear_marks(first), marks_of_properties(whole))
    for element in [] if whole is None else whole:
        name = etree.QName(element).localname if isinstance(element.tag, str) else ""
        value = element.get(W + "val")
        if name in ELEMENT_NAMES and value in OFF_VALUES:
            properties = etree.Element(W + "rPr") if properties is None else properties
            _set_property(properties, name, value)
    return properties


def marks_of_properties(properties):
    return frozenset(
        mark
        for mark, ((name, value), *_) in PROPERTIES.items()
        if _has_property(properties, name, value)
    )


def _has_property(properties, name, value):
    element = properties.find(W + name) if properties is not None else None
    if element is None:
        return False
    given = element.get(W + "val")
    return given == value if value else given not in OFF_VALUES


def _clear_marks(properties):
    if properties is None:
        return None
    cleared = copy.deepcopy(properties)
    for element in [e for name in (*ELEMENT_NAMES, "rPrChange") for e in cleared.findall(W + name)]:
        cleared.remove(element)
    return cleared if len(cleared) else None
