"""Runs the example's Basic modules in LibreOffice, with TessaronBridge.sh and the bridge."""

import html
import os
import re
import shutil
import signal
import subprocess
import tempfile
import time
from pathlib import Path

from support import BRIDGE, SOURCE, Case, home_without_application, utf16

EXAMPLES = SOURCE / "examples"
OFFICE = shutil.which("soffice")
HAS_PROGRAMS = OFFICE is not None and shutil.which("ps") is not None
HERE = Path(__file__).parent
MODULES = [
    *(EXAMPLES / f"Tessaron{name}.bas" for name in ("Exchange", "Text", "Document")),
    HERE / "ExampleTest.bas",
    HERE / "ExampleDocument.bas",
]
FAILED = "error 20001 "


def in_hex(texts):
    units = (utf16(text) for text in texts)
    return ",".join(
        " ".join(f"{text[i] | text[i + 1] << 8:04x}" for i in range(0, len(text), 2))
        for text in units
    )


def from_hex(codes):
    data = b"".join(int(unit, 16).to_bytes(2, "little") for unit in codes.split())
    return data.decode("utf-16-le", "surrogatepass")


def answer(*texts):
    return f"ok {len(texts)}:{in_hex(texts)}"


class Office:
    """LibreOffice in the background. Runs one scenario after the other."""

    def __init__(self, folder):
        self.scenario, self.outcome = folder / "scenario", folder / "outcome"
        self.profile = folder / "profile"
        self.process = None

    def run(self, steps):
        if self.process is None:
            self.start()
        new = self.scenario.with_suffix(".new")
        new.write_text("".join("\t".join(map(str, step)) + "\n" for step in steps))
        new.rename(self.scenario)
        deadline = time.monotonic() + 400
        while not self.outcome.exists():
            # LibreOffice also hangs at an error that no handler catches.
            if self.process.poll() is not None or time.monotonic() > deadline:
                ps = ["ps", "-o", "args=", "--sid", str(self.process.pid)]
                running = subprocess.run(ps, stdout=subprocess.PIPE, encoding="utf-8").stdout
                self.kill()
                raise AssertionError(f"LibreOffice did not finish the steps. It was running:\n{running}")
            time.sleep(0.01)
        outcomes = self.outcome.read_text().splitlines()
        self.outcome.unlink()
        return outcomes

    def start(self):
        if not self.profile.exists():
            # The profile must exist before modules can be put into it.
            self.launch("--terminate_after_init")
            self.process.wait(timeout=60)
            install_modules(self.profile / "user" / "basic" / "Standard")
        self.launch("macro:///Standard.ExampleTest.Main")

    def launch(self, argument):
        self.process = subprocess.Popen(
            [OFFICE, "--headless", f"-env:UserInstallation={self.profile.as_uri()}", argument],
            env={**os.environ, "SCENARIO": str(self.scenario), "OUTCOME": str(self.outcome)},
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True,
        )  # fmt: skip

    def stop(self):
        if self.process is not None:
            self.run([("quit",)])
            self.process.wait(timeout=60)
            self.process = None

    def kill(self):
        if self.process is not None:
            os.killpg(self.process.pid, signal.SIGKILL)
            self.process.wait()
            self.process = None
            self.scenario.unlink(missing_ok=True)


def element(name, attributes, content):
    return f'<?xml version="1.0" encoding="UTF-8"?>\n<{name} {attributes}>{content}</{name}>\n'


def install_modules(library):
    for path in MODULES:
        # The attribute is for Word's editor, the option for LibreOffice.
        text = "Option VBASupport 1\n" + re.sub("^Attribute .*$", "", path.read_text(), flags=re.M)
        (library / f"{path.stem}.xba").write_text(element(
            "script:module",
            'xmlns:script="http://openoffice.org/2000/script" '
            f'script:name="{path.stem}" script:language="StarBasic"',
            html.escape(text, quote=False),
        ))  # fmt: skip
    (library / "script.xlb").write_text(element(
        "library:library",
        'xmlns:library="http://openoffice.org/2000/library" '
        'library:name="Standard" library:readonly="false" library:passwordprotected="false"',
        "".join(f'<library:element library:name="{path.stem}"/>' for path in MODULES),
    ))  # fmt: skip


class OfficeCase(Case):
    @classmethod
    def setUpClass(cls):
        folder = tempfile.TemporaryDirectory(prefix="packaging-office-")
        cls.addClassCleanup(folder.cleanup)
        cls.office = Office(Path(folder.name))
        cls.addClassCleanup(cls.office.kill)

    def setUp(self):
        self.folder = self.temporary_folder().resolve()
        self.word_temporary = self.folder / "word"
        self.word_temporary.mkdir()
        self.trace = self.folder / "logs" / "trace.log"
        self.environment = home_without_application(self.temporary_folder())
        self.use_bridge(BRIDGE)

    def use_bridge(self, program):
        """Installs TessaronBridge.sh as a user does, and puts the path of the bridge into it."""
        self.bridge = program
        settings = {"BRIDGE": program, "TEMPORARY": self.word_temporary, "TRACE_FILE": self.trace}
        text = (EXAMPLES / "TessaronBridge.sh").read_text()
        for name, value in settings.items():
            text, found = re.subn(f'^{name}=".*"$', f'{name}="{value}"', text, flags=re.M)
            self.assertEqual(found, 1, name)
        self.script = self.folder / "TessaronBridge.sh"
        self.script.write_text(text)

    def use_script(self, lines):
        """Installs a shell script in place of the bridge. $1 is the command and $2 the folder."""
        program = self.folder / "bridge"
        program.write_text(f"#!/bin/sh\n{lines}\n")
        program.chmod(0o755)
        self.use_bridge(program)

    def basic(self, *steps):
        """Runs the steps in LibreOffice and returns their outcomes."""
        call = self.folder / "call"
        changed = {k: v for k, v in self.environment.items() if os.environ.get(k) != v}
        call.write_text(
            "#!/bin/sh\n"
            + "".join(f"export {name}='{value}'\n" for name, value in changed.items())
            + f'/bin/sh "{self.script}" "$(cat "$1")" >"$2" 2>&1\n'
        )
        call.chmod(0o755)
        first, *outcomes = self.office.run([("use", call, self.word_temporary), *steps])
        self.assertEqual((first, len(outcomes)), ("ok ", len(steps)), outcomes)
        return outcomes

    def run_command(self, command, *arguments):
        return self.basic(("run", command, in_hex(arguments or [""])))[0]
