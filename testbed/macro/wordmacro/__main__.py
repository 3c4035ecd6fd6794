"""The command line of the macro stand-in."""

import argparse
import os
import re
import signal
import sys

from . import commands, exchange
from .document import Document
from .failure import Failure

CONTROLS = re.compile("[\x00-\x1f\x7f\ud800-\udfff\\\\]")
SHORT = {"\n": "\\n", "\t": "\\t", "\r": "\\r", "\\": "\\\\"}


def main():
    # When nobody reads its output any more, as behind "| head", it ends without a word.
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    options = _parser().parse_args()
    for stream in (sys.stdout, sys.stderr):
        stream.reconfigure(encoding="utf-8", errors="backslashreplace")
    try:
        print(options.action(options))
    except KeyboardInterrupt:
        return 130
    except Failure as failure:
        print(f"macro: {failure}", file=sys.stderr)
        return 1
    return 0


def _run(options):
    answer = exchange.run(options.bridge, options.command, options.argument, options.folder)
    sys.stderr.write(answer.warnings)
    lines = (CONTROLS.sub(_visible, text) for text in answer.results)
    return "\n".join(f"{number}: {line}" for number, line in enumerate(lines, 1))


def _visible(found):
    return SHORT.get(found.group(), f"\\u{ord(found.group()):04x}")


def _list(options):
    return commands.list_citations(Document(options.input))


def _change(options):
    """One citation, then the whole document where a style is named; one write at the end."""
    document = Document(options.input)
    said = []
    if options.command:
        details = (getattr(options, detail) for detail in options.details)
        said.append(options.command(options.bridge, document, *details))
    if options.style is not None:
        said.append(commands.format_document(options.bridge, document, options.style))
    document.package.save(options.output)
    return " ".join([*said, f"Written to {options.output}."])


# Name, what it does to one citation, the citation numbers that it takes, the help.
CHANGES = (
    ("format", None, (), "all citations and the bibliography"),
    ("insert", commands.insert, (), "a new citation at the end of the body, or at a bookmark"),
    ("edit", commands.edit, ("number",), "one citation, in the dialog"),
    ("merge", commands.merge, ("first", "last"), "neighbouring citations into one"),
    ("undo", commands.undo, ("number",), "the text edited by hand of one citation"),
)


def _parser():
    parser = argparse.ArgumentParser(prog="macro", description=__doc__)
    parser.add_argument(
        "--bridge",
        default=os.environ.get("BRIDGE", "tessaron-word-bridge"),
        help="the bridge's executable (else $BRIDGE, else looked up on the path)",
    )
    actions = parser.add_subparsers(required=True, metavar="ACTION")
    run = actions.add_parser("run", help="one command of the bridge, its results numbered")
    run.add_argument("--folder", help="the exchange folder (else one of its own, then removed)")
    run.add_argument("command")
    run.add_argument("argument", nargs=argparse.REMAINDER)
    run.set_defaults(action=_run)
    listing = actions.add_parser("list", help="the citations of a document and their numbers")
    listing.add_argument("input", metavar="IN.docx")
    listing.set_defaults(action=_list)
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
        parser.add_argument("--uuid", help="the work to cite (else chosen in the dialog)")
        parser.add_argument("--bookmark", help="where to insert it")
    parser.add_argument(
        "--style", required=command is None, help="the style to format the document in"
    )
    parser.set_defaults(action=_change, command=command, details=details)


if __name__ == "__main__":
    sys.exit(main())
