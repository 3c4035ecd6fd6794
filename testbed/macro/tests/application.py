"""A stub of the bridge and the application, for tests that run the macro in this process."""

import contextlib
import hashlib
import io
import json
import random
import signal
import sys
from unittest import mock

from wordmacro import __main__, exchange

PREFIX = "ADDIN CSL_CITATION "
OPENING = {"i": "<i>", "b": "<b>", "sup": "<sup>", "sub": "<sub>"}
OPENING["sc"] = '<span style="font-variant:small-caps;">'
CLOSING = {mark: f"</{mark}>" for mark in OPENING} | {"sc": "</span>"}
WORDS = "Turing 1950 & <Hopper> naïve 道 [3] et\tal. x\vy".split(" ")


def tagged(text, marks):
    for character, escape in (("&", "&amp;"), ("<", "&lt;"), (">", "&gt;")):
        text = text.replace(character, escape)
    opening = "".join(OPENING[mark] for mark in marks)
    return opening + text + "".join(CLOSING[mark] for mark in reversed(marks))


def random_markup(key):
    """Returns a text with random marks. The same key always gives the same text."""
    source = random.Random(hashlib.sha256(key.encode()).digest())
    pieces = []
    for _ in range(source.randint(1, 4)):
        marks = source.sample(["i", "b", source.choice(["sup", "sub"]), "sc"], source.randint(0, 3))
        pieces.append(tagged(source.choice(WORDS), marks))
    return " ".join(pieces)


class Application:
    """Formats each citation as `texts(style, id of its first work)`. `check` is the user's choice for
    an edited text: "record", "cancel" or "give up"."""

    def __init__(self, texts=lambda style, name: random_markup(style + name), check="record"):
        self.texts, self.check = texts, check
        self.commands = []

    def run(self, bridge, command, arguments, folder=None):
        self.commands.append((command, arguments))
        return exchange.Outcome(getattr(self, command)(*arguments), "")

    def isTessaronRunning(self):
        return ["true"]

    def checkManualFormatAndGetFieldCode(self, code, text):
        cluster = json.loads(code[code.index("{") :])
        if self.check == "record":
            cluster.setdefault("tessaron", {})["manualFormatting"] = text
        elif self.check == "give up":
            cluster.pop("tessaron", None)
        return [PREFIX + json.dumps(cluster)]

    def formatCitationsAndBibliography(self, style, *citations):
        results = ["true", style, self.bibliography(style, citations[::2])]
        for index, code in enumerate(citations[::2]):
            try:
                cluster = json.loads(code[code.index("{") :], strict=False)
                record = dict(cluster.get("tessaron") or {})
                name = str(cluster["citationItems"][0]["id"])
            except (ValueError, TypeError, KeyError, IndexError, AttributeError, RecursionError):
                return ["false", str(index)]
            text = record.get("manualFormatting", self.texts(style, name))
            record["previouslyFormattedCitation"] = text
            cluster["tessaron"] = record
            results += [PREFIX + json.dumps(cluster), text, text, text]
        return results

    def bibliography(self, style, codes):
        return "\n".join(random_markup(f"{style}{place}") for place in range(len(style) % 3 + 1))


def run_macro(application, *arguments):
    """Runs the macro's command line. Returns its exit status and what it printed."""
    out, err = (io.TextIOWrapper(io.BytesIO(), encoding="utf-8") for _ in range(2))
    former = {name: signal.getsignal(name) for name in __main__.STOPS}
    with contextlib.ExitStack() as stack:
        stack.enter_context(mock.patch.object(exchange, "run", application.run))
        stack.enter_context(mock.patch.object(sys, "stdout", out))
        stack.enter_context(mock.patch.object(sys, "stderr", err))
        try:
            status = __main__.main([str(argument) for argument in arguments])
        finally:
            for name, handler in former.items():
                signal.signal(name, handler)
    printed, message = (stream.buffer.getvalue().decode() for stream in (out, err))
    assert "An error in this program" not in message, message
    return status, printed, message
