"""Checks that includes point downwards: frontend, service, apiclient, apiclient/json."""
import os
import pathlib
import re
import tempfile
import unittest

FLOORS = ["apiclient/json", "apiclient", "service", "frontend"]  # from the bottom up
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def floor_of(path):
    """The position in FLOORS of a file's folder; None for a file of another folder."""
    folder = os.path.dirname(path)
    return FLOORS.index(folder) if folder in FLOORS else None


def problems(root):
    """A sentence for each include of a floor that does not stay on it or go downwards."""
    found = []
    for folder in FLOORS:
        for source in sorted((root / folder).glob("*.*")):
            if source.suffix not in (".h", ".cpp"):
                continue
            name = source.relative_to(root).as_posix()
            for included in INCLUDE.findall(source.read_text(encoding="utf-8")):
                floor = floor_of(included)
                if floor is None or not (root / included).is_file():
                    found.append(f"{name} includes {included}, which is on no floor")
                elif floor > floor_of(name):
                    found.append(f"{name} includes {included}, which is above it")
    return found


class IncludesTest(unittest.TestCase):
    def check(self, including, line, *others):
        """The problems of a tree with one file that has one line, and empty other files."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in ((including, line), *((other, "") for other in others)):
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text, encoding="utf-8")
            return problems(root)

    def test_project_includes_point_downwards(self):
        root = pathlib.Path(os.environ["SOURCE_DIR"])
        for folder in FLOORS:
            self.assertTrue(list((root / folder).glob("*.cpp")), f"{folder} has no sources")
        self.assertEqual(problems(root), [])

    def test_rejects_upward_include(self):
        for line in ('#include "service/A.h"', '  #  include "service/A.h" // why'):
            self.assertEqual(self.check("apiclient/B.cpp", line, "service/A.h"),
                             ["apiclient/B.cpp includes service/A.h, which is above it"])

    def test_rejects_include_from_json_into_apiclient(self):
        self.assertEqual(len(self.check("apiclient/json/B.h", '#include "apiclient/A.h"',
                                        "apiclient/A.h")), 1)

    def test_rejects_include_outside_the_floors(self):
        self.assertEqual(len(self.check("service/B.cpp", '#include "tests/support/A.h"',
                                        "tests/support/A.h")), 1)

    def test_rejects_include_of_missing_file(self):
        self.assertEqual(len(self.check("service/B.cpp", '#include "apiclient/A.h"')), 1)

    def test_allows_same_floor_and_any_floor_below(self):
        for included in ("frontend/A.h", "service/A.h", "apiclient/A.h", "apiclient/json/A.h"):
            self.assertEqual(self.check("frontend/B.cpp", f'#include "{included}"', included), [])

    def test_ignores_system_includes(self):
        self.assertEqual(self.check("apiclient/B.cpp", "#include <QString>"), [])


if __name__ == "__main__":
    unittest.main()
