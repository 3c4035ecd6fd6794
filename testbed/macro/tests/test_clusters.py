import unittest

from tests.test_fields import citation, find
from wordmacro import clusters

RECORD = '{{"tessaron":{{"previouslyFormattedCitation":"{}"}}}}'

# A field code, whether it contains a JSON object, and whether the object lists works.
CODES = {
    "as the bridge writes it": ('ADDIN CSL_CITATION {"citationItems":[{}]}', True, True),
    "two spaces in the name": ('ADDIN  CSL_CITATION {"citationItems":[{}]}', True, True),
    "two spaces before the JSON": ('ADDIN CSL_CITATION  {"citationItems":[{}]}', True, True),
    "a switch before the JSON": ('ADDIN CSL_CITATION \\* X {"citationItems":[{}]}', True, True),
    "another field": ('ADDIN CSL_OTHER {"citationItems":[{}]}', False, False),
    "null": ("ADDIN CSL_CITATION null", False, False),
    "a list": ("ADDIN CSL_CITATION [1]", False, False),
    "an object in a list": ('ADDIN CSL_CITATION [{"citationItems":[{}]}]', False, False),
    "cut off": ('ADDIN CSL_CITATION {"citationItems":[{}]', False, False),
    "NaN": ('ADDIN CSL_CITATION {"citationItems":[NaN]}', False, False),
    "nested too deeply": ("ADDIN CSL_CITATION {" + "[" * 100_000, False, False),
    "an empty object": ("ADDIN CSL_CITATION {}", True, False),
    "no works": ('ADDIN CSL_CITATION {"citationItems":[]}', True, False),
    "works that are a text": ('ADDIN CSL_CITATION {"citationItems":"x"}', True, False),
}

# A field code, and the number in it that exceeds the range of a double.
NUMBERS = {
    '{"a":1e400}': "1e400",
    '{"a":-1.5E+999}': "-1.5E+999",
    '{"a":1e308}': "",
    '{"a":"1e400"}': "",
    '{"a":"\\"1e400"}': "",
    f'{{"a":{"9" * 310}}}': "9" * 310,
    f'{{"a":{"9" * 300}}}': "",
}


class Clusters(unittest.TestCase):
    def test_reads_field_codes(self):
        for name, (code, is_object, has_works) in CODES.items():
            with self.subTest(name):
                self.assertEqual(clusters.parse_cluster(code) is not None, is_object)
                self.assertEqual(clusters.has_works(code), has_works)

    def test_finds_numbers_beyond_a_double(self):
        for code, found in NUMBERS.items():
            with self.subTest(code[:40]):
                self.assertEqual(clusters.too_large_number(code), found)

    def test_a_text_is_edited_if_it_differs_from_the_recorded_one(self):
        table = (("old", "old", False), ("new", "old", True), ("", "old", False), ("old", None, False))
        for shown, recorded, is_edited in table:
            with self.subTest(shown=shown, recorded=recorded):
                record = "{}" if recorded is None else RECORD.format(recorded)
                (field,) = find(citation(record, shown)).citations
                self.assertEqual(clusters.is_edited(field), is_edited)

    def test_marks_of_the_whole_field_do_not_count_as_an_edit(self):
        contents = citation(RECORD.format("&lt;i>old&lt;/i>"), "old")
        marked = contents.replace("<w:r>", "<w:r><w:rPr><w:i/></w:rPr>")
        for contents, is_edited in ((contents, True), (marked, False)):
            (field,) = find(contents).citations
            self.assertEqual(clusters.recorded_text(field.code), "<i>old</i>")
            self.assertEqual(clusters.is_edited(field), is_edited)


if __name__ == "__main__":
    unittest.main()
