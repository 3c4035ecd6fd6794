"""Bad documents and bad replies cause a sentence on standard error and exit status 1, and change no
file."""

import json
import os
import re
import signal
import subprocess
import unittest
import warnings
import zipfile

import reader
from support import APA, MACRO, STYLE_URL, EndToEnd, make, rewrite

DAMAGED = "is damaged"
NOT_WORD = "is not a Word document"
ENCRYPTED = "is encrypted"
REJECTED = "rejected citation 3 of 12"
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


def flip_byte(path):
    """Changes one byte in the middle of the compressed main part."""
    with zipfile.ZipFile(path) as source:
        info = source.getinfo(MAIN)
    data = bytearray(path.read_bytes())
    data[info.header_offset + 30 + len(MAIN) + info.compress_size // 2] ^= 0xFF
    path.write_bytes(data)


def zip_password(path):
    """Sets the flag for a password in both headers of every part."""
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


def part_twice(path):
    with zipfile.ZipFile(path, "a") as target, warnings.catch_warnings():
        warnings.simplefilter("ignore")  # the library warns of duplicate names
        target.writestr(MAIN, "<again/>")


def third_code(change):
    """Changes the JSON text of the third citation."""
    pattern = r"ADDIN CSL_CITATION [^<]*"

    def apply(xml):
        old = re.findall(pattern, xml)[2]
        return xml.replace(old, change(old), 1)

    return main_part(apply)


def strict(xml):
    """Replaces the namespaces by those of the Strict variant of the format."""
    new = "http://purl.oclc.org/ooxml/"
    return xml.replace("http://schemas.openxmlformats.org/wordprocessingml/2006/", new + "w/").replace(
        "http://schemas.openxmlformats.org/officeDocument/2006/", new + "officeDocument/"
    )


def damaged_lzma(path):
    """Compresses the parts with LZMA and changes bytes in the middle of the main part."""
    with zipfile.ZipFile(path) as source:
        parts = {name: source.read(name) for name in source.namelist()}
    with zipfile.ZipFile(path, "w", zipfile.ZIP_LZMA) as target:
        for name, data in parts.items():
            target.writestr(name, data)
        info = target.getinfo(MAIN)
    data = bytearray(path.read_bytes())
    middle = info.header_offset + 30 + len(MAIN) + info.compress_size // 2
    data[middle : middle + 40] = b"\xff" * 40
    path.write_bytes(data)


def name_not_utf8(path):
    """Adds a part whose name is flagged as UTF-8 and is not valid UTF-8."""
    with zipfile.ZipFile(path, "a") as target:
        target.writestr("word/é.xml", "<x/>")
    path.write_bytes(path.read_bytes().replace("é".encode(), b"\xff\xff"))


def part_twice_in_capitals(path):
    with zipfile.ZipFile(path, "a") as target:
        target.writestr(MAIN.upper(), "<again/>")


SIGNATURE = "http://schemas.openxmlformats.org/package/2006/relationships/digital-signature/origin"


def sign(path):
    """Adds the parts of a digital signature and the references to them."""
    link = f'<Relationship Id="s" Type="{SIGNATURE}" Target="_xmlsignatures/origin.sigs"/>'
    end = "</Relationships>"
    rewrite(path, lambda xml: xml.replace(end, link + end), "_rels/.rels")
    kind = '<Override PartName="/_xmlsignatures/sig1.xml" ContentType="application/xml"/>'
    rewrite(path, lambda xml: xml.replace("</Types>", kind + "</Types>"), "[Content_Types].xml")
    with zipfile.ZipFile(path, "a") as target:
        target.writestr("_xmlsignatures/origin.sigs", "")
        target.writestr("_xmlsignatures/sig1.xml", "<Signature/>")


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
    "one byte wrong": (flip_byte, DAMAGED),
    "main part missing": (without_part(MAIN), DAMAGED),
    "content types missing": (without_part("[Content_Types].xml"), NOT_WORD),
    "relationships missing": (without_part("_rels/.rels"), NOT_WORD),
    "a part twice": (part_twice, "holds the same part twice"),
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
    "a field code cut in the middle": (third_code(lambda code: code[: len(code) // 2]), REJECTED),
    "a field code cut before its end": (third_code(lambda code: code[:-1]), REJECTED),
    "a field code cut after its name": (third_code(lambda code: code[:18]), REJECTED),
    "a field code of null": (third_code(lambda code: code[:19] + "null"), REJECTED),
    "a field code of a list": (third_code(lambda code: code[:19] + "[1]"), REJECTED),
    "a field code without works": (third_code(lambda code: code[:19] + "{}"), REJECTED),
    "a field code of nested brackets": (third_code(lambda code: code[:19] + "[" * 9000), REJECTED),
    "a field code with a number beyond a double": (
        third_code(lambda code: code.replace('"noteIndex": 0', '"noteIndex": 1e400')),
        "in the body) holds the number 1e400, which exceeds the range of a double"),
    "a field code beyond the parser's limit": (
        third_code(lambda code: code.replace('"noteIndex"', f'"&amp;{"x" * 10_000_000}"')),
        "holds a text of more than 10,000,000 bytes"),
    "Strict Open XML by its relationships": (
        lambda path: rewrite(path, strict, "_rels/.rels"), "is in the format Strict Open XML"),
    "Strict Open XML by its main part": (main_part(strict), "is in the format Strict Open XML"),
    "a damaged part compressed with LZMA": (damaged_lzma, DAMAGED),
    "a part name that is flagged as UTF-8 and is not": (name_not_utf8, DAMAGED),
    "a part twice, once in capital letters": (part_twice_in_capitals, "holds the same part twice"),
    "a digital signature": (sign, "has a digital signature"),
    "a work without a type": (third_code(lambda code: code.replace('"type"', '"kind"')), REJECTED),
}

STYLES = ("", "apa", STYLE_URL + "no-such-style", "../../etc/passwd", "http://example.org/apa")

WITHOUT_CLUSTERS = {"citationStyleUrl": APA, "bibliography": "b",
                    "citationClusters": [{"formattedText": str(n)} for n in range(12)]}


def reply(text="(x)", style=APA, bibliography="b", cluster='{"citationItems":[{"id":1}]}'):
    """A fault whose body is a reply for twelve equal citations."""
    one = f'{{"citationCluster":{cluster},"formattedText":{json.dumps(text)}}}'
    every = ",".join([one] * 12)
    start = {"citationStyleUrl": style, "bibliography": bibliography}
    return {"body": f'{json.dumps(start)[:-1]},"citationClusters":[{every}]}}'}


EMPTY_TEXT = 'The new text for citation 1 of 12 ("(Turing 1950)" in the body) is empty.'
FAULTS = {
    "an empty text": (reply(text=""), EMPTY_TEXT),
    "a text of spaces": (reply(text=" \u2003"), EMPTY_TEXT),
    "a text of tags": (reply(text="<i></i>"), EMPTY_TEXT),
    "an empty style": (reply(style=""), "name no style"),
    "an empty cluster": (reply(cluster="{}"), "holds no citation"),
    "a cluster without works": (reply(cluster='{"citationItems":[]}'), "holds no citation"),
    "a bibliography of line feeds": (reply(bibliography="\n\n"), "bibliography in the results is"),
    "U+0001 in a text": (reply(text="a\x01b"), "gave 63 results instead of 51. One of them may hold U+0001"),
    "a number beyond a double": (
        reply(cluster='{"citationItems":[{"id":1e400}]}'),
        "or holds a number that exceeds the range of a double"),
    "a connection closed at once": ({"drop": "beforeStatus"}, "refused the style"),
    "a connection closed after the headers": ({"drop": "afterHeaders"}, "could not be used"),
    "a connection closed inside the reply to the batch": ({"drop": "inBody"}, "could not be used"),
    "one citation too many": ({"extraCitations": 1}, "Submitted 12 citations but only received 13"),
    "one citation too few": ({"extraCitations": -1}, "Submitted 12 citations but only received 11"),
    "no bibliography": ({"emptyBibliography": True}, "No formatted bibliography returned"),
    "status 500": ({"status": 500}, "refused the style"),
    "a status other than 200": ({"status": 201}, "refused the style"),
    "a body that is not JSON": ({"body": "<html>"}, "could not be used"),
    "an empty reply": ({"body": ""}, "could not be used"),
    "citations without clusters": ({"body": json.dumps(WITHOUT_CLUSTERS)}, "holds no citation"),
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
        """Checks that formatting fails with a sentence that contains the fragment and changes no file."""
        before = self.files()
        message = self.failure("format", self.document, target or self.target, "--style", style)
        self.assertIn(fragment, message)
        self.assertEqual(self.files(), before)

    def files(self):
        files = [p for p in self.home.folder.glob("*") if p.is_file() and not p.is_symlink()]
        return {p: p.read_bytes() for p in files}

    def test_refuses_bad_documents(self):
        self.home.desktop()
        for name, (damage, fragment) in DOCUMENTS.items():
            with self.subTest(name):
                self.document.write_bytes(self.original)
                damage(self.document)
                self.assertNotEqual(self.document.read_bytes(), self.original)
                self.fails(fragment)
                self.fails(fragment, target=self.document)

    def test_drops_a_signature_on_request(self):
        self.home.desktop()
        sign(self.document)
        self.ok("list", self.document)
        self.ok("format", self.document, self.target, "--style", APA, "--drop-signature")
        found = reader.parts(self.target)
        self.assertFalse([name for name in found if "xmlsignatures" in name])
        for name in ("_rels/.rels", "[Content_Types].xml"):
            self.assertNotIn(b"ignature", found[name])

    def test_ignores_the_case_of_part_names(self):
        self.home.desktop()
        with zipfile.ZipFile(self.document) as source:
            parts = {name.upper(): source.read(name) for name in source.namelist()}
        with zipfile.ZipFile(self.document, "w") as target:
            for name, data in parts.items():
                target.writestr(name, data)
        self.ok("format", self.document, self.target, "--style", APA)
        self.assertEqual(list(reader.parts(self.target)), list(parts))
        self.assertIn(b"(Turing, 1950)", reader.parts(self.target)[MAIN.upper()])

    def test_accepts_a_comment_in_a_relationships_file(self):
        self.home.desktop()
        for name in ("_rels/.rels", "word/_rels/document.xml.rels"):
            rewrite(self.document, lambda xml: xml.replace("<Rel", "<!-- x --><Rel"), name)
        self.ok("format", self.document, self.target, "--style", APA)

    def test_refuses_outputs_that_are_not_ordinary_files(self):
        self.home.desktop()
        os.mkfifo(self.path("pipe"))
        self.fails("it is a pipe or a device", target=self.path("pipe"))
        self.fails("it is a pipe or a device", target="/dev/null")
        self.path("link").symlink_to("/dev/full")
        self.fails("it is a pipe or a device", target=self.path("link"))
        self.target.chmod(0o444)
        self.fails("it is read-only")
        self.assertEqual(self.target.stat().st_mode & 0o777, 0o444)

    def test_refuses_an_input_that_is_a_pipe(self):
        os.mkfifo(self.path("pipe"))
        self.assertIn("it is not a file", self.failure("list", self.path("pipe")))

    def test_accepts_names_of_255_bytes(self):
        self.home.desktop()
        long = self.path("é" * 125 + ".docx")
        self.assertEqual(len(os.fsencode(long.name)), 255)
        self.ok("format", self.document, long, "--style", APA)
        before = long.read_bytes()
        self.ok("format", long, long, "--style", APA)
        self.assertEqual(long.read_bytes(), before)
        self.assertEqual([p for p in long.parent.iterdir() if p.name.startswith(".")], [])

    def test_refuses_bad_paths(self):
        self.home.desktop()
        folder = self.path("samples")
        self.fails("cannot be written", target=folder)
        self.fails("cannot be written", target=self.path("no such folder/out.docx"))
        self.document.unlink()
        self.fails("cannot be read")
        self.document.symlink_to(folder)
        self.fails("cannot be read")

    def test_refuses_unknown_styles(self):
        self.home.desktop()
        for style in STYLES:
            with self.subTest(style):
                self.fails(f"refused the style {style}", style=style)

    def test_leaves_the_document_unchanged_if_the_application_misbehaves(self):
        faults = self.path("samples/faults.json")
        faults.write_text("{}")
        self.home.desktop("--faults", faults)
        self.ok("format", self.document, self.path("good.docx"), "--style", APA)
        for name, (fault, fragment) in FAULTS.items():
            with self.subTest(name):
                faults.write_text(json.dumps({BATCH: fault}))
                self.fails(fragment)
                self.fails(fragment, target=self.document)

    def test_reports_an_application_that_is_not_running(self):
        self.home.set_port(1)
        self.fails("does not reply")

    def test_reports_a_missing_bridge(self):
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
    """The checks of the macro on the exchange files, with bridges that misbehave."""

    def setUp(self):
        super().setUp()
        self.bridge = self.path("bridge")

    def use(self, script):
        self.bridge.write_text(BRIDGE.format(script))
        self.bridge.chmod(0o755)
        self.home.environment["BRIDGE"] = str(self.bridge)

    def test_reports_what_is_wrong_with_the_files(self):
        for name, (script, fragment) in BRIDGES.items():
            with self.subTest(name):
                self.use(script)
                self.assertIn(fragment, self.failure("run", "lastError"))

    def test_ignores_files_of_an_earlier_run(self):
        for name in ("results", "result-ready"):
            self.path(f"mac-word-plugin-{name}.txt").write_bytes(b"0\0")
        self.use("exit 0")
        message = self.failure("run", "--folder", self.home.folder, "lastError")
        self.assertIn("wrote no ready file", message)
        self.assertFalse(self.path("mac-word-plugin-results.txt").exists())

    def test_prints_numbered_results(self):
        self.use(r"printf 'a\000\001\000\n\000' > $results; ready 6")
        self.assertEqual(self.ok("run", "lastError"), "1: a\n2: \\n\n")

    def test_passes_arguments_on_unchanged(self):
        self.use("printf '' > $results; ready 0")
        texts = ["é😀", "", "a\nb", "\x1e"]
        self.ok("run", "--folder", self.home.folder, "mergeFields", *texts)
        data = self.path("mac-word-plugin-args.txt").read_bytes()
        self.assertEqual(data, "\x01".join(texts).encode("utf-16-le"))

    def test_refuses_an_argument_with_the_separator(self):
        self.assertIn("U+0001", self.failure("run", "mergeFields", "a\x01b"))

    def test_ends_silently_without_a_reader(self):
        self.use(r"printf 'a\000' > $results; ready 2")
        reading, writing = os.pipe()
        os.close(reading)
        with os.fdopen(writing) as output:
            done = subprocess.run([MACRO, "run", "lastError"], env=self.home.environment,
                                  stdout=output, stderr=subprocess.PIPE)  # fmt: skip
        self.assertEqual((done.returncode, done.stderr), (-signal.SIGPIPE, b""))

    def test_writes_results_to_files_unchanged(self):
        texts = ["{\"a\\\\b\"}", "", "line\nline\n", "\ud83d 🐋", "\x00\x07"]
        results = self.path("results")
        results.write_bytes("\x01".join(texts).encode("utf-16-le", "surrogatepass"))
        self.use(f'cat {results} > "$results"; ready {results.stat().st_size}')
        folder = self.path("kept")
        folder.mkdir()
        for name in ("6", "7", "notes"):
            (folder / name).write_text("old")
        self.assertEqual(self.ok("run", "--results", folder, "lastError"), "")
        names = ["1", "2", "3", "4", "5", "notes"]
        self.assertEqual(sorted(p.name for p in folder.iterdir()), names)
        read = [(folder / n).read_bytes().decode("utf-8", "surrogatepass") for n in names[:5]]
        self.assertEqual(read, texts)

    def test_reads_results_back_as_arguments_unchanged(self):
        self.use("cp $2/mac-word-plugin-args.txt $results; ready $(wc -c < $results)")
        text = "\ud83d \"quoted\" \\ 🐋"
        self.path("text").write_bytes(text.encode("utf-8", "surrogatepass"))
        script = f'"$0" run --results kept mergeFields "$(cat text)" && cmp kept/1 text'
        done = subprocess.run(["bash", "-c", script, MACRO], cwd=self.home.folder,
                              env=self.home.environment, stderr=subprocess.PIPE)  # fmt: skip
        self.assertEqual((done.returncode, done.stderr), (0, b""))

    def test_reports_a_results_folder_that_cannot_be_written(self):
        self.use("printf '' > $results; ready 0")
        message = self.failure("run", "--results", "/dev/null", "lastError")
        self.assertIn("cannot be written to /dev/null", message)

    def test_does_not_quote_the_trace_as_the_reason(self):
        trace = "tessaron.http.body: (the document)\\nof two lines"
        counts = "Citation count mismatch.  Submitted 1 citations but only received 0 formatted citations."
        self.use(f"printf '{trace}\\n{counts}\\n' >&2; exit 3")
        done = self.home.macro("run", "lastError")
        reason = f"macro: The bridge ended with status 3 and said: {' '.join(counts.split())}.\n"
        self.assertEqual(done.returncode, 1)
        self.assertEqual(done.stderr, f"{trace}\n{counts}\n".replace("\\n", "\n") + reason)

    def test_refuses_a_missing_folder(self):
        self.assertIn("cannot be used", self.failure("run", "--folder", "/no/such", "lastError"))


if __name__ == "__main__":
    unittest.main()
