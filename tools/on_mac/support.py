"""Helpers for the trials of tools/try-on-mac: run programs, ask the user, serve requests, run the bridge."""

import contextlib
import http.server
import os
import shutil
import subprocess
import tempfile
import threading
import time
from pathlib import Path

SEPARATOR = "\u0001"


class Problem(Exception):
    """A trial failed. The text says why."""


class NotTried(Exception):
    """A trial was not possible here. The text says why."""


class Stop(Exception):
    """Nothing can be tried. The text says what to do."""


def run(*command, timeout=600, check=True, **options):
    """Runs a program and returns what it printed. Raises Problem if it fails or cannot be run."""
    text = " ".join(str(part) for part in command)
    try:
        done = subprocess.run(
            [str(part) for part in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.STDOUT, encoding="utf-8", errors="replace", timeout=timeout, **options,
        )  # fmt: skip
    except OSError as error:
        raise Problem(f"{command[0]} cannot be run: {error.strerror}.")
    except subprocess.TimeoutExpired:
        raise Problem(f"{text} did not end within {timeout} s.")
    if check and done.returncode != 0:
        raise Problem(f"{text} ended with status {done.returncode}: {last_lines(done.stdout)}")
    return done.stdout.strip()


def works(*command):
    """Whether the program can be run and ends with status 0."""
    try:
        run(*command)
    except Problem:
        return False
    return True


def last_lines(text, count=3):
    return " / ".join(text.strip().splitlines()[-count:])


def ask(question):
    """Asks the user and returns the answer, or an empty string at the end of the input."""
    try:
        return input(f"\n{question}\n> ").strip()
    except EOFError:
        return ""


def agreed(question):
    return ask(f"{question} [y/N]").lower() in ("y", "yes")


class Server:
    """Replies to every request and records it. While `hold` is set, a POST waits for `release`."""

    def __init__(self, port):
        self.requests = []
        self.hold = threading.Event()
        self.release = threading.Event()
        recorder = self

        class Handler(http.server.BaseHTTPRequestHandler):
            protocol_version = "HTTP/1.1"

            def do_GET(self):
                self.reply(b'{"processId": 0, "uuid": "try-on-mac"}')

            def do_POST(self):
                self.rfile.read(int(self.headers["Content-Length"]))
                self.reply(b'{"citationCluster": {"citationItems": [{"id": "1"}]}}')

            def reply(self, body):
                recorder.requests.append(f"{self.command} {self.path}")
                if self.command == "POST" and recorder.hold.is_set():
                    recorder.release.wait()
                with contextlib.suppress(OSError):  # the bridge may have ended by now
                    self.send_response(200)
                    self.send_header("Content-Length", str(len(body)))
                    self.end_headers()
                    self.wfile.write(body)

            def log_message(self, *arguments):
                pass

        self.server = http.server.ThreadingHTTPServer(("127.0.0.1", port), Handler)
        self.server.daemon_threads = True
        threading.Thread(target=self.server.serve_forever, daemon=True).start()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.release.set()
        self.server.shutdown()
        self.server.server_close()


class Exchange:
    """Runs commands as a macro does, in a temporary folder."""

    def __init__(self, bridge, parent=None):
        self.bridge = bridge
        self.folder = Path(tempfile.mkdtemp(prefix="try-on-mac-", dir=parent))

    def __enter__(self):
        return self

    def __exit__(self, *_):
        shutil.rmtree(self.folder, ignore_errors=True)

    def file(self, name):
        return self.folder / f"mac-word-plugin-{name}.txt"

    def start(self, command, *arguments):
        self.file("args").write_bytes(SEPARATOR.join(arguments).encode("utf-16-le"))
        return subprocess.Popen(
            [str(self.bridge), command, str(self.folder)],
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
        )  # fmt: skip

    def results(self):
        return self.file("results").read_bytes().decode("utf-16-le").split(SEPARATOR)

    def run(self, command, *arguments, timeout=150):
        process = self.start(command, *arguments)
        try:
            output = process.communicate(timeout=timeout)[0].decode(errors="replace").strip()
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()
            raise Problem(f"{command} did not end within {timeout} s.")
        except BaseException:
            process.kill()
            raise
        if process.returncode != 0:
            raise Problem(f"{command} ended with status {process.returncode}: {output}")
        try:
            return self.results()
        except OSError as error:
            raise Problem(f"{command} wrote no results ({error.strerror}). It printed: {output}")


def milliseconds(command, times):
    """The median wall-clock time of a program."""
    taken = []
    for _ in range(times):
        start = time.monotonic()
        subprocess.run([str(part) for part in command], stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)  # fmt: skip
        taken.append((time.monotonic() - start) * 1000)
    return sorted(taken)[times // 2]


def home():
    return Path(os.environ["HOME"])
