"""Helpers for the tests of the packages: paths, and running programs."""

import os
import random
import socket
import subprocess
import sys
import tempfile
import unittest
from pathlib import Path

SOURCE = Path(os.environ["SOURCE_DIR"])
BUILD = Path(os.environ["BUILD_DIR"])
BRIDGE = Path(os.environ["BRIDGE"])
WORK = Path(os.environ["WORK_DIR"])  # a folder for this test run
CMAKE = os.environ["CMAKE_COMMAND"]
VERSION = os.environ["VERSION"]
QT_MAJOR = os.environ["QT_VERSION"].split(".")[0]
QT_OPTIONS = [f"-DBRIDGE_QT={QT_MAJOR}", f"-DQt{QT_MAJOR}_DIR={os.environ['QT_DIR']}"]

# The files of the product. Building it must not need the rest of the repository.
PRODUCT = ["CMakeLists.txt", "apiclient", "service", "frontend", "packaging"]
INSTALLED = ["bin/tessaron-word-bridge", "share/man/man1/tessaron-word-bridge.1"]
DOCUMENTS = "share/doc/tessaron-word-bridge"
if (SOURCE / "LICENSE").exists():
    PRODUCT.append("LICENSE")
    INSTALLED.append(f"{DOCUMENTS}/copyright")
if os.environ["SELF_CONTAINED"] == "ON":
    INSTALLED += [
        f"{DOCUMENTS}/{name}"
        for name in (
            "NOTICES.md",
            "relink/bridge.o",
            "relink/build-qt.txt",
            "relink/relink.sh",
            "relink/tls_get_addr.ld",
            "licences/LGPL-2.1",
            "licences/double-conversion-LICENSE",
            "licences/forkfd-LICENSE",
            "licences/libpcre2-copyright",
            "licences/pcre2-LICENCE",
            "licences/pcre2-LICENCE-SLJIT",
            "licences/rfc6234-LICENSE",
            "licences/sha3-BRG_ENDIAN_LICENSE",
            "licences/sha3-CC0_LICENSE",
            "licences/text-UNICODE_LICENSE.txt",
            "licences/tinycbor-LICENSE",
            "licences/zlib-LICENSE",
            *{
                "5": ("licences/LICENSE.GPL3", "licences/LICENSE.LGPL3"),
                "6": (
                    "licences/GPL-3.0-only.txt",
                    "licences/LGPL-3.0-only.txt",
                    "licences/blake2-COPYING",
                    "licences/kernel-QEVENTDISPATCHER_CF_LICENSE.txt",
                    "licences/tools-LICENSE.siphash",
                ),
            }[QT_MAJOR],
        )
    ]
INSTALLED.sort()


def skip(reason):
    """Ends the test, which CTest reports as skipped. If BRIDGE_TEST_REQUIRED names this test, it fails instead."""
    if os.environ.get("BRIDGE_TEST_REQUIRED") == Path(sys.argv[0]).stem:
        sys.exit(f"Failed, because it may not be skipped: {reason}")
    print(f"Skipped: {reason}")
    sys.exit(77)


def run(*command, status=0, **options):
    """Runs a program and returns its standard output. Fails if it ends with another status."""
    done = subprocess.run(
        [str(part) for part in command],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        encoding="utf-8",
        **options,
    )
    if done.returncode != status:
        raise AssertionError(
            f"{' '.join(map(str, command))} ended with status {done.returncode}, not {status}:\n"
            f"{done.stdout}{done.stderr}"
        )
    return done.stdout


def configure(source, build, *options, **keywords):
    """Configures with the compiler, the generator and the Qt of the tested build."""
    return run(
        CMAKE, "-S", source, "-B", build, "-G", os.environ["GENERATOR"],
        f"-DCMAKE_CXX_COMPILER={os.environ['CXX']}", *QT_OPTIONS, *options, **keywords,
    )  # fmt: skip


def files_below(folder):
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_file())


def home_without_application(folder):
    """An environment in which the application does not run: nothing listens on its port."""
    settings = Path(folder) / "tessaron.com" / "Tessaron Desktop.conf"
    settings.parent.mkdir(parents=True)
    settings.write_text("[%General]\nhttpServerPort=1\n")
    return {**os.environ, "XDG_CONFIG_HOME": str(folder)}


def free_port():
    """A free port below the range that systems use for outgoing connections, so that no connection takes
    it before the test does."""
    while True:
        port = random.randrange(20000, 32000)
        with socket.socket() as probe:
            if probe.connect_ex(("127.0.0.1", port)) != 0:
                return port


def utf16(text):
    return text.encode("utf-16-le", "surrogatepass")


class Case(unittest.TestCase):
    def assertContains(self, program, expected, forbidden):
        """Checks that a program contains the text `expected` and none of the folders `forbidden`. A failure
        does not print the program."""
        data = program.read_bytes()
        self.assertTrue(utf16(expected) in data, f"{expected} is not in {program}.")
        for folder in forbidden:
            self.assertFalse(str(folder).encode() in data, f"{folder} is in {program}.")

    def temporary_folder(self):
        folder = tempfile.TemporaryDirectory(prefix="packaging-")
        self.addCleanup(folder.cleanup)
        return Path(folder.name)
