"""A Word document: its citations in reading order, and the changes to them."""

from lxml import etree

from . import bibliography, clusters, fields, rewrite, runs
from .console import report
from .failure import Failure
from .package import W, Package

NOT_ADJACENT = "Citations {} and {} are not adjacent, so they cannot be merged."


class Document:
    def __init__(self, path):
        self.path = path
        self.package = Package(path)
        self.find_fields()
        for field in self.unwritable:
            warn(
                f"The citation {quoted(field)} is left unchanged: {field.problem}. "
                "Its text may be out of date."
            )

    @property
    def body(self):
        return self.package.trees[self.package.main].find(W + "body")

    def find_fields(self):
        found = fields.find(self.package)
        self.all_fields, self.bibliographies = found.all_fields, found.bibliographies
        self.all_citations = found.citations
        for field in (twin for top in found.all_fields for twin in (top, *top.twins)):
            if field.simple is not None:
                field.simple_marks = clusters.marks_of_simple_field(field)
        self.citations = [f for f in found.citations if not f.problem]
        self.unwritable = [f for f in found.citations if f.problem]

    def citation(self, number):
        if not 1 <= number <= len(self.citations):
            raise Failure(f"{self.path} has no citation {number}; it has {len(self.citations)}.")
        return self.citations[number - 1]

    def describe(self, field):
        if field in self.unwritable:
            return f"the unwritable citation {quoted(field)}"
        number, count = self.citations.index(field) + 1, len(self.citations)
        return f"citation {number} of {count} ({quoted(field)})"

    def fill_bibliography(self, entries):
        for field in self.bibliographies or [bibliography.create(self.body)]:
            problem = bibliography.fill(field, entries)
            if problem:
                warn(f"The bibliography in {field.place} is left unchanged: {problem}.")

    def insertion_places(self, bookmark):
        """The elements to insert a new field after: one, or in a text box one in each copy. None means
        the end of the body's last paragraph."""
        return None if bookmark is None else self._bookmark_ends(bookmark)

    def insert(self, code, pieces, places):
        for place in [None] if places is None else places:
            texts = runs.runs_of_pieces(runs.replace_unrepresentable(pieces), None)
            new = rewrite.new_field(code, texts)
            if place is None:
                self._last_paragraph().extend(new)
            else:
                rewrite.insert_after(place, new)
        self.find_fields()

    def _last_paragraph(self):
        """The body's last paragraph, or a new one after a table or the bibliography."""
        section = self.body.find(W + "sectPr")
        before = section.getprevious() if section is not None else next(reversed(self.body), None)
        endings = [f.end if f.simple is None else f.simple for f in self.bibliographies]
        if before is not None and before.tag == W + "p":
            if all(fields.paragraph_of(ending) is not before for ending in endings):
                return before
        paragraph = etree.Element(W + "p", nsmap=self.body.nsmap)
        self.body.append(paragraph) if section is None else section.addprevious(paragraph)
        return paragraph

    def _bookmark_ends(self, name):
        ends = [
            end
            for tree in self.package.trees.values()
            for start in tree.iter(W + "bookmarkStart")
            if start.get(W + "name") == name and (end := _end_of(start)) is not None
        ]
        if not ends:
            raise Failure(f'{self.path} has no bookmark "{name}" that ends inside a paragraph.')
        ends = [end for end in ends if end is ends[0] or _are_copies(end, ends[0])]
        if any(_contains(field, end) for field in self.all_fields for end in ends):
            raise Failure(
                f'The bookmark "{name}" ends inside a field, such as a citation, whose text is '
                "replaced when it is updated. Set a bookmark outside it."
            )
        return ends

    def merge(self, first, last, code):
        """Gives the code to the first of adjacent citations and removes the others, with the
        whitespace between them."""
        chosen = self.citations[first - 1 : last]
        whitespace = self.whitespace_between(first, last)
        rewrite.set_everywhere(chosen[0], code, None)
        for field in chosen[1:]:
            for copy in (field, *field.twins):
                rewrite.remove_field(copy)
        for node in whitespace:
            rewrite.remove(node)
        self.find_fields()

    def whitespace_between(self, first, last):
        """The text elements between citations. Fails if anything but whitespace is between them."""
        whitespace = []
        for number in range(first, last):
            one, other = self.citations[number - 1], self.citations[number]
            if len(one.twins) != len(other.twins):
                raise Failure(NOT_ADJACENT.format(number, number + 1))
            for left, right in zip((one, *one.twins), (other, *other.twins)):
                between = _contents_between(left, right)
                if between is None or not all(map(_is_whitespace, between)):
                    raise Failure(NOT_ADJACENT.format(number, number + 1))
                whitespace += between
        return whitespace


def _end_of(start):
    """The end of a bookmark, or None if it is not inside a paragraph. The copies of a text box may use
    the same id, so this is the next end after the start."""
    ends = start.xpath("following::w:bookmarkEnd", namespaces={"w": W[1:-1]})
    end = next((end for end in ends if end.get(W + "id") == start.get(W + "id")), None)
    return end if end is not None and end.getparent().tag == W + "p" else None


def _are_copies(one, other):
    """Whether two elements are in different branches of one text box that is stored twice."""
    alternate = fields.MC + "AlternateContent"
    return not set(one.iterancestors(alternate)).isdisjoint(other.iterancestors(alternate))


def _contains(field, element):
    if field.simple is not None:
        return field.simple in element.iterancestors()
    begin, end = field.begin.getparent(), field.end.getparent()
    tree = begin.getroottree().getroot()
    order = {node: place for place, node in enumerate(tree.iter())}
    return element in order and order[begin] < order[element] < order[end]


def _contents_between(left, right):
    """The contents of the runs between two fields; None if the fields are in different paragraphs."""
    end = left.end if left.simple is None else [*left.simple.iter()][-1]
    begin = right.begin if right.simple is None else right.simple
    if fields.paragraph_of(end) is not fields.paragraph_of(begin):
        return None
    nodes = [*fields.paragraph_of(end).iter()]
    between = nodes[nodes.index(end) + 1 : nodes.index(begin)]
    return [n for n in between if n.getparent().tag == W + "r" and n.tag != W + "rPr"]


def _is_whitespace(node):
    return node.tag == W + "t" and not (node.text or "").strip()


def quoted(field):
    text = " ".join(runs.plain_text(field.pieces()).split())
    return f'"{text if len(text) <= 60 else text[:59] + "…"}" in {field.place}'


def warn(sentence):
    report(f"Warning: {sentence}")
