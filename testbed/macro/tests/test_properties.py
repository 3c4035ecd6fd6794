"""Properties that every document must have, tested with all combinations of marks and with random
documents. The seed is printed; MACRO_SEED sets it."""

import itertools
import os
import random
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

from lxml import etree

from tests import random_documents as documents
from tests.application import Application, run_macro, tagged

sys.path.insert(0, str(Path(__file__).resolve().parents[2] / "e2e"))
import reader  # noqa: E402 (the end-to-end tests' reader, which shares no code with the macro)

SEED = int(os.environ.get("MACRO_SEED", random.randrange(10**6)))
DOCUMENTS = 60
STYLES = ("one", "another")


def parts(path):
    with zipfile.ZipFile(path) as package:
        return {name: package.read(name) for name in package.namelist()}


def subsets(marks):
    return [c for size in range(len(marks) + 1) for c in itertools.combinations(marks, size)]


class Properties(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        print(f"MACRO_SEED={SEED}", file=sys.stderr)

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = Path(folder.name)
        self.application = Application()

    def format(self, source, target, style):
        status, _, message = run_macro(self.application, "format", source, target, "--style", style)
        self.assertEqual((status, message), (0, ""))

    def check_formats(self, source, styles=STYLES):
        """Formatting twice in a style gives the same bytes. Formatting in another style and then back
        gives the same document."""
        targets = {style: self.folder / f"{style}.docx" for style in styles}
        for style, target in targets.items():
            self.format(source, target, style)
            first = target.read_bytes()
            self.format(target, target, style)
            self.assertEqual(target.read_bytes(), first, "formatted twice")
        changed = self.folder / "changed.docx"
        for style, other in itertools.permutations(styles, 2):
            self.format(targets[style], changed, other)
            self.assertEqual(parts(changed), parts(targets[other]), f"{other} after {style}")
            self.format(changed, changed, style)
            self.assertEqual(parts(changed), parts(targets[style]), f"{style} after {other}")
        commands = {command for command, _ in self.application.commands}
        self.assertEqual(commands, {"formatCitationsAndBibliography"}, "nothing was edited by hand")
        return targets

    def test_formats_all_combinations_of_marks_on_the_field_and_in_the_style(self):
        marks = ("i", "b", "sup", "sc")
        places = ("all", "begin", "text")  # the runs of the field that have the marks `of_field`
        cases = list(itertools.product(subsets(marks), subsets(marks), places))
        styles = {
            "whole": lambda of_style: tagged("Turing 1950", of_style),
            "part": lambda of_style: f"({tagged('Turing', of_style)}, 1950)",
            "plain": lambda of_style: "(Turing, 1950)",
        }
        self.application.texts = lambda style, name: styles[style](cases[int(name)][1])
        body = []
        for number, (of_field, _, where) in enumerate(cases):
            body.append(
                documents.complex_field(
                    documents.code_of(str(number)),
                    "{Citation}",
                    () if where == "text" else of_field,
                    () if where == "begin" else of_field,
                )
            )
        source = self.folder / "source.docx"
        documents.write(source, "".join(f"<w:p>{field}</w:p>" for field in body))
        targets = self.check_formats(source, tuple(styles))
        self.check_marks(targets["part"], cases)

    def check_marks(self, path, cases):
        """The reader reports the marks that a letter has and its field as a whole does not have."""
        names = {"sc": "small caps", "sup": "superscript"}
        for field, (of_field, of_style, where) in zip(reader.citations(path), cases):
            field_marks = set() if where == "text" else {names.get(m, m) for m in of_field}
            for letter, found in field.letters:
                in_style = {names.get(m, m) for m in of_style} if letter in "Turing" else set()
                self.assertEqual(found, in_style - field_marks, (letter, of_field, of_style, where))

    def test_formatting_random_documents_changes_only_fields(self):
        for number in range(DOCUMENTS):
            with self.subTest(seed=SEED, number=number):
                source = self.folder / "source.docx"
                documents.Random(random.Random(f"{SEED}-{number}")).write(source)
                targets = self.check_formats(source)
                before = reader.without_fields(source)
                for target in targets.values():
                    after = reader.without_fields(target)
                    has_place = b"CSL_BIBLIOGRAPHY" in parts(source)["word/document.xml"]
                    if has_place:
                        self.assertEqual(before, after)

    def test_records_only_the_text_that_was_edited(self):
        source, target = self.folder / "source.docx", self.folder / "target.docx"
        for number in range(DOCUMENTS // 3):
            with self.subTest(seed=SEED, number=number):
                self.application = Application()
                choice = random.Random(f"{SEED}-{number}")
                marks = documents.Random(choice).marks()
                fields = [
                    documents.complex_field(documents.code_of(name), "{Citation}", marks)
                    for name in "abc"
                ]
                documents.write(source, "".join(f"<w:p>{field}</w:p>" for field in fields))
                self.format(source, target, "one")
                edited = self.edit(target, choice.randrange(3))
                self.format(target, target, "another")
                checks = [c for c in self.application.commands if c[0].startswith("check")]
                self.assertEqual(len(checks), 1)
                texts = [field.text for field in reader.citations(target)]
                self.assertEqual(texts[edited], "my own <words>")

    def edit(self, path, number):
        """Types over a citation: puts the new words into its first run of text and removes the others."""
        tree = reader.trees(path)[""]
        field = reader.fields(tree)[number]
        texts = [n for n in field.nodes if n.tag.rpartition("}")[2] in ("t", "tab", "br")]
        old_parts = parts(path)
        run = texts[0].getparent()
        for node in texts:
            node.getparent().remove(node)
        run.append(run.makeelement(reader.W + "t"))
        run[-1].text = "my own <words>"
        with zipfile.ZipFile(path, "w") as target:
            for name, data in old_parts.items():
                is_main = name == "word/document.xml"
                target.writestr(name, etree.tostring(tree) if is_main else data)
        return number


if __name__ == "__main__":
    unittest.main()
