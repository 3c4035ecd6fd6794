"""The bridge launches an application that is not running, through its desktop entry."""

import os
import shutil
import unittest
from pathlib import Path

import reader
from support import APA, DESKTOP, ON_MAC, EndToEnd, free_port, is_running, make, stop_by_id

FIXED_PATH = Path("/opt/Tessaron Desktop/tessaron-desktop")
ENTRY = """[Desktop Entry]
Type=Application
Name=Tessaron Desktop
Exec="{node}" "{desktop}" --port {port} --log "{log}"
"""


@unittest.skipIf(ON_MAC, "Only Linux has desktop entries. On a Mac, tools/try-on-mac tests the launch.")
@unittest.skipIf(FIXED_PATH.exists(), f"{FIXED_PATH} is installed and would be started instead.")
class Launch(EndToEnd):
    def setUp(self):
        super().setUp()
        self.port = free_port()
        self.home.set_port(self.port)
        make(self.path("samples"))
        self.source = self.path("samples/numeric.docx")

    def install(self):
        applications = self.home.folder / "data" / "applications"
        applications.mkdir(parents=True)
        (applications / "com.tessaron.desktop.desktop").write_text(
            ENTRY.format(
                node=shutil.which("node"), desktop=DESKTOP, port=self.port, log=self.path("log")
            )
        )

    def process_id(self):
        return int(self.ok("run", "tessaronProcessId").removeprefix("1: "))

    def stop_launched_application(self):
        process_id = self.process_id()
        if process_id:
            stop_by_id(process_id)

    def test_launches_an_application_that_is_not_running(self):
        self.assertEqual(self.ok("run", "isTessaronRunning"), "1: false\n")
        message = self.failure("format", self.source, self.path("a.docx"), "--style", APA)
        self.assertIn("Tessaron Desktop does not reply", message)
        self.assertFalse(self.path("a.docx").exists())

        self.install()
        self.addCleanup(self.stop_launched_application)
        self.assertEqual(self.ok("run", "launchTessaron"), "1: true\n")
        self.assertEqual(self.ok("run", "isTessaronRunning"), "1: true\n")
        process_id = self.process_id()
        self.assertNotIn(process_id, (0, os.getpid()))
        self.assertTrue(is_running(process_id))

        self.ok("format", self.source, self.path("a.docx"), "--style", APA)
        texts = [field.text for field in reader.citations(self.path("a.docx"))]
        self.assertEqual(texts[0], "(Kroto et al., 1985)")

        self.assertEqual(self.ok("run", "launchTessaron"), "1: true\n")
        self.assertEqual(self.process_id(), process_id, "a running application is not started again")

    def test_reports_an_application_that_is_not_installed(self):
        self.assertEqual(self.ok("run", "launchTessaron"), "1: false\n")


if __name__ == "__main__":
    unittest.main()
