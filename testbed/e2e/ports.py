"""Free ports, for the end-to-end tests and for tools/try-on-mac."""

import random
import socket


def free_port():
    """A free port below the range that systems use for outgoing connections, so that no connection takes
    it first. The range begins at 32768 on Linux and at 49152 on macOS."""
    while True:
        port = random.randrange(20000, 32000)
        if is_free(port):
            return port


def is_free(port):
    with socket.socket() as probe:
        probe.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        try:
            probe.bind(("127.0.0.1", port))
        except OSError:
            return False
    return True
