"""The trials that need a Mac. Each returns lines for the report, or raises Problem or NotTried."""

import contextlib
import json
import os
import plistlib
import shutil
import signal
import sys
import tempfile
import time
import urllib.request
from pathlib import Path

from support import (
    Exchange, NotTried, Problem, Server, agreed, ask, home, last_lines, milliseconds, run,
)  # fmt: skip

ROOT = Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "testbed" / "e2e"))
from mac_settings import Settings  # noqa: E402
from ports import free_port, is_free  # noqa: E402

IDENTIFIER = "com.tessaron.desktop"
APPLICATION = Path("/Applications/Tessaron Desktop.app")
LSREGISTER = (
    "/System/Library/Frameworks/CoreServices.framework/Frameworks/LaunchServices.framework"
    "/Support/lsregister"
)
STYLE = "<style><info><id>trial</id><title>Trial</title></info></style>"
DIALOG = "getFieldCodeFromCitationEditor"


class Mac:
    """What all trials need. The ExitStack `undo` restores the settings."""

    def __init__(self, bridge, port, undo):
        self.bridge = bridge
        with Exchange(bridge) as exchange:
            if exchange.run("isTessaronRunning") != ["false"]:
                raise Problem("Tessaron Desktop is running. Quit it and run this again.")
        self.settings = Settings()
        undo.callback(self.settings.restore)
        if port and not is_free(port):
            raise Problem(f"Port {port} is in use. Choose another one, or leave out --port.")
        self.port = port or free_port()


def installed_applications():
    """The paths of the real application that Spotlight finds, and the fixed path if it exists."""
    found = run("mdfind", f"kMDItemCFBundleIdentifier == '{IDENTIFIER}'", check=False).splitlines()
    found = [line for line in found if line.endswith(".app")]
    if APPLICATION.exists() and str(APPLICATION) not in found:
        found.append(str(APPLICATION))
    return found


def executable(mac):
    """The output of the system's tools about the executable."""
    lines = [f"architectures: {run('lipo', '-archs', mac.bridge)}"]
    libraries = [line.split()[0] for line in run("otool", "-L", mac.bridge).splitlines()[1:]]
    foreign = [path for path in libraries if not path.startswith(("/usr/lib/", "/System/"))]
    lines.append(f"libraries that are not the system's: {', '.join(foreign) or 'none'}")
    signature = run("codesign", "-v", "--verbose=2", mac.bridge, check=False)
    lines.append(f"codesign -v: {last_lines(signature) or 'accepted, no output'}")
    return lines


def settings(mac):
    """The bridge uses the port that `defaults` writes."""
    with Server(mac.port) as server, Exchange(mac.bridge) as exchange:
        mac.settings.set_port(mac.port)
        exchange.run("isTessaronRunning")
        if server.requests != ["GET /tessaronDesktopInfo"]:
            raise Problem(
                f"The bridge sent no request to port {mac.port}. docs/macos.md says where it looks for "
                "the port; a sandboxed application hides its settings."
            )
    return [f"the bridge sent its request to port {mac.port}, which defaults had written"]


def launch(mac):
    """launchTessaron finds and starts an application by its identifier."""
    real = installed_applications()
    if real:
        question = (
            f"{real[0]} is installed, so launchTessaron starts it and not the stand-in. Start it now? "
            "Please quit it afterwards."
        )
        if not agreed(question):
            raise NotTried(f"{real[0]} is installed, and you did not want it to be started")
        mac.settings.restore()
        return launched(mac)
    node = shutil.which("node")
    if not node:
        raise NotTried("Node is not installed. Run: brew install node")
    lsregister = shutil.which("lsregister") or LSREGISTER
    with contextlib.ExitStack() as undo:
        folder = Path(tempfile.mkdtemp(prefix="try-on-mac-"))
        undo.callback(shutil.rmtree, folder, ignore_errors=True)
        bundle = make_bundle(folder, node, mac.port)
        undo.callback(run, lsregister, "-u", bundle, check=False)
        run(lsregister, "-f", bundle)
        mac.settings.set_port(mac.port)
        undo.callback(stop_stand_in, mac.port)
        return launched(mac)


def make_bundle(folder, node, port):
    """Makes an application bundle that runs the stand-in for the application."""
    contents = folder / "Tessaron Desktop stand-in.app" / "Contents"
    program = contents / "MacOS" / "stand-in"
    program.parent.mkdir(parents=True)
    desktop = ROOT / "testbed" / "desktop" / "main.js"
    # The stand-in needs an installed style to start. This one is not used for formatting.
    styles = folder / "csl" / "styles"
    styles.mkdir(parents=True)
    (styles / "trial.csl").write_text(STYLE)
    program.write_text(
        f"#!/bin/sh\nexec '{node}' '{desktop}' --port {port} --csl-dir '{styles.parent}' "
        "--style trial --recent trial\n"
    )
    program.chmod(0o755)
    information = {
        "CFBundleIdentifier": IDENTIFIER,
        "CFBundleName": "Tessaron Desktop stand-in",
        "CFBundleExecutable": "stand-in",
        "CFBundlePackageType": "APPL",
        "CFBundleVersion": "1",
        "LSUIElement": True,
    }
    (contents / "Info.plist").write_bytes(plistlib.dumps(information))
    return contents.parent


def launched(mac):
    with Exchange(mac.bridge) as exchange:
        start = time.monotonic()
        if exchange.run("launchTessaron") != ["true"]:
            raise Problem("launchTessaron returned false. Console shows why, under the bridge's name.")
        seconds = time.monotonic() - start
        process_id = exchange.run("tessaronProcessId")[0]
        if process_id == "0":
            raise Problem("launchTessaron returned true, but tessaronProcessId returned 0.")
    return [f"started after {seconds:.1f} s, process id {process_id}"]


def stop_stand_in(port):
    """Ends the process that listens on the port if it is the stand-in, and waits until the port is free."""
    try:
        with urllib.request.urlopen(f"http://127.0.0.1:{port}/tessaronDesktopInfo") as reply:
            process_id = int(json.load(reply)["processId"])
    except (OSError, ValueError, KeyError):
        return
    if process_id > 0 and f"--port {port}" in run("ps", "-o", "command=", "-p", process_id):
        os.kill(process_id, signal.SIGTERM)
        deadline = time.monotonic() + 10
        while not is_free(port) and time.monotonic() < deadline:
            time.sleep(0.05)


def container(mac):
    """A command in a folder of Word's container, and the permission that the system asks for."""
    folder = home() / "Library" / "Containers" / "com.microsoft.Word" / "Data" / "tmp"
    if not folder.is_dir():
        raise NotTried(f"{folder} does not exist. Start Word once")
    with Server(mac.port):
        mac.settings.set_port(mac.port)
        try:
            with Exchange(mac.bridge, folder) as exchange:
                results = exchange.run("getUserUuid")
        except OSError as error:
            raise Problem(f"Terminal cannot write to {folder}: {error.strerror}.")
    if results != ["try-on-mac"]:
        raise Problem(f"The results file holds {json.dumps(results)}.")
    asked = ask("What did the system ask just now? Type its text, or Enter if it asked nothing.")
    return [
        f"exchanged in {folder}",
        f"the system asked Terminal: {asked or 'nothing'}",
        "to repeat it from Word: install examples/TessaronBridge.applescript as examples/README.md "
        "says, run the macro twice, and note each question",
    ]


def start_up(mac):
    """The time of a whole small command, compared with curl and the same request."""
    with Server(mac.port), Exchange(mac.bridge) as exchange:
        mac.settings.set_port(mac.port)
        exchange.run("getUserUuid")
        bridge = milliseconds([mac.bridge, "getUserUuid", exchange.folder], 20)
        curl = milliseconds(["curl", "-s", f"http://127.0.0.1:{mac.port}/userUuid"], 20)
    return [f"getUserUuid {bridge:.1f} ms, curl {curl:.1f} ms (medians of 20)"]


def dialog(mac):
    """A request that stays open while the network changes."""
    with Server(mac.port) as server, Exchange(mac.bridge) as exchange:
        mac.settings.set_port(mac.port)
        server.hold.set()
        process = exchange.start(DIALOG, "")
        try:
            deadline = time.monotonic() + 10
            while not server.requests and time.monotonic() < deadline:
                time.sleep(0.05)
            if not server.requests:
                raise Problem("The request did not arrive within 10 s.")
            ask("A request is open now. Turn Wi-Fi off, wait ten seconds, turn it on, press Enter.")
            ended = process.poll() is not None
            server.release.set()
            process.communicate(timeout=30)
        finally:
            process.kill()
            process.wait()
        if ended:
            raise Problem("The bridge ended before it received the reply.")
        if len(server.requests) != 1:
            raise Problem(f"The request was sent {len(server.requests)} times.")
        if not exchange.results()[0].startswith("ADDIN CSL_CITATION "):
            raise Problem(f"The reply was lost; results {exchange.results()}.")
    return ["the request stayed open, its reply arrived, and it was sent once"]


TRIALS = [
    ("The executable", executable),
    ("The port in the settings", settings),
    ("Start through Launch Services", launch),
    ("Exchange in Word's container (from Terminal, not from Word)", container),
    ("Start-up time", start_up),
]
DIALOG_TRIAL = ("A request kept open while Wi-Fi goes off and on", dialog)
