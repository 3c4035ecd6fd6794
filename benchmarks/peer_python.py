#!/usr/bin/python3
"""A peer of the bridge in Python, for comparison: three of its commands with the standard library.

usage: peer_python.py getUserUuid|getRecentStyles|formatCitationsAndBibliography FOLDER

Where the bridge would report a failure, this program ends with an exception.
"""
import configparser
import http.client
import json
import os
import sys

SEPARATOR = "\x01"
ENCODING = "utf-16-le"
SETTINGS_ORGANISATION = "tessaron.com"

# Escaping non-ASCII characters is the default and by far the fastest.
to_json = json.JSONEncoder(separators=(",", ":"), sort_keys=True).encode


def read_arguments(path):
    with open(path, "rb") as file:
        return file.read().decode(ENCODING).removeprefix("\ufeff").split(SEPARATOR)


def write_file(path, lines):
    """Writes a file beside the target, then replaces the target. Returns the number of bytes."""
    data = SEPARATOR.join(lines).encode(ENCODING)
    with open(path + ".temp", "wb") as file:
        file.write(data)
    os.replace(path + ".temp", path)
    return len(data)


def settings_port():
    """The port is in the group "[%General]" of the application's settings."""
    home = os.environ.get("XDG_CONFIG_HOME") or os.path.expanduser("~/.config")
    settings = configparser.RawConfigParser()
    settings.read(os.path.join(home, SETTINGS_ORGANISATION, "Tessaron Desktop.conf"))
    return settings.getint("%General", "httpServerPort", fallback=50002)


def request(method, path, body=None):
    headers = {"Content-Type": "application/json"} if body else {}
    connection = http.client.HTTPConnection("127.0.0.1", settings_port())
    connection.request(method, path, body, headers)
    reply = connection.getresponse()
    if reply.status != 200:
        raise RuntimeError(f"The server replied with the status {reply.status}.")
    return json.loads(reply.read())


def get_user_uuid(_folder, _arguments):
    return [request("GET", "/userUuid").get("uuid", "")]


def get_recent_styles(_folder, _arguments):
    styles = request("GET", "/citationStyles/default")["citationStyles"]
    lines = [str(len(styles))]
    for style in styles:
        lines += style.get("url", ""), style.get("title", "")
    return lines


def format_citations_and_bibliography(folder, arguments):
    pairs = list(zip(arguments[1::2], arguments[2::2]))
    body = to_json({
        "citationStyleUrl": arguments[0],
        "citationClusters": [{"fieldCode": code, "formattedText": text} for code, text in pairs],
        "tempDirectory": folder,
    }).encode()
    reply = request("POST", "/formattedCitationsAndBibliography/interactive", body)

    lines = ["true", reply.get("citationStyleUrl", ""), reply.get("bibliography", "")]
    for entry in reply["citationClusters"]:
        cluster = entry["citationCluster"]
        tessaron = cluster.get("tessaron", {})
        lines += ("ADDIN CSL_CITATION " + to_json(cluster),
                  entry.get("formattedText", ""),
                  tessaron.get("previouslyFormattedCitation", ""),
                  tessaron.get("plainTextFormattedCitation", ""))
    if len(lines) != 3 + 4 * len(pairs) or not lines[2]:
        raise RuntimeError("The reply does not match the request.")
    return lines


COMMANDS = {
    "getUserUuid": get_user_uuid,
    "getRecentStyles": get_recent_styles,
    "formatCitationsAndBibliography": format_citations_and_bibliography,
}


def main(command, folder):
    arguments = read_arguments(folder + "/mac-word-plugin-args.txt")
    results = COMMANDS[command](folder, arguments)
    count = write_file(folder + "/mac-word-plugin-results.txt", results)
    write_file(folder + "/mac-word-plugin-result-ready.txt", [str(count)])
    print(count)


if __name__ == "__main__":
    if len(sys.argv) != 3:
        sys.exit("usage: peer_python.py COMMAND FOLDER")
    main(sys.argv[1], sys.argv[2])
