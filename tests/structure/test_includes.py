"""Checks that each layer includes only itself and lower layers."""
import os
import pathlib
import re
import tempfile
import unittest

LAYERS = ["apiclient/json", "apiclient", "service", "frontend"]  # from the lowest to the highest
INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"', re.MULTILINE)


def layer_of(path):
    """The position in LAYERS of a file's folder; None for a file in any other folder."""
    folder = os.path.dirname(path)
    return LAYERS.index(folder) if folder in LAYERS else None


def problems(root):
    """One message per include that points to a higher layer or outside the layers."""
    found = []
    for folder in LAYERS:
        for source in sorted((root / folder).glob("*.*")):
            if source.suffix not in (".h", ".cpp"):
                continue
            name = source.relative_to(root).as_posix()
            for included in INCLUDE.findall(source.read_text(encoding="utf-8")):
                layer = layer_of(included)
                if layer is None or not (root / included).is_file():
                    found.append(f"{name} includes {included}, which is not a file of any layer")
                elif layer > layer_of(name):
                    found.append(f"{name} includes {included}, which is in a higher layer")
    return found


class IncludesTest(unittest.TestCase):
    def check(self, including, line, *others):
        """Returns the problems of a tree with a file of one line, and empty other files."""
        with tempfile.TemporaryDirectory() as folder:
            root = pathlib.Path(folder)
            for name, text in ((including, line), *((other, "") for other in others)):
                (root / name).parent.mkdir(parents=True, exist_ok=True)
                (root / name).write_text(text, encoding="utf-8")
            return problems(root)

    def test_project_includes_point_downwards(self):
        root = pathlib.Path(os.environ["SOURCE_DIR"])
        for folder in LAYERS:
            self.assertTrue(list((root / folder).glob("*.cpp")), f"{folder} has no sources")
        self.assertEqual(problems(root), [])

    def test_rejects_upward_include(self):
        for line in ('#include "service/A.h"', '  #  include "service/A.h" // why'):
            self.assertEqual(self.check("apiclient/B.cpp", line, "service/A.h"),
                             ["apiclient/B.cpp includes service/A.h, which is in a higher layer"])

    def test_rejects_include_from_json_into_apiclient(self):
        self.assertEqual(len(self.check("apiclient/json/B.h", '#include "apiclient/A.h"',
                                        "apiclient/A.h")), 1)

    def test_rejects_include_outside_layers(self):
        self.assertEqual(len(self.check("service/B.cpp", '#include "tests/support/A.h"',
                                        "tests/support/A.h")), 1)

    def test_rejects_include_of_missing_file(self):
        self.assertEqual(len(self.check("service/B.cpp", '#include "apiclient/A.h"')), 1)

    def test_allows_same_layer_and_all_lower_layers(self):
        for included in ("frontend/A.h", "service/A.h", "apiclient/A.h", "apiclient/json/A.h"):
            self.assertEqual(self.check("frontend/B.cpp", f'#include "{included}"', included), [])

    def test_ignores_system_includes(self):
        self.assertEqual(self.check("apiclient/B.cpp", "#include <QString>"), [])


if __name__ == "__main__":
    unittest.main()
