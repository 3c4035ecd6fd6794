#pragma once

#include "frontend/TextCodec.h"

#include <QString>
#include <QStringList>

/// Reads and writes the files that the macro and the bridge exchange. docs/macro-guide.md describes
/// their format. The warnings call each of them "args file", also the results and the ready file.

/// U+0001, which separates the strings of a list. A string that contains it is read back as
/// two strings.
constexpr ushort argsFileSeparator = 0x0001;

/// Files are read and written in chunks of this many code units. A long document's arguments and
/// results are tens of megabytes each and would otherwise be held in memory twice.
constexpr int argsFileChunkSize = 256 * 1024;

/// Returns the codec "UTF-16LE", which Qt owns. Logs a warning and returns null if Qt does not have
/// it. Fixed by the interface: reading and writing fail if the codec is missing, although they do
/// not use it to convert the bytes.
const ArgsFileCodec* argsFileCodec();

/// Returns the strings in the list file at `path`; an empty file holds one empty string. Ignores a
/// leading byte order mark and an odd last byte. Sets `*success` to whether the whole file was
/// read. On failure returns an empty list and logs a warning. The warning contains the path if the
/// file cannot be read completely, is not a regular file or is larger than 512 MB. It does not if
/// the codec is missing.
QStringList readArgsFile(const QString& path, bool* success);

/// Replaces the file at `path` with `content`: writes "<path>.temp", deletes the old file and
/// renames the new one, so that a reader finds the old file, no file, or the complete new one.
/// Returns the number of bytes written and sets `*success` to true, even if the old file could not
/// be replaced.
///
/// Returns -1, sets `*success` to false and leaves the old file untouched if
/// - the side file cannot be created (logs a warning with `path`);
/// - the codec is missing (logs a warning without `path` and leaves an empty side file);
/// - not all bytes could be written, their number exceeds an int, or closing the side file fails
///   (logs nothing and leaves the side file).
int writeFile(const QString& path, const QString& content, bool* success);

/// Writes `strings` as a list; otherwise like writeFile(). An empty list becomes an empty file,
/// which readArgsFile() reads back as one empty string.
int writeArgsFile(const QString& path, const QStringList& strings, bool* success);
