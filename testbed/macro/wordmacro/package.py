"""Reads a .docx package and writes it back with the changed parts."""

import lzma
import os
import shutil
import stat
import struct
import tempfile
import zipfile
import zlib
from pathlib import Path
from posixpath import dirname, join, normpath

from lxml import etree

from . import signature
from .failure import Failure

W = "{http://schemas.openxmlformats.org/wordprocessingml/2006/main}"
RELATIONSHIPS = "http://schemas.openxmlformats.org/officeDocument/2006/relationships/"
STRICT = "http://purl.oclc.org/ooxml/"
LIMIT = 1 << 30  # unpacked bytes; more than any real document has

NOT_WORD = "{} is not a Word document (.docx)."
DAMAGED = "{} is damaged: {}."
ENCRYPTED = "{} is encrypted, or in the old .doc format; save it as a .docx without a password."
IS_STRICT = (
    "{} is in the format Strict Open XML, which this program does not read; in Word, save it as "
    '"Word Document (.docx)".'
)
NOT_XML = "{} is damaged: its part {} is not well-formed XML."
TOO_LONG = (
    "{} cannot be read: its part {} holds a text of more than 10,000,000 bytes, such as a field "
    "code, or more than 256 nested elements. The XML parser does not read that."
)
CANNOT_WRITE = "{} cannot be written: {}."
ZIP_ERRORS = (
    zipfile.BadZipFile,
    zlib.error,
    lzma.LZMAError,
    struct.error,
    EOFError,
    OSError,
    NotImplementedError,  # a compression method that Python does not know
    RuntimeError,  # a compression module that is not installed
    ValueError,  # for example a part name that is not in the encoding that its flag names
    OverflowError,
)


class Package:
    """The bytes of every part, and the XML trees of the parts that can hold citations."""

    def __init__(self, path):
        self.path = Path(path)
        self.infos, self.data = _unzip(self.path)
        # Part names are compared without regard to case.
        self._spellings = {name.lower(): name for name in self.data}
        self.trees = {}
        self.main = self._main_part()
        related = self._related_parts(self.main)
        self.notes = {
            kind: related[kind] for kind in ("footnotes", "endnotes") if kind in related
        }
        for name in (self.main, *self.notes.values()):
            self.trees[name] = self._parse(name)
        main = self.trees[self.main]
        if main.tag != W + "document" or main.find(W + "body") is None:
            raise Failure((IS_STRICT if STRICT in str(main.tag) else NOT_WORD).format(self.path))
        self._unchanged = {name: _serialize(tree) for name, tree in self.trees.items()}

    @property
    def is_signed(self):
        return any(map(signature.is_part, self.data))

    def save(self, path):
        """Writes a file beside the target and renames it, so that a failure leaves the target unchanged."""
        check_target(path)
        path = Path(os.path.realpath(path))
        try:
            handle, temporary = tempfile.mkstemp(prefix=".wordmacro-", dir=path.parent)
        except OSError as error:
            raise Failure(CANNOT_WRITE.format(path, error.strerror))
        try:
            with os.fdopen(handle, "wb") as stream:
                self._write(stream)
                stream.flush()
                os.fsync(stream.fileno())
            os.chmod(temporary, _file_mode(path))
            os.replace(temporary, path)
        except OSError as error:
            raise Failure(CANNOT_WRITE.format(path, error.strerror))
        finally:
            Path(temporary).unlink(missing_ok=True)

    def _write(self, stream):
        changed = {
            name: data
            for name, data in ((name, _serialize(tree)) for name, tree in self.trees.items())
            if data != self._unchanged[name]
        }
        if not changed and not self.is_signed:
            with open(self.path, "rb") as source:
                shutil.copyfileobj(source, stream)
            return
        parts = signature.remove_signature({**self.data, **changed})
        with zipfile.ZipFile(stream, "w") as target:
            for info in self.infos:
                if info.filename in parts:
                    target.writestr(info, parts[info.filename])

    def _parse(self, name):
        if name not in self.data:
            raise Failure(DAMAGED.format(self.path, f"its part {name} is missing"))
        parser = etree.XMLParser(resolve_entities=False, no_network=True)
        try:
            root = etree.fromstring(self.data[name], parser)
        except etree.XMLSyntaxError as error:
            raise Failure((TOO_LONG if _is_too_long(error) else NOT_XML).format(self.path, name))
        if root.getroottree().docinfo.doctype:
            raise Failure(DAMAGED.format(self.path, f"its part {name} has a document type"))
        return root

    def _main_part(self):
        if "[content_types].xml" not in self._spellings or "_rels/.rels" not in self._spellings:
            raise Failure(NOT_WORD.format(self.path))
        related = self._related_parts("")
        if "officeDocument" not in related:
            raise Failure(NOT_WORD.format(self.path))
        return related["officeDocument"]

    def _related_parts(self, part):
        """The parts that a part refers to, by the last word of the relationship's type."""
        folder = dirname(part)
        rels = join(folder, "_rels", part[len(folder) :].lstrip("/") + ".rels")
        if rels.lower() not in self._spellings:
            return {}
        related = {}
        for link in self._parse(self._spellings[rels.lower()]).iter("{*}Relationship"):
            kind, target = link.get("Type", ""), link.get("Target", "")
            if kind.startswith(STRICT) and kind.endswith("/officeDocument"):
                raise Failure(IS_STRICT.format(self.path))
            if kind.startswith(RELATIONSHIPS) and link.get("TargetMode") != "External":
                related[kind[len(RELATIONSHIPS) :]] = self._spelling(_resolve_target(folder, target))
        return related

    def _spelling(self, name):
        """The name of a part as the package spells it. A missing part causes an error when it is read."""
        return self._spellings.get(name.lower(), name)


def check_target(path):
    """Fails if a document cannot be written to this path."""
    path = Path(os.path.realpath(path))
    try:
        mode = path.stat().st_mode if path.exists() else None
        if mode is None and not path.parent.is_dir():
            raise Failure(CANNOT_WRITE.format(path, "its folder does not exist"))
    except (OSError, ValueError) as error:
        raise Failure(CANNOT_WRITE.format(path, getattr(error, "strerror", None) or error))
    if mode is None:
        return
    if stat.S_ISDIR(mode):
        raise Failure(CANNOT_WRITE.format(path, "it is a folder"))
    if not stat.S_ISREG(mode):
        raise Failure(CANNOT_WRITE.format(path, "it is a pipe or a device, not a file"))
    # The system would let an administrator write a read-only file, but its owner has protected it.
    if not mode & 0o222 or not os.access(path, os.W_OK):
        raise Failure(CANNOT_WRITE.format(path, "it is read-only"))


def _resolve_target(folder, target):
    return target[1:] if target.startswith("/") else normpath(join(folder, target))


def _serialize(root):
    tree = root.getroottree()
    # lxml reports standalone=False also for a part that does not declare it; None omits the declaration.
    standalone = tree.docinfo.standalone or None
    return etree.tostring(tree, encoding="UTF-8", xml_declaration=True, standalone=standalone)


def _is_too_long(error):
    return any(words in str(error) for words in ("huge", "HUGE", "too long", "Resource limit"))


def _file_mode(path):
    """An existing file keeps its permissions; a new one gets the usual ones."""
    if path.exists():
        return stat.S_IMODE(path.stat().st_mode)
    mask = os.umask(0)
    os.umask(mask)
    return 0o666 & ~mask


def _unzip(path):
    try:
        if not stat.S_ISREG(os.stat(path).st_mode):
            raise Failure(f"{path} cannot be read: it is not a file.")
        with open(path, "rb") as source:
            head = source.read(8)
    except (OSError, ValueError) as error:
        raise Failure(f"{path} cannot be read: {getattr(error, 'strerror', None) or error}.")
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
            if len({info.filename.lower() for info in infos}) != len(infos):
                raise Failure(DAMAGED.format(path, "it holds the same part twice"))
            return infos, {info.filename: source.read(info) for info in infos}
    except ZIP_ERRORS:
        raise Failure(DAMAGED.format(path, "the package is cut off or broken"))
