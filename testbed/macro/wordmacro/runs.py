"""Formatted text in its three shapes: the application's markup, pieces, and Word's runs.

A piece is a text with the set of its marks; marks are the markup's five kinds of formatting.
"""

import copy
import re
from itertools import groupby

from lxml import etree

from .package import W

XML_SPACE = "{http://www.w3.org/XML/1998/namespace}space"

# The run properties of each mark: the element and, where only one counts, its value.
PROPERTIES = {
    "i": (("i", None), ("iCs", None)),
    "b": (("b", None), ("bCs", None)),
    "sup": (("vertAlign", "superscript"),),
    "sub": (("vertAlign", "subscript"),),
    "sc": (("smallCaps", None),),
}
OPENING = {mark: f"<{mark}>" for mark in ("i", "b", "sup", "sub")}
OPENING["sc"] = '<span style="font-variant:small-caps;">'
CLOSING = {mark: f"</{mark}>" for mark in ("i", "b", "sup", "sub")} | {"sc": "</span>"}
ESCAPES = {"&amp;": "&", "&lt;": "<", "&gt;": ">"}
TOKENS = re.compile("|".join(map(re.escape, [*OPENING.values(), *CLOSING.values(), *ESCAPES])))

# The standard's order of run properties, up to the ones that can stand after ours.
ORDER = (
    "rStyle rFonts b bCs i iCs caps smallCaps strike dstrike outline shadow emboss imprint noProof "
    "snapToGrid vanish webHidden color spacing w kern position sz szCs highlight u effect bdr shd "
    "fitText vertAlign rtl cs em lang eastAsianLayout specVanish oMath"
).split()

# Word's own control characters and the elements that stand for them in a run.
CHARACTERS = {"\t": "tab", "\x1e": "noBreakHyphen", "\x1f": "softHyphen"}
BREAKS = "\n\r\v\f"  # all become a line break: no citation starts a page or a paragraph
ELEMENTS = {W + name: character for character, name in CHARACTERS.items()}
ELEMENTS |= {W + "br": "\v", W + "cr": "\v", W + "lastRenderedPageBreak": ""}
ATOMS = re.compile("\r\n|[\n\r\v\f\t\x1e\x1f]")
UNHOLDABLE = re.compile("[\x00-\x08\x0b\x0c\x0e-\x1f\ud800-\udfff\ufffe\uffff]")


def holdable(text):
    """The text as XML 1.0 can hold it; what it cannot hold shows as U+FFFD."""
    return UNHOLDABLE.sub("\ufffd", text)


def pieces_of_markup(markup):
    """A tag that closes nothing, or that the markup does not know, is text like any other."""
    open_marks, pieces, position = [], [], 0

    def add(text):
        if text:
            pieces.append((text, _effective(open_marks)))

    for token in TOKENS.finditer(markup):
        add(markup[position : token.start()])
        position = token.end()
        if not _apply(token.group(), open_marks):
            add(ESCAPES.get(token.group(), token.group()))
    add(markup[position:])
    return joined(pieces)


def _effective(open_marks):
    """Text cannot stand high and low at once: of nested marks for it, the inner one counts."""
    heights = [mark for mark in open_marks if mark in ("sup", "sub")]
    return frozenset(open_marks) - frozenset(heights[:-1]) | frozenset(heights[-1:])


def _apply(token, open_marks):
    for mark, opening in OPENING.items():
        if token == opening:
            open_marks.append(mark)
            return True
        if token == CLOSING[mark] and mark in open_marks:
            del open_marks[len(open_marks) - 1 - open_marks[::-1].index(mark)]
            return True
    return False


def joined(pieces):
    return [
        ("".join(text for text, _ in group), marks)
        for marks, group in groupby(pieces, key=lambda piece: piece[1])
    ]


def shown(pieces):
    """The pieces as a document shows them: what is lost on the way into runs is lost here."""
    return joined([(holdable_text(text), marks) for text, marks in pieces])


def holdable_text(text):
    atoms = ATOMS.split(text)
    between = [_as_read(found) for found in ATOMS.findall(text)] + [""]
    return "".join(holdable(part) + mark for part, mark in zip(atoms, between))


def _as_read(atom):
    return atom if atom in CHARACTERS else "\v"


def markup_of_pieces(pieces):
    return "".join(_tagged(text, [m for m in PROPERTIES if m in marks]) for text, marks in pieces)


def _tagged(text, marks):
    for character, escape in (("&", "&amp;"), ("<", "&lt;"), (">", "&gt;")):
        text = text.replace(character, escape)
    opening = "".join(OPENING[mark] for mark in marks)
    return opening + text + "".join(CLOSING[mark] for mark in reversed(marks))


def plain(pieces):
    return "".join(text for text, _ in pieces)


def runs_of_pieces(pieces, base):
    """New runs in the look of `base` (run properties or None) with the marks added."""
    return [_run(text, marked(base, marks)) for text, marks in pieces if text]


def _run(text, properties):
    run = etree.Element(W + "r", nsmap={"w": W[1:-1]})
    if properties is not None:
        run.append(properties)
    fill(run, text, "t")
    return run


def fill(run, text, tag):
    """Appends a text to a run as w:t (or w:instrText), tabs, breaks and hyphens."""
    position = 0
    for atom in ATOMS.finditer(text):
        _append_text(run, text[position : atom.start()], tag)
        etree.SubElement(run, W + CHARACTERS.get(atom.group(), "br"))
        position = atom.end()
    _append_text(run, text[position:], tag)


def _append_text(run, text, tag):
    if text:
        element = etree.SubElement(run, W + tag)
        element.text = holdable(text)
        element.set(XML_SPACE, "preserve")


def marked(base, marks):
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
    rank = ORDER.index(name)
    later = (
        child
        for child in properties
        if etree.QName(child).localname in ORDER[rank + 1 :]
        or etree.QName(child).localname == "rPrChange"
    )
    follower = next(later, None)
    if follower is None:
        properties.append(element)
    else:
        follower.addprevious(element)


def marks_of(run, base):
    """The marks that a run has and its field as a whole has not."""
    return marks_of_properties(run.find(W + "rPr")) - marks_of_properties(base)


def marks_of_properties(properties):
    return frozenset(
        mark for mark, ((name, value), *_) in PROPERTIES.items() if _has(properties, name, value)
    )


def _has(properties, name, value):
    element = properties.find(W + name) if properties is not None else None
    if element is None:
        return False
    given = element.get(W + "val")
    return given == value if value else given not in ("0", "false", "off")


def without_marks(properties):
    """Run properties cleared of everything the markup can say; None when nothing is left."""
    if properties is None:
        return None
    cleared = copy.deepcopy(properties)
    names = {name for pairs in PROPERTIES.values() for name, _ in pairs} | {"rPrChange"}
    for element in [e for name in names for e in cleared.findall(W + name)]:
        cleared.remove(element)
    return cleared if len(cleared) else None
