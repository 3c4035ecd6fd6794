"""A Word document as the commands see it: its citations in order, and what can be done to them."""

import sys

from lxml import etree

from . import bibliography, fields, rewrite, runs
from .failure import Failure
from .package import W, Package

NOT_NEIGHBOURS = "Citations {} and {} do not stand side by side, so they cannot be merged."


class Document:
    def __init__(self, path):
        self.path = path
        self.package = Package(path)
        self.find()
        for field in self.left:
            _warn(f"The citation {quoted(field)} is left as it was: {field.problem}.")

    @property
    def body(self):
        return self.package.trees[self.package.main].find(W + "body")

    def find(self):
        found = fields.find(self.package)
        self.citations, self.left = found.citations, found.left
        self.bibliographies = found.bibliographies

    def citation(self, number):
        if not 1 <= number <= len(self.citations):
            raise Failure(f"{self.path} has no citation {number}; it has {len(self.citations)}.")
        return self.citations[number - 1]

    def named(self, index):
        return f"citation {index + 1} of {len(self.citations)}, {quoted(self.citations[index])}"

    def fill_bibliography(self, text):
        entries = bibliography.entries_of(text)
        places = self.bibliographies
        if not places:
            places = [bibliography.create(self.body)]
        for field in places:
            problem = bibliography.fill(field, entries)
            if problem:
                _warn(f"The bibliography in {field.place} is left as it was: {problem}.")
        return entries

    def insert(self, code, text, bookmark):
        """A new field at the bookmark's end, or at the end of the body's last paragraph."""
        new = rewrite.new_field(code, runs.runs_of_pieces([(text, frozenset())], None))
        if bookmark is None:
            self._last_paragraph().extend(new)
        else:
            rewrite.insert_after(self._bookmark_end(bookmark), new)
        self.find()

    def _last_paragraph(self):
        """The body's last paragraph, or a new one behind a table or the bibliography."""
        section = self.body.find(W + "sectPr")
        before = section.getprevious() if section is not None else next(reversed(self.body), None)
        endings = [f.end if f.simple is None else f.simple for f in self.bibliographies]
        if before is not None and before.tag == W + "p":
            if all(fields.paragraph(ending) is not before for ending in endings):
                return before
        paragraph = etree.Element(W + "p", nsmap=self.body.nsmap)
        self.body.append(paragraph) if section is None else section.addprevious(paragraph)
        return paragraph

    def _bookmark_end(self, name):
        for tree in self.package.trees.values():
            for start in tree.iter(W + "bookmarkStart"):
                if start.get(W + "name") != name:
                    continue
                ends = tree.iter(W + "bookmarkEnd")
                end = next((e for e in ends if e.get(W + "id") == start.get(W + "id")), None)
                if end is not None and end.getparent().tag == W + "p":
                    return end
        raise Failure(f'{self.path} has no bookmark "{name}" that ends inside a paragraph.')

    def merge(self, first, last, code):
        """The first of neighbouring citations gets the code; the others go, and the blanks."""
        chosen = self.citations[first - 1 : last]
        blanks = self.blanks_between(first, last)
        rewrite.set_everywhere(chosen[0], code, None)
        for field in chosen[1:]:
            for copy in (field, *field.twins):
                rewrite.remove_field(copy)
        for node in blanks:
            rewrite.remove(node)
        self.find()

    def blanks_between(self, first, last):
        """The blank texts between citations; a Failure where they do not stand side by side."""
        blanks = []
        for number in range(first, last):
            one, other = self.citations[number - 1], self.citations[number]
            if len(one.twins) != len(other.twins):
                raise Failure(NOT_NEIGHBOURS.format(number, number + 1))
            for left, right in zip((one, *one.twins), (other, *other.twins)):
                between = _contents_between(left, right)
                if between is None or any(n.tag != W + "t" or n.text.strip() for n in between):
                    raise Failure(NOT_NEIGHBOURS.format(number, number + 1))
                blanks += between
        return blanks


def _contents_between(left, right):
    """What runs hold between two fields of one paragraph; None for two paragraphs."""
    end = left.end if left.simple is None else [*left.simple.iter()][-1]
    begin = right.begin if right.simple is None else right.simple
    if fields.paragraph(end) is not fields.paragraph(begin):
        return None
    nodes = [*fields.paragraph(end).iter()]
    between = nodes[nodes.index(end) + 1 : nodes.index(begin)]
    return [n for n in between if n.getparent().tag == W + "r" and n.tag != W + "rPr"]


def quoted(field):
    text = " ".join(runs.plain(field.pieces()).split())
    return f'"{text if len(text) <= 60 else text[:59] + "…"}" in {field.place}'


def _warn(sentence):
    print(f"Warning: {sentence}", file=sys.stderr)
