"""Runs one command of the bridge: argument file, process, ready file and results file."""

import contextlib
import fcntl
import os
import re
import shutil
import signal
import stat
import subprocess
import tempfile
import time
from pathlib import Path
from typing import NamedTuple

from .console import report
from .failure import Failure

ARGS = "mac-word-plugin-args.txt"
RESULTS = "mac-word-plugin-results.txt"
READY = "mac-word-plugin-result-ready.txt"
SEPARATOR = "\x01"
FOLDER_PREFIX = "wordmacro-"
SECONDS_PER_DAY = 24 * 60 * 60
STOPS = (signal.SIGINT, signal.SIGTERM, signal.SIGHUP)

# The bridge's messages. With the trace on, its other output can contain the document's text.
MESSAGES = re.compile(
    r"Citation count mismatch\.  Submitted \d+ citations but only received \d+ formatted citations\."
    r"|No formatted bibliography returned"
    r'|Unable to (?:open|write) args file "[^\n]*"'
)
TRACE = "tessaron.http"
TRACE_VARIABLES = ("QT_LOGGING_RULES", "QT_LOGGING_CONF", "QT_MESSAGE_PATTERN")


class Outcome(NamedTuple):
    results: list
    messages: str  # on standard error, joined into one line, without the trace


def encode(strings):
    for text in strings:
        if SEPARATOR in text:
            raise Failure("An argument holds U+0001, which separates the arguments in the file.")
    # A text that was cut inside an emoji contains an unpaired surrogate, which is passed on unchanged.
    return SEPARATOR.join(strings).encode("utf-16-le", "surrogatepass")


def decode(data):
    return data.decode("utf-16-le", "surrogatepass").split(SEPARATOR)


def run(bridge, command, arguments, folder=None):
    """Runs one command in the given folder, or in a temporary one."""
    if folder is not None:
        return _run_in_folder(bridge, command, arguments, Path(folder), ())
    with _temporary_folder() as temporary, _locked(temporary) as lock:
        return _run_in_folder(bridge, command, arguments, Path(temporary), (lock,))


def _temporary_folder():
    try:
        _remove_abandoned()
        return tempfile.TemporaryDirectory(prefix=FOLDER_PREFIX)
    except OSError as error:
        raise Failure(f"No temporary folder can be made: {error.strerror}.")


@contextlib.contextmanager
def _locked(folder):
    """Locks a folder while this process or the bridge, which inherits the lock, is running."""
    lock = os.open(folder, os.O_RDONLY)
    try:
        fcntl.flock(lock, fcntl.LOCK_EX)
        yield lock
    finally:
        os.close(lock)


def _remove_abandoned():
    """Removes folders that a killed run left: older than a day and not locked by a process."""
    for folder in Path(tempfile.gettempdir()).glob(FOLDER_PREFIX + "*"):
        with contextlib.suppress(OSError):
            if _is_old_folder_of_ours(folder.lstat()):
                with _locked_if_free(folder):
                    shutil.rmtree(folder, ignore_errors=True)


def _is_old_folder_of_ours(status):
    is_ours = stat.S_ISDIR(status.st_mode) and status.st_uid == os.getuid()
    return is_ours and time.time() - status.st_mtime > SECONDS_PER_DAY


@contextlib.contextmanager
def _locked_if_free(folder):
    """Raises an OSError if another process has locked the folder."""
    lock = os.open(folder, os.O_RDONLY | os.O_NOFOLLOW)
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        yield
    finally:
        os.close(lock)


def _run_in_folder(bridge, command, arguments, folder, inherited):
    try:
        # Files of an earlier run must not be read as this command's results.
        for name in (RESULTS, READY):
            (folder / name).unlink(missing_ok=True)
        (folder / ARGS).write_bytes(encode(arguments))
    except (OSError, ValueError) as error:
        reason = getattr(error, "strerror", None) or error
        raise Failure(f"The folder {folder} cannot be used: {reason}.")
    status, errors = _run_bridge(bridge, command, folder, inherited)
    messages = _extract_messages(errors)
    said = f" and said: {messages}" if messages else ""
    if status != 0:
        raise Failure(f"The bridge ended with status {status}{said}.")
    # The bridge writes the ready file last, so once it has ended there is nothing to wait for.
    return Outcome(_read_results(folder, command, said), messages)


def _run_bridge(bridge, command, folder, inherited):
    """Returns the exit status and what the bridge wrote to standard error. An exception, such as one
    that a signal raises, stops the bridge."""
    # A signal before this process knows the bridge's process id would leave the bridge running.
    mask = signal.pthread_sigmask(signal.SIG_BLOCK, STOPS)

    def unblock():
        signal.pthread_sigmask(signal.SIG_SETMASK, mask)

    try:
        with _start_bridge([str(bridge), command, str(folder)], inherited, unblock) as process:
            try:
                unblock()
                _, errors = process.communicate()
            except BaseException:
                process.kill()
                raise
    finally:
        unblock()
    return process.returncode, errors


def _start_bridge(command, inherited, before_exec):
    try:
        return subprocess.Popen(
            command,
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
            encoding="utf-8",
            errors="replace",
            pass_fds=inherited,
            preexec_fn=before_exec,
        )
    except OSError as error:
        raise Failure(f"The bridge {command[0]} cannot be started: {error.strerror}.")
    except ValueError:
        raise Failure("A command and a folder cannot hold U+0000.")


def _extract_messages(output):
    """Returns the bridge's messages. With the trace on, also writes all output to standard error."""
    is_traced = TRACE in output or any(name in os.environ for name in TRACE_VARIABLES)
    if is_traced:
        report(output.rstrip("\n"))
        return " ".join(" ".join(found.split()) for found in MESSAGES.findall(output))
    return " ".join(output.split())


def _read_results(folder, command, said):
    try:
        ready = (folder / READY).read_bytes().decode("utf-16-le", "replace")
    except OSError:
        raise Failure(f'The bridge wrote no ready file for "{command}"{said}.')
    if ready == "-1":
        raise Failure(f'The bridge could not write the results of "{command}"{said}.')
    try:
        data = (folder / RESULTS).read_bytes()
    except OSError:
        raise Failure(f'The results file of "{command}" is missing.')
    if ready != str(len(data)) or len(data) % 2:
        raise Failure(
            f'The results file of "{command}" holds {len(data)} bytes, '
            f'but the ready file says "{ready[:20]}".'
        )
    return decode(data)
