"""Reads field codes: whether they contain a citation, its works, and the recorded text."""

import json
import re

from . import runs
from .fields import CITATION

NUMBER = re.compile(r'"(?:[^"\\]|\\.)*"|(-?\d+(?:\.\d+)?[eE][+-]?\d+|-?\d{300,}(?:\.\d+)?)')


def parse_cluster(code):
    """The JSON object in a citation's field code, from the first brace; or None."""
    start = code.find("{")
    if not CITATION.match(code) or start < 0:
        return None
    try:
        value = json.loads(
            code[start:], strict=False, parse_int=str, parse_constant=_reject_constant
        )
    except (ValueError, RecursionError):
        return None
    return value if isinstance(value, dict) else None


def _reject_constant(constant):
    raise ValueError(constant)


def works(code):
    return (parse_cluster(code) or {}).get("citationItems")


def has_works(code):
    return isinstance(works(code), list) and len(works(code)) > 0


def too_large_number(code):
    """Returns a number in a field code that exceeds the range of a double, or an empty string."""
    numbers = (found.group(1) for found in NUMBER.finditer(code) if found.group(1))
    return next((n for n in numbers if abs(float(n)) == float("inf")), "")


def recorded_text(code):
    """The markup that the application last recorded for this citation, or None."""
    record = _record(code)
    texts = [record.get(key) for key in ("manualFormatting", "previouslyFormattedCitation")]
    return next((text for text in texts if isinstance(text, str)), None)


def has_manual_text(code):
    return isinstance(_record(code).get("manualFormatting"), str)


def _record(code):
    record = (parse_cluster(code) or {}).get("tessaron")
    return record if isinstance(record, dict) else {}


def shows(field, markup):
    """Whether the document shows this text. Formatting that markup cannot express is ignored."""
    shown = runs.replace_unrepresentable(runs.pieces_of_markup(markup))
    expected = runs.remove_field_marks(field.marks, runs.add_field_marks(field.marks, shown))
    return expected == runs.remove_field_marks(field.marks, field.pieces())


def is_edited(field):
    """Whether the document shows a text different from the recorded one. A field without a text does
    not count as edited, because formatting it loses nothing."""
    recorded = recorded_text(field.code)
    has_text = runs.plain_text(field.pieces()).strip() != ""
    return recorded is not None and has_text and not shows(field, recorded)


def current_text(field):
    """The markup of the text that the document shows. If that is the recorded text, returns it as
    recorded, because runs cannot represent all of its characters."""
    recorded = recorded_text(field.code)
    if recorded is not None and (field.problem or shows(field, recorded)):
        return recorded
    return runs.markup_of_pieces(runs.remove_field_marks(field.marks, field.pieces()))


def marks_of_simple_field(field):
    """The marks of a simple field as a whole: those that all of its text has and the recorded text
    lacks. A simple field has no other place for them."""
    recorded = runs.pieces_of_markup(recorded_text(field.code) or "")
    return runs.common_marks(field.pieces()) - runs.common_marks(recorded)
