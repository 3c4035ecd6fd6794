"""How the example reads and writes field codes and formatted texts, run by LibreOffice's Basic."""

import json
import unittest

from office import HAS_PROGRAMS, OfficeCase, from_hex, in_hex
from support import skip

CODE = "ADDIN CSL_CITATION "
ITALIC, BOLD, SUPERSCRIPT, SUBSCRIPT, SMALL_CAPS = 1, 2, 4, 8, 16
SMALL_CAPS_TAG = '<span style="font-variant:small-caps;">'

# Objects, and the JSON of their member "key".
MEMBERS = {
    '{"key":1}': "1",
    ' \t\r\n{ "key" : "a" } ': '"a"',
    '{"other":"key","key":null}': "null",
    '{"a":{"key":1},"key":{"key":2}}': '{"key":2}',
    '{"a":"}]\\"","key":[1,{"b":"]"}]}': '[1,{"b":"]"}]',
    '{"a":"\\\\","key":true}': "true",
    '{"k\\u0065y":1}': "1",
    '{"key":1,"key":2}': "2",
    '{"key":""}': '""',
    '{"key":-1.5e3 ,"b":0}': "-1.5e3",
}
NO_MEMBERS = [
    "", " ", "null", '"key"', "[1]", "{", "{}", '{"key"', '{"key":', '{"key":1', '{"key":"a', '{"key":"a\\"}',
    '{"key":[1}', '{"key":{"a":1}', '{"key" 1}', '{"key":1}x', '{"key":1}}', '{"Key":1}', '{"a":{"key":1}}',
    "{key:1}", '{"a":"\\', '{"a":"\\u00',
]  # fmt: skip

CITATIONS = [
    CODE + '{"citationItems":[{}]}',
    CODE + '{"a":1,"citationItems": [ {} ] }',
    "  ADDIN  CSL_CITATION  " + '{"citationItems":[1]} ',
    "ADDIN CSL_CITATION" + '{"citationItems":[1]}',
]
NO_CITATIONS = [
    "", "ADDIN", CODE, CODE + "null", CODE + "[]", CODE + "{}", CODE + '{"citationItems":[]}',
    CODE + '{"citationItems":[ \n]}', CODE + '{"citationItems":{}}', CODE + '{"citationItems":null}',
    CODE + '{"citationItems":[{}]', CODE + '{"citationItems":[{}]} x', CODE + '{"tessaron":{"citationItems":[1]}}',
    'ADDIN CSL_CITATIONS {"citationItems":[1]}', 'ADDIN CSL_BIBLIOGRAPHY {"citationItems":[1]}',
    'addin csl_citation {"citationItems":[1]}', 'XADDIN CSL_CITATION {"citationItems":[1]}',
]  # fmt: skip

# Markup and its runs. Any other tag is text.
MARKUP = {
    "": [],
    "plain": [(0, "plain")],
    "a<i>b</i>c": [(0, "a"), (ITALIC, "b"), (0, "c")],
    "<i>a<b>b</b></i>": [(ITALIC, "a"), (ITALIC + BOLD, "b")],
    "<i>a</i><i>b</i>": [(ITALIC, "ab")],
    "<sup>1</sup><sub>2</sub>": [(SUPERSCRIPT, "1"), (SUBSCRIPT, "2")],
    "<sup>1<sub>2</sub>3</sup>": [(SUPERSCRIPT, "1"), (SUBSCRIPT, "2"), (SUPERSCRIPT, "3")],
    "<sub>1<sup>2</sup></sub>": [(SUBSCRIPT, "1"), (SUPERSCRIPT, "2")],
    SMALL_CAPS_TAG + "a</span>b": [(SMALL_CAPS, "a"), (0, "b")],
    "&amp;&lt;&gt;&amp;lt;": [(0, "&<>&lt;")],
    "<i>not closed": [(ITALIC, "not closed")],
    "<i><b>a</i>b</b>": [(ITALIC + BOLD, "a"), (BOLD, "b")],
    "a</i>b": [(0, "a</i>b")],
    "<I>a</I>": [(0, "<I>a</I>")],
    "<em>a</em>": [(0, "<em>a</em>")],
    "<i >a": [(0, "<i >a")],
    '<span style="color:red">a</span>': [(0, '<span style="color:red">a</span>')],
    "a < b & c > d": [(0, "a < b & c > d")],
    "&quot;&#38;&": [(0, "&quot;&#38;&")],
    "<": [(0, "<")],
    "<i": [(0, "<i")],
}

# Markup and the text that Word shows for it.
IN_WORD = {
    "a\nb\r\nc": "a\rb\rc",
    "tab\tkept": "tab\tkept",
    "\x00\x01\x07\x13\x1d": "\ufffd" * 5,
    "\x1e\x1f": "\x1e\x1f",
    "\U0001f600": "\U0001f600",
    "cut \ud83d": "cut \ufffd",
    "\ude00\ud83d": "\ufffd\ufffd",
    "\ud83d\ud83d\ude00\ude00": "\ufffd\U0001f600\ufffd",
    "\ufffe\uffff\ufffd": "\ufffd\ufffd\ufffd",
}

SAME = [("a\x0bb", "a\nb"), ("a\rb", "a\nb"), ("a\x1eb", "a\u2011b"), ("a\x1fb", "a\xadb"), ("\x07", "\ufffd")]
DIFFERENT = [("a", "b"), ("a", "A"), ("a", ""), ("a", "a "), ("a-b", "a\u2011b"), ("a b", "a\xa0b")]


class TextTest(OfficeCase):
    def texts_of(self, step, arguments):
        """The texts that a step returns for each list of arguments."""
        outcomes = self.basic(*((step, *map(lambda text: in_hex([text]), row)) for row in arguments))
        for outcome in outcomes:
            self.assertTrue(outcome.startswith("ok"), outcome)
        return [from_hex(outcome.removeprefix("ok ")) for outcome in outcomes]

    def answers_of(self, step, arguments):
        """The booleans that a step returns for each list of arguments."""
        outcomes = self.basic(*((step, *map(lambda text: in_hex([text]), row)) for row in arguments))
        return [{"ok True": True, "ok False": False}[outcome] for outcome in outcomes]

    def assert_rows(self, expected, actual):
        self.assertEqual(len(expected), len(actual))
        for (name, value), found in zip(expected.items(), actual):
            with self.subTest(name):
                self.assertEqual(found, value)

    def test_finds_members_of_objects(self):
        found = self.texts_of("member", [(text, "key") for text in MEMBERS])
        self.assert_rows(MEMBERS, found)

    def test_finds_nothing_in_malformed_json(self):
        found = self.texts_of("member", [(text, "key") for text in NO_MEMBERS])
        self.assert_rows(dict.fromkeys(NO_MEMBERS, ""), found)

    def test_reads_strings(self):
        texts = ["", "a", 'quote " and \\', "line\nend\t\r\b\f", "\u00e9 \u4e2d \U0001f600", "\ud83d", "/", "\0\x01", "\\u0041"]
        rows = {json.dumps(text): text for text in texts} | {'"\\/"': "/", "1": "", "null": "", '["a"]': "", "": ""}
        self.assert_rows(rows, self.texts_of("text", [(value,) for value in rows]))

    def test_recognises_citations(self):
        rows = {**dict.fromkeys(CITATIONS, True), **dict.fromkeys(NO_CITATIONS, False)}
        self.assert_rows(rows, self.answers_of("citation", [(code,) for code in rows]))

    def test_reads_markup(self):
        found = self.texts_of("runs", [(markup,) for markup in MARKUP])
        runs = [[tuple(run.split("\ue003")) for run in text.split("\ue002") if run] for text in found]
        self.assert_rows(MARKUP, [[(int(marks), text) for marks, text in row] for row in runs])

    def test_writes_markup_that_reads_back_unchanged(self):
        written = self.texts_of("markup", [(markup,) for markup in MARKUP])
        again = self.texts_of("runs", [(markup,) for markup in written])
        self.assert_rows(dict(zip(MARKUP, self.texts_of("runs", [(m,) for m in MARKUP]))), again)

    def test_writes_only_what_word_can_store(self):
        found = self.texts_of("word runs", [(markup,) for markup in IN_WORD])
        self.assert_rows(IN_WORD, [text.removeprefix("0\ue003") for text in found])

    def test_escapes_in_codes_what_word_cannot_store(self):
        texts = ["plain", "\U0001f600", "\ud83d", "\ufffe\uffff", "\x07\x01"]
        for text, code in zip(texts, self.texts_of("word code", [('"%s"' % text,) for text in texts])):
            with self.subTest(ascii(text)):
                self.assertEqual(json.loads(code), text)
                self.assertNotRegex(code, "[\x00-\x08\ufffe\uffff]")
                code.encode("utf-16-le")  # fails for an unpaired surrogate

    def test_compares_texts_as_word_shows_them(self):
        rows = {**dict.fromkeys(SAME, True), **dict.fromkeys(DIFFERENT, False)}
        self.assert_rows(rows, self.answers_of("same", rows))


if __name__ == "__main__":
    if not HAS_PROGRAMS:
        skip("LibreOffice (soffice) or ps is not installed.")
    unittest.main()
