"""Changes the code or the text of a field, or adds, removes or converts a whole field."""

import copy

from lxml import etree

from . import runs
from .package import W

# An element with one of these tags is removed when its last run is removed.
CONTAINERS = {W + name for name in ("ins", "moveTo", "hyperlink", "smartTag")}


def set_code(field, code):
    # Characters that XML cannot represent occur only inside JSON strings, where an escape sequence means the same.
    code = runs.NOT_IN_XML.sub(lambda found: f"\\u{ord(found.group()):04x}", code)
    if code == field.code:
        return
    if field.simple is not None:
        field.simple.set(W + "instr", code)
        return
    first = next(node for node in field.codes if node.tag == W + "instrText")
    for node in field.codes:
        if node is not first:
            remove(node)
    first.text = code
    first.set(runs.XML_SPACE, "preserve")
    field.codes = [first]


def set_pieces(field, pieces):
    """Replaces a field's text, unless the document already shows exactly this text."""
    if field.marks:
        make_complex(field)
    # Adjacent pieces that look the same in this field are joined, even if their markup differs.
    pieces = runs.add_field_marks(field.marks, runs.replace_unrepresentable(pieces))
    if pieces == field.pieces():
        return
    new = runs.runs_of_pieces(pieces, field.new_text_properties)
    if field.simple is None:
        ensure_separator_run(field)
    place = _insert_placeholder(field)
    for node in field.texts:
        remove(node)
    insert_after(place, new)
    place.getparent().remove(place)
    field.texts = [node for run in new for node in run if node.tag != W + "rPr"]


def _insert_placeholder(field):
    """Inserts and returns an empty run where the field's text begins. The caller inserts the new text
    after it and then removes it. Bookmarks and comments in the field stay before or
    after the text, as they were."""
    place = etree.Element(W + "r")
    opening = field.simple if field.simple is not None else field.separate.getparent()
    block = opening if field.simple is not None else opening.getparent()
    first = field.texts[0].getparent() if field.texts else None
    if first is not None and first is not opening and first.getparent() is block:
        first.addprevious(place)
    elif field.simple is not None:
        field.simple.insert(0, place)
    else:
        opening.addnext(place)
    return place


def set_everywhere(field, code, pieces):
    """Changes a citation and its copies. With `pieces` None the text stays as it is."""
    for twin in (field, *field.twins):
        set_code(twin, code)
        if pieces is not None:
            set_pieces(twin, pieces)


def ensure_separator_run(field):
    """Returns the run of a complex field's separator, which the text follows. Adds a separator if the
    field has none, and moves the end character to another run if both are in the same run."""
    if field.separate is None:
        field.end = split_before(field.end)
        field.separate = etree.Element(W + "fldChar")
        field.separate.set(W + "fldCharType", "separate")
        field.end.getparent().addprevious(run_like(field.end.getparent(), [field.separate]))
    elif field.separate.getparent() is field.end.getparent():
        field.end = split_before(field.end)
    return field.separate.getparent()


def run_like(run, children):
    new = etree.Element(run.tag, nsmap=run.nsmap)
    properties = run.find(W + "rPr")
    new.extend([] if properties is None else [copy.deepcopy(properties)])
    new.extend(children)
    return new


def split_before(node):
    """Moves a node and what follows it in its run into a new run."""
    run = node.getparent()
    before = [child for child in node.itersiblings(preceding=True) if child.tag != W + "rPr"]
    if before:
        run.addnext(run_like(run, [node, *node.itersiblings()]))
    return node


def insert_after(place, elements):
    for element in reversed(elements):
        place.addnext(element)


def remove(node):
    """Removes a node, then its run if it is empty, then the container of the run if that is empty."""
    parent = node.getparent()
    parent.remove(node)
    if parent.tag == W + "r" and all(child.tag == W + "rPr" for child in parent):
        remove(parent)
    elif parent.tag in CONTAINERS and len(parent) == 0:
        remove(parent)


def remove_field(field):
    if field.simple is not None:
        remove(field.simple)
        return
    for node in (*field.codes, *field.texts, field.begin, field.separate, field.end):
        if node is not None:
            remove(node)


def new_field(code, texts=()):
    """The runs of a complex field around the runs of its text."""
    instruction = etree.Element(W + "instrText")
    instruction.text = code
    instruction.set(runs.XML_SPACE, "preserve")
    opening = [_field_character("begin"), instruction, _field_character("separate")]
    return [*map(_wrap_in_run, opening), *texts, _wrap_in_run(_field_character("end"))]


def make_complex(field):
    """Turns a simple field into a complex one, whose first run can hold the marks of the field as a
    whole."""
    if field.simple is None:
        return
    new = new_field(field.code, list(field.simple))
    for run in (new[0], new[1], new[2], new[-1]):
        properties = runs.properties_with_marks(None, field.simple_marks)
        run[:0] = [] if properties is None else [properties]
    insert_after(field.simple, new)
    field.simple.getparent().remove(field.simple)
    field.begin, field.separate, field.end = (new[i][-1] for i in (0, 2, -1))
    field.codes, field.simple = [new[1][-1]], None


def _field_character(kind):
    character = etree.Element(W + "fldChar", nsmap={"w": W[1:-1]})
    character.set(W + "fldCharType", kind)
    return character


def _wrap_in_run(content):
    run = etree.Element(W + "r", nsmap={"w": W[1:-1]})
    run.append(content)
    return run
