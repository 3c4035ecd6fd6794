"""Standard output and standard error, which may be closed, full, or a pipe without a reader."""

import os
import sys


def set_up():
    for stream in (sys.stdout, sys.stderr):
        if stream is not None:
            stream.reconfigure(encoding="utf-8", errors="backslashreplace")


def report(sentence):
    """Writes a line to standard error, if that is possible."""
    if sentence:
        write(sys.stderr, sentence)


def write(stream, line):
    """Writes a line. Returns whether all of it was written."""
    if stream is None:
        return False
    try:
        print(line, file=stream, flush=True)
    except (OSError, ValueError):
        _discard_buffer(stream)
        return False
    return True


def flush():
    """Writes what is buffered for standard output, such as the help, if that is possible."""
    try:
        if sys.stdout is not None:
            sys.stdout.flush()
    except OSError:
        _discard_buffer(sys.stdout)


def _discard_buffer(stream):
    # Otherwise the interpreter would fail again on exit when it writes the rest of the buffer.
    os.dup2(os.open(os.devnull, os.O_WRONLY), stream.fileno())
