"""The packages: contents, dependencies, and that two builds of one commit are identical."""

import gzip
import os
import shutil
import tarfile
import unittest

from support import CMAKE, INSTALLED, PRODUCT, SOURCE, VERSION, WORK, Case, configure, files_below
from support import run, skip

PROGRAM = "tessaron-word-bridge"
COMMIT_DATE = 1700000000
# Two builds of one commit.
FIRST, SECOND = FOLDERS = [WORK / "one", WORK / "other" / "longer name"]


def environment():
    """An environment without the user's settings of Git, with a fixed date, and without SOURCE_DATE_EPOCH."""
    variables = {
        **os.environ,
        "GIT_CONFIG_GLOBAL": os.devnull,
        "GIT_CONFIG_NOSYSTEM": "1",
        "GIT_AUTHOR_NAME": "Test",
        "GIT_AUTHOR_EMAIL": "test@example.invalid",
        "GIT_AUTHOR_DATE": f"{COMMIT_DATE} +0000",
        "GIT_COMMITTER_NAME": "Test",
        "GIT_COMMITTER_EMAIL": "test@example.invalid",
        "GIT_COMMITTER_DATE": f"{COMMIT_DATE} +0000",
    }
    variables.pop("SOURCE_DATE_EPOCH", None)
    return variables


def check_out(folder):
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for name in PRODUCT:
        copy = shutil.copytree if (SOURCE / name).is_dir() else shutil.copy
        copy(SOURCE / name, folder / name)
    for command in (["init", "-q"], ["add", "."], ["commit", "-q", "-m", "The product"]):
        run("git", *command, cwd=folder, env=environment())


def build(folder, *options):
    check_out(folder)
    # Debug information would contain the folder. The packages are stripped.
    configure(
        folder, folder / "build", "-DBUILD_TESTING=OFF", "-DCMAKE_BUILD_TYPE=Release",
        "-DCMAKE_CXX_FLAGS=-g", *options,
    )  # fmt: skip
    run(CMAKE, "--build", folder / "build", "--parallel", os.cpu_count())


def make_packages(folder, *options, umask=0o022):
    cpack = shutil.which("cpack", path=os.path.dirname(CMAKE))
    run(cpack, *options, cwd=folder / "build", env=environment(), umask=umask)


def package(folder, ending):
    (found,) = (folder / "build").glob(f"*{ending}")
    return found


class PackagesTest(Case):
    @classmethod
    def setUpClass(cls):
        for folder in FOLDERS:
            build(folder)
            make_packages(folder)
        cls.deb = package(FIRST, ".deb")
        cls.archive = package(FIRST, ".tar.gz")

    def test_two_builds_in_different_folders_are_identical(self):
        for name in (PROGRAM, self.deb.name, self.archive.name):
            first, second = ((folder / "build" / name).read_bytes() for folder in FOLDERS)
            self.assertTrue(first == second, f"Two builds of {name} differ.")

    def test_program_does_not_contain_its_build_folder(self):
        self.assertContains(FIRST / "build" / PROGRAM, "/tessaronDesktopInfo", [FIRST])

    def test_deb_contains_program_man_page_changelog_and_copyright(self):
        documents = f"usr/share/doc/{PROGRAM}"
        expected = {f"usr/{name}" for name in INSTALLED if not name.endswith(".1")}
        expected |= {f"usr/share/man/man1/{PROGRAM}.1.gz", f"{documents}/changelog.gz",
                     f"{documents}/copyright"}  # fmt: skip
        self.assertEqual(set(self.unpacked()), expected)

    def test_lintian_finds_nothing_in_deb(self):
        if shutil.which("lintian") is None:
            self.skipTest("lintian is not installed")
        found = run("lintian", "--allow-root", "--fail-on", "error,warning", self.deb)
        self.assertEqual(found, "")

    def test_copyright_says_that_owner_chooses_licence(self):
        if (SOURCE / "LICENSE").exists():
            self.skipTest("the owner has chosen")
        self.unpacked()
        text = (self.folder / f"usr/share/doc/{PROGRAM}/copyright").read_text()
        self.assertIn("The owner of the bridge has not chosen a licence yet.", text)

    def test_changelog_has_version_and_date_of_commit(self):
        self.unpacked()
        with gzip.open(self.folder / f"usr/share/doc/{PROGRAM}/changelog.gz", "rt") as file:
            text = file.read()
        self.assertTrue(text.startswith(f"{PROGRAM} ({VERSION}) "), text)
        self.assertIn("  Tue, 14 Nov 2023 22:13:20 +0000\n", text)  # COMMIT_DATE

    def test_files_in_deb_have_date_of_commit(self):
        self.unpacked()
        for path in self.folder.rglob("*"):
            self.assertEqual(path.stat().st_mtime, COMMIT_DATE, path)

    def test_files_in_deb_belong_to_root_and_are_readable_by_all(self):
        folder = self.temporary_folder()
        make_packages(SECOND, "-G", "DEB", "-B", folder, umask=0o077)
        entries = run("dpkg-deb", "--contents", *folder.glob("*.deb")).splitlines()
        self.assertEqual(
            {" ".join(entry.split()[:2]) for entry in entries},
            {f"{mode} root/root" for mode in ("drwxr-xr-x", "-rwxr-xr-x", "-rw-r--r--")},
        )

    def test_deb_has_name_version_and_architecture(self):
        self.assertEqual(self.field("Package"), PROGRAM)
        self.assertEqual(self.field("Version"), VERSION)
        self.assertEqual(self.field("Architecture"), run("dpkg", "--print-architecture").strip())

    def test_deb_depends_on_what_program_loads(self):
        needed = {entry.split()[0] for entry in self.field("Depends").split(", ")}
        self.assertLessEqual({"libc6", "libglib2.0-0", "libqt5core5a", "libqt5network5"}, needed)
        # Nothing that only building or testing needs.
        self.assertFalse([name for name in needed if "dev" in name or "test" in name])

    def test_archive_contains_one_folder(self):
        with tarfile.open(self.archive) as archive:
            members = archive.getmembers()
        top = self.archive.name[: -len(".tar.gz")]
        self.assertTrue(top.startswith(f"{PROGRAM}-{VERSION}-"), top)
        names = sorted(member.name for member in members if member.isfile())
        self.assertEqual(names, sorted(f"{top}/{name}" for name in INSTALLED))
        self.assertFalse([member.name for member in members if member.mode & 0o022])

    def field(self, name):
        return run("dpkg-deb", "--field", self.deb, name).strip()

    def unpacked(self):
        self.folder = self.temporary_folder()
        run("dpkg-deb", "--extract", self.deb, self.folder)
        return files_below(self.folder)


if __name__ == "__main__":
    for tool in ("git", "dpkg-shlibdeps"):
        if shutil.which(tool) is None:
            skip(f"{tool} is not installed.")
    unittest.main()
