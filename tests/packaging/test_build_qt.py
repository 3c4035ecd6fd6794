"""tools/build-qt with a small stand-in for the source of Qt: bad input, failures, interruptions."""

import os
import shutil
import signal
import subprocess
import time
import unittest
from pathlib import Path

from support import SOURCE, Case, files_below, skip

TOOL = SOURCE / "tools" / "build-qt"
STAMP = "build-qt.txt"

# Writes makefiles with the targets of Qt's makefiles. COMPILE is the recipe of the target sub-corelib.
CONFIGURE = r"""#!/bin/sh
set -e
for argument; do printf '%s\n' "$argument"; done > options
mkdir -p src/corelib
install='@mkdir -p $(INSTALL_ROOT)/usr/local/qt-static/lib; echo code > $(INSTALL_ROOT)/usr/local/qt-static/lib/libQt5Core.a'
printf 'sub-src-qmake_all sub-qmake-qmake-aux-pro-install_subtargets install_mkspecs:\n\t@true\n' > Makefile
{
    printf 'sub-corelib:\n\t%s\n' "$COMPILE"
    for module in bootstrap moc rcc network testlib; do printf 'sub-%s:\n\t@true\n' $module; done
    for module in bootstrap moc rcc corelib network testlib; do
        printf 'sub-%s-install_subtargets:\n\t%s\n' $module "$install"
    done
} > src/Makefile
"""

# Of Qt 6: a project for CMake, with a plug-in.
CONFIGURE_6 = r"""#!/bin/sh
set -e
for argument; do printf '%s\n' "$argument"; done > options
cmake -G Ninja -DCMAKE_INSTALL_PREFIX=/usr/local/qt-static "$(dirname "$0")"
"""
PROJECT_6 = """cmake_minimum_required(VERSION 3.24)
project(qtbase NONE)
add_custom_target(compile ALL COMMAND sh -c "$ENV{COMPILE}" VERBATIM)
file(WRITE ${CMAKE_BINARY_DIR}/code "code\n")
foreach(file lib/libQt6Core.a plugins/tls/libqtlsbackend.a
        lib/cmake/Qt6Network/Qt6NetworkConfig.cmake lib/cmake/Qt6Network/Qt6QTlsBackendPluginConfig.cmake)
    get_filename_component(folder ${file} DIRECTORY)
    get_filename_component(name ${file} NAME)
    install(FILES ${CMAKE_BINARY_DIR}/code DESTINATION ${folder} RENAME ${name})
endforeach()
"""


class BuildQtTest(Case):
    def setUp(self):
        self.folder = self.temporary_folder()
        self.prefix = self.folder / "qt"
        self.work = self.folder / "qt.build"
        self.source = self.folder / "qtbase"
        self.programs = self.folder / "programs"  # these come first on PATH
        self.programs.mkdir()
        self.make_source("5.15.8")

    def make_source(self, version):
        shutil.rmtree(self.source, ignore_errors=True)
        if version.startswith("6."):
            files = {
                ".cmake.conf": f'# The version\nset(QT_REPO_MODULE_VERSION "{version}")\n',
                "configure": CONFIGURE_6,
                "CMakeLists.txt": PROJECT_6,
                "LICENSES/LGPL-3.0-only.txt": "text\n",
                "LICENSES/GPL-3.0-only.txt": "text\n",
            }
        else:
            files = {
                ".qmake.conf": f"MODULE_VERSION = {version}\n",
                "configure": CONFIGURE,
                "LICENSE.LGPL3": "text\n",
                "LICENSE.GPL3": "text\n",
            }
        for name, text in {**files, "src/3rdparty/zlib/LICENSE": "text\n"}.items():
            (self.source / name).parent.mkdir(parents=True, exist_ok=True)
            (self.source / name).write_text(text)
        (self.source / "configure").chmod(0o755)

    def program(self, name, script):
        path = self.programs / name
        path.write_text(f"#!/bin/sh\n{script}\n")
        path.chmod(0o755)

    def stamp(self):
        return (self.prefix / STAMP).read_text().splitlines()

    def start(self, *arguments, compile="@true", path=os.environ["PATH"], **options):
        return subprocess.Popen(
            [str(TOOL), *map(str, arguments)],
            cwd=self.folder,
            env={**os.environ, "PATH": f"{self.programs}:{path}", "COMPILE": compile},
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            encoding="utf-8", start_new_session=True, **options,
        )  # fmt: skip

    def build(self, *arguments, status=0, **options):
        process = self.start(*arguments, **options)
        output, _ = process.communicate(timeout=60)
        self.assertEqual(process.returncode, status, output)
        return output

    def assertRefuses(self, sentence, *arguments, status=1, **options):
        output = self.build(*arguments, status=status, **options)
        self.assertIn(sentence, output.splitlines()[-1])
        self.assertFalse((self.prefix / STAMP).exists(), "A partial build would count as complete.")


class PrefixTest(BuildQtTest):
    def test_prints_its_usage_without_argument(self):
        self.assertIn("tools/build-qt PREFIX [SOURCE]", self.build(status=2))

    def test_prints_its_usage_for_empty_prefix_and_for_options(self):
        for prefix in ("", "--help", "-j2"):
            self.assertIn("tools/build-qt PREFIX [SOURCE]", self.build(prefix, self.source, status=2))

    def test_refuses_whitespace_in_prefix(self):
        for prefix in ("with space", "with\ttab", "with\nnewline"):
            self.assertRefuses("contains whitespace. Please choose another PREFIX",
                               prefix, self.source)  # fmt: skip

    def test_refuses_whitespace_in_source(self):
        self.assertRefuses("Please choose another PREFIX or SOURCE", "qt", "qt base")

    def test_refuses_prefix_that_is_file(self):
        self.prefix.write_text("mine")
        self.assertRefuses("is not a folder. Please choose another PREFIX", "qt", self.source)
        self.assertEqual(self.prefix.read_text(), "mine")

    def test_refuses_prefix_with_other_contents(self):
        self.prefix.mkdir()
        (self.prefix / "thesis").write_text("mine")
        self.assertRefuses("Please choose a new or an empty folder", "qt", self.source)
        self.assertEqual(files_below(self.prefix), ["thesis"])

    def test_refuses_prefix_that_cannot_be_written(self):
        self.assertRefuses("Please choose a PREFIX in a folder that you can write to",
                           "/proc/qt", self.source)  # fmt: skip

    def test_refuses_to_build_while_another_build_is_running(self):
        self.work.mkdir()
        (self.work / "pid").write_text(str(os.getpid()))
        self.assertRefuses("Please wait until it has ended", "qt", self.source)

    def test_uses_empty_folder(self):
        self.prefix.mkdir()
        self.build("qt", self.source)
        self.assertTrue((self.prefix / STAMP).exists())


class SourceTest(BuildQtTest):
    def test_refuses_missing_source(self):
        self.assertRefuses("is not an unpacked qtbase 5.15, or 6.4 or later", "qt", "nowhere")

    def test_refuses_source_that_is_not_qtbase(self):
        (self.source / ".qmake.conf").unlink()
        self.assertRefuses("Please give the folder of the module qtbase", "qt", self.source)

    def test_refuses_other_versions(self):
        for version in ("5.12.8", "5.150.0", "5.1", "6.3.2", "6.40", "60.4.0", "7.0.0"):
            self.make_source(version)
            self.assertRefuses("The bridge is built with 5.15, or 6.4 or later; please give",
                               "qt", self.source)  # fmt: skip

    def test_reports_missing_source_package(self):
        self.program("apt-get", "echo 'E: Unable to find a source package'; exit 100")
        self.assertRefuses("please give an unpacked qtbase 5.15, or 6.4 or later, as SOURCE", "qt")

    def test_reports_damaged_source_package(self):
        self.program("apt-get", "case $* in *update) ;; *) echo damaged > qtbase_5.15.8.dsc ;; esac")
        self.assertRefuses("The source package is damaged. Please remove", "qt")

    def test_does_not_use_system_configuration_for_download(self):
        self.program("apt-get", f'echo "$*" >> {self.folder}/calls; exit 100')
        self.build("qt", status=1)
        for call in (self.folder / "calls").read_text().splitlines():
            for setting in ("Dir::Etc::SourceList=/dev/null", f"Dir::Etc::SourceParts={self.work}",
                            f"Dir::State::Lists={self.work}", f"Dir::Cache={self.work}"):  # fmt: skip
                self.assertIn(setting, call)


class BuildTest(BuildQtTest):
    def test_does_not_build_complete_prefix_again(self):
        self.build("qt", self.source)
        self.assertFalse(self.work.exists())
        output = self.build("qt", self.source, compile="@false")
        self.assertIn("there is nothing to do", output)

    def test_builds_changed_source(self):
        self.build("qt", self.source)
        before = (self.prefix / STAMP).read_text()
        (self.source / "src" / "more.cpp").write_text("int more;\n")
        self.assertNotIn("nothing to do", self.build("qt", self.source))
        self.assertNotEqual((self.prefix / STAMP).read_text(), before)

    def test_builds_again_with_another_compiler(self):
        self.build("qt", self.source)
        self.program("g++", "echo another compiler")
        self.assertNotIn("nothing to do", self.build("qt", self.source))
        self.assertIn("compiler: another compiler\n", (self.prefix / STAMP).read_text())

    def test_keeps_old_prefix_if_build_fails(self):
        self.build("qt", self.source)
        before = (self.prefix / STAMP).read_text()
        (self.source / "src" / "more.cpp").write_text("int more;\n")
        output = self.build("qt", self.source, compile="@echo no such header; false", status=1)
        self.assertIn("no such header", output)
        self.assertIn('"Compiling" failed. The end of', output.splitlines()[-1])
        self.assertEqual((self.prefix / STAMP).read_text(), before)

    def test_prints_each_step_and_its_usual_duration(self):
        output = self.build("qt", self.source)
        self.assertIn("== 3 of 5: Configuring (usually 2 minutes)", output)
        self.assertIn("== 4 of 5: Compiling (usually 5 to 10 minutes on two cores)", output)

    def test_refuses_disk_with_too_little_space(self):
        self.program("df", "echo header; echo disk 9 9 1000 9% /")
        self.assertRefuses("Please free some space", "qt", self.source)

    def test_reports_disk_that_becomes_full(self):
        self.assertRefuses("The disk is full. Please free some space", "qt", self.source,
                           compile="@echo No space left on device; false")  # fmt: skip

    def test_omits_bearer_management(self):
        self.build("qt", self.source)
        options = (self.prefix / STAMP).read_text()
        for option in ("-static", "-no-gui", "-no-feature-bearermanagement"):
            self.assertIn(f"option: {option}\n", options)


class Qt6Test(BuildQtTest):
    def setUp(self):
        super().setUp()
        self.make_source("6.4.2")

    def test_is_built_with_options_and_licences_of_qt_6(self):
        self.build("qt", self.source, compile="true")
        self.assertEqual(
            files_below(self.prefix),
            [STAMP, "lib/cmake/Qt6Network/Qt6NetworkConfig.cmake", "lib/libQt6Core.a",
             "licences/GPL-3.0-only.txt", "licences/LGPL-3.0-only.txt", "licences/zlib-LICENSE"],
        )  # fmt: skip
        for line in ("qtbase: 6.4.2", "option: -static", "option: -no-gui", "option: -no-feature-ssl"):
            self.assertIn(line, self.stamp())
        self.assertNotIn("option: -no-feature-bearermanagement", self.stamp())

    def test_later_versions_are_built(self):
        for version in ("6.4.0", "6.9.3", "6.10.1"):
            self.make_source(version)
            self.build("qt", self.source, compile="true")
            self.assertIn(f"qtbase: {version}", self.stamp())

    def test_says_how_to_use_it(self):
        output = self.build("qt", self.source, compile="true")
        self.assertIn(f"CMAKE_PREFIX_PATH={self.prefix} cmake --preset self-contained -DBRIDGE_QT=6",
                      output.splitlines()[-1])  # fmt: skip

    def test_complete_prefix_is_not_built_again(self):
        self.build("qt", self.source, compile="true")
        self.assertIn("holds Qt 6.4.2 already", self.build("qt", self.source, compile="false"))

    def test_replaces_other_version(self):
        self.build("qt", self.source, compile="true")
        for version, library in (("5.15.8", "libQt5Core.a"), ("6.4.2", "libQt6Core.a")):
            self.make_source(version)
            self.build("qt", self.source, compile="true")
            self.assertIn(f"qtbase: {version}", self.stamp())
            self.assertEqual([path.name for path in self.prefix.rglob("*.a")], [library])

    def test_failed_build_keeps_other_version(self):
        self.make_source("5.15.8")
        self.build("qt", self.source)
        before = files_below(self.prefix)
        self.make_source("6.4.2")
        output = self.build("qt", self.source, compile="echo no such header; false", status=1)
        self.assertIn("no such header", output)
        self.assertIn('"Compiling" failed. The end of', output.splitlines()[-1])
        self.assertEqual(files_below(self.prefix), before)

    def test_missing_tools_are_named(self):
        without = self.folder / "without"
        without.mkdir()
        hidden = {"cmake", "ninja", "sudo", "id"}
        for folder in ("/bin", "/usr/bin"):
            for program in Path(folder).iterdir():
                if program.name not in hidden and not (without / program.name).exists():
                    (without / program.name).symlink_to(program)
        self.program("id", "echo 1000")
        self.assertRefuses("As root, run: apt-get install --no-install-recommends cmake ninja-build",
                           "qt", self.source, path=without)  # fmt: skip


class InterruptionTest(BuildQtTest):
    SLOW = "@echo $$$$ > $(CURDIR)/started; exec sleep 300"

    def interrupt(self, number, compile=SLOW, started="src/started"):
        process = self.start("qt", self.source, compile=compile)
        started = self.work / "build" / started
        deadline = time.monotonic() + 30
        while not (started.exists() and started.read_text().strip()):
            self.assertLess(time.monotonic(), deadline, "The build did not start.")
            time.sleep(0.05)
        if number == signal.SIGKILL:
            os.killpg(process.pid, number)
        else:
            process.send_signal(number)
        output, _ = process.communicate(timeout=30)
        return output, int(started.read_text())

    def assertEnds(self, process_id):
        deadline = time.monotonic() + 30
        with self.assertRaises(ProcessLookupError):
            while time.monotonic() < deadline:
                os.kill(process_id, 0)
                time.sleep(0.05)

    def assertStartsAgain(self):
        self.assertFalse(self.prefix.exists())
        self.build("qt", self.source)
        self.assertEqual((self.prefix / "lib" / "libQt5Core.a").read_text(), "code\n")

    def test_starts_again_after_ctrl_c(self):
        output, compiler = self.interrupt(signal.SIGINT)
        self.assertIn("Run the same command again", output.splitlines()[-1])
        self.assertEnds(compiler)
        self.assertStartsAgain()

    def test_ends_build_of_qt_6_after_ctrl_c(self):
        self.make_source("6.4.2")
        output, compiler = self.interrupt(signal.SIGINT, "echo $$ > started; exec sleep 300", "started")
        self.assertIn("Run the same command again", output.splitlines()[-1])
        self.assertEnds(compiler)
        self.assertFalse(self.prefix.exists())

    def test_starts_again_after_termination(self):
        _, compiler = self.interrupt(signal.SIGTERM)
        self.assertEnds(compiler)
        self.assertStartsAgain()

    def test_starts_again_after_kill(self):
        _, compiler = self.interrupt(signal.SIGKILL)
        os.kill(compiler, signal.SIGKILL)
        self.assertStartsAgain()


if __name__ == "__main__":
    for tool in ("make", "g++", "perl", "cmake", "ninja", "dpkg-source"):
        if shutil.which(tool) is None:
            skip(f"{tool} is not installed.")
    unittest.main()
