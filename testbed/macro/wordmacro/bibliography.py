"""The bibliography: a field "ADDIN CSL_BIBLIOGRAPHY" with one paragraph for each entry."""

import copy

from lxml import etree

from . import fields, rewrite, runs
from .package import W

CODE = "ADDIN CSL_BIBLIOGRAPHY"
NOT_PLAIN = "it does not consist of plain paragraphs"
NOT_COPIED = {W + "sectPr", W + "pPrChange"}
MARKERS = {
    W + name
    for name in ("bookmarkStart", "bookmarkEnd", "commentRangeStart", "commentRangeEnd")
}


def entries_of(text):
    """One list of pieces for each line of the application's text."""
    return [runs.pieces_of_markup(line) for line in text.rstrip("\n").split("\n")]


def create(body):
    """A field at the end of the body, before the properties of the last section."""
    paragraph = etree.Element(W + "p", nsmap=body.nsmap)
    paragraph.extend(rewrite.new_field(CODE))
    section = body.find(W + "sectPr")
    body.append(paragraph) if section is None else section.addprevious(paragraph)
    begin, separate, end = paragraph.iter(W + "fldChar")
    return fields.Field(
        begin=begin, separate=separate, end=end, codes=list(paragraph.iter(W + "instrText"))
    )


def fill(field, entries):
    """Writes the entries into a field and its copies. Returns "" on success and otherwise the reason."""
    copies = [field, *field.twins]
    problem = next((found for found in map(_problem, copies) if found), "")
    if not problem:
        for twin in copies:
            shown = [runs.replace_unrepresentable(pieces) for pieces in entries]
            _fill(twin, [runs.add_field_marks(twin.marks, pieces) for pieces in shown])
    return problem


def _problem(field):
    return field.problem or ("" if _paragraphs(field) else NOT_PLAIN)


def _fill(field, entries):
    rewrite.make_complex(field)
    paragraphs = _paragraphs(field)
    if _current_entries(field, paragraphs) == entries:
        return
    properties = field.new_text_properties
    start = rewrite.ensure_separator_run(field)
    field.end = rewrite.split_before(field.end)
    for node in field.texts:
        rewrite.remove(node)
    tail = [node for p in paragraphs[1:-1] for node in p if _is_marker(node)]
    tail += _nodes_after_text(field, paragraphs)
    blocks = _replace_paragraphs(paragraphs, len(entries))
    rewrite.insert_after(start, runs.runs_of_pieces(entries[0], properties))
    for block, pieces in zip(blocks[1:], entries[1:]):
        block.extend(runs.runs_of_pieces(pieces, properties))
    blocks[-1].extend(tail)


def _is_marker(node):
    return node.tag in MARKERS or node.tag == W + "r" and node.find(fields.COMMENT) is not None


def _paragraphs(field):
    """The field's paragraphs; None unless its runs are directly in consecutive paragraphs."""
    if field.simple is not None:
        return [field.simple.getparent()] if field.simple.getparent().tag == W + "p" else None
    first, last = fields.paragraph_of(field.begin), fields.paragraph_of(field.end)
    characters = [c for c in (field.begin, field.separate, field.end) if c is not None]
    if any(c.getparent().getparent().tag != W + "p" for c in characters):
        return None
    if field.separate is not None and fields.paragraph_of(field.separate) is not first:
        return None
    paragraphs = [first]
    while paragraphs[-1] is not last:
        following = paragraphs[-1].getnext()
        if following is None or following.tag != W + "p":
            return None
        paragraphs.append(following)
    holders = {fields.paragraph_of(node) for node in field.texts}
    return paragraphs if holders <= set(paragraphs) else None


def _current_entries(field, paragraphs):
    lines = {id(paragraph): [] for paragraph in paragraphs}
    for node in field.texts:
        lines[id(fields.paragraph_of(node))].append(node)
    return [field.pieces(nodes) for nodes in lines.values()]


def _nodes_after_text(field, paragraphs):
    """What moves from the field's last paragraph to the new last paragraph: the end character, all that
    follows it and, if the old last paragraph is removed, the markers before the end character."""
    end = field.end.getparent()
    markers = [n for n in end.itersiblings(preceding=True) if _is_marker(n)]
    kept = markers[::-1] if len(paragraphs) > 1 else []
    return kept + [end, *end.itersiblings()]


def _replace_paragraphs(paragraphs, count):
    """Returns `count` paragraphs: the first one unchanged, then empty ones that look like it."""
    first, last = paragraphs[0], paragraphs[-1]
    section = last.find(f"{W}pPr/{W}sectPr")
    for paragraph in paragraphs[1:]:
        paragraph.getparent().remove(paragraph)
    new = [_paragraph_like(first) for _ in range(count - 1)]
    rewrite.insert_after(first, new)
    blocks = [first, *new]
    if section is not None:
        properties = blocks[-1].find(W + "pPr")
        if properties is None:
            properties = etree.Element(W + "pPr")
            blocks[-1].insert(0, properties)
        change = properties.find(W + "pPrChange")
        properties.append(section) if change is None else change.addprevious(section)
    return blocks


def _paragraph_like(first):
    new = etree.Element(W + "p", nsmap=first.nsmap)
    properties = first.find(W + "pPr")
    if properties is not None:
        copied = copy.deepcopy(properties)
        for child in [c for c in copied.iter() if c.tag in NOT_COPIED | fields.DELETED]:
            child.getparent().remove(child)
        new.append(copied)
    return new

