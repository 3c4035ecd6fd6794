"""The command line of the stand-in for the macro."""

import argparse
import os
import re
import signal
import sys
import traceback
from pathlib import Path

from . import commands, console, exchange
from .document import Document
from .exchange import STOPS
from .failure import Failure
from .package import check_target

CONTROLS = re.compile("[\x00-\x1f\x7f\ud800-\udfff\\\\]")
SHORT_ESCAPES = {"\n": "\\n", "\t": "\\t", "\r": "\\r", "\\": "\\\\"}


class Stopped(BaseException):
    """Raised when a signal stops the program, so that temporary files are removed."""


def main(arguments=None):
    console.set_up()
    try:
        options = _create_parser().parse_args(arguments)
    except OSError:  # the help or the usage line could not be printed
        return 1
    finally:
        console.flush()
    try:
        _stop_on_signals()
        return options.action(options)
    except Stopped as stopped:
        console.report("macro: Interrupted.")
        return 128 + stopped.args[0]
    except Failure as failure:
        console.report(f"macro: {failure}")
        return 1
    except Exception as error:  # a bug in this program: print a sentence, not a traceback
        console.report(f"macro: {_describe_error(error)} Nothing was written.")
        return 1


def _describe_error(error):
    *_, place = traceback.extract_tb(error.__traceback__)
    where = f"{os.path.basename(place.filename)}, line {place.lineno}"
    return f"An error in this program stopped it: {type(error).__name__} in {where}."


def _stop_on_signals():
    def stop(number, _):
        for name in STOPS:
            signal.signal(name, signal.SIG_IGN)
        raise Stopped(number)

    for name in STOPS:
        if signal.getsignal(name) != signal.SIG_IGN:  # nohup and background jobs ignore it; keep that
            signal.signal(name, stop)


def _run_command(options):
    arguments = [_decode_argument(argument) for argument in options.argument]
    outcome = exchange.run(options.bridge, options.command, arguments, options.folder)
    console.report(outcome.messages)
    if options.results is not None:
        return _write_results(Path(options.results), outcome.results)
    lines = (CONTROLS.sub(_escape_character, text) for text in outcome.results)
    return _print("\n".join(f"{number}: {line}" for number, line in enumerate(lines, 1)))


def _decode_argument(argument):
    """Decodes an argument from the command line, which may contain unpaired surrogates."""
    try:
        return os.fsencode(argument).decode("utf-8", "surrogatepass")
    except UnicodeError:
        raise Failure("An argument is not UTF-8.")


def _escape_character(found):
    return SHORT_ESCAPES.get(found.group(), f"\\u{ord(found.group()):04x}")


def _write_results(folder, results):
    """Writes each result to a file named 1, 2 and so on. Removes files with higher numbers."""
    try:
        folder.mkdir(exist_ok=True)
        for number, text in enumerate(results, 1):
            (folder / str(number)).write_bytes(text.encode("utf-8", "surrogatepass"))
        surplus = len(results) + 1
        while (folder / str(surplus)).is_file():
            (folder / str(surplus)).unlink()
            surplus += 1
    except (OSError, ValueError) as error:
        reason = getattr(error, "strerror", None) or error
        raise Failure(f"The results cannot be written to {folder}: {reason}.")
    return 0


def _print(text):
    """Prints the result of an action. If a pipe has no reader, the program ends silently."""
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    if console.write(sys.stdout, text):
        return 0
    raise Failure("Standard output is closed or full.")


def _list_citations(options):
    return _print(commands.list_citations(Document(options.input)))


def _change_document(options):
    """Changes one citation, then formats the document if a style is given; writes once, at the end.
    Returns 0 once the document is written, even if the sentence about it cannot be printed."""
    check_target(options.output)
    document = Document(options.input)
    if document.package.is_signed and not options.drop_signature:
        raise Failure(
            f"{options.input} has a digital signature, which becomes invalid when the document is "
            "changed. Nothing was written. With --drop-signature it is removed."
        )
    done = []
    choices = commands.Choices(options.discard_edits, options.skip_unreadable)
    if options.command:
        details = (getattr(options, detail) for detail in options.details)
        done.append(options.command(options.bridge, document, choices, *details))
    if options.style is not None:
        done.append(commands.format_document(options.bridge, document, options.style, choices))
    document.package.save(options.output)
    console.write(sys.stdout, " ".join([*done, f"Written to {options.output}."]))
    return 0


# Name, function that changes one citation, citation numbers that it takes, help text.
CHANGES = (
    ("format", None, (), "all citations and the bibliography"),
    ("insert", commands.insert, (), "a new citation at the end of the body, or at a bookmark"),
    ("edit", commands.edit, ("number",), "one citation, in the dialog"),
    ("merge", commands.merge, ("first", "last"), "adjacent citations into one"),
    ("undo", commands.undo, ("number",), "the hand-edited text of one citation"),
)

FLAGS = (
    ("--discard-edits", "replace texts edited by hand that are not recorded"),
    ("--skip-unreadable", "format without the citations that cannot be read"),
    ("--drop-signature", "remove the digital signature of a signed document"),
)


def _create_parser():
    parser = argparse.ArgumentParser(prog="macro", description=__doc__)
    parser.add_argument(
        "--bridge",
        default=os.environ.get("BRIDGE", "tessaron-word-bridge"),
        help="the bridge's executable (default: $BRIDGE, otherwise looked up on the path)",
    )
    actions = parser.add_subparsers(required=True, metavar="ACTION")
    run = actions.add_parser("run", help="one command of the bridge, its results numbered")
    run.add_argument("--folder", help="the exchange folder (default: a temporary one)")
    run.add_argument("--results", metavar="FOLDER", help="write each result to a file, unchanged")
    run.add_argument("command")
    run.add_argument("argument", nargs=argparse.REMAINDER)
    run.set_defaults(action=_run_command)
    listing = actions.add_parser("list", help="the citations of a document and their numbers")
    listing.add_argument("input", metavar="IN.docx")
    listing.set_defaults(action=_list_citations)
    for change in CHANGES:
        _add_change(actions, *change)
    return parser


def _add_change(actions, name, command, numbers, text):
    parser = actions.add_parser(name, help=text)
    parser.add_argument("input", metavar="IN.docx")
    parser.add_argument("output", metavar="OUT.docx")
    for number in numbers:
        parser.add_argument(number, type=int)
    details = numbers
    if command is commands.insert:
        details = ("uuid", "bookmark")
        parser.add_argument("--uuid", help="the work to cite (default: chosen in the dialog)")
        parser.add_argument("--bookmark", help="the place for it")
    for flag, meaning in FLAGS:
        parser.add_argument(flag, action="store_true", help=meaning)
    parser.add_argument(
        "--style", required=command is None, help="the style to format the document in"
    )
    parser.set_defaults(action=_change_document, command=command, details=details)


if __name__ == "__main__":
    sys.exit(main())
