"""One command through the bridge: the argument file, the process, the two answer files."""

import subprocess
import tempfile
from pathlib import Path
from typing import NamedTuple

from .failure import Failure

ARGS = "mac-word-plugin-args.txt"
RESULTS = "mac-word-plugin-results.txt"
READY = "mac-word-plugin-result-ready.txt"
SEPARATOR = "\x01"


class Answer(NamedTuple):
    results: list
    warnings: str  # what the bridge wrote on its standard error


def encode(strings):
    for text in strings:
        if SEPARATOR in text:
            raise Failure("An argument holds U+0001, which separates the arguments in the file.")
    # Text cut in the middle of an emoji holds half a surrogate pair: it travels as it is.
    return SEPARATOR.join(strings).encode("utf-16-le", "surrogatepass")


def decode(data):
    return data.decode("utf-16-le", "surrogatepass").split(SEPARATOR)


def run(bridge, command, arguments, folder=None):
    """Runs one command in a folder of its own, or in the folder given."""
    if folder is not None:
        return _run(bridge, command, arguments, Path(folder))
    with tempfile.TemporaryDirectory(prefix="wordmacro-") as own:
        return _run(bridge, command, arguments, Path(own))


def _run(bridge, command, arguments, folder):
    try:
        # An old ready file would make an old answer look like this command's.
        for name in (RESULTS, READY):
            (folder / name).unlink(missing_ok=True)
        (folder / ARGS).write_bytes(encode(arguments))
    except OSError as error:
        raise Failure(f"The folder {folder} cannot be used: {error.strerror}.")
    process = _start(bridge, command, folder)
    if process.returncode != 0:
        raise Failure(f"The bridge ended with status {process.returncode}{_said(process)}.")
    # The bridge writes the ready file last, so after its end there is nothing left to wait for.
    return Answer(_read(folder, command, _said(process)), process.stderr)


def _start(bridge, command, folder):
    try:
        return subprocess.run(
            [str(bridge), command, str(folder)],
            stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL,
            stderr=subprocess.PIPE,
            encoding="utf-8",
            errors="replace",
        )
    except OSError as error:
        raise Failure(f"The bridge {bridge} cannot be started: {error.strerror}.")
    except ValueError:
        raise Failure("A command and a folder cannot hold U+0000.")


def _said(process):
    text = " ".join(process.stderr.split())
    return f" and said: {text}" if text else ""


def _read(folder, command, said):
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
