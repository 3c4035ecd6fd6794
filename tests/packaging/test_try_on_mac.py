"""tools/try-on-mac with stand-ins on PATH for the commands of macOS, which record their calls."""

import os
import shutil
import signal
import socket
import subprocess
import unittest
from pathlib import Path

from support import BRIDGE, SOURCE, Case, free_port, skip

REAL_APPLICATION = Path("/opt/Tessaron Desktop/tessaron-desktop")
STAND_INS = {
    "uname": '[ "$1" = -m ] && echo arm64 || echo Darwin',
    "brew": """
        case "$1 $2" in
            "list --versions") echo "$3 5.15.16" ;;
            "list qt") exit 1 ;;
            "--prefix "*) echo /opt/homebrew/opt/$2 ;;
        esac""",
    "xcode-select": "echo /Library/Developer/CommandLineTools",
    "sw_vers": "echo 14.5",
    "xcodebuild": "echo Xcode 15.4; echo Build version 15F31d",
    "cmake": '[ "$1" != --build ] || { mkdir -p build-macos; cp "$COPIED" build-macos/tessaron-word-bridge; }',
    "ctest": "echo '100% tests passed, 0 tests failed out of 20'; echo; echo Total",
    "ninja": "",
    "mdfind": "",
    "lipo": "echo arm64",
    "otool": """
        echo "$2:"
        echo "	/usr/lib/libSystem.B.dylib (compatibility version 1.0.0)"
        echo "	/opt/qt/QtCore (compatibility version 5.15.0)" """,
    "codesign": "echo 'valid on disk'",
    "curl": "",
    # Registers the bundle as a desktop entry, which is the equivalent on Linux.
    "lsregister": """
        entry="$XDG_DATA_HOME/applications/com.tessaron.desktop.desktop"
        rm -f "$entry"
        [ "$1" = -u ] && exit 0
        mkdir -p "${entry%/*}"
        printf '[Desktop Entry]\\nType=Application\\nName=T\\nExec="%s"\\n' \\
            "$2/Contents/MacOS/stand-in" > "$entry" """,
    # Keeps "TYPE VALUE" in $HOME/port, and writes it where the bridge reads it on Linux.
    "defaults": """
        settings="$XDG_CONFIG_HOME/tessaron.com/Tessaron Desktop.conf"
        case "$1" in
            read-type) [ -e "$HOME/port" ] || exit 1; read -r kind _ < "$HOME/port"; echo "Type is $kind" ;;
            read) read -r _ value < "$HOME/port"; echo "$value" ;;
            write)
                kind=${4#-}; [ "$kind" != int ] || kind=integer
                echo "$kind $5" > "$HOME/port"
                mkdir -p "${settings%/*}"
                printf '[%%General]\\nhttpServerPort=%s\\n' "$5" > "$settings" ;;
            delete) rm "$HOME/port" "$settings" ;;
        esac""",
}


class MacCase(Case):
    def setUp(self):
        self.folder = self.temporary_folder()
        self.tree = self.folder / "tree"
        for name in ("programs", "home", "temporary", "tree/tools"):
            (self.folder / name).mkdir(parents=True)
        shutil.copy(SOURCE / "tools" / "try-on-mac", self.tree / "tools")
        shutil.copytree(SOURCE / "tools" / "on_mac", self.tree / "tools" / "on_mac")
        (self.tree / "testbed").symlink_to(SOURCE / "testbed")
        for name, script in STAND_INS.items():
            self.stand_in(name, script)
        self.bridge = BRIDGE
        self.variables = {}
        self.processes = []

    def stand_in(self, name, script):
        path = self.folder / "programs" / name
        path.write_text(f'#!/bin/sh\necho "{name} $*" >> "$CALLS"\n{script}\n')
        path.chmod(0o755)

    def fails(self, name, condition="true", message="the stand-in fails"):
        self.stand_in(name, f'if {condition}; then echo "{message}" >&2; exit 3; fi\n{STAND_INS[name]}')

    def environment(self):
        home = self.folder / "home"
        return {
            **os.environ,
            "PATH": f"{self.folder / 'programs'}:/usr/bin:/bin",
            "CALLS": str(self.folder / "calls"),
            "COPIED": str(self.bridge),
            "HOME": str(home),
            "TMPDIR": str(self.folder / "temporary"),
            "XDG_CONFIG_HOME": str(home / "config"),
            "XDG_DATA_HOME": str(home / "data"),
            "XDG_DATA_DIRS": str(home / "no-data"),
            "TESSARON_CSL_DIR": "/usr/share/citation-style-language",
            **self.variables,
        }

    def start(self, *options):
        process = subprocess.Popen(
            [self.tree / "tools" / "try-on-mac", "--report", self.folder / "report", *options],
            stdin=subprocess.PIPE, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            encoding="utf-8", env=self.environment(), cwd=self.folder,
        )  # fmt: skip
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def attempt(self, *options, answers="", status=0):
        """Runs the tool to its end and returns the report."""
        process = self.start(*options)
        output, _ = process.communicate(answers, timeout=120)
        self.assertEqual(process.returncode, status, output)
        return self.report(output)

    def report(self, output):
        self.assertNotIn("Traceback", output)
        self.assertUndone()
        return (self.folder / "report").read_text()

    def read_until(self, process, text):
        read = ""
        while text not in read:
            character = process.stdout.read(1)
            self.assertTrue(character, read)
            read += character
        return read

    def calls(self):
        calls = self.folder / "calls"
        return calls.read_text().splitlines() if calls.exists() else []

    def write_existing_settings(self, port, kind="integer"):
        """Writes settings that exist before the tool runs."""
        home = self.folder / "home"
        (home / "port").write_text(f"{kind} {port}\n")
        settings = home / "config" / "tessaron.com" / "Tessaron Desktop.conf"
        settings.parent.mkdir(parents=True)
        settings.write_text(f"[%General]\nhttpServerPort={port}\n")

    def port(self):
        port = self.folder / "home" / "port"
        return port.read_text().strip() if port.exists() else None

    def wrap_bridge(self, script):
        """Runs a script before the bridge. If the script exits, the bridge does not run."""
        self.bridge = self.folder / "bridge"
        self.bridge.write_text(f'#!/bin/sh\n{script}\nexec "{BRIDGE}" "$@"\n')
        self.bridge.chmod(0o755)

    def make_container(self):
        folder = self.folder / "home/Library/Containers/com.microsoft.Word/Data/tmp"
        folder.mkdir(parents=True)
        return folder

    def assertUndone(self):
        """Checks that nothing is left: no file, no registered bundle and no running stand-in."""
        self.assertEqual(list((self.folder / "temporary").iterdir()), [])
        registered = [call[14:] for call in self.calls() if call.startswith("lsregister -f ")]
        removed = [call[14:] for call in self.calls() if call.startswith("lsregister -u ")]
        self.assertEqual(registered, removed)
        running = subprocess.run(
            ["ps", "-eo", "args="], stdout=subprocess.PIPE, encoding="utf-8"
        ).stdout
        self.assertNotIn(str(self.tree), running)

    def assertResult(self, report, result, title, detail):
        parts = [part for part in ("\n" + report).split("\n" + result) if part.strip().startswith(title)]
        self.assertEqual(len(parts), 1, report)
        self.assertIn(detail, parts[0].split("\n\n")[0], report)


class WholeRunTest(MacCase):
    def test_reports_every_trial(self):
        self.make_container()
        report = self.attempt("--dialog", answers="Terminal would like to access data\n\n")
        for result, title, detail in (
            ("NOTED", "System", "macOS 14.5, arm64"),
            ("NOTED", "System", "Xcode 15.4 Build version 15F31d"),
            ("NOTED", "System", "Qt: qt@5 5.15.16"),
            ("OK", "Build", "build-macos/tessaron-word-bridge"),
            ("OK", "Tests\n", "100% tests passed, 0 tests failed out of 20"),
            ("OK", "Tests with the test bed", "100% tests passed, 0 tests failed out of 20"),
            ("OK", "The executable", "architectures: arm64"),
            ("OK", "The executable", "libraries that are not the system's: /opt/qt/QtCore"),
            ("OK", "The executable", "codesign -v: valid on disk"),
            ("OK", "The port in the settings", "which defaults had written"),
            ("OK", "Start through Launch Services", "process id"),
            ("OK", "Exchange in Word's container (from Terminal", "would like to access data"),
            ("OK", "Start-up time", "medians of 20"),
            ("OK", "A request kept open", "it was sent once"),
        ):
            self.assertResult(report, result, title, detail)
        self.assertNotIn("FAILED", report)
        self.assertLess(len(report.splitlines()), 40)
        self.assertIsNone(self.port())

    def test_builds_with_qt_of_homebrew(self):
        self.attempt()
        self.assertIn(
            "cmake --preset macos -G Ninja -DCMAKE_PREFIX_PATH=/opt/homebrew/opt/qt@5 -DBRIDGE_QT=5",
            self.calls(),
        )
        tests = [call for call in self.calls() if call.startswith("ctest")]
        self.assertEqual(tests, [
            "ctest --preset macos --label-exclude testbed", "ctest --preset macos --label-regex testbed",
        ])  # fmt: skip

    def test_installs_node_modules_before_configuring(self):
        testbed = self.tree / "testbed"
        testbed.unlink()
        testbed.mkdir()
        for entry in (SOURCE / "testbed").iterdir():
            if entry.name != "node_modules":
                (testbed / entry.name).symlink_to(entry)
        self.stand_in("npm", f'ln -s "{SOURCE}/testbed/node_modules" node_modules')
        self.attempt()
        calls = [call.split()[0] for call in self.calls()]
        self.assertIn("npm ci --no-audit --no-fund", self.calls())
        self.assertLess(calls.index("npm"), calls.index("cmake"))

    def test_builds_with_qt_6(self):
        self.stand_in("brew", STAND_INS["brew"].replace('"list qt")', '"list qt@5")'))
        self.attempt()
        self.assertIn(
            "cmake --preset macos -G Ninja -DCMAKE_PREFIX_PATH=/opt/homebrew/opt/qt -DBRIDGE_QT=6",
            self.calls(),
        )

    def test_registers_bundle_with_identifier(self):
        self.stand_in("lsregister", 'cp "$2/Contents/Info.plist" "$HOME" 2>&-\n' + STAND_INS["lsregister"])
        self.attempt()
        text = (self.folder / "home" / "Info.plist").read_text()
        self.assertIn("<key>CFBundleIdentifier</key>\n\t<string>com.tessaron.desktop</string>", text)
        self.assertIn("<key>CFBundleExecutable</key>\n\t<string>stand-in</string>", text)

    def test_restores_former_port(self):
        for kind in ("integer", "string"):
            with self.subTest(kind):
                self.setUp()
                self.write_existing_settings(1, kind)
                self.attempt()
                self.assertEqual(self.port(), f"{kind} 1")


class NothingTriedTest(MacCase):
    def stopped(self, sentence, *options):
        report = self.attempt(*options, status=1)
        self.assertResult(report, "FAILED", "Stopped", sentence)
        self.assertIsNone(self.port())

    def test_refuses_another_system(self):
        self.stand_in("uname", "echo Linux")
        self.stopped("This is for a Mac. Elsewhere run ./test")
        self.assertEqual(self.calls(), ["uname "])

    def test_reports_missing_homebrew(self):
        (self.folder / "programs" / "brew").unlink()
        self.stopped("Homebrew is not installed. Install it")

    def test_reports_missing_command_line_tools(self):
        self.fails("xcode-select")
        self.stopped("Run: xcode-select --install")

    def test_reports_missing_qt(self):
        self.fails("brew", '[ "$1" = list ]')
        self.stopped("Run: brew install qt@5")

    def test_reports_that_requested_qt_is_missing(self):
        self.stopped("Run: brew install qt", "--qt", "6")

    def test_reports_failed_build(self):
        for condition in ('[ "$1" = --preset ]', '[ "$1" = --build ]'):
            self.fails("cmake", condition, "no such Qt")
            self.stopped("The bridge cannot be built. cmake --")

    def test_refuses_port_that_is_in_use(self):
        with socket.socket() as taken:
            taken.bind(("127.0.0.1", 0))
            taken.listen()
            port = str(taken.getsockname()[1])
            self.stopped(f"Port {port} is in use. Choose another one, or leave out --port.", "--port", port)

    def test_refuses_to_run_beside_application(self):
        port = free_port()
        self.write_existing_settings(port)
        application = subprocess.Popen(
            ["node", SOURCE / "testbed/desktop/main.js", "--port", str(port)],
            stdout=subprocess.PIPE,
        )  # fmt: skip
        self.addCleanup(application.stdout.close)
        self.addCleanup(application.wait)
        self.addCleanup(application.terminate)
        application.stdout.readline()
        report = self.attempt(status=1)
        self.assertResult(report, "FAILED", "Stopped", "Tessaron Desktop is running. Quit it")
        self.assertEqual(self.port(), f"integer {port}")
        self.assertIsNone(application.poll())

    def test_refuses_settings_that_cannot_be_restored(self):
        self.write_existing_settings(1, "array")
        report = self.attempt(status=1)
        self.assertResult(report, "FAILED", "Stopped", "The settings hold the port as array")
        self.assertEqual(self.port(), "array 1")

    def test_refuses_wrong_options(self):
        for options, sentence in (
            (["--port", "80"], "'80' is not a number from 1024 to 65535"),
            (["--port", "x"], "'x' is not a number from 1024 to 65535"),
            (["--qt", "4"], "invalid choice: '4'"),
            (["more"], "unrecognized arguments: more"),
        ):
            with self.subTest(options):
                process = self.start(*options)
                output, _ = process.communicate(timeout=60)
                self.assertEqual(process.returncode, 2)
                self.assertIn(sentence, output)

    def test_reports_that_report_cannot_be_written(self):
        process = self.start("--report", "/nonexistent/report")
        output, _ = process.communicate(timeout=120)
        self.assertEqual(process.returncode, 1)
        self.assertIn("/nonexistent/report cannot be written: No such file or directory.", output)


class FailedTrialTest(MacCase):
    def failed(self, title, detail, *options, **keywords):
        report = self.attempt(*options, status=1, **keywords)
        self.assertResult(report, "FAILED", title, detail)
        return report

    def test_goes_on_after_each_failed_command(self):
        for name, condition, title in (
            ("ctest", '[ "$3" = --label-exclude ]', "Tests\n"),
            ("ctest", '[ "$3" = --label-regex ]', "Tests with the test bed"),
            ("lipo", "true", "The executable"),
            ("otool", "true", "The executable"),
            ("defaults", '[ "$1" = write ]', "The port in the settings"),
            ("lsregister", '[ "$1" = -f ]', "Start through Launch Services"),
        ):
            with self.subTest(name):
                self.setUp()
                self.fails(name, condition)
                report = self.failed(title, "the stand-in fails")
                self.assertIn("Start-up time", report)
                self.assertIsNone(self.port())

    def test_reports_port_that_cannot_be_restored(self):
        self.write_existing_settings(7)
        self.fails("defaults", '[ "$5" = 7 ]')
        report = self.attempt(status=1)
        self.assertResult(report, "FAILED", "Stopped", "could not be restored. Run: defaults write "
            "'com.tessaron.Tessaron Desktop' General.httpServerPort -int 7")  # fmt: skip

    def test_reports_missing_command(self):
        (self.folder / "programs" / "lipo").unlink()
        self.failed("The executable", "lipo cannot be run: No such file or directory.")

    def test_reports_broken_signature(self):
        self.fails("codesign", message="code object is not signed at all")
        report = self.attempt()
        self.assertResult(report, "OK", "The executable", "code object is not signed at all")

    def test_reports_bridge_that_does_not_read_settings(self):
        self.wrap_bridge("export XDG_CONFIG_HOME=/nonexistent")
        # Otherwise the trial of the launch would wait until the application starts.
        self.fails("lsregister", '[ "$1" = -f ]')
        self.failed("The port in the settings", "The bridge sent no request to port")

    def test_reports_bridge_that_fails(self):
        self.wrap_bridge('[ "$1" != getUserUuid ] || { echo no library; exit 6; }')
        self.failed("Start-up time", "getUserUuid ended with status 6: no library")

    def test_reports_bridge_that_writes_no_results(self):
        self.wrap_bridge('[ "$1" != launchTessaron ] || exit 0')
        self.failed("Start through Launch Services", "launchTessaron wrote no results")

    def test_reports_bridge_that_ends_while_dialog_is_open(self):
        self.wrap_bridge(
            f'[ "$1" != getFieldCodeFromCitationEditor ] || {{ "{BRIDGE}" "$@" & sleep 1; kill $!; exit 0; }}'
        )
        process = self.start("--dialog")
        self.read_until(process, "press Enter.")
        children = f"/proc/{process.pid}/task/{process.pid}/children"
        for _ in range(100):
            if not Path(children).read_text().strip():
                break
            subprocess.run(["sleep", "0.1"])
        output, _ = process.communicate("\n", timeout=60)
        self.assertEqual(process.returncode, 1)
        self.assertResult(
            self.report(output), "FAILED", "A request kept open", "ended before it received the reply"
        )


class RealApplicationTest(MacCase):
    PATH = "/Applications/Tessaron Desktop.app"

    def setUp(self):
        super().setUp()
        self.stand_in("mdfind", f"echo '{self.PATH}'")

    def test_is_not_started_without_consent(self):
        for answer in ("", "\n", "n\n", "maybe\n"):
            report = self.attempt(answers=answer)
            self.assertResult(report, "NOT TRIED", "Start through Launch", "did not want it to be started")
        self.assertFalse([call for call in self.calls() if call.startswith("lsregister")])

    def test_is_started_on_its_own_port_with_consent(self):
        port = free_port()
        self.write_existing_settings(port)
        log = self.folder / "log"
        applications = self.folder / "home" / "data" / "applications"
        applications.mkdir(parents=True)
        program = f"node {SOURCE / 'testbed/desktop/main.js'} --port {port} --log {log}"
        (applications / "com.tessaron.desktop.desktop").write_text(
            f"[Desktop Entry]\nType=Application\nName=T\nExec={program}\n"
        )
        report = self.attempt(answers="y\n")
        self.assertResult(report, "OK", "Start through Launch Services", "process id")
        # The user quits it.
        process_id = int(report.split("process id ")[1].split()[0])
        os.kill(process_id, signal.SIGTERM)
        self.assertIn("/tessaronDesktopInfo", log.read_text())
        self.assertEqual(self.port(), f"integer {port}")


class InterruptedTest(MacCase):
    def interrupted(self, question, number, *options):
        self.write_existing_settings(1)
        process = self.start(*options)
        self.read_until(process, question)
        self.assertNotEqual(self.port(), "integer 1")
        process.send_signal(number)
        output, _ = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 1)
        report = self.report(output)
        self.assertResult(report, "FAILED", "Stopped", "interrupted. What was changed is restored.")
        self.assertEqual(self.port(), "integer 1")

    def test_restores_port_at_question(self):
        self.make_container()
        self.interrupted("What did the system ask", signal.SIGINT)

    def test_restores_port_while_dialog_is_open(self):
        self.interrupted("A request is open now", signal.SIGINT, "--dialog")

    def test_restores_port_after_termination(self):
        self.make_container()
        self.interrupted("What did the system ask", signal.SIGTERM)

    def test_restores_port_while_bundle_is_registered(self):
        self.stand_in(
            "lsregister",
            f'{STAND_INS["lsregister"]}\n[ "$1" = -u ] || {{ touch "$HOME/here"; sleep 2; }}',
        )
        self.interrupted_at_mark()

    def test_restores_port_while_stand_in_runs(self):
        self.wrap_bridge(
            f'[ "$1" != launchTessaron ] || {{ "{BRIDGE}" "$@"; touch "$HOME/here"; sleep 2; exit 0; }}'
        )
        self.interrupted_at_mark()

    def interrupted_at_mark(self):
        self.write_existing_settings(1)
        process = self.start()
        while not (self.folder / "home" / "here").exists():
            self.assertIsNone(process.poll())
        self.assertTrue([call for call in self.calls() if call.startswith("lsregister -f")])
        process.send_signal(signal.SIGINT)
        output, _ = process.communicate(timeout=60)
        self.assertEqual(process.returncode, 1)
        self.assertIn("interrupted", self.report(output))
        self.assertEqual(self.port(), "integer 1")


class EndToEndTest(MacCase):
    def test_end_to_end_tests_restore_port(self):
        self.write_existing_settings(1)
        code = (
            "import sys, unittest; sys.platform = 'darwin'\n"
            "EDIT = 'test_one_citation.OneCitation.test_edits_in_the_dialog'\n"
            "unittest.main(None, argv=['e2e', 'test_launch', EDIT])"
        )
        done = subprocess.run(
            [SOURCE / "testbed" / "macro" / "python", "-c", code],
            cwd=SOURCE / "testbed" / "e2e", env={**self.environment(), "BRIDGE": str(BRIDGE)},
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, encoding="utf-8",
        )  # fmt: skip
        self.assertEqual(done.returncode, 0, done.stdout)
        self.assertRegex(done.stdout, r"OK \(skipped=2\)")
        ports = [call.split()[-1] for call in self.calls() if call.startswith("defaults write ")]
        self.assertEqual((len(ports), ports[-1]), (2, "1"))
        self.assertEqual(self.port(), "integer 1")


class ContainerTest(MacCase):
    def test_does_not_try_if_word_was_never_started(self):
        report = self.attempt()
        self.assertResult(report, "NOT TRIED", "Exchange in Word", "Start Word once")

    def test_leaves_folder_empty(self):
        folder = self.make_container()
        report = self.attempt(answers="\n")
        self.assertResult(report, "OK", "Exchange in Word", "the system asked Terminal: nothing")
        self.assertResult(report, "OK", "Exchange in Word", "to repeat it from Word:")
        self.assertEqual(list(folder.iterdir()), [])


if __name__ == "__main__":
    if REAL_APPLICATION.exists():
        skip(f"{REAL_APPLICATION} is installed and would be started instead of the stand-in.")
    if not (SOURCE / "testbed" / "node_modules").is_dir() or not shutil.which("node"):
        skip("Node or the test bed's modules are missing. Run ./test, which installs both.")
    unittest.main()
