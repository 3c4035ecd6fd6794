"""Writes the sample documents. Their references come from the library of the stand-in for the
application."""

import argparse
import json
import sys
from pathlib import Path

from paper import Codes, Paper, field
from structures import structures

LIBRARY = Path(__file__).resolve().parent.parent / "desktop" / "library.json"
EMOJI_DICK = {
    "uuid": "0b6a4a8e-64a8-4c0e-9d0c-6c3f0e4f2c11",
    "itemData": {
        "id": "benenson-2010",
        "type": "book",
        "title": "Emoji Dick; or 🐋",
        "editor": [{"family": "Benenson", "given": "Fred"}],
        "publisher": "Lulu",
        "issued": {"date-parts": [[2010]]},
    },
}


def author_date(codes):
    paper = Paper("On machines and programs")
    paper.paragraph(
        "The question whether machines can think was put in its lasting form ",
        field(codes("turing-1950"), "(Turing 1950)"),
        ", a good decade after the machine itself had been defined ",
        field(codes(("turing-1937", {"locator": "231", "label": "page"})), "(Turing 1937)"),
        ". What such a machine passes on can be measured ",
        field(codes(("shannon-1948", {"prefix": "see ", "locator": "379-423", "label": "page"}))),
        ", and how short a description can be is itself a number ",
        field(codes("kolmogorov-1965")),
        ".",
    )
    paper.paragraph(
        "Programs came to be written for people first ",
        field(codes("knuth-1984-literate")),
        "; the same year saw the manual of the system that set them ",
        field(codes("knuth-1984-texbook")),
        ". The debate about jumps ",
        field(codes("dijkstra-1968", "rubin-1987")),
        " belongs to the folklore of the trade, as do two of its textbooks ",
        field(codes("abelson-1996", ("kernighan-ritchie-1978", {"suffix": ", first edition"}))),
        ".",
    )
    paper.heading("What is hard")
    paper.paragraph(
        "Some problems are complete for their class ",
        field(codes("cook-1971")),
        ", and order in time is less than it seems once there is more than one machine ",
        field(codes("lamport-1978")),
        ". On the style of the web, Fielding ",
        field(codes(("fielding-2000", {"suppress-author": True}))),
        " is the standard account; its addresses were meant to last ",
        field(codes("berners-lee-1998")),
        ".",
    )
    paper.bibliography()
    return paper


def numeric(codes):
    paper = Paper("Carbon, genes and attention")
    paper.paragraph(
        "Sixty atoms of carbon close into a ball ",
        field(codes("kroto-1985"), "[1]"),
        ". The double helix ",
        field(codes("watson-crick-1953"), "[2]"),
        " explained what the counting of peas ",
        field(codes("mendel-1866"), "[3]"),
        " and the worm ",
        field(codes("brenner-1974"), "[4]"),
        " had asked for; it can now be cut at will ",
        field(codes("jinek-2012"), "[5]"),
        ".",
    )
    paper.paragraph(
        "Networks became deep ",
        field(codes("he-2016"), "[6]"),
        " and then attentive ",
        field(codes("vaswani-2017"), "[7]"),
        "; three irises are still enough to teach with ",
        field(codes("fisher-1936"), "[8]"),
        ". Taken together ",
        field(codes("watson-crick-1953", "mendel-1866", "brenner-1974"), "[2-4]"),
        " this is a long way from ",
        field(codes(("darwin-1859", {"locator": "4", "label": "chapter"})), "[9]"),
        ".",
    )
    paper.bibliography()
    return paper


def notes(codes):
    paper = Paper("Notes on authority")
    works = iter(
        [
            (("arendt-1963-eichmann", {"locator": "252", "label": "page"}),),
            (("arendt-1963-eichmann", {"locator": "253", "label": "page"}),),
            ("arendt-1963-revolution", ("kuhn-1962", {"locator": "10", "label": "page"})),
            (("spivak-1988", {"prefix": "But compare "}),),
            (("arendt-1963-eichmann", {"locator": "276", "label": "page"}),),
            ("geertz-1973",),
        ]
    )
    sentences = (
        "Evil can be thoughtless.",
        " It needs no motive of its own.",
        " Beginnings are another matter, in politics as in science.",
        " Who may speak is not settled by speaking.",
        " Judgement remains.",
    )
    parts = []
    for number, sentence in enumerate(sentences, 1):
        # Without a period: in a note style the citation ends with one.
        note = paper.note("footnote", field(codes(*next(works), note=number)))
        parts += [sentence, note]
    paper.paragraph(*parts)
    paper.paragraph(
        "A last remark stands at the end of the text.",
        paper.note("endnote", "On description, ", field(codes(*next(works), note=6))),
    )
    paper.bibliography("Works cited")
    return paper


def thousand(codes):
    paper = Paper("A thousand citations")
    works = list(codes.works)
    for number in range(1, 1001):
        key = works[number * 7 % len(works)]
        detail = {"locator": str(number), "label": "page"} if number % 3 else {}
        paper.paragraph(f"Claim {number} ", field(codes((key, detail))), ".")
    paper.bibliography()
    return paper


def scripts(codes):
    paper = Paper("Ὁδός, 道, طريق 🛤")
    lines = (
        ("Greek: ", codes("kazantzakis-1946")),
        ("Chinese: ", codes("luxun-1923", "qian-1947")),
        ("Japanese: ", codes("soseki-1914")),
        ("Korean: ", codes("kimgu-1947")),
        ("Arabic: ", codes("mahfouz-1956")),
        ("Hebrew: ", codes("agnon-1945")),
        ("Cyrillic: ", codes("vygotsky-1934")),
        ("Emoji: ", codes("benenson-2010")),
        ("Quotation marks: ", codes("feynman-1985", "rubin-1987")),
        ("Ampersands & angle brackets: ", codes(("graham-2004", {"suffix": " & <others>"}))),
        ("Markup in a title: ", codes("kroto-1985", "brenner-1974")),
        # Tab, line break, non-breaking hyphen, optional hyphen, the end mark of a table cell.
        ("Word's own characters: ", codes(
            "truss-2003", title="Eats,\tShoots\v& Leaves: The Zero\x1eTolerance\x1f Approach\x07")),
    )
    for text, code in lines:
        paper.paragraph(text, field(code), ".")
    paper.bibliography()
    return paper


SAMPLES = {
    "author-date": author_date,
    "numeric": numeric,
    "notes": notes,
    "thousand": thousand,
    "scripts": scripts,
    "structures": structures,
}


def make(folder, library=LIBRARY):
    works = [*json.loads(Path(library).read_text(encoding="utf-8")), EMOJI_DICK]
    folder = Path(folder)
    folder.mkdir(parents=True, exist_ok=True)
    for name, sample in SAMPLES.items():
        sample(Codes(works)).save(folder / f"{name}.docx")
    return [folder / f"{name}.docx" for name in SAMPLES]


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("folder", metavar="OUTDIR")
    parser.add_argument("--library", default=LIBRARY)
    options = parser.parse_args()
    try:
        print(*make(options.folder, options.library), sep="\n")
    except (OSError, ValueError) as error:
        sys.exit(f"make_samples: The samples cannot be written: {error}.")


if __name__ == "__main__":
    main()
