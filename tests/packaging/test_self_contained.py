"""The self-contained program: the libraries that it loads, and what is linked into it."""

import os
import re
import unittest

from support import BRIDGE, QT_MAJOR, Case, home_without_application, run, utf16

MAX_SIZE = {"5": 5_000_000, "6": 5_500_000}[QT_MAJOR]  # bytes, stripped


class SelfContainedTest(Case):
    def test_needs_only_c_library(self):
        needed = re.findall(r"\(NEEDED\).*\[(.+)\]", run("readelf", "--dynamic", "--wide", BRIDGE))
        self.assertEqual(sorted(needed), ["libc.so.6", "libm.so.6"])

    def test_loads_no_other_library_when_it_runs(self):
        folder = self.temporary_folder()
        (folder / "mac-word-plugin-args.txt").write_bytes(b"")
        log = folder / "loaded"
        run(
            BRIDGE, "isTessaronRunning", folder,
            env={**home_without_application(folder / "config"), "LD_DEBUG": "files",
                 "LD_DEBUG_OUTPUT": str(log)},
        )  # fmt: skip
        self.assertEqual((folder / "mac-word-plugin-results.txt").read_bytes(), utf16("false"))
        (written,) = folder.glob("loaded.*")
        loaded = re.findall(r"calling init: (\S+)", written.read_text())
        names = {path.rsplit("/", 1)[-1] for path in loaded}
        self.assertLessEqual({"libc.so.6", "libm.so.6"}, names)
        self.assertLessEqual(names, {"libc.so.6", "libm.so.6", "ld-linux-x86-64.so.2"})

    def test_preloaded_library_finds_its_thread_local_data(self):
        folder = self.temporary_folder()
        source = folder / "library.cpp"
        source.write_text(
            "thread_local int value;\nnamespace { struct Loaded { Loaded() { ++value; } } loaded; }\n"
        )
        library = folder / "library.so"
        run(os.environ["CXX"], "-fPIC", "-shared", "-o", library, source)
        self.assertIn("__tls_get_addr", run("nm", "--dynamic", library))
        (folder / "mac-word-plugin-args.txt").write_bytes(b"")
        home = home_without_application(folder / "config")
        run(BRIDGE, "isTessaronRunning", folder, env={**home, "LD_PRELOAD": str(library)})

    def test_no_call_of_the_loader_for_thread_local_data_is_left(self):
        # The linker gave the loader's function the address 0.
        code = run("objdump", "--disassemble", "--no-show-raw-insn", BRIDGE)
        self.assertIn("call", code)
        self.assertEqual(re.findall(r".*(?:call|jmp) +0 <.*", code), [])

    def test_contains_no_plugin_of_qt(self):
        symbols = run("nm", "--defined-only", BRIDGE)
        self.assertIn("QNetworkAccessManager", symbols)
        # The symbols that Q_IMPORT_PLUGIN and the registration of a plug-in use.
        self.assertNotIn("qt_static_plugin_", symbols)
        self.assertNotIn("qt_plugin_instance", symbols)
        self.assertNotIn("BearerEngine", symbols)

    def test_is_small(self):
        stripped = self.temporary_folder() / "stripped"
        run("strip", "-o", stripped, BRIDGE)
        self.assertLessEqual(stripped.stat().st_size, MAX_SIZE)


if __name__ == "__main__":
    unittest.main()
