"""What the macro itself looks at inside a field code: that it is whole, and its recorded text."""

import json

from . import runs
from .fields import CITATION


def cluster(code):
    """The citation cluster of a field code, or None where its JSON is not an object."""
    prefix = CITATION.match(code)
    if not prefix:
        return None
    try:
        value = json.loads(
            code[prefix.end() :], strict=False, parse_int=str, parse_constant=_refuse
        )
    except (ValueError, RecursionError):
        return None
    return value if isinstance(value, dict) else None


def _refuse(constant):
    raise ValueError(constant)


def recorded_text(code):
    """The markup that the application last gave for this citation; None where there is none."""
    tessaron = (cluster(code) or {}).get("tessaron")
    tessaron = tessaron if isinstance(tessaron, dict) else {}
    texts = [tessaron.get(key) for key in ("manualFormatting", "previouslyFormattedCitation")]
    return next((text for text in texts if isinstance(text, str)), None)


def current_text(field):
    """The markup of a citation as it reads now: the recorded text where that is what is shown,
    because runs cannot hold every character of it."""
    recorded, pieces = recorded_text(field.code), field.pieces()
    if recorded is not None and runs.shown(runs.pieces_of_markup(recorded)) == pieces:
        return recorded
    return runs.markup_of_pieces(pieces)


def is_edited(field):
    recorded = recorded_text(field.code)
    return recorded is not None and current_text(field) != recorded
