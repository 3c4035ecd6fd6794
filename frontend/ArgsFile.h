#pragma once

#include <QString>
#include <QStringList>

class QTextCodec;

/// The files that the macro and the bridge exchange: UTF-16, little-endian, without a byte-order
/// mark; lists are their strings with one separator between neighbours.

/// U+0001. A string that holds it becomes two.
constexpr ushort argsFileSeparator = 0x0001;

/// Returns the codec "UTF-16LE", which Qt owns; null with a warning when there is none.
QTextCodec* argsFileCodec();

/// Returns the strings of the list file at `path`; an empty file holds one empty string. A
/// byte-order mark at its start and an odd last byte are dropped. `*success` tells whether the
/// file was read to its end; otherwise the list is empty and a warning names the path. A file of
/// more than 512 MB counts as one that cannot be read.
QStringList readArgsFile(const QString& path, bool* success);

/// Replaces the file at `path` by `content`: writes "<path>.temp" and renames it, so that a
/// reader finds the old file, none, or the whole new one. Returns the number of bytes written,
/// with `*success` true, also when the old file cannot be replaced. Returns -1, with `*success`
/// false and the old file untouched, when the side file cannot be made (with a warning that
/// names the path) or not all bytes could be written or an int cannot count them (the side file
/// stays then).
int writeFile(const QString& path, const QString& content, bool* success);

/// Writes `lines` as a list file; otherwise like writeFile().
int writeArgsFile(const QString& path, const QStringList& lines, bool* success);
