"""Every action on a damaged package gives a result or an error message. The seed is printed;
MACRO_SEED sets it."""

import os
import random
import re
import sys
import tempfile
import unittest
import zipfile
from pathlib import Path

from tests import random_documents as documents
from tests.application import Application, run_macro

SEED = int(os.environ.get("MACRO_SEED", random.randrange(10**6)))
PACKAGES = 600
METHODS = (zipfile.ZIP_STORED, zipfile.ZIP_DEFLATED, zipfile.ZIP_BZIP2, zipfile.ZIP_LZMA)
ELEMENT = re.compile(r"<[^<>]+>")
SENTENCE = re.compile(r"(Warning: [^\n]+\.\n)*(macro: [^\n]+[.]\n)?\Z")
ODD = ("<!-- a comment -->", "<?target data?>", "<w:t/>", "<w:instrText/>", "<w:fldChar/>", "<w:p/>",
       '<w:fldSimple w:instr="ADDIN CSL_CITATION {}"/>', "<w:footnoteReference/>", "<mc:AlternateContent/>",
       "<w:txbxContent/>", '<w:bookmarkStart w:name="B"/>', "&#1234567;", "\x00", "ADDIN")  # fmt: skip


def changed_xml(text, choice):
    """Makes one random change: removes, doubles, replaces or inserts an element, changes attributes,
    or removes a range."""
    found = list(ELEMENT.finditer(text))
    one, other = choice.choice(found), choice.choice(found)
    kind = choice.randrange(6)
    if kind == 0:
        return text[: one.start()] + text[one.end() :]
    if kind == 1:
        return text[: one.end()] + one.group() + text[one.end() :]
    if kind == 2:
        return text[: one.start()] + other.group() + text[one.end() :]
    if kind == 3:
        return text[: one.end()] + choice.choice(ODD) + text[one.end() :]
    if kind == 4:
        return re.sub(r'="[^"]*"', lambda m: choice.choice(['=""', '="x"', m.group()]), text, count=9)
    start, end = sorted((one.start(), other.start()))
    return text[:start] + text[end:]


def spoil_parts(path, choice):
    """Changes the XML of one part, sometimes the names of parts, and how they are compressed."""
    with zipfile.ZipFile(path) as source:
        parts = {name: source.read(name).decode() for name in source.namelist()}
    name = choice.choice(list(parts))
    for _ in range(choice.randint(1, 3)):
        parts[name] = changed_xml(parts[name], choice) if ELEMENT.search(parts[name]) else ""
    if choice.random() < 0.2:
        parts = {choice.choice([n, n.upper(), n + "x", "é" + n]): t for n, t in parts.items()}
    with zipfile.ZipFile(path, "w", choice.choice(METHODS)) as target:
        for name, text in parts.items():
            target.writestr(name, text)


def spoil_bytes(path, choice):
    """Changes, removes or inserts bytes of the file."""
    data = bytearray(path.read_bytes())
    for _ in range(choice.randint(1, 8)):
        place = choice.randrange(len(data))
        kind = choice.randrange(4)
        if kind == 0:
            data[place] ^= 1 << choice.randrange(8)
        elif kind == 1:
            data[place] = choice.choice([0, 0xFF, 0x80])
        elif kind == 2:
            del data[place : place + choice.randint(1, 20)]
        else:
            data[place:place] = choice.randbytes(choice.randint(1, 20))
    path.write_bytes(data[: choice.choice([len(data), len(data), choice.randrange(len(data))])])


ACTIONS = (
    ("format", "--style", "s"),
    ("format", "--style", "s", "--skip-unreadable", "--discard-edits", "--drop-signature"),
    ("merge", "1", "2", "--style", "s"),
    ("insert", "--uuid", "u", "--bookmark", "B", "--style", "s"),
    ("insert", "--uuid", "u"),
    ("list",),
)


class EditingApplication(Application):
    def mergeFields(self, *codes):
        return [codes[0]]

    def getFieldCodeFromUuid(self, uuid):
        return [documents.code_of(uuid)]


class DamagedPackages(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        print(f"MACRO_SEED={SEED}", file=sys.stderr)

    def test_every_damaged_package_gives_a_result_or_an_error_message(self):
        statuses = {0: 0, 1: 0}
        with tempfile.TemporaryDirectory() as folder:
            source, target = Path(folder, "source.docx"), Path(folder, "target.docx")
            for number in range(PACKAGES):
                with self.subTest(seed=SEED, number=number):
                    choice = random.Random(f"{SEED}-{number}")
                    documents.Random(choice).write(source)
                    choice.choice([spoil_parts, spoil_parts, spoil_bytes])(source, choice)
                    statuses[self.run_action(choice.choice(ACTIONS), source, target)] += 1
        self.assertGreater(min(statuses.values()), PACKAGES // 20, "both outcomes occur")

    def run_action(self, action, source, target):
        target.write_bytes(b"what was there before")
        name, *options = action
        paths = [source] if name == "list" else [source, target]
        status, printed, message = run_macro(EditingApplication(), name, *paths, *options)
        self.assertRegex(message, SENTENCE)
        self.assertEqual(status == 1, "macro: " in message)
        if status == 0 and name != "list":
            with zipfile.ZipFile(target) as written:
                self.assertIsNone(written.testzip())
        else:
            self.assertEqual(target.read_bytes(), b"what was there before")
        return status


if __name__ == "__main__":
    unittest.main()
