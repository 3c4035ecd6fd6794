"""What the macro does with a document: format all of it, or change one citation."""

from . import clusters, exchange, rewrite, runs
from .document import quoted
from .failure import Failure

UNCHANGED = "Nothing was written."


def format_document(bridge, document, style):
    """One batch over all citations. Returns the sentence that says what was done."""
    if not document.citations:
        raise Failure(f"{document.path} holds no citations that can be formatted. {UNCHANGED}")
    for number, field in enumerate(document.citations):
        _keep_edit(bridge, document, number, field)
    submitted = [t for f in document.citations for t in (f.code, clusters.current_text(f))]
    answer = exchange.run(bridge, "formatCitationsAndBibliography", [style, *submitted])
    style, bibliography, citations = _batch(bridge, document, style, answer)
    for field, (code, text, _, _) in zip(document.citations, citations):
        rewrite.set_everywhere(field, code, runs.pieces_of_markup(text))
    entries = document.fill_bibliography(bibliography)
    return (
        f"Formatted {_count(len(citations), 'citation', 'citations')} and a bibliography of "
        f"{_count(len(entries), 'entry', 'entries')} in the style {style}."
    )


def _count(number, one, many):
    return f"{number} {one if number == 1 else many}"


def _keep_edit(bridge, document, index, field):
    """A text edited by hand is recorded in the citation before the batch could replace it."""
    if clusters.is_edited(field):
        text = clusters.current_text(field)
        command = "checkManualFormatAndGetFieldCode"
        code = _one(bridge, command, [field.code, text], document.named(index))
        rewrite.set_everywhere(field, code, None)


def _batch(bridge, document, style, answer):
    results, count = answer.results, len(document.citations)
    if results[0] == "false" and len(results) == 2:
        raise Failure(_refusal(bridge, document, style, results[1], answer.warnings))
    if results[0] != "true" or len(results) != 3 + 4 * count:
        raise Failure(f"The bridge answered with {len(results)} lines. {UNCHANGED}")
    citations = [tuple(results[i : i + 4]) for i in range(3, len(results), 4)]
    for index, (code, *_) in enumerate(citations):
        _checked(code, document.named(index))
    return results[1], results[2], citations


def _refusal(bridge, document, style, index, warnings):
    if index.isdecimal() and int(index) < len(document.citations):
        name = document.named(int(index))
        return f"Tessaron Desktop rejected {name}. {UNCHANGED}"
    said = " ".join(warnings.split())
    if said:
        return f"Tessaron Desktop's answer could not be used: {said} {UNCHANGED}"
    if exchange.run(bridge, "isTessaronRunning", []).results != ["true"]:
        return (
            f"Tessaron Desktop does not answer; it can be started with "
            f'"macro run launchTessaron". {UNCHANGED}'
        )
    return (
        f"Tessaron Desktop did not format the document: it refused the style {style}, "
        f"or broke off. {UNCHANGED}"
    )


def _one(bridge, command, arguments, name):
    return _checked(exchange.run(bridge, command, arguments).results[0], name)


def _checked(code, name):
    """A cut or strange reply gives a field code of "null"; it must not reach the document."""
    if clusters.cluster(code) is None:
        raise Failure(f"The answer for {name} holds no citation. {UNCHANGED}")
    return code


def list_citations(document):
    return "\n".join(
        f"{number}: {quoted(field)}{' (edited by hand)' if clusters.is_edited(field) else ''}"
        for number, field in enumerate(document.citations, 1)
    )


def insert(bridge, document, uuid, bookmark):
    if uuid is not None:
        results = exchange.run(bridge, "getFieldCodeFromUuid", [uuid]).results
    else:
        results = exchange.run(bridge, "getFieldCodeFromCitationEditor", [""]).results
    if results[0] == "":
        raise Failure(f"No citation was chosen, or Tessaron Desktop does not answer. {UNCHANGED}")
    code = _checked(results[0], "the new citation")
    document.insert(code, clusters.recorded_text(code) or "{Citation}", bookmark)
    return "One citation was inserted."


def edit(bridge, document, number):
    field = document.citation(number)
    results = exchange.run(bridge, "getFieldCodeFromCitationEditor", [field.code]).results
    if results[0] == "":
        raise Failure(f"Tessaron Desktop did not edit citation {number}. {UNCHANGED}")
    code = _checked(results[0], f"citation {number}")
    if code == field.code:
        return f"Citation {number} was left as it was."
    rewrite.set_everywhere(field, code, None)
    return f"Citation {number} was edited."


def merge(bridge, document, first, last):
    if not first < last:
        raise Failure("Merging needs two citations: the number of the first, then of the last.")
    chosen = [document.citation(number) for number in range(first, last + 1)]
    document.blanks_between(first, last)
    results = exchange.run(bridge, "mergeFields", [field.code for field in chosen]).results
    if results[0] == "":
        raise Failure(f"Tessaron Desktop did not merge the citations. {UNCHANGED}")
    document.merge(first, last, _checked(results[0], f"citations {first} to {last}"))
    return f"Citations {first} to {last} were merged into one."


def undo(bridge, document, number):
    field = document.citation(number)
    if exchange.run(bridge, "hasManualEdit", [field.code]).results != ["true"]:
        raise Failure(f"Citation {number} has no text edited by hand on record. {UNCHANGED}")
    code = _one(bridge, "undoManualFormat", [field.code], f"citation {number}")
    if exchange.run(bridge, "hasManualEdit", [code]).results != ["false"]:
        raise Failure(f"Tessaron Desktop did not undo the edit of citation {number}. {UNCHANGED}")
    rewrite.set_everywhere(field, code, None)
    return f"The edit of citation {number} was undone."
