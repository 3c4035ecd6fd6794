"""Installs the .deb into a minimal Debian and runs the bridge there."""

import os
import platform
import shutil
import unittest

from support import WORK, Case, home_without_application, run, skip, utf16

ROOT = WORK / "debian"
PACKAGES = list((WORK / "one" / "build").glob("*.deb"))
PROGRAM = "/usr/bin/tessaron-word-bridge"


def remove_root():
    # The mounted folders belong to the machine and must not be removed.
    for name in ("proc", "sys", "dev/pts", "dev"):
        if os.path.ismount(ROOT / name):
            run("umount", ROOT / name)
    shutil.rmtree(ROOT, ignore_errors=True)


def in_root(*command, **options):
    return run("chroot", ROOT, *command, **options)


class DebianTest(Case):
    @classmethod
    def setUpClass(cls):
        shutil.copy(PACKAGES[0], ROOT / "bridge.deb")
        in_root(
            "apt-get", "install", "-y", "-q", "--no-install-recommends", "/bridge.deb",
            env={**os.environ, "DEBIAN_FRONTEND": "noninteractive"},
        )  # fmt: skip

    def test_prints_its_usage(self):
        self.assertEqual(
            in_root("sh", "-c", f"{PROGRAM} 2>&1", status=1),
            f"usage:  {PROGRAM}  tessaronCommand tempFolderPath\n",
        )

    def test_returns_no_results_for_unknown_command(self):
        self.assertEqual(self.answer("noSuchCommand"), ("0\n", b""))

    def test_reports_that_application_is_not_running(self):
        self.assertEqual(self.answer("isTessaronRunning"), ("10\n", utf16("false")))

    def test_installs_files_of_package(self):
        self.assertTrue((ROOT / PROGRAM.lstrip("/")).exists())
        # Prints the files that are missing or differ.
        self.assertEqual(in_root("dpkg", "--verify", "tessaron-word-bridge"), "")

    def answer(self, command):
        folder = ROOT / "exchange" / command
        folder.mkdir(parents=True)
        home_without_application(folder / "config")
        (folder / "mac-word-plugin-args.txt").write_bytes(b"")
        path = f"/exchange/{command}"
        status = in_root("env", f"XDG_CONFIG_HOME={path}/config", PROGRAM, command, path)
        return status, (folder / "mac-word-plugin-results.txt").read_bytes()


def make_root():
    if not PACKAGES:
        skip("no package could be made here.")
    if shutil.which("debootstrap") is None:
        skip("debootstrap is not installed.")
    system = platform.freedesktop_os_release()
    if system["ID"] != "debian":
        skip(f"the package is built for this system, {system['ID']}, which is not Debian.")
    if os.getuid() != 0:
        skip("a Debian root can only be made as root.")
    remove_root()
    try:
        run("debootstrap", "--variant=minbase", system["VERSION_CODENAME"], ROOT)
    except AssertionError as error:
        # Its last line gives the reason, for example that there is no network.
        remove_root()
        skip(f"no Debian root can be made here: {str(error).splitlines()[-1]}")


if __name__ == "__main__":
    make_root()
    try:
        unittest.main()
    finally:
        remove_root()
