import unittest

from lxml import etree

from wordmacro import runs
from wordmacro.package import W

SC = '<span style="font-variant:small-caps;">'

MARKUP = {
    "nothing": ("", []),
    "plain": ("(Turing, 1950)", ["(Turing, 1950)"]),
    "italics": ("a <i>b</i> c", ["a ", "b:i", " c"]),
    "all five": (
        f"<i>a</i><b>b</b><sup>c</sup><sub>d</sub>{SC}e</span>",
        ["a:i", "b:b", "c:sup", "d:sub", "e:sc"],
    ),
    "nested": ("<i>a<b>b</b>c</i>", ["a:i", "b:b,i", "c:i"]),
    "the same mark twice": ("<i>a<i>b</i>c</i>d", ["abc:i", "d"]),
    "adjacent runs with equal marks join": ("<i>a</i><i>b</i>", ["ab:i"]),
    "subscript inside superscript": ("<sup>a<sub>b</sub></sup>", ["a:sup", "b:sub"]),
    "overlapping tags": ("<i>a<b>b</i>c</b>", ["a:i", "b:b,i", "c:b"]),
    "escapes": ("&lt;i&gt; &amp;amp;", ["<i> &amp;"]),
    "never closed": ("a<i>b", ["a", "b:i"]),
    "closed without opening": ("a</i>b", ["a</i>b"]),
    "closed with another tag": ("<i>a</b>", ["a</b>:i"]),
    "unknown tag": ("<u>a</u>", ["<u>a</u>"]),
    "capital letters": ("<I>a</I>", ["<I>a</I>"]),
    "another span": ("<span>a</span>", ["<span>a</span>"]),
    "unknown escape": ("&nbsp;&#38;&", ["&nbsp;&#38;&"]),
    "angle brackets that are not tags": ("a < b > c", ["a < b > c"]),
    "several scripts": ("Ζορμπά 围城 بين 🐋", ["Ζορμπά 围城 بين 🐋"]),
}

# A text, the elements of its run, and the text that is read back.
CONTENTS = {
    "tab": ("a\tb", ["t:a", "tab", "t:b"], "a\tb"),
    "line break": ("a\vb", ["t:a", "br", "t:b"], "a\vb"),
    "newline": ("a\nb", ["t:a", "br", "t:b"], "a\vb"),
    "carriage return and newline": ("a\r\nb", ["t:a", "br", "t:b"], "a\vb"),
    "page break": ("a\fb", ["t:a", "br", "t:b"], "a\vb"),
    "non-breaking hyphen": ("a\x1eb", ["t:a", "noBreakHyphen", "t:b"], "a\x1eb"),
    "optional hyphen": ("a\x1fb", ["t:a", "softHyphen", "t:b"], "a\x1fb"),
    "only a tab": ("\t", ["tab"], "\t"),
    "end mark of a table cell": ("a\x07", ["t:a\ufffd"], "a\ufffd"),
    "U+0000": ("\x00", ["t:\ufffd"], "\ufffd"),
    "field characters": ("\x13\x14\x15", ["t:\ufffd\ufffd\ufffd"], "\ufffd\ufffd\ufffd"),
    "unpaired surrogate": ("a\ud83d", ["t:a\ufffd"], "a\ufffd"),
    "noncharacters": ("\ufffe\uffff", ["t:\ufffd\ufffd"], "\ufffd\ufffd"),
    "surrogate pair": ("🐋", ["t:🐋"], "🐋"),
    "spaces at the ends": (" a ", ["t: a "], " a "),
    "no-break space": ("a\xa0b", ["t:a\xa0b"], "a\xa0b"),
    "characters with a meaning in XML": ("<&>\"'", ["t:<&>\"'"], "<&>\"'"),
}


def pieces(texts):
    """Converts texts such as "a:i,b" to pieces. The marks follow the last colon."""
    found = []
    for text in texts:
        body, colon, marks = text.rpartition(":")
        known = colon and set(marks.split(",")) <= set(runs.PROPERTIES)
        found.append((body, frozenset(marks.split(","))) if known else (text, frozenset()))
    return found


def element(text):
    return etree.fromstring(text.replace("<w:r>", f'<w:r xmlns:w="{W[1:-1]}">', 1))


class Runs(unittest.TestCase):
    def test_parses_markup(self):
        for name, (markup, texts) in MARKUP.items():
            with self.subTest(name):
                self.assertEqual(runs.pieces_of_markup(markup), pieces(texts))

    def test_written_markup_parses_to_the_same_pieces(self):
        for name, (_, texts) in MARKUP.items():
            with self.subTest(name):
                markup = runs.markup_of_pieces(pieces(texts))
                self.assertEqual(runs.pieces_of_markup(markup), pieces(texts))

    def test_writes_special_characters_as_elements(self):
        for name, (text, expected, seen) in CONTENTS.items():
            with self.subTest(name):
                (run,) = runs.runs_of_pieces([(text, frozenset())], None)
                names = [etree.QName(node).localname for node in run]
                found = [n + (f":{e.text}" if e.text else "") for n, e in zip(names, run)]
                self.assertEqual(found, expected)
                etree.fromstring(etree.tostring(run))
                shown = runs.replace_unrepresentable([(text, frozenset())])
                self.assertEqual(shown, [(seen, frozenset())])

    def test_reads_back_every_mark_of_a_run(self):
        for mark in runs.PROPERTIES:
            with self.subTest(mark):
                (run,) = runs.runs_of_pieces([("a", frozenset({mark}))], None)
                self.assertEqual(runs.marks_of_properties(run[0]), frozenset({mark}))

    def test_properties_are_in_the_order_of_the_standard(self):
        base = element(
            "<w:r><w:rPr><w:rStyle w:val='x'/><w:color w:val='FF0000'/><w:lang w:val='el'/>"
            "<w:rPrChange w:id='1'/></w:rPr></w:r>"
        )[0]
        found = runs.properties_with_marks(base, frozenset(runs.PROPERTIES) - {"sub"})
        names = [etree.QName(node).localname for node in found]
        self.assertEqual(
            names,
            "rStyle b bCs i iCs smallCaps color vertAlign lang rPrChange".split(),
        )

    def test_reads_the_marks_of_run_properties(self):
        table = {
            "<w:i/>": {"i"},
            "<w:i w:val='1'/><w:b w:val='true'/>": {"i", "b"},
            "<w:i w:val='0'/><w:b w:val='false'/><w:smallCaps w:val='off'/>": set(),
            "<w:iCs/><w:caps/><w:u w:val='single'/>": set(),
            "<w:vertAlign w:val='baseline'/>": set(),
            "<w:vertAlign w:val='superscript'/>": {"sup"},
            "<w:vertAlign w:val='subscript'/><w:smallCaps/>": {"sub", "sc"},
        }
        for properties, marks in table.items():
            with self.subTest(properties):
                run = element(f"<w:r><w:rPr>{properties}</w:rPr></w:r>")
                self.assertEqual(runs.marks_of_properties(run[0]), marks)
                from_first = runs.new_text_properties(run[0], None)
                self.assertEqual(runs.marks_of_properties(from_first), frozenset())
                from_whole = runs.new_text_properties(None, run[0])
                self.assertEqual(runs.marks_of_properties(from_whole), marks)

    def test_a_mark_that_the_field_switches_off_stays_off(self):
        whole = element("<w:r><w:rPr><w:i w:val='0'/><w:iCs w:val='0'/></w:rPr></w:r>")[0]
        found = runs.new_text_properties(None, whole)
        self.assertEqual([e.get(W + "val") for e in found], ["0", "0"])
        marked = runs.properties_with_marks(found, frozenset({"i"}))
        self.assertEqual(runs.marks_of_properties(marked), {"i"})

    def test_marks_of_the_field_and_of_the_text_combine(self):
        everything = frozenset({"i", "b", "sup", "sc"})
        table = (
            ({"i"}, {"i"}, {"i"}, set()),
            ({"i"}, {"b"}, {"i", "b"}, {"b"}),
            ({"sup"}, {"sub"}, {"sub"}, {"sub"}),
            ({"sup"}, set(), {"sup"}, set()),
            (everything, {"i", "sub"}, {"i", "b", "sub", "sc"}, {"sub"}),
        )
        for field, text, seen, expressible in table:
            with self.subTest(field=field, text=text):
                pieces = [("a", frozenset(text))]
                combined = runs.add_field_marks(frozenset(field), pieces)
                self.assertEqual(combined, [("a", seen)])
                left = runs.remove_field_marks(frozenset(field), combined)
                self.assertEqual(left, [("a", expressible)])


if __name__ == "__main__":
    unittest.main()
