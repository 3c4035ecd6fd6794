"""Runs the compared programs against the canned server and checks their results."""
import contextlib
import json
import os
import subprocess

import benchdata

FORMAT = "formatCitationsAndBibliography"
TARGETS = {  # command: the request it sends
    "getUserUuid": "GET /userUuid",
    "getRecentStyles": "GET /citationStyles/default",
    FORMAT: "POST /formattedCitationsAndBibliography/interactive",
}
RESULTS = "mac-word-plugin-results.txt"
READY = "mac-word-plugin-result-ready.txt"
FIELD_CODE_PREFIX = "ADDIN CSL_CITATION "
ORGANISATION = "tessaron.com"


class Failure(Exception):
    """An error that ends the benchmark. Its text is shown to the user."""


class Bench:
    """The compared programs and their home folder during the measurement."""

    def __init__(self, bridges, tools, home):
        """`bridges`: the bridge's programs by name; the last one is run last in each round."""
        here = os.path.dirname(os.path.abspath(__file__))
        self.server_program = os.path.join(tools, "canned_server")
        self.spawner = os.path.join(tools, "spawner")
        self.limit = os.path.join(tools, "limit")
        self.bridges = list(bridges)
        peer = os.path.join(tools, "peer_curl")
        self.programs = {
            "C++ peer": [peer],
            "Python peer": ["/usr/bin/python3", os.path.join(here, "peer_python.py")],
            **{name: [program] for name, program in bridges.items()},
        }
        for program in (self.server_program, self.spawner, self.limit, peer, *bridges.values()):
            if not os.access(program, os.X_OK):
                raise Failure(f"{program} does not exist or is not executable.")
        self.home = home
        self.server_times = {}  # by the document's folder name

    def folder(self, name):
        return os.path.join(self.home, name)

    def command_lines(self, command, folder):
        return {name: [*line, command, folder] for name, line in self.programs.items()}

    def write_settings(self, port):
        folder = self.folder(ORGANISATION)
        os.makedirs(folder, exist_ok=True)
        with open(os.path.join(folder, "Tessaron Desktop.conf"), "w", encoding="ascii") as file:
            file.write(f"[%General]\nhttpServerPort={port}\n")

    @contextlib.contextmanager
    def server(self, command, folder, *options):
        """Serves the reply in `folder` until the block ends; yields the port.

        The server ends when its standard input does, so it cannot outlive this script.
        """
        reply = os.path.join(folder, "reply.json")
        line = [self.server_program, *options, *TARGETS[command].split(), reply]
        with subprocess.Popen(line, stdin=subprocess.PIPE, stdout=subprocess.PIPE,
                              text=True) as server:
            port = server.stdout.readline().strip()
            if not port:
                raise Failure("The server cannot be started.")
            self.write_settings(port)
            yield port
            server.stdin.close()
            times = json.loads(server.stdout.readline())
        self.server_times[os.path.basename(folder)] = times.get(TARGETS[command], {"requests": 0})

    def spawn(self, rounds, folder, lines):
        """Runs the command lines in turn. Returns for each a list of runs {ms, cpuMs, peakMb, faults}."""
        spawner = [self.spawner, str(rounds)]
        for name in (RESULTS, READY):
            spawner += "--remove", os.path.join(folder, name)
        for line in lines:
            spawner += "--", *line
        environment = {"HOME": self.home, "XDG_CONFIG_HOME": self.home, "LANG": "C.UTF-8",
                       "PATH": "/usr/bin:/bin"}
        done = subprocess.run(spawner, env=environment, stdout=subprocess.PIPE, text=True)
        if done.returncode != 0:
            raise Failure("A measured program failed.")
        runs = [[] for _ in lines]
        for row in done.stdout.splitlines():
            index, wall, peak, user, system, faults = map(int, row.split())
            runs[index].append({"ms": wall / 1e6, "cpuMs": (user + system) / 1e3,
                                "peakMb": peak * 1024 / 1e6, "faults": faults})
        return runs

    def measure(self, rounds, command, folder, lines):
        """Runs the command lines, by program, in turn against one server: A B C A B C. Returns the
        runs of each program. "{port}" in a line becomes the port.

        The bridge exits with 0 even if its command fails, so a bridge must come last, because the
        results of the last run are checked. The first round is not counted, because a virtual machine
        may first have to get memory back from its host."""
        rounds += 1
        with self.server(command, folder) as port:
            runs = self.spawn(rounds, folder, [
                [word.replace("{port}", port) for word in line] for line in lines.values()])
        requests = self.server_times[os.path.basename(folder)]["requests"]
        if requests != rounds * len(lines):
            raise Failure(f"{rounds * len(lines)} runs sent {requests} requests.")
        check_success(command, read_results(command, folder))
        return {name: counted for name, (_, *counted) in zip(lines, runs)}

    def check_equal(self, command, folder):
        """Checks that every program sends the same request and writes the same results, by value."""
        saved = os.path.join(folder, "request.json")
        seen = {}
        for program, line in self.command_lines(command, folder).items():
            with self.server(command, folder, "--save", saved):
                self.spawn(1, folder, [line])
            if not os.path.exists(saved):
                raise Failure(f"{program} sent no request for {command}.")
            with open(saved, "rb") as file:
                request = file.read()
            os.remove(saved)
            check_ready(program, folder)
            seen[program] = (json.loads(request) if request else None,
                             read_results(command, folder))
            check_success(command, seen[program][1])
            if seen[program] != seen["C++ peer"]:
                raise Failure(f"{program} and C++ peer differ in {command} ({folder}).")


def read_utf16(folder, name):
    with open(os.path.join(folder, name), "rb") as file:
        return file.read().decode("utf-16-le", "surrogatepass")


def read_results(command, folder):
    """Returns the results by value. Objects in field codes become pairs, so that the order of keys counts."""
    lines = read_utf16(folder, RESULTS).split(benchdata.SEPARATOR)
    if command == FORMAT:
        for index in range(3, len(lines), 4):
            if not lines[index].startswith(FIELD_CODE_PREFIX):
                raise Failure(f"Line {index} of the results in {folder} is not a field code.")
            lines[index] = json.loads(lines[index][len(FIELD_CODE_PREFIX):],
                                      object_pairs_hook=tuple)
    return lines


def check_success(command, results):
    failed = results[0] != "true" if command == FORMAT else results[0].startswith("Unable")
    if failed or not results[0] or results[0] == "0":
        raise Failure(f"{command} failed; the results begin with {results[:2]}.")


def check_ready(program, folder):
    size = os.path.getsize(os.path.join(folder, RESULTS))
    if read_utf16(folder, READY) != str(size):
        raise Failure(f"The ready file of {program} does not contain the size of the results.")
