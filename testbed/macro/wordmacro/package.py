"""The .docx package: which parts are read, and how a changed package is written."""

import os
import shutil
import stat
import tempfile
import zipfile
import zlib
from pathlib import Path
from posixpath import dirname, join, normpath

from lxml import etree

from .failure import Failure

W = "{http://schemas.openxmlformats.org/wordprocessingml/2006/main}"
RELATIONSHIPS = "http://schemas.openxmlformats.org/officeDocument/2006/relationships/"
LIMIT = 1 << 30  # unpacked bytes; a document beyond it is a mistake or an attack

NOT_WORD = "{} is not a Word document (.docx)."
DAMAGED = "{} is damaged: {}."
ENCRYPTED = "{} is encrypted, or in the old .doc format; save it as a .docx without a password."
ZIP_ERRORS = (zipfile.BadZipFile, zlib.error, EOFError, NotImplementedError, OSError)


class Package:
    """The bytes of every part, and the trees of those that hold citations."""

    def __init__(self, path):
        self.path = Path(path)
        self.infos, self.data = _unzip(self.path)
        self.trees = {}
        self.main = self._main_part()
        related = self._related(self.main)
        self.notes = {
            kind: related[kind] for kind in ("footnotes", "endnotes") if kind in related
        }
        for name in (self.main, *self.notes.values()):
            self.trees[name] = self._parse(name)
        main = self.trees[self.main]
        if main.tag != W + "document" or main.find(W + "body") is None:
            raise Failure(NOT_WORD.format(self.path))
        self._before = {name: _bytes(tree) for name, tree in self.trees.items()}

    def save(self, path):
        """Writes beside the target and renames, so that a failure leaves the target as it was."""
        path = Path(os.path.realpath(path))
        try:
            handle, side = tempfile.mkstemp(prefix=path.name + ".", dir=path.parent)
        except OSError as error:
            raise Failure(f"{path} cannot be written: {error.strerror}.")
        try:
            with os.fdopen(handle, "wb") as stream:
                self._write(stream)
                stream.flush()
                os.fsync(stream.fileno())
            os.chmod(side, _mode(path))
            os.replace(side, path)
        except OSError as error:
            raise Failure(f"{path} cannot be written: {error.strerror}.")
        finally:
            Path(side).unlink(missing_ok=True)

    def _write(self, stream):
        changed = {
            name: data
            for name, data in ((name, _bytes(tree)) for name, tree in self.trees.items())
            if data != self._before[name]
        }
        if not changed:
            with open(self.path, "rb") as source:
                shutil.copyfileobj(source, stream)
            return
        with zipfile.ZipFile(stream, "w") as target:
            for info in self.infos:
                target.writestr(info, changed.get(info.filename, self.data[info.filename]))

    def _parse(self, name):
        if name not in self.data:
            raise Failure(DAMAGED.format(self.path, f"its part {name} is missing"))
        parser = etree.XMLParser(resolve_entities=False, no_network=True)
        try:
            root = etree.fromstring(self.data[name], parser)
        except etree.XMLSyntaxError:
            raise Failure(DAMAGED.format(self.path, f"its part {name} is not well-formed XML"))
        if root.getroottree().docinfo.doctype:
            raise Failure(DAMAGED.format(self.path, f"its part {name} has a document type"))
        return root

    def _main_part(self):
        if "[Content_Types].xml" not in self.data or "_rels/.rels" not in self.data:
            raise Failure(NOT_WORD.format(self.path))
        related = self._related("")
        if "officeDocument" not in related:
            raise Failure(NOT_WORD.format(self.path))
        return related["officeDocument"]

    def _related(self, part):
        """The parts that a part refers to, by the last word of the relationship's type."""
        folder = dirname(part)
        name = join(folder, "_rels", part[len(folder) :].lstrip("/") + ".rels")
        if name not in self.data:
            return {}
        return {
            link.get("Type", "")[len(RELATIONSHIPS) :]: _target(folder, link.get("Target", ""))
            for link in self._parse(name)
            if link.get("Type", "").startswith(RELATIONSHIPS)
            and link.get("TargetMode") != "External"
        }


def _target(folder, target):
    return target[1:] if target.startswith("/") else normpath(join(folder, target))


def _bytes(root):
    tree = root.getroottree()
    return etree.tostring(
        tree, encoding="UTF-8", xml_declaration=True, standalone=tree.docinfo.standalone
    )


def _mode(path):
    """An existing file keeps its permissions; a new one gets the usual ones."""
    if path.exists():
        return stat.S_IMODE(path.stat().st_mode)
    mask = os.umask(0)
    os.umask(mask)
    return 0o666 & ~mask


def _unzip(path):
    try:
        head = open(path, "rb").read(8)
    except OSError as error:
        raise Failure(f"{path} cannot be read: {error.strerror}.")
    if head == b"\xd0\xcf\x11\xe0\xa1\xb1\x1a\xe1":
        raise Failure(ENCRYPTED.format(path))
    if not head.startswith(b"PK"):
        raise Failure(NOT_WORD.format(path))
    try:
        with zipfile.ZipFile(path) as source:
            infos = source.infolist()
            if any(info.flag_bits & 1 for info in infos):
                raise Failure(ENCRYPTED.format(path))
            if sum(info.file_size for info in infos) > LIMIT:
                raise Failure(f"{path} would unpack to more than a gigabyte.")
            if len({info.filename for info in infos}) != len(infos):
                raise Failure(DAMAGED.format(path, "it holds the same part twice"))
            return infos, {info.filename: source.read(info) for info in infos}
    except ZIP_ERRORS:
        raise Failure(DAMAGED.format(path, "the package is cut off or broken"))
