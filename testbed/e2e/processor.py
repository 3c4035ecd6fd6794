"""Asks the CSL processor directly. Returns its texts as letters with their marks."""

import functools
import html.parser
import json
import re
import subprocess
from pathlib import Path

ASK = Path(__file__).resolve().parents[1] / "desktop" / "ask-citeproc.js"
TAGS = {"i": "i", "em": "i", "b": "b", "sup": "superscript", "sub": "subscript"}
STYLES = {
    "font-style:normal;": ("i", False),
    "font-weight:normal;": ("b", False),
    "font-variant:normal;": ("small caps", False),
    "font-variant:small-caps;": ("small caps", True),
    "font-style:italic;": ("i", True),
    "font-weight:bold;": ("b", True),
}


def ask(style, clusters):
    """Returns citations and bibliography. Puts each citation into a new note and uses the first URI of a
    work as its id."""
    numbered = [
        {
            "citationItems": [{**item, "id": item["uris"][0]} for item in cluster["citationItems"]],
            "properties": {"noteIndex": number},
        }
        for number, cluster in enumerate(clusters, start=1)
    ]
    answer = _run(style, json.dumps({"citationClusters": numbered}))
    return [letters(t) for t in answer["citations"]], [letters(t) for t in answer["bibliography"]]


@functools.lru_cache(maxsize=None)
def _run(style, document):
    done = subprocess.run(
        ["node", str(ASK), style],
        input=document.encode("ascii"),
        stdout=subprocess.PIPE,
        check=True,
        timeout=120,
    )
    return json.loads(done.stdout)


def letters(markup):
    reader = _Reader(convert_charrefs=True)
    reader.feed(markup)
    reader.close()
    return reader.letters


class _Reader(html.parser.HTMLParser):
    def __init__(self, **options):
        super().__init__(**options)
        self.letters, self.open = [], [("", frozenset())]

    def handle_starttag(self, tag, attributes):
        marks = self.open[-1][1]
        mark, on = STYLES.get(dict(attributes).get("style"), (TAGS.get(tag), True))
        if mark:
            marks = marks | {mark} if on else marks - {mark}
        if tag == "div":
            self.letters.append((" ", frozenset()))
        self.open.append((tag, marks))

    def handle_endtag(self, tag):
        self.open.pop()

    def handle_data(self, data):
        self.letters += [(letter, self.open[-1][1]) for letter in data]


def comparable(text_letters):
    """Returns the text and its letters with marks, in a form that can be compared. Whitespace becomes
    one space without marks. Other control characters are dropped."""
    text = "".join(letter for letter, _ in text_letters)
    text = re.sub("[\x00-\x08\x0e-\x1f\x7f]", "", re.sub(r"[\t-\r]", " ", text))
    seen = [(letter, marks) for letter, marks in text_letters if letter > " " and letter != "\x7f"]
    return " ".join(text.split()), [(x, m) for x, m in seen if not x.isspace()]
