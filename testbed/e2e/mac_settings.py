"""Temporarily changes the port in the application's settings on macOS.

The system keeps the preferences of each user in a service, so no environment variable redirects them.
This class changes them with `defaults` and restores the former value afterwards.
"""

import atexit
import shlex
import subprocess

DOMAIN = "com.tessaron.Tessaron Desktop"
KEY = "General.httpServerPort"


class Settings:
    """Saves the port when created. restore() restores it and is also called at the end of the program."""

    def __init__(self):
        self.kind = self._kind()
        self.value = _defaults("read", DOMAIN, KEY) if self.kind else None
        self.changed = False
        atexit.register(self.restore)

    def set_port(self, port):
        self.changed = True
        _defaults("write", DOMAIN, KEY, "-int", str(port))

    def restore(self):
        if not self.changed:
            return
        self.changed = False
        if self.kind:
            command = ["write", DOMAIN, KEY, f"-{self.kind}", self.value]
        else:
            command = ["delete", DOMAIN, KEY]
        # If the first write failed, there is nothing to delete.
        if (self.kind or self._kind()) and _run(*command).returncode != 0:
            raise RuntimeError(
                f"The port in the settings could not be restored. Run: defaults {shlex.join(command)}"
            )

    def _kind(self):
        """The type of the stored value, as `defaults write` names it, or None if there is no value."""
        done = _run("read-type", DOMAIN, KEY)
        if done.returncode != 0:
            return None
        kind = done.stdout.split()[-1]
        names = {"integer": "int", "string": "string", "float": "float", "boolean": "bool"}
        if kind not in names:
            raise RuntimeError(
                f"The settings hold the port as {kind}, which cannot be restored. "
                f'Remove it with: defaults delete "{DOMAIN}" {KEY}'
            )
        return names[kind]


def _run(*arguments):
    return subprocess.run(
        ["defaults", *arguments],
        stdin=subprocess.DEVNULL,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        encoding="utf-8",
    )


def _defaults(*arguments):
    done = _run(*arguments)
    if done.returncode != 0:
        raise RuntimeError(f"defaults {' '.join(arguments)} failed: {done.stderr.strip()}")
    return done.stdout.strip()
