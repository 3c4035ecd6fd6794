"""`cmake --install`: the files that it installs, and that the program runs after they are moved."""

import shutil
import unittest

from support import BRIDGE, BUILD, CMAKE, INSTALLED, SOURCE, VERSION, Case, files_below
from support import home_without_application, run, utf16


class InstallTest(Case):
    def setUp(self):
        self.folder = self.temporary_folder()
        self.prefix = self.folder / "first folder"
        run(CMAKE, "--install", BUILD, "--prefix", self.prefix)

    def test_installs_exactly_expected_files(self):
        self.assertEqual(files_below(self.prefix), INSTALLED)

    def test_installs_same_files_as_component(self):
        prefix = self.folder / "component"
        run(CMAKE, "--install", BUILD, "--prefix", prefix, "--component", "bridge")
        self.assertEqual(files_below(prefix), INSTALLED)

    def test_runs_after_move(self):
        moved = self.folder / "second" / "folder"
        moved.parent.mkdir()
        shutil.move(self.prefix, moved)
        exchange = self.folder / "exchange"
        exchange.mkdir()
        (exchange / "mac-word-plugin-args.txt").write_bytes(b"")
        status = run(
            moved / "bin" / BRIDGE.name, "isTessaronRunning", exchange,
            env=home_without_application(self.folder / "config"),
        )  # fmt: skip
        self.assertEqual(status, "10\n")
        self.assertEqual((exchange / "mac-word-plugin-results.txt").read_bytes(), utf16("false"))

    def test_program_does_not_contain_its_own_path(self):
        program = self.prefix / "bin" / BRIDGE.name
        self.assertContains(program, "/mac-word-plugin-args.txt", [self.prefix, "/usr/local/bin"])


class ManPageTest(Case):
    def setUp(self):
        prefix = self.temporary_folder()
        run(CMAKE, "--install", BUILD, "--prefix", prefix)
        self.page = prefix / "share" / "man" / "man1" / "tessaron-word-bridge.1"

    def test_is_well_formed(self):
        formatter = shutil.which("groff")
        if formatter is None:
            self.skipTest("groff is not installed")
        # Warnings go to standard error.
        self.assertEqual(run("sh", "-c", 'groff -man -ww -z "$1" 2>&1', "sh", self.page), "")

    def test_names_version(self):
        text = self.page.read_text()
        self.assertIn(f"tessaron-word-bridge {VERSION}", text)
        self.assertNotIn("@", text)


class VersionTest(Case):
    def test_is_defined_in_one_place(self):
        text = (SOURCE / "CMakeLists.txt").read_text()
        self.assertEqual(text.count(VERSION), 1)
        for path in (SOURCE / "packaging").iterdir():
            self.assertNotIn(VERSION, path.read_text(), path.name)


if __name__ == "__main__":
    unittest.main()
