"""Bad documents, bad answers: a sentence, an exit status other than 0, and no changed file."""

import json
import os
import re
import signal
import subprocess
import unittest
import warnings
import zipfile

from support import APA, MACRO, STYLE_URL, EndToEnd, make, rewrite

DAMAGED = "is damaged"
NOT_WORD = "is not a Word document"
ENCRYPTED = "is encrypted"
CITATION = "rejected citation 3 of 12"
BATCH = "/formattedCitationsAndBibliography/interactive"
MAIN = "word/document.xml"


def bytes_of(data):
    return lambda path: path.write_bytes(data)


def cut(share):
    return lambda path: path.write_bytes(path.read_bytes()[: int(path.stat().st_size * share)])


def package(**parts):
    def make_it(path):
        with zipfile.ZipFile(path, "w") as target:
            for name, text in parts.items():
                target.writestr(name.replace("__", "/").replace("_xml", ".xml"), text)

    return make_it


def main_part(change):
    return lambda path: rewrite(path, change, MAIN)


def sub(pattern, new, count=1):
    return main_part(lambda xml: re.sub(pattern, new, xml, count=count))


def flip(path):
    """One wrong byte in the middle of the compressed main part."""
    with zipfile.ZipFile(path) as source:
        info = source.getinfo(MAIN)
    data = bytearray(path.read_bytes())
    data[info.header_offset + 30 + len(MAIN) + info.compress_size // 2] ^= 0xFF
    path.write_bytes(data)


def zip_password(path):
    """The flag of a zip whose parts need a password, in both headers of every part."""
    data = bytearray(path.read_bytes())
    for signature, offset in ((b"PK\x03\x04", 6), (b"PK\x01\x02", 8)):
        for found in re.finditer(re.escape(signature), bytes(data)):
            data[found.start() + offset] |= 1
    path.write_bytes(data)


def without_part(name):
    def remove(path):
        with zipfile.ZipFile(path) as source:
            parts = {n: source.read(n) for n in source.namelist() if n != name}
        with zipfile.ZipFile(path, "w") as target:
            for part, data in parts.items():
                target.writestr(part, data)

    return remove


def twice(path):
    with zipfile.ZipFile(path, "a") as target, warnings.catch_warnings():
        warnings.simplefilter("ignore")  # the library warns of exactly this mistake
        target.writestr(MAIN, "<again/>")


def third_code(change):
    """Changes the JSON text of the third citation."""
    pattern = r"ADDIN CSL_CITATION [^<]*"

    def apply(xml):
        old = re.findall(pattern, xml)[2]
        return xml.replace(old, change(old), 1)

    return main_part(apply)


CHARACTER = r'<w:r><w:fldChar w:fldCharType="{}"/></w:r>'
BEGIN, SEPARATE, END = map(CHARACTER.format, ("begin", "separate", "end"))
DOCTYPE = '<!DOCTYPE w:document [<!ENTITY who "someone">]>'
OLE = b"\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1" + bytes(504)

DOCUMENTS = {
    "empty file": (bytes_of(b""), NOT_WORD),
    "plain text": (bytes_of(b"Just a text.\n"), NOT_WORD),
    "a PDF": (bytes_of(b"%PDF-1.7\n"), NOT_WORD),
    "only the first two letters of a zip": (bytes_of(b"PK"), DAMAGED),
    "a zip of something else": (package(readme="hello"), NOT_WORD),
    "an empty zip": (package(), NOT_WORD),
    "encrypted by Word": (bytes_of(OLE), ENCRYPTED),
    "encrypted as a zip": (zip_password, ENCRYPTED),
    "cut after a tenth": (cut(0.1), DAMAGED),
    "cut in the middle": (cut(0.5), DAMAGED),
    "cut before the end": (cut(0.99), DAMAGED),
    "one byte wrong": (flip, DAMAGED),
    "main part missing": (without_part(MAIN), DAMAGED),
    "content types missing": (without_part("[Content_Types].xml"), NOT_WORD),
    "relationships missing": (without_part("_rels/.rels"), NOT_WORD),
    "a part twice": (twice, "holds the same part twice"),
    "main part not XML": (main_part(lambda xml: "no XML"), "not well-formed"),
    "main part cut off": (main_part(lambda xml: xml[: len(xml) // 2]), "not well-formed"),
    "main part empty": (main_part(lambda xml: ""), "not well-formed"),
    "main part of another kind": (main_part(lambda xml: "<workbook/>"), NOT_WORD),
    "a document type": (sub("<w:document", DOCTYPE + "<w:document"), "has a document type"),
    "no body": (main_part(lambda xml: re.sub("<w:body>.*</w:body>", "", xml, flags=re.S)),
                NOT_WORD),
    "no citations": (sub("CSL_CITATION", "OTHER_FIELD", 0), "holds no citations"),
    "no field at all": (sub("<w:(instrText|fldChar).*?(/>|</w:instrText>)", "", 0),
                        "holds no citations"),
    "a field without an end": (sub(END, ""), "a beginning without an end"),
    "a field without a beginning": (sub(BEGIN, ""), "an end without a beginning"),
    "a field cut inside a simple one": (
        sub(BEGIN, '<w:fldSimple w:instr=" PAGE ">' + BEGIN + "</w:fldSimple>"), "overlap"),
    "a field code cut in the middle": (third_code(lambda code: code[: len(code) // 2]), CITATION),
    "a field code cut before its end": (third_code(lambda code: code[:-1]), CITATION),
    "a field code cut after its name": (third_code(lambda code: code[:18]), CITATION),
    "a field code of null": (third_code(lambda code: code[:19] + "null"), CITATION),
    "a field code of a list": (third_code(lambda code: code[:19] + "[1]"), CITATION),
    "a field code without works": (third_code(lambda code: code[:19] + "{}"), CITATION),
    "a field code of nested brackets": (third_code(lambda code: code[:19] + "[" * 9000), CITATION),
    "a work without a type": (third_code(lambda code: code.replace('"type"', '"kind"')), CITATION),
}

STYLES = ("", "apa", STYLE_URL + "no-such-style", "../../etc/passwd", "http://example.org/apa")

NULL = {"citationStyleUrl": APA, "bibliography": "b",
        "citationClusters": [{"formattedText": str(n)} for n in range(12)]}
FAULTS = {
    "hangs up at once": ({"drop": "beforeStatus"}, "refused the style"),
    "hangs up after the headers": ({"drop": "afterHeaders"}, "could not be used"),
    "hangs up in mid-batch": ({"drop": "inBody"}, "could not be used"),
    "one citation too many": ({"extraCitations": 1}, "Submitted 12 citations but only received 13"),
    "one citation too few": ({"extraCitations": -1}, "Submitted 12 citations but only received 11"),
    "no bibliography": ({"emptyBibliography": True}, "No formatted bibliography returned"),
    "an error of its own": ({"status": 500}, "refused the style"),
    "another success than 200": ({"status": 201}, "refused the style"),
    "not JSON": ({"body": "<html>"}, "could not be used"),
    "an empty answer": ({"body": ""}, "could not be used"),
    "citations without clusters": ({"body": json.dumps(NULL)}, "holds no citation"),
}


class BadInput(EndToEnd):
    def setUp(self):
        super().setUp()
        make(self.path("samples"))
        self.original = self.path("samples/author-date.docx").read_bytes()
        self.document, self.target = self.path("in.docx"), self.path("out.docx")
        self.target.write_bytes(b"what was there before")
        self.document.write_bytes(self.original)

    def fails(self, fragment, style=APA, target=None):
        """Formatting fails with that sentence; no file is changed, added or taken away."""
        before = self.files()
        said = self.failure("format", self.document, target or self.target, "--style", style)
        self.assertIn(fragment, said)
        self.assertEqual(self.files(), before)

    def files(self):
        return {p: p.read_bytes() for p in self.home.folder.glob("*") if p.is_file()}

    def test_documents(self):
        self.home.desktop()
        for name, (spoil, fragment) in DOCUMENTS.items():
            with self.subTest(name):
                self.document.write_bytes(self.original)
                spoil(self.document)
                self.assertNotEqual(self.document.read_bytes(), self.original)
                self.fails(fragment)
                self.fails(fragment, target=self.document)

    def test_paths(self):
        self.home.desktop()
        folder = self.path("samples")
        self.fails("cannot be written", target=folder)
        self.fails("cannot be written", target=self.path("no such folder/out.docx"))
        self.document.unlink()
        self.fails("cannot be read")
        self.document.symlink_to(folder)
        self.fails("cannot be read")

    def test_styles(self):
        self.home.desktop()
        for style in STYLES:
            with self.subTest(style):
                self.fails(f"refused the style {style}", style=style)

    def test_application_that_misbehaves(self):
        faults = self.path("samples/faults.json")
        faults.write_text("{}")
        self.home.desktop("--faults", faults)
        self.ok("format", self.document, self.path("good.docx"), "--style", APA)
        for name, (fault, fragment) in FAULTS.items():
            with self.subTest(name):
                faults.write_text(json.dumps({BATCH: fault}))
                self.fails(fragment)
                self.fails(fragment, target=self.document)

    def test_application_that_is_absent(self):
        self.home.set_port(1)
        self.fails("does not answer")

    def test_bridge_that_is_absent(self):
        self.home.environment["BRIDGE"] = str(self.path("no-bridge"))
        self.fails("cannot be started")


BRIDGES = {
    "fails": ("echo broken >&2; exit 3", "ended with status 3 and said: broken"),
    "writes nothing": ("exit 0", "wrote no ready file"),
    "could not write": ("ready -1", "could not write the results"),
    "no results file": ("ready 4", 'results file of "lastError" is missing'),
    "wrong count": ("printf ab > $results; ready 4", 'holds 2 bytes, but the ready file says "4"'),
    "odd count": ("printf abc > $results; ready 3", "holds 3 bytes"),
    "ready file of another kind": ("printf ab > $results; ready two", 'says "two"'),
    "empty ready file": ("printf ab > $results; : > $ready", 'says ""'),
}
BRIDGE = """#!/bin/sh
results="$2/mac-word-plugin-results.txt"
ready="$2/mac-word-plugin-result-ready.txt"
ready() {{ printf %s "$1" | iconv -t UTF-16LE > "$ready"; }}
{}
"""


class Exchange(EndToEnd):
    """What the macro must check itself, with bridges that do it wrong."""

    def setUp(self):
        super().setUp()
        self.bridge = self.path("bridge")

    def use(self, script):
        self.bridge.write_text(BRIDGE.format(script))
        self.bridge.chmod(0o755)
        self.home.environment["BRIDGE"] = str(self.bridge)

    def test_answers(self):
        for name, (script, fragment) in BRIDGES.items():
            with self.subTest(name):
                self.use(script)
                self.assertIn(fragment, self.failure("run", "lastError"))

    def test_old_answers_do_not_count(self):
        for name in ("results", "result-ready"):
            self.path(f"mac-word-plugin-{name}.txt").write_bytes(b"0\0")
        self.use("exit 0")
        said = self.failure("run", "--folder", self.home.folder, "lastError")
        self.assertIn("wrote no ready file", said)
        self.assertFalse(self.path("mac-word-plugin-results.txt").exists())

    def test_a_good_answer(self):
        self.use(r"printf 'a\000\001\000\n\000' > $results; ready 6")
        self.assertEqual(self.ok("run", "lastError"), "1: a\n2: \\n\n")

    def test_arguments_travel_whole(self):
        self.use("printf '' > $results; ready 0")
        texts = ["é😀", "", "a\nb", "\x1e"]
        self.ok("run", "--folder", self.home.folder, "mergeFields", *texts)
        data = self.path("mac-word-plugin-args.txt").read_bytes()
        self.assertEqual(data, "\x01".join(texts).encode("utf-16-le"))

    def test_an_argument_with_the_separator(self):
        self.assertIn("U+0001", self.failure("run", "mergeFields", "a\x01b"))

    def test_a_reader_that_has_gone(self):
        self.use(r"printf 'a\000' > $results; ready 2")
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing) as output:
            done = subprocess.run([MACRO, "run", "lastError"], env=self.home.environment,
                                  stdout=output, stderr=subprocess.PIPE)  # fmt: skip
        self.assertEqual((done.returncode, done.stderr), (-signal.SIGPIPE, b""))

    def test_a_folder_that_is_not_there(self):
        self.assertIn("cannot be used", self.failure("run", "--folder", "/no/such", "lastError"))


if __name__ == "__main__":
    unittest.main()
