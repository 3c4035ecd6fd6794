"""If its toolchain is not available, packaging_darwin prints a sentence that says what to do."""

import json
import os
import subprocess
import sys
import unittest
from pathlib import Path
from unittest import mock

from support import Case

HERE = Path(__file__).resolve().parent
sys.path.insert(0, str(HERE / "darwin"))
import sdk  # noqa: E402

NAME, VERSION = sdk.locked()


class ToolchainCase(Case):
    def setUp(self):
        self.folder = self.temporary_folder()
        self.programs = self.folder / "programs"
        self.programs.mkdir()
        patch = mock.patch.dict(os.environ, {"PATH": str(self.programs)})
        patch.start()
        self.addCleanup(patch.stop)

    def program(self, name, script):
        """Puts a shell script into the only folder on PATH."""
        path = self.programs / name
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)
        return path

    def assertMissing(self, sentence, function, *arguments):
        with self.assertRaises(sdk.Missing) as raised:
            function(*arguments)
        self.assertIn(sentence, str(raised.exception))


class NpmTest(ToolchainCase):
    def installed(self, version):
        package = self.folder / "zig" / "node_modules" / NAME
        package.mkdir(parents=True, exist_ok=True)
        (package / "package.json").write_text(json.dumps({"version": version}))
        return package

    def npm_that_installs(self, version):
        package = f"node_modules/{NAME}"
        self.program(
            "npm",
            f"/bin/mkdir -p {package} && echo '{{\"version\": \"{version}\"}}' > {package}/package.json",
        )

    def install(self):
        return sdk.install_zig(self.folder / "zig")

    def test_uses_installed_package_without_npm(self):
        package = self.installed(VERSION)
        self.assertEqual(self.install(), package)

    def test_reports_missing_npm(self):
        self.assertMissing("apt-get install npm", self.install)

    def test_installs_what_lock_file_names(self):
        self.npm_that_installs(VERSION)
        package = self.install()
        self.assertEqual(sdk.installed_version(package), VERSION)
        lock = "package-lock.json"
        self.assertEqual(
            (self.folder / "zig" / lock).read_text(), (HERE / "darwin" / lock).read_text()
        )

    def test_replaces_wrong_version(self):
        self.installed("0.1.0")
        self.npm_that_installs(VERSION)
        self.assertEqual(sdk.installed_version(self.install()), VERSION)

    def test_reports_wrong_version_after_installation(self):
        self.npm_that_installs("0.1.0")
        self.assertMissing(f"has version 0.1.0, and package-lock.json names {VERSION}. Remove",
            self.install)  # fmt: skip

    def test_reports_failed_installation(self):
        for output, hint in (
            ("npm ERR! code ENOTFOUND", "Is the network reachable? Run the test again when it is."),
            ("npm ERR! code EINTEGRITY", "Its content differs from what package-lock.json names"),
            ("npm ERR! code EBADPLATFORM", "It is made for Linux on x86_64"),
        ):
            with self.subTest(output):
                self.program("npm", f"echo '{output}' >&2; exit 1")
                self.assertMissing(hint, self.install)
                self.assertMissing(output, self.install)

    def test_installs_damaged_package_again(self):
        package = self.installed(VERSION)
        for content in ("", "{", "[]", "{}"):
            (package / "package.json").write_text(content)
            self.assertMissing("apt-get install npm", self.install)

    def test_lock_file_has_integrity_and_no_host(self):
        text = (HERE / "darwin" / "package-lock.json").read_text()
        self.assertRegex(text, '"integrity": "sha512-[A-Za-z0-9+/]{86}=="')
        self.assertNotIn("://", text)


class ClangTest(ToolchainCase):
    def find(self):
        return sdk.llvm_folder("clang++")

    def clang_with(self, linker):
        self.program("clang++", f"echo {linker}")

    def test_reports_missing_clang(self):
        self.assertMissing("apt-get install clang lld llvm", self.find)

    def test_reports_missing_linker(self):
        # clang prints the bare name of a program that it does not find.
        self.clang_with("ld64.lld")
        self.assertMissing("apt-get install lld", self.find)

    def test_names_missing_tools(self):
        self.clang_with(self.program("ld64.lld", ""))
        self.program("llvm-ar", "")
        self.program("llvm-nm", "")
        self.assertMissing("LLVM's ranlib, install-name-tool, lipo, objdump cannot", self.find)


class SkipTest(Case):
    def skip(self, **variables):
        code = "import support; support.skip('no toolchain.')"
        done = subprocess.run(
            [sys.executable, "-B", "-c", code], cwd=HERE, env={**os.environ, **variables},
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8",
        )  # fmt: skip
        return done.returncode, done.stdout

    def test_is_skipped_with_its_reason(self):
        self.assertEqual(self.skip(BRIDGE_TEST_REQUIRED="test_darwin"), (77, "Skipped: no toolchain.\n"))

    def test_fails_if_it_is_required(self):
        # A program run by "python -c" has the name "-c".
        status, output = self.skip(BRIDGE_TEST_REQUIRED="-c")
        self.assertEqual((status, "no toolchain." in output), (1, True))


class StubTest(Case):
    def test_refuses_static_qt(self):
        with self.assertRaisesRegex(sdk.Missing, "Run the test in a build with shared libraries"):
            sdk.make_qt(self.temporary_folder(), "/", {"QtCore": "/qt/libQt5Core.a"}, "/moc", "5.15.8")

    def test_reads_back_written_symbols(self):
        path = self.temporary_folder() / "lib" / "stub.tbd"
        symbols = {"_a", "__ZN1aC1Ev", "___CFConstantStringClassReference"}
        self.assertEqual(sdk.write_tbd(path, "/usr/lib/stub.dylib", symbols), symbols)
        self.assertEqual(sdk.symbols_of_tbd(path), symbols)


if __name__ == "__main__":
    unittest.main()
