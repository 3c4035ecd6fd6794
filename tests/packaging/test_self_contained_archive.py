"""The self-contained archive: its contents, that two builds are identical, that the program can be
linked again, and that it runs in minimal Debian 12 and 13."""

import os
import shutil
import subprocess
import tarfile
import unittest

from support import BRIDGE, INSTALLED, SOURCE, VERSION, WORK, Case, files_below
from support import home_without_application, run, skip, utf16
from test_packages import FIRST, FOLDERS, PROGRAM, build, make_packages, package

NAME = f"{PROGRAM}-{VERSION}-linux-x86_64"
QT_PREFIX = os.environ["QT_DIR"].split("/lib/cmake/")[0]
DOCUMENTS = f"share/doc/{PROGRAM}"
SEPARATOR = "\x01"
WATSON_AND_CRICK = "33053e9b-89d7-43b2-a688-36f487407934"  # 1953, in the stand-in's library
APA = "http://www.zotero.org/styles/apa"


def setUpModule():
    for folder in FOLDERS:
        build(folder, "-DSELF_CONTAINED=ON")
        make_packages(folder)


class ArchiveTest(Case):
    def setUp(self):
        self.folder = self.temporary_folder()
        with tarfile.open(package(FIRST, ".tar.gz")) as archive:
            archive.extractall(self.folder)
        self.top = self.folder / NAME

    def test_two_builds_are_identical(self):
        for name in (PROGRAM, f"{NAME}.tar.gz"):
            first, second = ((folder / "build" / name).read_bytes() for folder in FOLDERS)
            self.assertTrue(first == second, f"Two builds of {name} differ.")

    def test_contains_no_folder_of_this_machine(self):
        program = self.top / "bin" / PROGRAM
        self.assertContains(program, "/tessaronDesktopInfo", [FIRST, QT_PREFIX, os.path.expanduser("~")])

    def test_contains_program_man_page_notices_and_files_for_relinking(self):
        self.assertEqual([path.name for path in self.folder.iterdir()], [NAME])
        self.assertEqual(files_below(self.top), INSTALLED)

    def test_makes_no_deb(self):
        self.assertEqual(list((FIRST / "build").glob("*.deb")), [])

    def test_notices_name_every_library_with_its_source(self):
        text = (self.top / DOCUMENTS / "NOTICES.md").read_text()
        for expected in (f"| Qt Core and Qt Network {os.environ['QT_VERSION']} | LGPL 3 | ",
                         "| GLib | LGPL 2.1 or later | ", "| PCRE2, used by GLib | BSD | "):  # fmt: skip
            self.assertIn(expected, text)
        self.assertNotIn("@", text)
        self.assertNotIn("|  |", text)

    def test_relinked_program_runs(self):
        script = self.top / DOCUMENTS / "relink" / "relink.sh"
        again = self.folder / "again"
        run(script, QT_PREFIX, again)
        self.assertNotEqual(again.read_bytes(), BRIDGE.read_bytes())
        exchange = self.folder / "exchange"
        exchange.mkdir()
        (exchange / "mac-word-plugin-args.txt").write_bytes(b"")
        home = home_without_application(self.folder / "config")
        self.assertEqual(run(again, "isTessaronRunning", exchange, env=home), "10\n")


class DebianTest(Case):
    """Runs the bridge in roots without Qt and GLib. The stand-in for the application runs outside."""

    def test_runs_in_debian_12(self):
        self.format_in("bookworm")

    def test_runs_in_debian_13(self):
        self.format_in("trixie")

    def format_in(self, release):
        root = self.make_root(release)
        self.assertEqual([path for path in root.rglob("lib*") if "libQt" in path.name
                          or path.name.startswith("libglib-2")], [])  # fmt: skip
        with tarfile.open(package(FIRST, ".tar.gz")) as archive:
            archive.extractall(root / "opt")
        self.root, self.port = root, self.start_application()
        (code,) = self.command("getFieldCodeFromUuid", WATSON_AND_CRICK)
        self.assertTrue(code.startswith("ADDIN CSL_CITATION {"), code)
        results = self.command("formatCitationsAndBibliography", APA, code, "", code, "")
        self.assertEqual(results[0], "true")
        self.assertEqual(results[4::4], ["(Watson &amp; Crick, 1953)"] * 2)

    def make_root(self, release):
        for reason, missing in (("debootstrap is not installed", not shutil.which("debootstrap")),
                                ("a Debian root can only be made as root", os.getuid() != 0)):
            if missing:
                self.skipTest(reason)
        root = WORK / release
        shutil.rmtree(root, ignore_errors=True)
        self.addCleanup(shutil.rmtree, root, ignore_errors=True)
        # The first stage, which unpacks the required packages, is enough to run a program.
        try:
            run("debootstrap", "--variant=minbase", "--foreign", release, root)
        except AssertionError as error:
            self.skipTest(f"no Debian root can be made: {str(error).splitlines()[-1]}")
        return root

    def start_application(self):
        process = subprocess.Popen(
            ["node", SOURCE / "testbed/desktop/main.js", "--port", "0"],
            stdout=subprocess.PIPE, text=True,
        )  # fmt: skip
        self.addCleanup(process.wait)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.terminate)
        return process.stdout.readline().rsplit(":", 1)[1].strip()

    def command(self, name, *arguments):
        folder = self.root / "exchange"
        settings = folder / "config" / "tessaron.com" / "Tessaron Desktop.conf"
        settings.parent.mkdir(parents=True, exist_ok=True)
        settings.write_text(f"[%General]\nhttpServerPort={self.port}\n")
        (folder / "mac-word-plugin-args.txt").write_bytes(utf16(SEPARATOR.join(arguments)))
        status = run(
            "chroot", self.root, "/usr/bin/env", "-i", "XDG_CONFIG_HOME=/exchange/config",
            f"/opt/{NAME}/bin/{PROGRAM}", name, "/exchange",
        )  # fmt: skip
        results = (folder / "mac-word-plugin-results.txt").read_bytes()
        self.assertEqual(status, f"{len(results)}\n")
        return results.decode("utf-16-le").split(SEPARATOR)


if __name__ == "__main__":
    for tool in ("git", "node", "pkg-config"):
        if shutil.which(tool) is None:
            skip(f"{tool} is not installed.")
    unittest.main()
