"""Formats every sample in four styles, and checks the document and LibreOffice's PDF of it."""

import collections
import functools
import re
import shutil
import subprocess
import unicodedata
import unittest

import processor
import reader
from support import SAMPLES, STYLE_URL, Home, make

STYLES = ("apa", "ieee", "nature", "chicago-fullnote-bibliography")
NESTED = "is left unchanged: it contains another field."
RTL = re.compile("[\u0590-\u08ff]")
BIDI_MARKS = re.compile("[\u200e\u200f\u202a-\u202e\u2066-\u2069]")

read_citations = functools.lru_cache(maxsize=None)(reader.citations)  # no document changes between reads


def each(test):
    """Runs a test for every sample in every style."""

    @functools.wraps(test)
    def over_all(self):
        self.assertEqual(len(self.results), len(SAMPLES) * len(STYLES))
        for sample, style in self.results:
            with self.subTest(sample=sample, style=style):
                test(self, sample, style)

    return over_all


class RoundTrip(unittest.TestCase):
    maxDiff = 2000

    @classmethod
    def setUpClass(cls):
        cls.home = Home(cls)
        cls.home.desktop()
        make(cls.home.folder / "samples")
        cls.results = {
            (sample, style): cls.format(cls.before(sample), cls.after(sample, style), style)
            for sample in SAMPLES
            for style in STYLES
        }

    @classmethod
    def format(cls, source, target, style):
        return cls.home.macro("format", source, target, "--style", STYLE_URL + style)

    @classmethod
    def before(cls, sample):
        return cls.home.folder / "samples" / f"{sample}.docx"

    @classmethod
    def after(cls, sample, style):
        return cls.home.folder / f"{sample}-{style}.docx"

    @each
    def test_succeeds_and_names_unwritable_citations(self, sample, style):
        done = self.results[sample, style]
        self.assertEqual(done.returncode, 0, done.stderr)
        warnings = done.stderr.splitlines()
        self.assertEqual(len(warnings), 1 if sample == "structures" else 0, done.stderr)
        self.assertTrue(all(NESTED in warning for warning in warnings), warnings)

    @each
    def test_finds_every_citation(self, sample, style):
        counts = {"author-date": 12, "numeric": 10, "notes": 6, "thousand": 1000, "scripts": 12}
        found = read_citations(self.after(sample, style))
        self.assertEqual(len(found), counts.get(sample, 15))

    @each
    def test_texts_are_those_of_the_csl_processor(self, sample, style):
        citations, entries = self.expected(sample, style)
        path = self.after(sample, style)
        self.assertTexts([f.letters for f in read_citations(path)], citations)
        self.assertTexts(reader.bibliography(path), entries)

    def expected(self, sample, style):
        """Returns the CSL processor's texts of the citations that are written, and the bibliography. The
        other citations are sent, too."""
        sent = reader.all_citations(self.before(sample))
        texts, entries = processor.ask(style, [f.cluster for f in sent])
        written = [text for f, text in zip(sent, texts) if not f.inner and f.outer is None]
        return written, entries

    def assertTexts(self, found, expected):
        found, expected = map(processor.comparable, found), map(processor.comparable, expected)
        self.assertEqual(list(found), list(expected))

    @each
    def test_citations_keep_their_works(self, sample, style):
        before = [f.cluster for f in read_citations(self.before(sample))]
        after = [f.cluster for f in read_citations(self.after(sample, style))]
        for cluster in after:
            self.assertIn("previouslyFormattedCitation", cluster.pop("tessaron"))
        self.assertEqual(after, before)

    @each
    def test_nothing_else_changes(self, sample, style):
        before = reader.without_fields(self.before(sample))
        after = reader.without_fields(self.after(sample, style))
        self.assertEqual(list(before), list(after))
        for part in before:
            self.assertEqual(before[part].decode("latin-1"), after[part].decode("latin-1"))

    def test_notes_of_a_note_style_end_with_one_period(self):
        ends = [
            text[-2:]
            for sample in ("notes", "structures")
            for text in reader.paragraphs(
                self.after(sample, "chicago-fullnote-bibliography"), "footnote", "endnote"
            )
        ]
        self.assertEqual(len(ends), 8)
        self.assertEqual([end for end in ends if end[1] != "." or end == ".."], [])

    def test_copies_of_a_text_box_stay_equal(self):
        for style in STYLES:
            root = reader.trees(self.after("structures", style))[""]
            boxes = list(root.iter(reader.W + "txbxContent"))
            texts = {"".join(box.itertext(reader.W + "t", reader.W + "instrText")) for box in boxes}
            self.assertEqual((len(boxes), len(texts)), (2, 1))
            self.assertNotIn("{Citation}", texts.pop())

    @each
    def test_formatting_twice_changes_nothing(self, sample, style):
        again = self.home.folder / "again.docx"
        done = self.format(self.after(sample, style), again, style)
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertEqual(again.read_bytes(), self.after(sample, style).read_bytes())

    def test_returning_to_a_style_gives_the_same_document(self):
        for sample in SAMPLES:
            with self.subTest(sample=sample):
                path = self.home.folder / f"{sample}-returned.docx"
                for style in ("ieee", "apa"):
                    start = path if path.exists() else self.after(sample, "nature")
                    self.assertEqual(self.format(start, path, style).returncode, 0)
                self.assertEqual(reader.parts(path), reader.parts(self.after(sample, "apa")))

    @unittest.skipUnless(
        shutil.which("soffice") and shutil.which("pdftotext"),
        "LibreOffice (soffice) or pdftotext is not installed.",
    )
    def test_pdf_contains_every_text(self):
        self.convert()
        self.compare_with_pdf()

    @each
    def compare_with_pdf(self, sample, style):
        pdf = Pdf(self.after(sample, style).with_suffix(".pdf"))
        citations, entries = self.expected(sample, style)
        texts = [processor.comparable(letters)[0] for letters in [*citations, *entries]]
        self.assertEqual(pdf.missing(collections.Counter(texts)), [])
        # A citation such as "1" could be found by chance, so the sentence around it is checked, too.
        sentences = collections.Counter(reader.paragraphs(self.after(sample, style)))
        self.assertEqual(pdf.missing(sentences), [])

    def convert(self):
        """Converts all documents. LibreOffice's exit status is 0 even if it fails, so only the PDFs count."""
        profile = (self.home.folder / "office").as_uri()
        documents = [str(self.after(*result)) for result in self.results]
        subprocess.run(
            ["soffice", f"-env:UserInstallation={profile}", "--headless",
             "--convert-to", "pdf", "--outdir", str(self.home.folder), *documents],
            env={**self.home.environment, "HOME": str(self.home.folder)},
            stdout=subprocess.DEVNULL,
            stderr=subprocess.DEVNULL,
            timeout=300,
        )


class Pdf:
    """The text of a PDF. It is compared without whitespace and hyphens, because lines break at them and
    pdftotext joins hyphenated words; with ligatures and other compatibility forms decomposed (NFKC);
    and without directional marks. In right-to-left text, pdftotext moves punctuation and numbers. Such a
    text counts as found if all its words and numbers are in eight consecutive lines."""

    def __init__(self, path):
        done = subprocess.run(["pdftotext", str(path), "-"], stdout=subprocess.PIPE, timeout=60)
        self.raw = done.stdout.decode("utf-8")
        self.text = _plain(self.raw)

    def missing(self, texts):
        return [text for text, count in texts.items() if not self.holds(text, count)]

    def holds(self, text, count):
        if RTL.search(text):
            return self.holds_words(_visible(text))
        return self.text.count(_plain(text)) >= count

    def holds_words(self, text):
        lines = _visible(self.raw).split("\n")
        near = (_words(" ".join(lines[i : i + 8])) for i in range(len(lines)))
        return any(_words(text) <= there for there in near)


def _words(text):
    return set(re.findall(r"\w+", text.replace("-", "")))


def _visible(text):
    return BIDI_MARKS.sub("", unicodedata.normalize("NFKC", text))


def _plain(text):
    return re.sub("[\\s\xad\u2010-]", "", _visible(text))
