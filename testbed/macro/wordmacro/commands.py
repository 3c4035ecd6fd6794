"""The actions on a document: format all of it, or change one citation."""

from typing import NamedTuple

from . import bibliography, clusters, exchange, rewrite, runs
from .document import quoted, warn
from .failure import Failure

UNCHANGED = "Nothing was written."
NOT_RUNNING = (
    'Tessaron Desktop does not reply; it can be started with "macro run launchTessaron".'
)
SKIPPING_EFFECT = (
    "numeric styles number the citations without it, and a work that is cited nowhere else is "
    "missing from the bibliography."
)


class Choices(NamedTuple):
    """What the user allows explicitly, by an option."""

    discard_edits: bool = False
    skip_unreadable: bool = False


class Batch(NamedTuple):
    style: str
    entries: list  # of the bibliography, each as pieces
    codes: list
    texts: list  # as pieces


def format_document(bridge, document, style, choices=Choices()):
    """Formats all citations in one batch. Returns a sentence about what was done."""
    if not document.all_citations:
        raise Failure(f"{document.path} holds no citations. {UNCHANGED}")
    citations = _readable_citations(document, choices)
    if not choices.discard_edits:
        for field in (f for f in citations if not f.problem):
            _record_edit(bridge, document, field)
    citations, batch = _format_citations(bridge, document, citations, style, choices)
    formatted = zip(citations, batch.codes, batch.texts)
    written = [entry for entry in formatted if not entry[0].problem]
    for field, code, text in written:
        rewrite.set_everywhere(field, code, text)
    document.fill_bibliography(batch.entries)
    return (
        f"Formatted {_number_of(len(written), 'citation', 'citations')} and a bibliography of "
        f"{_number_of(len(batch.entries), 'entry', 'entries')} in the style {batch.style}."
    )


def _number_of(number, one, many):
    return f"{number} {one if number == 1 else many}"


def _readable_citations(document, choices):
    """The citations whose field codes can be sent. A citation that cannot be written is also sent,
    because it has a number in numeric styles and its works are in the bibliography. Without
    --skip-unreadable, fails if a citation can be neither read nor written. Other unreadable citations
    are sent: the application rejects them and gives the reason."""
    unreadable = [f for f in document.unwritable if clusters.parse_cluster(f.code) is None]
    if choices.skip_unreadable:
        unreadable = [f for f in document.all_citations if clusters.parse_cluster(f.code) is None]
    for field in unreadable:
        if not choices.skip_unreadable:
            raise Failure(
                f"The field code of the citation {quoted(field)} cannot be read, because "
                f"{field.problem}. {UNCHANGED} {_advice()}"
            )
        _warn_of_skipping(field)
    readable = [field for field in document.all_citations if field not in unreadable]
    if not readable:
        raise Failure(f"{document.path} holds no citation that can be read. {UNCHANGED}")
    return readable


def _advice():
    return f"With --skip-unreadable the others are formatted without it: {SKIPPING_EFFECT}"


def _warn_of_skipping(field):
    warn(f"The citation {quoted(field)} cannot be read and is skipped: {SKIPPING_EFFECT}")


def _record_edit(bridge, document, field):
    """Lets the application record a text edited by hand, which the batch would otherwise replace.
    Fails if the old record comes back, because the command failed or its dialog was cancelled."""
    if not clusters.is_edited(field):
        return
    name = document.describe(field)
    arguments = [field.code, clusters.current_text(field)]
    results = exchange.run(bridge, "checkManualFormatAndGetFieldCode", arguments).results
    code = _check_code(results[0], name)
    if not _is_recorded(field, code) and not _is_edit_discarded(field, code):
        _check_running(bridge)
        raise Failure(
            f"The hand-edited text of {name} was not recorded: Tessaron Desktop failed, or its "
            f"dialog was cancelled. {UNCHANGED} With --discard-edits such texts are replaced."
        )
    rewrite.set_everywhere(field, code, None)


def _is_recorded(field, code):
    return clusters.has_manual_text(code) and clusters.shows(field, clusters.recorded_text(code))


def _is_edit_discarded(field, code):
    """Whether the user chose the style's text: the same works came back without any recorded text."""
    is_same = clusters.works(code) == clusters.works(field.code)
    return is_same and clusters.recorded_text(code) is None


def _check_running(bridge):
    if exchange.run(bridge, "isTessaronRunning", []).results != ["true"]:
        raise Failure(f"{NOT_RUNNING} {UNCHANGED}")


def _format_citations(bridge, document, citations, style, choices):
    """Returns the citations of the batch and its results. With `skip_unreadable`, repeats the batch
    without each citation that is rejected."""
    while True:
        sent = [text for f in citations for text in (f.code, clusters.current_text(f))]
        outcome = exchange.run(bridge, "formatCitationsAndBibliography", [style, *sent])
        rejected = _rejected_citation(outcome.results, citations)
        if rejected is None:
            return citations, _parse_batch(bridge, document, citations, style, outcome, choices)
        if not choices.skip_unreadable or len(citations) == 1:
            advice = "" if choices.skip_unreadable else f" {_advice()}"
            name = document.describe(rejected)
            raise Failure(f"Tessaron Desktop rejected {name}. {UNCHANGED}{advice}")
        _warn_of_skipping(rejected)
        citations = [field for field in citations if field is not rejected]


def _rejected_citation(results, citations):
    if results[0] == "false" and len(results) == 2 and results[1].isdecimal():
        if int(results[1]) < len(citations):
            return citations[int(results[1])]
    return None


def _parse_batch(bridge, document, citations, style, outcome, choices):
    results = outcome.results
    if results[0] == "false" and len(results) == 2:
        raise Failure(_failure_reason(bridge, document, citations, style, outcome.messages))
    expected = 3 + 4 * len(citations)
    if results[0] != "true" or len(results) != expected:
        raise Failure(
            f"The batch gave {len(results)} results instead of {expected}. One of them may hold "
            f"U+0001, which separates results. {UNCHANGED}"
        )
    batch = Batch(
        results[1],
        bibliography.entries_of(results[2]),
        results[3::4],
        [runs.pieces_of_markup(text) for text in results[4::4]],
    )
    _check_batch(document, citations, batch, choices)
    return batch


def _check_batch(document, citations, batch, choices):
    """Rejects a batch without a style, a bibliography or a text. The application reports it as a
    success, but it would replace what the document has."""
    if not batch.style:
        raise Failure(f"The results of the batch name no style. {UNCHANGED}")
    if not any(runs.plain_text(entry).strip() for entry in batch.entries):
        raise Failure(f"The bibliography in the results is empty. {UNCHANGED}")
    for field, code, text in zip(citations, batch.codes, batch.texts):
        if not clusters.has_works(code):
            raise _no_citation_failure(document.describe(field))
        if not runs.plain_text(text).strip():
            name = document.describe(field)
            raise Failure(f"The new text for {name} is empty. {UNCHANGED}")
        if not choices.discard_edits and _would_lose_edit(field, text):
            raise Failure(
                f"The new text would replace the hand-edited text of {document.describe(field)}. "
                f"{UNCHANGED} With --discard-edits it is replaced."
            )


def _would_lose_edit(field, text):
    """Whether the text would replace a recorded edit that the document shows."""
    is_shown = clusters.has_manual_text(field.code) and not clusters.is_edited(field)
    return is_shown and not field.problem and not clusters.shows(field, runs.markup_of_pieces(text))


def _failure_reason(bridge, document, citations, style, messages):
    for field in citations:
        number = clusters.too_large_number(field.code)
        if number:
            return (
                f"The field code of {document.describe(field)} holds the number {number[:30]}, which "
                f"exceeds the range of a double. The bridge cannot read it in a reply. {UNCHANGED}"
            )
    if "received 0 formatted citations" in messages:
        return (
            f"Tessaron Desktop's reply could not be used: {messages} The reply was cut off, is not "
            f"JSON, or holds a number that exceeds the range of a double. {UNCHANGED}"
        )
    if messages:
        return f"Tessaron Desktop's reply could not be used: {messages} {UNCHANGED}"
    _check_running(bridge)
    return (
        f"Tessaron Desktop did not format the document: it refused the style {style}, "
        f"or failed. {UNCHANGED}"
    )


def _check_code(code, name):
    """Returns a field code if it can be written. From a reply that was cut off, the bridge makes
    the field code "null"."""
    if not clusters.has_works(code):
        raise _no_citation_failure(name)
    return code


def _no_citation_failure(name):
    return Failure(f"The result for {name} holds no citation. {UNCHANGED}")


def list_citations(document):
    if not document.citations:
        return f"{document.path} holds no citations that can be changed."
    return "\n".join(
        f"{number}: {quoted(field)}{' (edited by hand)' if clusters.is_edited(field) else ''}"
        for number, field in enumerate(document.citations, 1)
    )


def insert(bridge, document, choices, uuid, bookmark):
    places = document.insertion_places(bookmark)  # fails before a dialog opens
    if uuid is not None:
        results = exchange.run(bridge, "getFieldCodeFromUuid", [uuid]).results
    else:
        results = exchange.run(bridge, "getFieldCodeFromCitationEditor", [""]).results
    if results[0] == "":
        raise Failure(f"No citation was chosen, or Tessaron Desktop does not reply. {UNCHANGED}")
    code = _check_code(results[0], "the new citation")
    text = clusters.recorded_text(code) or "{Citation}"
    document.insert(code, runs.pieces_of_markup(text), places)
    return "One citation was inserted."


def edit(bridge, document, choices, number):
    field = document.citation(number)
    _check_no_edit(document, [field], "Editing it", choices)
    results = exchange.run(bridge, "getFieldCodeFromCitationEditor", [field.code]).results
    if results[0] == "":
        raise Failure(f"Tessaron Desktop did not edit citation {number}. {UNCHANGED}")
    code = _check_code(results[0], f"citation {number}")
    if code == field.code:
        return f"Citation {number} was not changed."
    rewrite.set_everywhere(field, code, None)
    return f"Citation {number} was edited."


def merge(bridge, document, choices, first, last):
    if not first < last:
        raise Failure("Merging needs two citations: the number of the first, then of the last.")
    chosen = [document.citation(number) for number in range(first, last + 1)]
    document.whitespace_between(first, last)  # fails before anything is sent
    _check_no_edit(document, chosen, "Merging", choices)
    results = exchange.run(bridge, "mergeFields", [field.code for field in chosen]).results
    if results[0] == "":
        raise Failure(f"Tessaron Desktop did not merge the citations. {UNCHANGED}")
    document.merge(first, last, _check_code(results[0], f"citations {first} to {last}"))
    return f"Citations {first} to {last} were merged into one."


def _check_no_edit(document, fields, action, choices):
    """Fails if a citation was edited by hand: the application would discard the edit."""
    for field in fields:
        is_edited = clusters.is_edited(field) or clusters.has_manual_text(field.code)
        if is_edited and not choices.discard_edits:
            raise Failure(
                f"{action} would replace the hand-edited text of {document.describe(field)}. "
                f"{UNCHANGED} With --discard-edits it is replaced."
            )


def undo(bridge, document, choices, number):
    field = document.citation(number)
    if exchange.run(bridge, "hasManualEdit", [field.code]).results != ["true"]:
        raise Failure(f"Citation {number} has no hand-edited text on record. {UNCHANGED}")
    results = exchange.run(bridge, "undoManualFormat", [field.code]).results
    code = _check_code(results[0], f"citation {number}")
    if exchange.run(bridge, "hasManualEdit", [code]).results != ["false"]:
        raise Failure(f"Tessaron Desktop did not undo the edit of citation {number}. {UNCHANGED}")
    rewrite.set_everywhere(field, code, None)
    return f"The edit of citation {number} was undone."
