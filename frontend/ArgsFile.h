#pragma once

#include "frontend/TextCodec.h"

#include <QString>
#include <QStringList>

/// Reading and writing the files that the macro and the bridge exchange. Their format is described
/// in docs/macro-guide.md.

/// U+0001, which separates the strings of a list. A string that contains it is read as two.
constexpr ushort argsFileSeparator = 0x0001;

/// Returns the codec "UTF-16LE", which Qt owns. Logs a warning and returns null if Qt has none.
/// The files are read and written without it; they are refused if it is missing.
const ArgsFileCodec* argsFileCodec();

/// Returns the strings in the list file at `path`; an empty file holds one empty string. Ignores a
/// leading byte order mark and an odd last byte. Sets `*success` to whether the whole file was
/// read. On failure returns an empty list and logs a warning with the path. A file that is not a
/// regular file, or is larger than 512 MB, is a failure.
QStringList readArgsFile(const QString& path, bool* success);

/// Replaces the file at `path` with `content`: writes "<path>.temp", deletes the old file and
/// renames the new one, so that a reader finds the old file, no file, or the complete new one.
/// Returns the number of bytes written and sets `*success` to true, even if the old file could not
/// be replaced.
///
/// Returns -1, sets `*success` to false and leaves the old file untouched if
/// - the side file cannot be created (logs a warning with `path`);
/// - not all bytes could be written, or their number exceeds an int (leaves the side file).
int writeFile(const QString& path, const QString& content, bool* success);

/// Writes `lines` as a list; otherwise like writeFile().
int writeArgsFile(const QString& path, const QStringList& lines, bool* success);
